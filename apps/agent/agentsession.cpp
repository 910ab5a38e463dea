#include "agentsession.h"

#include "protocol.h"

#include <QEventLoop>
#include <QMetaObject>
#include <QTimer>

namespace {

using CommandPtr = std::unique_ptr<CommCommand, void (*)(CommCommand*)>;

QString seconds(int ms)
{
    return QStringLiteral("%1 s").arg(ms / 1000.0);
}

} // namespace

AgentSession::AgentSession(const CommunAttribute& endpoint, int timeoutMs, QObject* parent)
    : QObject(parent)
    , m_endpoint(endpoint)
    , m_timeoutMs(timeoutMs)
    , m_clientUuid(CommonTools::CreateUuid())
    , m_connection(QStringLiteral("agent-connection"))
{
}

AgentSession::~AgentSession()
{
    Close();
}

QString AgentSession::EndpointText() const
{
    if (m_endpoint.getProtocolType() == CommunAttribute::TcpProtocol)
        return QStringLiteral("%1:%2").arg(m_endpoint.getDestSvrNameIp()).arg(m_endpoint.getDestPort());
    return m_endpoint.getDestSvrNameIp();
}

bool AgentSession::Open()
{
    m_dispatch.Init();
    m_dispatch.Start();
    m_dispatchStarted = true;
    m_manager.AttachDispatch(&m_dispatch);
    if (!StartWorker()) {
        m_error = QStringLiteral("the connection worker did not start");
        return false;
    }
    m_link = Link::Pending;
    m_manager.ClientConnectServer(m_endpoint);
    if (!WaitUntil([this] { return m_link != Link::Pending; }, m_timeoutMs)) {
        m_error = QStringLiteral("no connection within %1").arg(seconds(m_timeoutMs));
        return false;
    }
    if (m_link != Link::Up) {
        m_error = QStringLiteral("nothing serves it; is the scheduler running?");
        return false;
    }
    return true;
}

bool AgentSession::StartWorker()
{
    if (!m_connection.Start(m_manager, m_endpoint))
        return false;
    CommunClientWork* worker = m_connection.Worker();
    connect(worker, &CommunClientWork::firstConnected, this, &AgentSession::onFirstConnected, Qt::QueuedConnection);
    connect(worker, &CommunClientWork::hostConnected, this, &AgentSession::onHostConnected, Qt::QueuedConnection);
    connect(worker, &CommunClientWork::returnResult, this, &AgentSession::onReturnResult, Qt::QueuedConnection);
    return true;
}

bool AgentSession::Call(quint64 type, const QString& planUuid, const QString& planName, const QByteArray& payload,
                        ResultCommand& answer)
{
    CommandPtr command(CommandBuilder::BuilderCommand(type), &CommandBuilder::DestroyCommand);
    auto* request = dynamic_cast<RequestCommand*>(command.get());
    if (!request) {
        m_error = QStringLiteral("cannot build a request of type %1").arg(type);
        return false;
    }
    request->setCommunAttribute(m_endpoint);
    request->setPlanUuid(planUuid);
    request->setPlanName(planName);
    request->setClientUuid(m_clientUuid);
    request->setRequestData(payload);

    m_answer.reset();
    m_answerTimedOut = false;
    m_awaitedType = type;
    if (m_link == Link::Lost)
        m_link = Link::Up;  // the worker reconnects by itself on the next request
    if (!ClientCommunManager::RequestCommunCommand(request)) {
        m_error = QStringLiteral("the request could not be queued");
        return false;
    }
    command.release();  // the dispatch queue owns it now

    WaitUntil([this] { return m_answer || m_link == Link::Lost; }, m_timeoutMs);
    if (!m_answer) {
        m_answerTimedOut = m_link != Link::Lost;
        m_error = m_link == Link::Lost ? QStringLiteral("the connection was lost")
                                       : QStringLiteral("no answer within %1").arg(seconds(m_timeoutMs));
        return false;
    }
    answer = *m_answer;
    m_answer.reset();
    return true;
}

void AgentSession::Close()
{
    if (m_dispatchStarted) {
        m_dispatch.Stop();
        m_dispatch.UnInit();
        m_dispatchStarted = false;
    }
    m_connection.Stop();
}

bool AgentSession::Subscribe(const QString& registrarName)
{
    CommandPtr command(CommandBuilder::BuilderCommand(ChannelCommandType), &CommandBuilder::DestroyCommand);
    auto* channel = dynamic_cast<ChannelCommand*>(command.get());
    if (!channel) {
        m_error = QStringLiteral("cannot build a channel command");
        return false;
    }
    channel->setCommunAttribute(m_endpoint);
    channel->setClientUuid(m_clientUuid);
    channel->setRedistrarName(registrarName);
    m_subscribed = false;
    if (!ClientCommunManager::RequestCommunCommand(channel)) {
        m_error = QStringLiteral("the channel could not be queued");
        return false;
    }
    command.release();
    WaitUntil([this] { return m_subscribed || m_link == Link::Lost; }, m_timeoutMs);
    if (!m_subscribed)
        m_error = m_link == Link::Lost ? QStringLiteral("the connection was lost")
                                       : QStringLiteral("no answer to the subscription within %1").arg(seconds(m_timeoutMs));
    return m_subscribed;
}

AgentSession::Wait AgentSession::NextEvent(Event& event, const std::function<bool()>& stop, int idleMs)
{
    WaitUntil([&] { return !m_events.empty() || m_link == Link::Lost || stop(); }, idleMs);
    if (!m_events.empty()) {
        event = std::move(m_events.front());
        m_events.pop_front();
        return Wait::Event;
    }
    if (stop())
        return Wait::Stopped;
    if (m_link != Link::Lost)
        return Wait::Idle;
    m_error = QStringLiteral("the connection was lost");
    return Wait::Lost;
}

bool AgentSession::WaitUntil(const std::function<bool()>& done, int timeoutMs)
{
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    connect(this, &AgentSession::progressed, &loop, &QEventLoop::quit);
    if (timeoutMs >= 0)
        timer.start(timeoutMs);
    // progressed is only emitted from queued slots, i.e. inside exec: no wake-up is missed.
    while (!done() && (timeoutMs < 0 || timer.isActive()))
        loop.exec();
    return done();
}

void AgentSession::onFirstConnected(quint64, QString, quint16, bool bflag)
{
    m_connects += bflag ? 1 : 0;
    if (m_link == Link::Pending)
        m_link = bflag ? Link::Up : Link::Refused;
    emit progressed();
}

void AgentSession::onHostConnected(quint64, QString, quint16, bool bflag)
{
    if (m_link == Link::Pending)
        return;  // the first outcome arrives through firstConnected
    m_connects += bflag ? 1 : 0;
    m_link = bflag ? Link::Up : Link::Lost;
    emit progressed();
}

void AgentSession::onReturnResult(QByteArray blocks)
{
    CommandPtr command(CommandBuilder::BytearrayToCommand(blocks), &CommandBuilder::DestroyCommand);
    if (auto* channel = dynamic_cast<ResultChannel*>(command.get())) {
        OnChannelPackage(*channel);
        return;
    }
    auto* result = dynamic_cast<ResultCommand*>(command.get());
    // Only the answer to the request in flight counts; anything else is dropped.
    if (!result || m_answer || result->getCommandType() != SchedulerProtocol::ResultType
        || result->getSendCommandType() != m_awaitedType)
        return;
    m_answer.reset(new ResultCommand(*result));
    emit progressed();
}

bool AgentSession::DecodeEvent(const ResultChannel& package, Event& event)
{
    CommandPtr inner(CommandBuilder::BytearrayToCommand(package.getResultData()), &CommandBuilder::DestroyCommand);
    auto* request = dynamic_cast<RequestCommand*>(inner.get());
    if (!request)
        return false;
    event.type = request->getCommandType();
    event.planUuid = request->getPlanUuid();
    event.planName = request->getPlanName();
    event.payload = request->getRequestData();
    event.showMessage = request->getShowMsgFlag() != 0;
    return true;
}

void AgentSession::OnChannelPackage(const ResultChannel& package)
{
    if (package.getResultData().isEmpty()) {
        m_subscribed = true;
    } else {
        Event event;
        if (!m_subscribed || !DecodeEvent(package, event))
            return;
        m_events.push_back(std::move(event));
    }
    emit progressed();
}
