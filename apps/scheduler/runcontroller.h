#ifndef BACKUPFRAME_SCHEDULER_RUNCONTROLLER_H
#define BACKUPFRAME_SCHEDULER_RUNCONTROLLER_H

#include "operationregistry.h"
#include "planstore.h"
#include "protocol.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>

#include <functional>

// The one run queue of the service, fed by agents and by the trigger timer. At most
// `parallel` runs go at once; a plan is never queued or running twice. Each run is a
// RunJob; its start and end are stored with the plan, and every end leaves a journal.
// Main thread.
class RunController : public QObject
{
    Q_OBJECT

public:
    RunController(PlanStore& store, const OperationRegistry& registry, int parallel, QObject* parent = nullptr);
    ~RunController() override;

    // Queues a run of the plan: PlanNotFound, PlanBusy (queued or running already),
    // UnknownOperation, or NoError (it may have started already).
    SchedulerProtocol::ErrorNumber Request(const QString& planUuid, SchedulerProtocol::RunReason reason);
    // Cancels a queued run at once, a running one through its job (runFinished follows):
    // PlanNotRunning when there is none.
    SchedulerProtocol::ErrorNumber Cancel(const QString& planUuid);
    // Queues a one-off run of a plan that is not stored: the run keeps the plan itself.
    SchedulerProtocol::ErrorNumber RequestOnce(const SchedulerPlan& plan);
    // The plan of a one-off run that is queued or running, or null.
    const SchedulerPlan* FindOnce(const QString& runUuid) const;
    bool IsBusy(const QString& planUuid) const;
    int RunningCount() const { return m_running.size(); }
    int QueuedCount() const { return m_queue.size(); }

    // A journal for a run that never started (outcome Skipped or Cancelled), with its reason and a
    // solution; unstored: the plan of a one-off run.
    void RecordWithoutRun(const QString& planUuid, quint64 outcome, const QString& reason, const QString& solution,
                          const SchedulerPlan* unstored = nullptr);
    // Stops everything at service stop: queued runs are journaled as skipped, running ones
    // are cancelled, waited for and journaled as interrupted.
    void Shutdown();

    // The plan as a run that ended with outcome at `end` leaves it.
    static void MarkEnded(SchedulerPlan& plan, quint64 outcome, const QString& reason, const QString& end);
    // What a user can do after a run ended so, when the job gave nothing better.
    static QString SolutionFor(quint64 outcome);
    static JournalAttribute MakeJournal(const SchedulerPlan& plan, quint64 outcome, const QString& start,
                                        const QString& end, quint64 msecs, const QString& reason,
                                        const QString& solution);

signals:
    // The plan's run state changed: queued, started, progressed, ended.
    void planStateChanged(const QString& planUuid);
    // The run's bytes processed moved on (superseded by the next one).
    void runProgressed(const QString& planUuid);
    void runStarted(const QString& planUuid);
    // A run ended or did not happen, and this journal says so (emitted before runFinished).
    void journalAdded(const JournalAttribute& journal);
    void runFinished(const QString& planUuid, quint64 outcome);

private:
    struct Run {
        QString planUuid;
        SchedulerProtocol::RunReason reason = SchedulerProtocol::ManualRun;
        QDateTime started;
        SchedulerPlan plan;   // as it was at the start: a plan deleted meanwhile still gets its journal
        RunJob* job = nullptr;
        bool once = false;    // a one-off run: plan is all there is of it; only its start and journal are stored
    };

    void Pump();
    void Begin(Run run);
    // Applies edit to the plan as shown: the stored one, or a one-off run's own.
    void EditShown(const QString& planUuid, const std::function<void(SchedulerPlan&)>& edit);
    void onJobProgress(const QString& planUuid, quint64 done, quint64 total);
    void onJobFinished(const QString& planUuid, quint64 outcome, const QString& reason, const QString& solution);
    void End(const Run& run, quint64 outcome, const QString& reason, const QString& solution);

    PlanStore& m_store;
    const OperationRegistry& m_registry;
    const int m_parallel;
    QList<Run> m_queue;
    QHash<QString, Run> m_running;
};

#endif
