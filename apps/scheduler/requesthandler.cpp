#include "requesthandler.h"

#include "backuplisting.h"
#include "servicelog.h"
#include "supportbundle.h"
#include "tcpsecret.h"

#include <QAbstractSocket>

#include <QDir>
#include <QLocalSocket>
#include <QThreadPool>

#include <memory>

using namespace SchedulerProtocol;

RequestHandler::RequestHandler(SchedulerService& service, QObject* parent)
    : QObject(parent)
    , m_service(service)
    , m_channels(service)
{
    connect(&m_service, &SchedulerService::runFinished, this, &RequestHandler::onRunFinished);
    connect(&m_service, &SchedulerService::mailEnded, this, &RequestHandler::onMailEnded);
}

RequestHandler::~RequestHandler()
{
    QThreadPool::globalInstance()->waitForDone();
}

void RequestHandler::Serve(CommunServer* server, const QByteArray& secret)
{
    server->SetMaxPackageSize(secret.isEmpty() ? MaxRequestBytes : MaxUnprovenBytes);
    if (!secret.isEmpty())
        m_secrets.insert(server, secret);
    connect(server, &CommunServer::incomingBlockData, this, &RequestHandler::onIncomingBlockData);
}

void RequestHandler::onIncomingBlockData(quint64, QIODevice* psocket, QByteArray bytes)
{
    auto* server = qobject_cast<CommunServer*>(sender());
    std::unique_ptr<CommCommand, void (*)(CommCommand*)> command(
        CommandBuilder::BytearrayToCommand(bytes), &CommandBuilder::DestroyCommand);
    if (!server || !psocket || !command || m_stopped)
        return;
    if (m_secrets.contains(server) && !m_trusted.contains(psocket)) {
        Admit(server, psocket, *command);
        return;
    }
    if (auto* channel = dynamic_cast<ChannelCommand*>(command.get())) {
        m_channels.Subscribe(server, psocket, *channel);
        return;
    }

    QString deferKey;
    ResultCommand result = Answer(*command, deferKey);
    if (!deferKey.isEmpty())
        m_deferred[deferKey].append(PendingAnswer{server, psocket, result});
    else
        Send(server, psocket, result);
}

void RequestHandler::FlushEvents(int ms)
{
    m_stopped = true;
    m_channels.Flush(ms);
}

void RequestHandler::Admit(CommunServer* server, QIODevice* socket, CommCommand& command)
{
    ResultCommand result(ResultType);
    result.GetRequestCommandInfo(command);
    const auto* hello = dynamic_cast<RequestCommand*>(&command);
    RequestStringData given;
    if (hello && hello->getCommandType() == HelloType && DecodePayload(hello->getRequestData(), given)
        && TcpSecret::Matches(given.getStringValue().toLatin1(), m_secrets.value(server))) {
        m_trusted.insert(socket);
        server->SetSocketMaxPackageSize(socket, MaxRequestBytes);
        connect(socket, &QObject::destroyed, this, [this, socket] { m_trusted.remove(socket); });
        result.setUintResult(ResultCode(NoError));
        Send(server, socket, result);
        return;
    }
    auto* tcp = qobject_cast<QAbstractSocket*>(socket);
    const QString peer = tcp ? tcp->peerAddress().toString() : QStringLiteral("a peer");
    ServiceLog::Warn(QStringLiteral("TCP client refused: %1 sent %2 without the TCP secret.")
                         .arg(peer, hello && hello->getCommandType() == HelloType ? QStringLiteral("a wrong secret")
                                                                                  : QStringLiteral("a request")));
    result.setUintResult(ResultCode(Unauthorized));
    result.setResultData(ReasonPayload(QStringLiteral(
        "A TCP client must first send the scheduler's TCP secret (the file tcp.secret in its data directory).")));
    Send(server, socket, result);
    if (tcp)
        tcp->disconnectFromHost();   // after the answer has been written
}

ResultCommand RequestHandler::Answer(RequestCommand& request)
{
    QString deferKey;
    return Answer(static_cast<CommCommand&>(request), deferKey);
}

ResultCommand RequestHandler::Answer(CommCommand& command, QString& deferKey)
{
    ResultCommand result(ResultType);
    result.GetRequestCommandInfo(command);
    m_reason.clear();
    auto* request = dynamic_cast<RequestCommand*>(&command);
    const ErrorNumber error = request ? Handle(*request, result, deferKey) : UnknownCommand;
    if (error == UnknownCommand)
        ServiceLog::Warn(QStringLiteral("Unknown command type %1 in the onIncomingBlockData.").arg(command.getCommandType()));
    else if (error == BadPayload)
        ServiceLog::Warn(QStringLiteral("Request payload of %1 does not decode in the onIncomingBlockData.")
                             .arg(command.getTraceFlag()));
    result.setUintResult(ResultCode(error));
    if (error != NoError)
        result.setResultData(m_reason.isEmpty() ? QByteArray() : ReasonPayload(m_reason));
    return result;
}

RequestHandler::ErrorNumber RequestHandler::Handle(RequestCommand& request, ResultCommand& result, QString& deferKey)
{
    const QString uuid = request.getPlanUuid();
    switch (request.getCommandType()) {
    case LoadSchedulersType: return LoadSchedulers(result);
    case LoadJournalsType: return LoadJournals(request, result);
    case NewOperationType: return NewOperation(request, result);
    case EditOperationType: return EditOperation(request, result);
    case DeleteOperationType: return m_service.DeletePlan(uuid);
    case ExecuteOperationType: return WithPlan(m_service.RunNow(uuid), uuid, result);
    case CancelOperationType: {
        const ErrorNumber error = m_service.Cancel(uuid);
        if (error == NoError && m_service.IsBusy(uuid))
            deferKey = uuid;   // answered when the run has ended
        return WithPlan(error, uuid, result);
    }
    case DeleteSelectJournalType: return DeleteSelectJournal(request);
    case DeleteAllJournalType: return m_service.DeleteAllJournals();
    case EmailConfigUpdateType: return EmailConfigUpdate(request);
    case LoadEmailConfigType: return LoadEmailConfig(result);
    case EmailMessageTestType: return EmailMessageTest(request, deferKey);
    case RequestCommandType: return NoError;   // the plain request: a ping
    case LoadOperationsType: return LoadOperations(result);
    case LoadBackupsType: return LoadBackups(uuid, deferKey);
    case AddOperationType: return AddOperation(request, result);
    case SingleOperationNewType: return SingleOperationNew(request, result);
    case SingleOperationCancelType: {
        const ErrorNumber error = m_service.CancelOnce(uuid);
        if (error == NoError && m_service.IsBusy(uuid))
            deferKey = uuid;   // answered when the run has ended
        return error;
    }
    case SingleOperationDeleteType: return m_service.DeleteOnce(uuid, &m_reason);
    case MinizipType: return Minizip(request, deferKey);
    case FlushSchedulersType: return Reload(result);
    case FlushJournalsType: return LoadJournals(request, result);
    case SingleFlushSchedulerType: return WithPlan(m_service.FindPlan(uuid) ? NoError : PlanNotFound, uuid, result);
    case TriggerExecuteType: return TriggerInfo(m_service.FireNow(uuid), uuid, result);
    case TriggerUpdateInfoType: return TriggerInfo(m_service.UpdateNextStart(uuid), uuid, result);
    default:
        if (request.getCommandType() >= CustomCommandType) {
            m_reason = QStringLiteral("This scheduler serves no custom command (type %1).").arg(request.getCommandType());
            return NotSupported;
        }
        return UnknownCommand;
    }
}

RequestHandler::ErrorNumber RequestHandler::WithPlan(ErrorNumber error, const QString& planUuid, ResultCommand& result)
{
    if (error == NoError)
        result.setResultData(PlanPayload(planUuid));
    return error;
}

RequestHandler::ErrorNumber RequestHandler::LoadSchedulers(ResultCommand& result)
{
    ResultLoadSchedulersData data;
    QList<SchedulerPlan*>& list = data.getObjectActionPlansList();
    const std::vector<const SchedulerPlan*>& plans = m_service.Store().Ordered();
    list.reserve(static_cast<int>(plans.size()));
    for (const SchedulerPlan* plan : plans)
        list.append(new SchedulerPlan(*plan));
    result.setResultData(EncodePayload(data));
    return NoError;
}

RequestHandler::ErrorNumber RequestHandler::LoadJournals(const RequestCommand& request, ResultCommand& result)
{
    QList<JournalAttribute> journals;
    if (const ErrorNumber error = m_service.LoadJournals(request.getPlanUuid(), journals))
        return error;
    ResultLoadJournalsData data;
    for (const JournalAttribute& journal : journals)
        data.getObjectJournalAttrList().append(new JournalAttribute(journal));
    result.setResultData(EncodePayload(data));
    return NoError;
}

template <typename Record, typename Make>
RequestHandler::ErrorNumber RequestHandler::MakePlan(const RequestCommand& request, ResultCommand& result, Make make)
{
    Record data;
    if (!DecodePayload(request.getRequestData(), data))
        return BadPayload;
    QString uuid;
    const ErrorNumber error = make(data, uuid);
    if (error == NoError)
        result.setPlanUuid(uuid);
    return WithPlan(error, uuid, result);
}

RequestHandler::ErrorNumber RequestHandler::NewOperation(const RequestCommand& request, ResultCommand& result)
{
    return MakePlan<RequestNewOperationData>(request, result, [&](const RequestNewOperationData& data, QString& uuid) {
        return m_service.CreatePlan(request.getPlanName(), data, uuid, &m_reason);
    });
}

RequestHandler::ErrorNumber RequestHandler::EditOperation(const RequestCommand& request, ResultCommand& result)
{
    SchedulerPlanData data;
    if (!DecodePayload(request.getRequestData(), data))
        return BadPayload;
    const SchedulerPlan& edit = data.getRfrnSchedulerPlan();
    const QString uuid = request.getPlanUuid().isEmpty() ? edit.getPlanUuid() : request.getPlanUuid();
    const ErrorNumber error = m_service.EditPlan(uuid, edit, &m_reason);
    if (error == NoError)
        result.setPlanUuid(uuid);
    return WithPlan(error, uuid, result);
}

RequestHandler::ErrorNumber RequestHandler::DeleteSelectJournal(const RequestCommand& request)
{
    QstringListData data;
    if (!DecodePayload(request.getRequestData(), data))
        return BadPayload;
    return m_service.DeleteJournals(data.getQstringList());
}

RequestHandler::ErrorNumber RequestHandler::EmailConfigUpdate(const RequestCommand& request)
{
    RequestEmailConfigUpdateData data;
    if (!DecodePayload(request.getRequestData(), data))
        return BadPayload;
    return m_service.UpdateEmail(data.getEmailConfigAttribute());
}

RequestHandler::ErrorNumber RequestHandler::LoadEmailConfig(ResultCommand& result)
{
    RequestEmailConfigUpdateData data;
    data.setEmailConfigAttribute(m_service.Email());
    result.setResultData(EncodePayload(data));
    return NoError;
}

RequestHandler::ErrorNumber RequestHandler::EmailMessageTest(const RequestCommand& request, QString& deferKey)
{
    RequestEmailConfigUpdateData data;
    const bool given = !request.getRequestData().isEmpty();
    if (given && !DecodePayload(request.getRequestData(), data))
        return BadPayload;
    const EmailConfigAttribute settings = data.getEmailConfigAttribute();
    const quint64 ticket = m_service.SendTestMail(given ? &settings : nullptr, m_reason);
    if (ticket == 0)
        return MailFailed;
    deferKey = QStringLiteral("mail:%1").arg(ticket);
    return NoError;
}

void RequestHandler::onMailEnded(quint64 ticket, const QString& error, const QString& to)
{
    const QString key = QStringLiteral("mail:%1").arg(ticket);
    const QList<PendingAnswer> waiting = m_deferred.value(key);
    if (error.isEmpty())
        Complete(key, NoError, ReasonPayload(QStringLiteral("Test mail sent to %1.").arg(to)));
    else
        Complete(key, MailFailed, ReasonPayload(error));
    // A send cut short by the service's stop ends after the event loop: write the answer out now.
    for (const PendingAnswer& answer : waiting) {
        if (m_service.Stopping() && answer.socket)
            answer.socket->waitForBytesWritten(500);
    }
}

RequestHandler::ErrorNumber RequestHandler::LoadOperations(ResultCommand& result)
{
    QStringList entries;
    const OperationRegistry& operations = m_service.Operations();
    for (const QString& name : operations.Names())
        entries << name + QLatin1Char('\t') + operations.Find(name)->parameterHelp;
    QstringListData data;
    data.setQstringList(entries);
    result.setResultData(EncodePayload(data));
    return NoError;
}

RequestHandler::ErrorNumber RequestHandler::AddOperation(const RequestCommand& request, ResultCommand& result)
{
    return MakePlan<SchedulerPlanData>(request, result, [&](SchedulerPlanData& data, QString& uuid) {
        return m_service.AddPlan(data.getRfrnSchedulerPlan(), uuid, &m_reason);
    });
}

RequestHandler::ErrorNumber RequestHandler::SingleOperationNew(const RequestCommand& request, ResultCommand& result)
{
    return MakePlan<RequestNewOperationData>(request, result, [&](const RequestNewOperationData& data, QString& uuid) {
        return m_service.RunOnce(request.getPlanName(), data.getTaskAttribute(), uuid, &m_reason);
    });
}

RequestHandler::ErrorNumber RequestHandler::Minizip(const RequestCommand& request, QString& deferKey)
{
    RequestMinizipData data;
    if (!DecodePayload(request.getRequestData(), data))
        return BadPayload;
    const QString path = QDir::cleanPath(data.getSavePath());
    if (!SupportBundle::CheckPath(path, m_reason))
        return WriteFailed;
    const SchedulerService::Settings& settings = m_service.Config();
    const SupportBundle bundle = SupportBundle::Collect(m_service, settings.dataDir, settings.configFile);
    deferKey = QStringLiteral("bundle-%1").arg(++m_nextKey);
    const QString key = deferKey;
    // Logs can be large: the archive is written off the main thread, the answer comes back to it.
    QThreadPool::globalInstance()->start([this, bundle, path, key] {
        QString reason;
        const bool written = bundle.Write(path, reason);
        QMetaObject::invokeMethod(this, [this, written, path, reason, key] {
            if (written)
                ServiceLog::Info(QStringLiteral("Support bundle written: %1.").arg(path));
            Complete(key, written ? NoError : WriteFailed,
                     written ? ReasonPayload(path) : ReasonPayload(reason));
        }, Qt::QueuedConnection);
    });
    return NoError;
}

RequestHandler::ErrorNumber RequestHandler::LoadBackups(const QString& planUuid, QString& deferKey)
{
    const SchedulerPlan* plan = m_service.Store().Find(planUuid);
    if (!plan)
        return PlanNotFound;
    const TaskAttribute task = plan->getTaskAttribute();
    deferKey = QStringLiteral("backups-%1").arg(++m_nextKey);
    const QString key = deferKey;
    // A mirror can hold many files: it is read off the main thread.
    QThreadPool::globalInstance()->start([this, task, planUuid, key] {
        QStringList entries;
        QString reason;
        const bool listed = BackupListing::Of(task, planUuid, entries, reason);
        QMetaObject::invokeMethod(this, [this, listed, entries, reason, key] {
            QstringListData data;
            data.setQstringList(entries);
            Complete(key, listed ? NoError : BadParameter, listed ? EncodePayload(data) : ReasonPayload(reason));
        }, Qt::QueuedConnection);
    });
    return NoError;
}

RequestHandler::ErrorNumber RequestHandler::Reload(ResultCommand& result)
{
    const ErrorNumber error = m_service.Reload();
    if (error == PlanBusy)
        m_reason = QStringLiteral("Runs are in progress or queued: reload the plans when they have ended.");
    return error == NoError ? LoadSchedulers(result) : error;
}

RequestHandler::ErrorNumber RequestHandler::TriggerInfo(ErrorNumber error, const QString& planUuid,
                                                        ResultCommand& result)
{
    const SchedulerPlan* plan = m_service.Store().Find(planUuid);
    if (error != NoError || !plan)
        return error != NoError ? error : PlanNotFound;
    RequestTriggerExecuteInfoData data;
    data.setNextStartTime(plan->getNextStartTime());
    data.setTriggerEndFlag(plan->getNextStartTime().isEmpty() ? 1 : 0);
    result.setResultData(EncodePayload(data));
    return NoError;
}

void RequestHandler::onRunFinished(const QString& planUuid, quint64)
{
    Complete(planUuid, NoError, PlanPayload(planUuid));
}

void RequestHandler::Complete(const QString& key, ErrorNumber error, const QByteArray& data)
{
    const QList<PendingAnswer> pending = m_deferred.take(key);
    for (PendingAnswer answer : pending) {
        answer.result.setUintResult(ResultCode(error));
        answer.result.setResultData(data);
        if (answer.server && answer.socket)   // the asking agent may have gone meanwhile
            Send(answer.server, answer.socket, answer.result);
    }
}

void RequestHandler::Send(CommunServer* server, QIODevice* socket, ResultCommand& result)
{
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(&result, bytes);
    if (Owe(server, socket, bytes.size()))
        server->SendResult(socket, bytes);
}

bool RequestHandler::Owe(CommunServer* server, QIODevice* socket, qint64 bytes)
{
    auto owed = m_unwritten.find(socket);
    if (owed == m_unwritten.end()) {
        owed = m_unwritten.insert(socket, 0);
        // Event packages are written to the same connection: the count never goes below 0.
        connect(socket, &QIODevice::bytesWritten, this, [this, socket](qint64 written) {
            const auto found = m_unwritten.find(socket);
            if (found != m_unwritten.end())
                *found = qMax<qint64>(0, *found - written);
        });
        connect(socket, &QObject::destroyed, this, [this, socket] { m_unwritten.remove(socket); });
    }
    if (*owed == 0 || *owed + bytes <= MaxUnreadAnswerBytes) {
        *owed += bytes;
        return true;
    }
    ServiceLog::Warn(QStringLiteral("Client cut off: it left %1 bytes of answers unread and asked for more.").arg(*owed));
    // The server keeps a connection's waiting answers until an error or a new connection at the
    // same address; closed from here, they are freed now.
    server->EraseSendSinkDataList(socket);
    if (auto* local = qobject_cast<QLocalSocket*>(socket))
        local->abort();
    else if (auto* tcp = qobject_cast<QAbstractSocket*>(socket))
        tcp->abort();
    return false;
}

QByteArray RequestHandler::PlanPayload(const QString& planUuid) const
{
    const SchedulerPlan* plan = m_service.FindPlan(planUuid);
    if (!plan)
        return QByteArray();
    SchedulerPlanData data;
    data.setSchedulerPlan(*plan);
    return EncodePayload(data);
}
