#ifndef BACKUPFRAME_SCHEDULER_SCHEDULERDATABASE_H
#define BACKUPFRAME_SCHEDULER_SCHEDULERDATABASE_H

#include <backupframe.h>

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

// What the service keeps about each plan's schedule and run beyond the library's tables
// (table tb_plan_runs): the instant up to which its occurrences were handled, and the
// start of a run in progress (empty when none is).
struct PlanRunRow {
    QString lastFireTime;
    QString runStartTime;
};

// The scheduler's own statements on the library's tables and on its own tb_plan_runs:
// every change is one transaction, stored whole or not at all. Main thread only.
class SchedulerDatabase : public DatabaseFunctionOperation
{
public:
    // Creates tb_plan_runs and tb_once_runs when missing and proves that the file can be written;
    // false with the SQL error text.
    bool PrepareRunTable(QString& error);
    // The connection's last error text.
    QString LastError() const;
    // Why the file cannot be used as a database, found on a connection of its own (Init keeps
    // its reason in the log only).
    static QString OpenError(const QString& file);

    // Stores the plan's rows; its handled-up-to instant starts at lastFireTime.
    bool InsertPlan(const SchedulerPlan& plan, const QString& lastFireTime);
    // Replaces the plan's scheme fields, task and trigger rows (names are kept as stored);
    // a non-empty lastFireTime also resets the handled-up-to instant.
    bool UpdatePlan(const SchedulerPlan& plan, const QString& lastFireTime = QString());
    // Removes the plan, its task, its trigger and its run row; its journals stay.
    bool DeletePlan(const SchedulerPlan& plan);
    bool LoadPlans(QList<SchedulerPlan>& plans);
    bool LoadRunRows(QHash<QString, PlanRunRow>& rows);
    bool SetLastFireTime(const QString& planUuid, const QString& lastFireTime);

    // A run starts: the plan's scheme (status "Running") and the run's start, together.
    bool StartRun(const SchedulerPlan& plan, const QString& runStartTime);
    // A run ends: the plan's scheme and its journal together; the run row is cleared.
    // A one-off run (no stored plan) gets its journal and loses its tb_once_runs row.
    bool FinishRun(const SchedulerPlan& plan, const JournalAttribute& journal);
    // A one-off run starts: its uuid, name, operation and start (tb_once_runs), so that a run
    // the service does not see to its end is journaled at the next start.
    bool StartOnce(const SchedulerPlan& run);
    // The one-off runs that started and did not end, as plans with uuid, name, operation and start.
    bool LoadOnceRuns(QList<SchedulerPlan>& runs);

    bool InsertJournal(const JournalAttribute& journal);
    // All journals, or one plan's when planUuid is not empty; oldest first.
    bool LoadJournals(const QString& planUuid, QList<JournalAttribute>& journals);
    bool DeleteJournals(const QStringList& journalUuids, int& deleted);
    bool DeleteAllJournals(int& deleted);
    // Deletes the plan's journals beyond its newest keepCount (0: no limit) and those recorded
    // before `before` (empty: no limit).
    bool PruneJournals(const QString& planUuid, int keepCount, const QString& before, int& pruned);

protected:
    // The plan's scheme, task and trigger rows, without a transaction of their own.
    bool InsertPlanRows(const SchedulerPlan& plan) { return WritePlanRows(plan, true); }

private:
    bool IsOpen() const;
    bool WritePlanRows(const SchedulerPlan& plan, bool insert);
    bool WriteJournal(const JournalAttribute& journal);
    bool WriteLastRun(const SchedulerPlan& plan);
    bool WriteRunRow(const QString& planUuid, const char* column, const QString& value);
    bool Transaction(const std::function<bool()>& work);
};

#endif
