#include "command/resultloadschedulersdata.h"

#include "model/schedulerplan.h"

#include <QByteArray>
#include <QDataStream>

ResultLoadSchedulersData::ResultLoadSchedulersData() = default;

ResultLoadSchedulersData::ResultLoadSchedulersData(const ResultLoadSchedulersData& other)
    : CommandObj(other)
{
    copy(other.m_actionPlansList);
}

ResultLoadSchedulersData& ResultLoadSchedulersData::operator=(const ResultLoadSchedulersData& other)
{
    if (this != &other) {
        clean();
        copy(other.m_actionPlansList);
    }
    return *this;
}

ResultLoadSchedulersData::~ResultLoadSchedulersData()
{
    clean();
}

void ResultLoadSchedulersData::clean()
{
    for (SchedulerPlan* plan : qAsConst(m_actionPlansList))
        delete plan;
    m_actionPlansList.clear();
}

void ResultLoadSchedulersData::copy(const QList<SchedulerPlan*>& actionPlansList)
{
    for (const SchedulerPlan* source : actionPlansList) {
        // A null entry copies as a null entry; Write skips it.
        SchedulerPlan* plan = nullptr;
        if (source != nullptr) {
            plan = new SchedulerPlan();
            *plan = *source;
        }
        m_actionPlansList.append(plan);
    }
}

void ResultLoadSchedulersData::Write(QDataStream& out)
{
    if (m_actionPlansList.isEmpty()) {
        out << QByteArray();
        return;
    }
    // The inner stream keeps QDataStream's default version on purpose.
    QByteArray list;
    QDataStream inner(&list, QIODevice::WriteOnly);
    for (SchedulerPlan* plan : qAsConst(m_actionPlansList)) {
        if (plan != nullptr)
            plan->Write(inner);
    }
    out << list;
}

void ResultLoadSchedulersData::Read(QDataStream& in)
{
    QByteArray list;
    in >> list;
    if (list.size() <= 0)
        return;
    QDataStream inner(&list, QIODevice::ReadOnly);
    while (!inner.atEnd()) {
        auto* plan = new SchedulerPlan();
        plan->Read(inner);
        m_actionPlansList.append(plan);
    }
}

QList<SchedulerPlan*> ResultLoadSchedulersData::getActionPlansList() const { return m_actionPlansList; }
QList<SchedulerPlan*>& ResultLoadSchedulersData::getObjectActionPlansList() { return m_actionPlansList; }

void ResultLoadSchedulersData::setActionPlansList(const QList<SchedulerPlan*>& actionPlansList)
{
    // Copy before cleaning: the argument may hold this record's own pointers
    // (a list taken with getActionPlansList).
    ResultLoadSchedulersData fresh;
    fresh.copy(actionPlansList);
    clean();
    m_actionPlansList.swap(fresh.m_actionPlansList);
}
