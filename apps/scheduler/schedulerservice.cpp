#include "schedulerservice.h"

#include <QDateTime>
#include <QFileInfo>

#include <log4cpp/Category.hh>

#include <algorithm>
#include <memory>

using namespace SchedulerProtocol;

namespace {

const QString kTimeFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss");

QString now()
{
    return QDateTime::currentDateTime().toString(kTimeFormat);
}

void warn(const QString& text)
{
    Logger::GetFileLogHandle().warn(text.toStdString());
}

QString outcomeText(int outcome)
{
    switch (outcome) {
    case OperationRunner::Succeeded: return QStringLiteral("Succeeded");
    case OperationRunner::Failed: return QStringLiteral("Failed");
    default: return QStringLiteral("Cancelled");
    }
}

} // namespace

SchedulerService::SchedulerService(SchedulerDatabase& database, const QString& emailFile, QObject* parent)
    : QObject(parent)
    , m_database(database)
    , m_emailFile(emailFile)
{
    m_email.Init(emailFile);
    m_email.ReadConfig();
    connect(&m_runner, &OperationRunner::runDequeued, this, &SchedulerService::onRunDequeued);
    connect(&m_runner, &OperationRunner::runFinished, this, &SchedulerService::onRunFinished);
}

bool SchedulerService::LoadPlans()
{
    QList<SchedulerPlan> plans;
    if (!m_database.LoadPlans(plans))
        return false;
    m_plans.clear();
    for (SchedulerPlan& plan : plans) {
        // A run that was in progress when the service stopped did not finish.
        if (plan.getSchemeAttribute().getStatus() == QLatin1String("Running"))
            plan.getObjectSchemeAttribute().setStatus(QStringLiteral("Cancelled"));
        m_plans.insert(plan.getPlanUuid(), plan);
    }
    return true;
}

void SchedulerService::Serve(CommunServer* server)
{
    connect(server, &CommunServer::incomingBlockData, this, &SchedulerService::onIncomingBlockData);
}

void SchedulerService::onIncomingBlockData(quint64, QIODevice* psocket, QByteArray bytes)
{
    auto* server = qobject_cast<CommunServer*>(sender());
    std::unique_ptr<CommCommand, void (*)(CommCommand*)> command(
        CommandBuilder::BytearrayToCommand(bytes), &CommandBuilder::DestroyCommand);
    if (!server || !psocket || !command)
        return;

    ResultCommand result(ResultType);
    result.GetRequestCommandInfo(*command);
    auto* request = dynamic_cast<RequestCommand*>(command.get());
    bool deferred = false;
    ErrorNumber error = UnknownCommand;
    if (request)
        error = Handle(*request, result, deferred);
    if (error == UnknownCommand)
        warn(QStringLiteral("Unknown command type %1 in the onIncomingBlockData.").arg(command->getCommandType()));
    else if (error == BadPayload)
        warn(QStringLiteral("Request payload of %1 does not decode in the onIncomingBlockData.")
                 .arg(command->getTraceFlag()));

    if (deferred) {
        PendingAnswer& pending = m_pending[command->getPlanUuid()];
        pending.server = server;
        pending.socket = psocket;
        pending.result = result;
        return;
    }
    result.setUintResult(ResultCode(error));
    if (error != NoError)
        result.setResultData(QByteArray());
    Answer(server, psocket, result);
}

SchedulerService::ErrorNumber SchedulerService::Handle(RequestCommand& request, ResultCommand& result,
                                                       bool& deferred)
{
    switch (request.getCommandType()) {
    case LoadSchedulersType: return LoadSchedulers(result);
    case LoadJournalsType: return LoadJournals(request, result);
    case NewOperationType: return NewOperation(request, result);
    case EditOperationType: return EditOperation(request, result);
    case DeleteOperationType: return DeleteOperation(request);
    case ExecuteOperationType: return ExecuteOperation(request, deferred);
    case CancelOperationType: return CancelOperation(request, result);
    case DeleteSelectJournalType: return DeleteSelectJournal(request);
    case DeleteAllJournalType: return DeleteAllJournal();
    case EmailConfigUpdateType: return EmailConfigUpdate(request);
    case LoadEmailConfigType: return LoadEmailConfig(result);
    default: return UnknownCommand;
    }
}

SchedulerService::ErrorNumber SchedulerService::LoadSchedulers(ResultCommand& result)
{
    QList<SchedulerPlan> plans = m_plans.values();
    std::stable_sort(plans.begin(), plans.end());
    ResultLoadSchedulersData data;
    for (const SchedulerPlan& plan : plans)
        data.getObjectActionPlansList().append(new SchedulerPlan(WithNextStart(plan)));
    result.setResultData(EncodePayload(data));
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::LoadJournals(const RequestCommand& request,
                                                             ResultCommand& result)
{
    QList<JournalAttribute> journals;
    if (!m_database.LoadJournals(request.getPlanUuid(), journals))
        return StorageFailed;
    ResultLoadJournalsData data;
    for (const JournalAttribute& journal : journals)
        data.getObjectJournalAttrList().append(new JournalAttribute(journal));
    result.setResultData(EncodePayload(data));
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::NewOperation(const RequestCommand& request,
                                                             ResultCommand& result)
{
    RequestNewOperationData data;
    if (!DecodePayload(request.getRequestData(), data))
        return BadPayload;
    if (!OperationRunner::IsRegistered(data.getTaskAttribute().getOperationRegisterName()))
        return UnknownOperation;

    SchedulerPlan plan(data);
    const QString uuid = CommonTools::CreateUuid();
    plan.setPlanUuid(uuid);
    plan.setPlanName(request.getPlanName());
    plan.getObjectTaskAttribute().setTaskName(CommonTools::GetJobName(uuid));
    plan.getObjectTriggerAttribute().setTriggerName(CommonTools::GetTriggerName(uuid));
    if (!m_database.InsertPlan(plan))
        return StorageFailed;
    m_plans.insert(uuid, plan);
    result.setPlanUuid(uuid);
    result.setResultData(PlanPayload(uuid));
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::EditOperation(const RequestCommand& request,
                                                              ResultCommand& result)
{
    SchedulerPlanData data;
    if (!DecodePayload(request.getRequestData(), data))
        return BadPayload;
    const SchedulerPlan& edit = data.getRfrnSchedulerPlan();
    const QString uuid = request.getPlanUuid().isEmpty() ? edit.getPlanUuid() : request.getPlanUuid();
    if (!m_plans.contains(uuid))
        return PlanNotFound;
    if (!OperationRunner::IsRegistered(edit.getTaskAttribute().getOperationRegisterName()))
        return UnknownOperation;

    SchedulerPlan plan = m_plans.value(uuid);
    TaskAttribute task = edit.getTaskAttribute();
    TriggerAttribute trigger = edit.getTriggerAttribute();
    task.setTaskName(plan.getTaskAttribute().getTaskName());
    trigger.setTriggerName(plan.getTriggerAttribute().getTriggerName());
    plan.setTaskAttribute(task);
    plan.setTriggerAttribute(trigger);
    if (!edit.getPlanName().isEmpty())
        plan.setPlanName(edit.getPlanName());
    if (!m_database.UpdatePlan(plan))
        return StorageFailed;
    m_plans.insert(uuid, plan);
    result.setPlanUuid(uuid);
    result.setResultData(PlanPayload(uuid));
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::DeleteOperation(const RequestCommand& request)
{
    const QString uuid = request.getPlanUuid();
    if (!m_plans.contains(uuid))
        return PlanNotFound;
    m_runner.Cancel(uuid);   // a waiting run ends as cancelled, with its journal
    if (!m_database.DeletePlan(m_plans.value(uuid)))
        return StorageFailed;
    m_plans.remove(uuid);
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::ExecuteOperation(const RequestCommand& request, bool& deferred)
{
    const QString uuid = request.getPlanUuid();
    if (!m_plans.contains(uuid))
        return PlanNotFound;
    const SchedulerPlan& plan = m_plans[uuid];
    if (plan.getIsRunning() || m_pending.contains(uuid))
        return PlanBusy;
    if (!OperationRunner::IsRegistered(plan.getTaskAttribute().getOperationRegisterName()))
        return UnknownOperation;
    if (!m_runner.QueueRun(uuid))
        return StorageFailed;
    deferred = true;   // answered when the run has started (or finished)
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::CancelOperation(const RequestCommand& request,
                                                                ResultCommand& result)
{
    const QString uuid = request.getPlanUuid();
    if (!m_plans.contains(uuid))
        return PlanNotFound;
    if (!m_runner.Cancel(uuid))
        return PlanNotRunning;
    result.setResultData(PlanPayload(uuid));
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::DeleteSelectJournal(const RequestCommand& request)
{
    QstringListData data;
    if (!DecodePayload(request.getRequestData(), data))
        return BadPayload;
    int deleted = 0;
    return m_database.DeleteJournals(data.getQstringList(), deleted) ? NoError : StorageFailed;
}

SchedulerService::ErrorNumber SchedulerService::DeleteAllJournal()
{
    int deleted = 0;
    return m_database.DeleteAllJournals(deleted) ? NoError : StorageFailed;
}

SchedulerService::ErrorNumber SchedulerService::EmailConfigUpdate(const RequestCommand& request)
{
    RequestEmailConfigUpdateData data;
    if (!DecodePayload(request.getRequestData(), data))
        return BadPayload;
    // The settings writer reports nothing: find out beforehand whether the file can be written.
    const QFileInfo file(m_emailFile);
    const bool writable = file.exists() ? file.isWritable() : QFileInfo(file.absolutePath()).isWritable();
    if (!writable)
        return SettingsFailed;
    m_email.SetConfigAttribute(data.getEmailConfigAttribute());
    m_email.WriteConfig();
    return NoError;
}

SchedulerService::ErrorNumber SchedulerService::LoadEmailConfig(ResultCommand& result)
{
    RequestEmailConfigUpdateData data;
    data.setEmailConfigAttribute(m_email);
    result.setResultData(EncodePayload(data));
    return NoError;
}

void SchedulerService::onRunDequeued(const QString& planUuid)
{
    if (!m_plans.contains(planUuid)) {
        SendPending(planUuid, PlanNotFound);
        return;
    }
    SchedulerPlan& plan = m_plans[planUuid];
    plan.setIsRunning(true);
    plan.setWasError(false);
    plan.setWasCancelled(false);
    plan.setErrorMessage(QString());
    plan.setStartTime(now());
    plan.setEndTime(QString());
    plan.setCommandActionFlag(ExecuteOperationType);
    plan.getObjectSchemeAttribute().setStatus(QStringLiteral("Running"));
    m_runStarted.insert(planUuid, QDateTime::currentDateTime());
    m_runner.Start(planUuid, plan.getTaskAttribute());
    SendPending(planUuid, NoError);   // after a run that finished at once, the answer shows its end
}

void SchedulerService::onRunFinished(const QString& planUuid, int outcome, const QString& reason)
{
    if (!m_plans.contains(planUuid))
        return;
    SchedulerPlan& plan = m_plans[planUuid];
    const QDateTime started = m_runStarted.take(planUuid);
    const QString end = now();
    plan.setIsRunning(false);
    plan.setEndTime(end);
    plan.setWasError(outcome == OperationRunner::Failed);
    plan.setWasCancelled(outcome == OperationRunner::Cancelled);
    plan.setErrorMessage(reason);
    plan.setResultCode(static_cast<quint64>(outcome));
    SchemeAttribute& scheme = plan.getObjectSchemeAttribute();
    scheme.setStatus(outcomeText(outcome));
    scheme.setLatestFinishTime(end);
    if (!m_database.UpdatePlan(plan))
        Logger::GetFileLogHandle().error("Store plan state failed in the onRunFinished.");

    JournalAttribute journal;
    journal.setJournalUuid(CommonTools::CreateUuid());
    journal.setPlanUuid(planUuid);
    journal.setPlanName(plan.getPlanName());
    journal.setTaskName(plan.getTaskAttribute().getTaskName());
    journal.setStartTime(plan.getStartTime());
    journal.setEndTime(end);
    journal.setCreateTime(end);
    journal.setTimeConsuming(static_cast<quint64>(qMax<qint64>(0, started.msecsTo(QDateTime::currentDateTime()))));
    journal.setResult(outcomeText(outcome));
    journal.setCommandActionFlag(plan.getCommandActionFlag());
    journal.setExecutionState(outcomeText(outcome));
    if (outcome != OperationRunner::Succeeded) {
        journal.setErrorReason(reason);
        journal.setSolution(outcome == OperationRunner::Failed
                                ? QStringLiteral("Check the plan's operation and its parameter, then run it again.")
                                : QStringLiteral("Run the plan again when it suits you."));
    }
    if (!m_database.InsertJournal(journal))
        Logger::GetFileLogHandle().error("Store journal failed in the onRunFinished.");
}

void SchedulerService::SendPending(const QString& planUuid, ErrorNumber error)
{
    if (!m_pending.contains(planUuid))
        return;
    PendingAnswer pending = m_pending.take(planUuid);
    pending.result.setUintResult(ResultCode(error));
    if (error == NoError)
        pending.result.setResultData(PlanPayload(planUuid));
    if (pending.server && pending.socket)   // the asking agent may have gone meanwhile
        Answer(pending.server, pending.socket, pending.result);
}

void SchedulerService::Answer(CommunServer* server, QIODevice* socket, ResultCommand& result)
{
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(&result, bytes);
    server->SendResult(socket, bytes);
}

QByteArray SchedulerService::PlanPayload(const QString& planUuid)
{
    SchedulerPlanData data;
    data.setSchedulerPlan(WithNextStart(m_plans.value(planUuid)));
    return EncodePayload(data);
}

SchedulerPlan SchedulerService::WithNextStart(const SchedulerPlan& plan) const
{
    // The next firing as the trigger describes it; firing itself is not scheduled here.
    SchedulerPlan shown(plan);
    const TriggerAttribute trigger = plan.getTriggerAttribute();
    const QDateTime start = QDateTime::fromString(trigger.getStartTime(), kTimeFormat);
    const QDateTime current = QDateTime::currentDateTime();
    QDateTime next;
    if (start.isValid() && start > current) {
        next = start;
    } else if (start.isValid() && trigger.getInterval() > 0) {
        const qint64 interval = static_cast<qint64>(qMin<quint64>(trigger.getInterval(), 1ULL << 40));
        const qint64 periods = start.secsTo(current) / interval + 1;
        next = start.addSecs(periods * interval);
    }
    const QDateTime end = QDateTime::fromString(trigger.getEndTime(), kTimeFormat);
    if (next.isValid() && trigger.getTriggerEndFlag() && end.isValid() && next > end)
        next = QDateTime();
    shown.setNextStartTime(next.isValid() ? next.toString(kTimeFormat) : QString());
    return shown;
}
