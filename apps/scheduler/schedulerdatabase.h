#ifndef BACKUPFRAME_SCHEDULER_SCHEDULERDATABASE_H
#define BACKUPFRAME_SCHEDULER_SCHEDULERDATABASE_H

#include <backupframe.h>

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

// The scheduler's own statements on the library's tables: plans are stored whole
// (scheme, task and trigger rows in one transaction) or not at all. Main thread only.
class SchedulerDatabase : public DatabaseFunctionOperation
{
public:
    bool InsertPlan(const SchedulerPlan& plan);
    // Replaces the plan's scheme fields, task and trigger rows (names are kept as stored).
    bool UpdatePlan(const SchedulerPlan& plan);
    // Removes the plan, its task and its trigger; its journals stay.
    bool DeletePlan(const SchedulerPlan& plan);
    bool LoadPlans(QList<SchedulerPlan>& plans);

    bool InsertJournal(const JournalAttribute& journal);
    // All journals, or one plan's when planUuid is not empty; oldest first.
    bool LoadJournals(const QString& planUuid, QList<JournalAttribute>& journals);
    bool DeleteJournals(const QStringList& journalUuids, int& deleted);
    bool DeleteAllJournals(int& deleted);

private:
    bool IsOpen() const;
    bool WritePlanRows(const SchedulerPlan& plan, bool insert);
    bool Transaction(const std::function<bool()>& work);
};

#endif
