#include "desktopclient.h"

#include "protocol.h"

#include <QMetaObject>

#include <memory>

namespace {

using CommandPtr = std::unique_ptr<CommCommand, void (*)(CommCommand*)>;

// A silent service is asked every few seconds whether it is still there; a lost local socket
// only shows when something is sent.
constexpr int kHeartbeatMs = 3000;

} // namespace

DesktopClient::DesktopClient(const CommunAttribute& endpoint, QObject* parent)
    : QObject(parent)
    , m_endpoint(endpoint)
    , m_clientUuid(CommonTools::CreateUuid())
    , m_connection(QStringLiteral("desktop-connection"))
{
    qRegisterMetaType<DesktopClient::Event>();
    m_heartbeat.setInterval(kHeartbeatMs);
    connect(&m_heartbeat, &QTimer::timeout, this, &DesktopClient::onHeartbeat);
}

DesktopClient::~DesktopClient()
{
    m_heartbeat.stop();
    m_pending.clear();   // no callback runs during destruction
    if (m_started) {
        m_dispatch.Stop();
        m_dispatch.UnInit();
    }
    m_connection.Stop();
}

bool DesktopClient::Start()
{
    m_dispatch.Init();
    m_dispatch.Start();
    m_started = true;
    m_manager.AttachDispatch(&m_dispatch);
    if (!StartWorker())
        return false;
    m_manager.ClientConnectServer(m_endpoint);
    m_heartbeat.start();
    return true;
}

bool DesktopClient::StartWorker()
{
    if (!m_connection.Start(m_manager, m_endpoint))
        return false;
    CommunClientWork* worker = m_connection.Worker();
    connect(worker, &CommunClientWork::hostConnected, this, &DesktopClient::onConnected, Qt::QueuedConnection);
    connect(worker, &CommunClientWork::returnResult, this, &DesktopClient::onReturnResult, Qt::QueuedConnection);
    return true;
}

void DesktopClient::Send(quint64 type, const QString& planUuid, const QString& planName, const QByteArray& payload,
                         const Answer& answer, int timeoutMs)
{
    CommandPtr command(CommandBuilder::BuilderCommand(type), &CommandBuilder::DestroyCommand);
    auto* request = dynamic_cast<RequestCommand*>(command.get());
    Reply failed;
    if (!request || !m_started) {
        failed.error = tr("The request could not be made.");
        answer(failed);
        return;
    }
    // While the service is away only the heartbeat's ping goes out: it makes the worker try again.
    if (!m_up && type != RequestCommandType) {
        failed.error = tr("The backup service is not running.");
        answer(failed);
        return;
    }
    request->setCommunAttribute(m_endpoint);
    request->setPlanUuid(planUuid);
    request->setPlanName(planName);
    request->setClientUuid(m_clientUuid);
    request->setRequestData(payload);
    if (!ClientCommunManager::RequestCommunCommand(request)) {
        failed.error = tr("The request could not be queued.");
        answer(failed);
        return;
    }
    command.release();   // the dispatch queue owns it now
    const quint64 id = m_nextId++;
    m_pending.push_back(Pending{id, type, answer});
    QTimer::singleShot(timeoutMs, this, [this, id, timeoutMs] {
        Reply late;
        late.error = tr("The service did not answer within %1 s.").arg(timeoutMs / 1000);
        Finish(id, late);
    });
}

void DesktopClient::Subscribe(const QString& registrarName)
{
    CommandPtr command(CommandBuilder::BuilderCommand(ChannelCommandType), &CommandBuilder::DestroyCommand);
    auto* channel = dynamic_cast<ChannelCommand*>(command.get());
    if (!channel || !m_started)
        return;
    channel->setCommunAttribute(m_endpoint);
    channel->setClientUuid(m_clientUuid);
    channel->setRedistrarName(registrarName);
    if (ClientCommunManager::RequestCommunCommand(channel))
        command.release();
}

void DesktopClient::Finish(quint64 id, const Reply& reply)
{
    for (auto it = m_pending.begin(); it != m_pending.end(); ++it) {
        if (it->id != id)
            continue;
        const Answer answer = it->answer;
        m_pending.erase(it);
        answer(reply);   // may send again: the list is left alone from here
        return;
    }
}

void DesktopClient::FailAll(const QString& error)
{
    std::list<Pending> failed;
    failed.swap(m_pending);
    Reply reply;
    reply.error = error;
    for (const Pending& pending : failed)
        pending.answer(reply);
}

void DesktopClient::SetUp(bool up)
{
    if (m_known && up == m_up)
        return;
    m_known = true;
    m_up = up;
    if (!up)
        FailAll(tr("The backup service is not running."));
    emit linkChanged(up);
}

void DesktopClient::onConnected(quint64, QString, quint16, bool bflag)
{
    // Every successful connect is a new connection: the old one's subscription went with it.
    if (bflag && m_up)
        m_up = false;
    if (!bflag)
        FailAll(tr("The backup service is not running."));
    SetUp(bflag);
}

void DesktopClient::onHeartbeat()
{
    if (m_pinging)
        return;
    m_pinging = true;
    // A plain request is a ping; sent while the service is away it makes the worker try again.
    Send(RequestCommandType, QString(), QString(), QByteArray(), [this](const Reply& reply) {
        m_pinging = false;
        if (!reply.answered && m_up) {
            SetUp(false);
            m_manager.ClientConnectServer(m_endpoint);   // a hung service: start over
        }
    }, m_heartbeat.interval() + 2000);
}

void DesktopClient::onReturnResult(QByteArray blocks)
{
    CommandPtr command(CommandBuilder::BytearrayToCommand(blocks), &CommandBuilder::DestroyCommand);
    if (auto* channel = dynamic_cast<ResultChannel*>(command.get())) {
        OnChannelPackage(*channel);
        return;
    }
    auto* result = dynamic_cast<ResultCommand*>(command.get());
    if (!result || result->getCommandType() != SchedulerProtocol::ResultType)
        return;
    for (const Pending& pending : m_pending) {
        if (pending.type != result->getSendCommandType())
            continue;
        Reply reply;
        reply.answered = true;
        reply.code = result->getUintResult();
        reply.data = result->getResultData();
        const QString reason = SchedulerProtocol::ReasonOf(reply.data);
        if (reply.code != 0)
            reply.error = reason.isEmpty() ? SchedulerProtocol::ErrorText(reply.code) : reason;
        if (result->getShowMsgFlag() && !reason.isEmpty())
            emit messageForUser(result->getPlanName(), reason);
        Finish(pending.id, reply);
        return;
    }
}

void DesktopClient::OnChannelPackage(const ResultChannel& package)
{
    if (package.getResultData().isEmpty()) {
        emit subscribed();
        return;
    }
    Event event;
    if (!AgentSession::DecodeEvent(package, event))
        return;
    emit eventArrived(event);
    const QString text = SchedulerProtocol::ReasonOf(event.payload);
    if (event.showMessage && !text.isEmpty())
        emit messageForUser(event.planName, text);
}
