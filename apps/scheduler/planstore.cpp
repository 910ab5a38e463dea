#include "planstore.h"

#include "triggerschedule.h"

#include <algorithm>

PlanStore::PlanStore(SchedulerDatabase& database)
    : m_database(database)
{
}

bool PlanStore::Load()
{
    QList<SchedulerPlan> plans;
    QHash<QString, PlanRunRow> rows;
    if (!m_database.LoadPlans(plans) || !m_database.LoadRunRows(rows))
        return false;
    m_entries.clear();
    m_entries.reserve(plans.size());
    m_runRows = rows;
    // The database lists them by create time, then row order: that is the order of creation.
    for (const SchedulerPlan& plan : plans)
        Put(plan);
    return true;
}

void PlanStore::Put(const SchedulerPlan& plan)
{
    auto existing = m_entries.find(plan.getPlanUuid());
    if (existing != m_entries.end()) {
        existing->plan = plan;   // the create time never changes after creation
        return;
    }
    const QDateTime created = QDateTime::fromString(plan.getSchemeAttribute().getCreateTime(), TriggerSchedule::TimeFormat);
    m_entries.insert(plan.getPlanUuid(), Entry{plan, created, m_nextSequence++});
    m_orderValid = false;
}

const SchedulerPlan* PlanStore::Find(const QString& planUuid) const
{
    const auto it = m_entries.constFind(planUuid);
    return it == m_entries.constEnd() ? nullptr : &it->plan;
}

const std::vector<const SchedulerPlan*>& PlanStore::Ordered() const
{
    if (m_orderValid)
        return m_ordered;
    std::vector<const Entry*> entries;
    entries.reserve(m_entries.size());
    for (const Entry& entry : m_entries)
        entries.push_back(&entry);
    // SchedulerPlan::operator< compares the parsed create times; compare the parsed values directly.
    std::sort(entries.begin(), entries.end(), [](const Entry* a, const Entry* b) {
        if (a->created < b->created)
            return true;
        if (b->created < a->created)
            return false;
        return a->sequence < b->sequence;
    });
    m_ordered.clear();
    m_ordered.reserve(entries.size());
    for (const Entry* entry : entries)
        m_ordered.push_back(&entry->plan);
    m_orderValid = true;
    return m_ordered;
}

bool PlanStore::Insert(const SchedulerPlan& plan, const QDateTime& handledUpTo)
{
    const QString text = handledUpTo.toString(TriggerSchedule::TimeFormat);
    if (!m_database.InsertPlan(plan, text))
        return false;
    m_runRows[plan.getPlanUuid()].lastFireTime = text;
    Put(plan);
    return true;
}

bool PlanStore::Update(const SchedulerPlan& plan, const QDateTime& handledUpTo)
{
    const QString text = handledUpTo.isValid() ? handledUpTo.toString(TriggerSchedule::TimeFormat) : QString();
    if (!Contains(plan.getPlanUuid()) || !m_database.UpdatePlan(plan, text))
        return false;
    if (!text.isEmpty())
        m_runRows[plan.getPlanUuid()].lastFireTime = text;
    Put(plan);
    return true;
}

bool PlanStore::Remove(const QString& planUuid)
{
    const SchedulerPlan* plan = Find(planUuid);
    if (!plan || !m_database.DeletePlan(*plan))
        return false;
    m_entries.remove(planUuid);
    m_runRows.remove(planUuid);
    m_orderValid = false;
    return true;
}

bool PlanStore::SetHandledUpTo(const QString& planUuid, const QDateTime& instant)
{
    const QString text = instant.toString(TriggerSchedule::TimeFormat);
    if (!Contains(planUuid) || !m_database.SetLastFireTime(planUuid, text))
        return false;
    m_runRows[planUuid].lastFireTime = text;
    return true;
}

bool PlanStore::StartRun(const SchedulerPlan& plan)
{
    if (!Contains(plan.getPlanUuid()) || !m_database.StartRun(plan, plan.getStartTime()))
        return false;
    m_runRows[plan.getPlanUuid()].runStartTime = plan.getStartTime();
    Put(plan);
    return true;
}

bool PlanStore::FinishRun(const SchedulerPlan& plan, const JournalAttribute& journal)
{
    if (!m_database.FinishRun(plan, journal))
        return false;
    if (Contains(plan.getPlanUuid())) {
        m_runRows[plan.getPlanUuid()].runStartTime.clear();
        Put(plan);
    }
    return true;
}

bool PlanStore::AddJournal(const JournalAttribute& journal)
{
    return m_database.InsertJournal(journal);
}

void PlanStore::EditVolatile(const QString& planUuid, const std::function<void(SchedulerPlan&)>& edit)
{
    const auto it = m_entries.find(planUuid);
    if (it != m_entries.end())
        edit(it->plan);
}
