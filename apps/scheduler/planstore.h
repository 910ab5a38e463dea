#ifndef BACKUPFRAME_SCHEDULER_PLANSTORE_H
#define BACKUPFRAME_SCHEDULER_PLANSTORE_H

#include "schedulerdatabase.h"

#include <backupframe.h>

#include <QDateTime>
#include <QHash>
#include <QString>

#include <functional>
#include <vector>

// The plans in memory over the database. Every change is stored first and made in memory
// only once the database took it, so memory never shows what was not stored. Listing order
// is the plans' own operator< (oldest first), ties in order of creation; the order is kept
// between changes, so a listing neither re-parses nor re-sorts. Main thread.
class PlanStore
{
public:
    explicit PlanStore(SchedulerDatabase& database);

    // Loads the plans and their run rows; false when the database refuses.
    bool Load();

    int Count() const { return m_entries.size(); }
    bool Contains(const QString& planUuid) const { return m_entries.contains(planUuid); }
    // The plan, or null; valid until the next change of the store.
    const SchedulerPlan* Find(const QString& planUuid) const;
    // Every plan, oldest first.
    const std::vector<const SchedulerPlan*>& Ordered() const;
    // The stored row of the plan's schedule and run (empty texts when none was stored).
    PlanRunRow RunRow(const QString& planUuid) const { return m_runRows.value(planUuid); }

    // New plan: stored with its occurrences handled up to `handledUpTo`.
    bool Insert(const SchedulerPlan& plan, const QDateTime& handledUpTo);
    // Task, trigger, name or scheme changed; a valid handledUpTo restarts the schedule from there.
    bool Update(const SchedulerPlan& plan, const QDateTime& handledUpTo = QDateTime());
    bool Remove(const QString& planUuid);
    bool SetHandledUpTo(const QString& planUuid, const QDateTime& instant);
    bool StartRun(const SchedulerPlan& plan);
    // A one-off run starts (its plan is not among the stored plans).
    bool StartOnce(const SchedulerPlan& run) { return m_database.StartOnce(run); }
    // Stores the plan's end of run and its journal; a deleted plan gets the journal only.
    bool FinishRun(const SchedulerPlan& plan, const JournalAttribute& journal);
    bool AddJournal(const JournalAttribute& journal);

    // Changes run state that is not stored (progress, next start, a queued status) in place.
    void EditVolatile(const QString& planUuid, const std::function<void(SchedulerPlan&)>& edit);

    SchedulerDatabase& Database() { return m_database; }

private:
    struct Entry {
        SchedulerPlan plan;
        QDateTime created;   // the create time parsed once
        quint64 sequence;    // order of creation
    };

    void Put(const SchedulerPlan& plan);

    SchedulerDatabase& m_database;
    QHash<QString, Entry> m_entries;
    QHash<QString, PlanRunRow> m_runRows;
    quint64 m_nextSequence = 0;
    mutable std::vector<const SchedulerPlan*> m_ordered;
    mutable bool m_orderValid = false;
};

#endif
