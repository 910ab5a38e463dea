#include "runcontroller.h"

#include "servicelog.h"
#include "triggerschedule.h"

using namespace SchedulerProtocol;

namespace {

QString timeText(const QDateTime& time)
{
    return time.toString(TriggerSchedule::TimeFormat);
}

QString reasonText(RunReason reason)
{
    switch (reason) {
    case ScheduledRun: return QStringLiteral("scheduled");
    case CatchUpRun: return QStringLiteral("catch-up");
    default: return QStringLiteral("manual");
    }
}

} // namespace

QString RunController::SolutionFor(quint64 outcome)
{
    switch (outcome) {
    case Failed: return QStringLiteral("Check the plan's operation and its parameter, then run it again.");
    case Cancelled: return QStringLiteral("Run the plan again when it suits you.");
    case Interrupted:
        return QStringLiteral("Nothing was lost: run the plan again now (backupframe-agent run PLAN) or wait for "
                              "its next start. If the service keeps stopping, read its log.");
    default: return QString();
    }
}

RunController::RunController(PlanStore& store, const OperationRegistry& registry, int parallel, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_registry(registry)
    , m_parallel(qMax(1, parallel))
{
}

RunController::~RunController()
{
    Shutdown();
}

bool RunController::IsBusy(const QString& planUuid) const
{
    if (m_running.contains(planUuid))
        return true;
    return std::any_of(m_queue.begin(), m_queue.end(), [&](const Run& run) { return run.planUuid == planUuid; });
}

ErrorNumber RunController::Request(const QString& planUuid, RunReason reason)
{
    const SchedulerPlan* plan = m_store.Find(planUuid);
    if (!plan)
        return PlanNotFound;
    if (IsBusy(planUuid))
        return PlanBusy;
    if (!m_registry.Contains(plan->getTaskAttribute().getOperationRegisterName()))
        return UnknownOperation;
    Run run;
    run.planUuid = planUuid;
    run.reason = reason;
    m_queue.append(run);
    if (m_running.size() >= m_parallel) {
        m_store.EditVolatile(planUuid, [](SchedulerPlan& queued) {
            queued.getObjectSchemeAttribute().setExecutState(QueuedState());
        });
        emit planStateChanged(planUuid);
    }
    Pump();
    return NoError;
}

ErrorNumber RunController::RequestOnce(const SchedulerPlan& plan)
{
    if (!m_registry.Contains(plan.getTaskAttribute().getOperationRegisterName()))
        return UnknownOperation;
    Run run;
    run.planUuid = plan.getPlanUuid();
    run.reason = ManualRun;
    run.plan = plan;
    run.plan.setStartTime(QString());
    run.once = true;
    // Stored while it waits too: one the service does not see to its end is journaled anyway.
    if (!m_store.StartOnce(run.plan)) {
        ServiceLog::Error(QStringLiteral("Store a one-off run of %1 failed in the RequestOnce.").arg(run.planUuid));
        return StorageFailed;
    }
    m_queue.append(run);
    if (m_running.size() >= m_parallel) {
        m_queue.last().plan.getObjectSchemeAttribute().setExecutState(QueuedState());
        emit planStateChanged(run.planUuid);
    }
    Pump();
    return NoError;
}

const SchedulerPlan* RunController::FindOnce(const QString& runUuid) const
{
    const auto running = m_running.constFind(runUuid);
    if (running != m_running.constEnd())
        return running->once ? &running->plan : nullptr;
    for (const Run& run : m_queue) {
        if (run.planUuid == runUuid)
            return run.once ? &run.plan : nullptr;
    }
    return nullptr;
}

void RunController::EditShown(const QString& planUuid, const std::function<void(SchedulerPlan&)>& edit)
{
    auto running = m_running.find(planUuid);
    if (running != m_running.end() && running->once)
        edit(running->plan);
    else
        m_store.EditVolatile(planUuid, edit);
}

void RunController::Pump()
{
    while (m_running.size() < m_parallel && !m_queue.isEmpty())
        Begin(m_queue.takeFirst());
}

void RunController::Begin(Run run)
{
    const SchedulerPlan* stored = run.once ? &run.plan : m_store.Find(run.planUuid);
    if (!stored)
        return;   // deleted while it waited
    SchedulerPlan plan(*stored);
    run.started = QDateTime::currentDateTime();
    plan.setIsRunning(true);
    plan.setTriggerFlag(run.reason);
    plan.setWasError(false);
    plan.setWasCancelled(false);
    plan.setErrorMessage(QString());
    plan.setStartTime(timeText(run.started));
    plan.setEndTime(QString());
    plan.setBytesProcessed(0);
    plan.setTotalBytesToCopy(0);
    plan.setCommandActionFlag(ExecuteOperationType);
    plan.getObjectSchemeAttribute().setStatus(RunningState());
    plan.getObjectSchemeAttribute().setExecutState(RunningState());
    if (!(run.once ? m_store.StartOnce(plan) : m_store.StartRun(plan))) {
        ServiceLog::Error(QStringLiteral("Store the start of a run of %1 failed in the Begin.").arg(run.planUuid));
        End(run, Failed, QStringLiteral("The database refused to record the start of the run."),
            QStringLiteral("Check that the data directory can be written, then run the plan again."));
        return;
    }
    run.plan = plan;
    run.job = m_registry.Create(plan.getTaskAttribute());
    run.job->SetPlanName(plan.getPlanName());
    const QString uuid = run.planUuid;
    connect(run.job, &RunJob::progress, this,
            [this, uuid](quint64 done, quint64 total) { onJobProgress(uuid, done, total); });
    connect(run.job, &RunJob::finished, this,
            [this, uuid](quint64 outcome, const QString& reason, const QString& solution) {
                onJobFinished(uuid, outcome, reason, solution);
            });
    m_running.insert(uuid, run);
    ServiceLog::Info(QStringLiteral("Run started: %1 %2 (%3).").arg(plan.getPlanName(), uuid, reasonText(run.reason)));
    emit planStateChanged(uuid);
    emit runStarted(uuid);
    run.job->Start();
}

void RunController::onJobProgress(const QString& planUuid, quint64 done, quint64 total)
{
    if (!m_running.contains(planUuid))
        return;
    EditShown(planUuid, [done, total](SchedulerPlan& plan) {
        plan.setBytesProcessed(done);
        plan.setTotalBytesToCopy(total);
    });
    // All done is not superseded by a later progress: it always reaches the agents.
    if (done == total)
        emit planStateChanged(planUuid);
    else
        emit runProgressed(planUuid);
}

void RunController::onJobFinished(const QString& planUuid, quint64 outcome, const QString& reason,
                                  const QString& solution)
{
    if (!m_running.contains(planUuid))
        return;
    const Run run = m_running.take(planUuid);
    run.job->deleteLater();
    End(run, outcome, reason, solution.isEmpty() ? SolutionFor(outcome) : solution);
    Pump();
}

ErrorNumber RunController::Cancel(const QString& planUuid)
{
    const auto running = m_running.constFind(planUuid);
    if (running != m_running.constEnd()) {
        running->job->Cancel();   // ends through finished, journaled there
        return NoError;
    }
    for (int i = 0; i < m_queue.size(); ++i) {
        if (m_queue[i].planUuid != planUuid)
            continue;
        const Run run = m_queue.takeAt(i);
        RecordWithoutRun(planUuid, Cancelled, QStringLiteral("The run was cancelled before it started."),
                         SolutionFor(Cancelled), run.once ? &run.plan : nullptr);
        emit runFinished(planUuid, Cancelled);
        return NoError;
    }
    return PlanNotRunning;
}

void RunController::End(const Run& run, quint64 outcome, const QString& reason, const QString& solution)
{
    const QDateTime ended = QDateTime::currentDateTime();
    const SchedulerPlan* stored = m_store.Find(run.planUuid);
    SchedulerPlan plan(stored ? *stored : run.plan);
    MarkEnded(plan, outcome, reason, timeText(ended));
    const qint64 msecs = run.started.isValid() ? qMax<qint64>(0, run.started.msecsTo(ended)) : 0;
    const JournalAttribute journal = MakeJournal(plan, outcome, plan.getStartTime(), timeText(ended),
                                                 static_cast<quint64>(msecs), reason, solution);
    if (!m_store.FinishRun(plan, journal))
        ServiceLog::Error(QStringLiteral("Store the end of a run of %1 failed in the End.").arg(run.planUuid));
    emit planStateChanged(run.planUuid);
    emit journalAdded(journal);
    ServiceLog::Info(QStringLiteral("Run finished: %1 %2: %3 in %4 ms%5")
                         .arg(plan.getPlanName(), run.planUuid, OutcomeText(outcome))
                         .arg(msecs)
                         .arg(reason.isEmpty() || outcome == Succeeded ? QStringLiteral(".")
                                                                       : QStringLiteral(" (%1).").arg(reason)));
    emit runFinished(run.planUuid, outcome);
}

void RunController::MarkEnded(SchedulerPlan& plan, quint64 outcome, const QString& reason, const QString& end)
{
    plan.setIsRunning(false);
    plan.setEndTime(end);
    plan.setWasError(outcome == Failed || outcome == Interrupted);
    plan.setWasCancelled(outcome == Cancelled);
    plan.setErrorMessage(outcome == Succeeded ? QString() : reason);
    plan.setResultCode(outcome);
    plan.getObjectSchemeAttribute().setStatus(OutcomeText(outcome));
    plan.getObjectSchemeAttribute().setExecutState(QString());
    plan.getObjectSchemeAttribute().setLatestFinishTime(end);
}

void RunController::RecordWithoutRun(const QString& planUuid, quint64 outcome, const QString& reason,
                                     const QString& solution, const SchedulerPlan* unstored)
{
    const SchedulerPlan* stored = m_store.Find(planUuid);
    if (!stored)
        stored = unstored;
    if (!stored)
        return;
    const QString now = timeText(QDateTime::currentDateTime());
    m_store.EditVolatile(planUuid, [](SchedulerPlan& plan) {
        if (plan.getSchemeAttribute().getExecutState() == QueuedState())
            plan.getObjectSchemeAttribute().setExecutState(QString());
    });
    const JournalAttribute journal = MakeJournal(*stored, outcome, now, now, 0, reason, solution);
    // A one-off run's journal replaces its stored row.
    if (!(stored == unstored ? m_store.FinishRun(*stored, journal) : m_store.AddJournal(journal)))
        ServiceLog::Error(QStringLiteral("Store a journal of %1 failed in the RecordWithoutRun.").arg(planUuid));
    emit journalAdded(journal);
    emit planStateChanged(planUuid);
    ServiceLog::Info(QStringLiteral("Run %1: %2 %3 (%4)")
                         .arg(OutcomeText(outcome).toLower(), stored->getPlanName(), planUuid, reason));
}

void RunController::Shutdown()
{
    const QList<Run> queued = m_queue;
    m_queue.clear();
    for (const Run& run : queued)
        RecordWithoutRun(run.planUuid, Skipped,
                         QStringLiteral("The scheduler service stopped before the run could start."),
                         SolutionFor(Interrupted), run.once ? &run.plan : nullptr);
    const QList<Run> running = m_running.values();
    m_running.clear();
    for (const Run& run : running) {
        disconnect(run.job, nullptr, this, nullptr);
        run.job->Cancel();
        run.job->Wait();
        delete run.job;
        End(run, Interrupted, QStringLiteral("The scheduler service was stopped during the run."),
            SolutionFor(Interrupted));
    }
}

JournalAttribute RunController::MakeJournal(const SchedulerPlan& plan, quint64 outcome, const QString& start,
                                            const QString& end, quint64 msecs, const QString& reason,
                                            const QString& solution)
{
    JournalAttribute journal;
    journal.setJournalUuid(CommonTools::CreateUuid());
    journal.setPlanUuid(plan.getPlanUuid());
    journal.setPlanName(plan.getPlanName());
    // The task as the user knows it: the operation chosen for the plan, not its internal key.
    journal.setTaskName(plan.getTaskAttribute().getOperationRegisterName());
    journal.setStartTime(start);
    journal.setEndTime(end);
    journal.setCreateTime(timeText(QDateTime::currentDateTime()));
    journal.setTimeConsuming(msecs);
    journal.setResult(OutcomeText(outcome));
    journal.setCommandActionFlag(plan.getCommandActionFlag());
    journal.setExecutionState(OutcomeText(outcome));
    if (outcome != Succeeded) {
        journal.setErrorReason(reason);
        journal.setSolution(solution);
    }
    return journal;
}
