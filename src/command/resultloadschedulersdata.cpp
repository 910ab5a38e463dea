#include "command/resultloadschedulersdata.h"

#include "command/ownedlist.h"
#include "model/schedulerplan.h"

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

void ResultLoadSchedulersData::clean() { OwnedList::Clean(m_actionPlansList); }

void ResultLoadSchedulersData::copy(const QList<SchedulerPlan*>& actionPlansList)
{
    OwnedList::Copy(m_actionPlansList, actionPlansList);
}

void ResultLoadSchedulersData::Write(QDataStream& out) { OwnedList::Write(out, m_actionPlansList); }
void ResultLoadSchedulersData::Read(QDataStream& in) { OwnedList::Read(in, m_actionPlansList); }

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
