#include "eventchannels.h"

#include "servicelog.h"

#include <QAbstractSocket>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLocalSocket>

using namespace SchedulerProtocol;

EventChannels::EventChannels(SchedulerService& service, QObject* parent)
    : QObject(parent)
    , m_service(service)
{
    connect(&service, &SchedulerService::planChanged, this, [this](const QString& uuid) { OnPlanChanged(uuid, false); });
    connect(&service, &SchedulerService::runProgressed, this, [this](const QString& uuid) { OnPlanChanged(uuid, true); });
    connect(&service, &SchedulerService::planDeleted, this, [this](const QString& uuid, const QString& name) {
        Publish(FlushSchedulersType, uuid, name, QByteArray());
    });
    connect(&service, &SchedulerService::runStarted, this,
            [this](const QString& uuid) { OnTriggerInfo(TriggerExecuteType, uuid); });
    connect(&service, &SchedulerService::nextStartChanged, this,
            [this](const QString& uuid) { OnTriggerInfo(TriggerUpdateInfoType, uuid); });
    connect(&service, &SchedulerService::journalAdded, this, &EventChannels::OnJournalAdded);
    connect(&service, &SchedulerService::plansReloaded, this,
            [this] { Publish(FlushSchedulersType, QString(), QString(), QByteArray()); });
    connect(&service, &SchedulerService::journalsDeleted, this,
            [this] { Publish(FlushJournalsType, QString(), QString(), QByteArray()); });
}

EventChannels::~EventChannels()
{
    qDeleteAll(m_channels);
}

void EventChannels::Subscribe(CommunServer* server, QIODevice* socket, ChannelCommand& command)
{
    Channel*& channel = m_channels[socket];
    if (!channel) {
        channel = new Channel;
        channel->server = server;
        channel->socket = socket;
        channel->terminal.reset(new CommTerminal);
        // Emitted under the terminal's lock: the receiver only encodes and sends.
        connect(channel->terminal.get(), &CommTerminal::channelSendCommand, this, &EventChannels::onChannelSend,
                Qt::DirectConnection);
        connect(socket, &QObject::destroyed, this, [this, socket] { Forget(socket); });
        connect(socket, &QIODevice::bytesWritten, this, [this, socket](qint64 bytes) {
            if (Channel* written = m_channels.value(socket))
                written->unread = qMax<qint64>(0, written->unread - bytes);
        });
        ServiceLog::Info(QStringLiteral("Channel subscribed: %1.").arg(command.getRedistrarName()));
    }
    channel->terminal->SocketCommandInfo(socket, &command);
    channel->terminal->setLastTime(QDateTime::currentDateTime());
    Send(*channel, QByteArray());
}

void EventChannels::OnPlanChanged(const QString& planUuid, bool droppable)
{
    const SchedulerPlan* plan = m_service.FindPlan(planUuid);
    if (!plan || m_channels.isEmpty())
        return;
    SchedulerPlanData data;
    data.setSchedulerPlan(*plan);
    Publish(SingleFlushSchedulerType, planUuid, plan->getPlanName(), EncodePayload(data), droppable);
}

void EventChannels::OnTriggerInfo(quint64 type, const QString& planUuid)
{
    const SchedulerPlan* plan = m_service.Store().Find(planUuid);
    if (!plan || m_channels.isEmpty())
        return;
    RequestTriggerExecuteInfoData data;
    data.setNextStartTime(plan->getNextStartTime());
    data.setTriggerEndFlag(plan->getNextStartTime().isEmpty() ? 1 : 0);
    Publish(type, planUuid, plan->getPlanName(), EncodePayload(data));
}

void EventChannels::OnJournalAdded(const JournalAttribute& journal)
{
    if (m_channels.isEmpty())
        return;
    ResultLoadJournalsData data;
    data.getObjectJournalAttrList().append(new JournalAttribute(journal));
    Publish(FlushJournalsType, journal.getPlanUuid(), journal.getPlanName(), EncodePayload(data));
}

void EventChannels::Publish(quint64 type, const QString& planUuid, const QString& planName, const QByteArray& payload,
                            bool droppable)
{
    if (m_channels.isEmpty())
        return;
    const QByteArray event = EncodeEvent(type, planUuid, planName, payload);
    for (Channel* channel : m_channels.values()) {   // a copy: a channel cut off leaves the hash
        if (droppable && channel->unread > 0)
            continue;   // behind: the next progress supersedes this one
        if (channel->unread + event.size() > kUnreadLimit)
            CutOff(*channel);
        else
            Send(*channel, event);
    }
}

void EventChannels::Send(Channel& channel, const QByteArray& bytes)
{
    if (!channel.server || !channel.socket)
        return;
    if (!channel.terminal->SendData(bytes))
        ServiceLog::Warn(QStringLiteral("An event could not be sent to a channel."));
}

void EventChannels::onChannelSend(SocketCommandPackage* package, ResultCommand* result)
{
    QIODevice* socket = package->getSocket();
    delete package;
    Channel* channel = m_channels.value(socket);
    if (channel && channel->server && channel->socket) {
        QByteArray bytes;
        CommandBuilder::CommandToBytearray(result, bytes);
        channel->unread += bytes.size();
        channel->server->SendResult(socket, bytes);
    }
    CommandBuilder::DestroyCommand(result);
}

void EventChannels::Flush(int ms)
{
    QElapsedTimer clock;
    clock.start();
    for (Channel* channel : m_channels.values()) {
        // The server writes its next queued package from a queued bytesWritten: events run too.
        while (channel->socket && channel->unread > 0 && clock.elapsed() < ms) {
            if (channel->socket->bytesToWrite() > 0)
                channel->socket->waitForBytesWritten(static_cast<int>(ms - clock.elapsed()));
            else
                QCoreApplication::processEvents(QEventLoop::ExcludeSocketNotifiers, 10);
        }
    }
}

void EventChannels::Forget(QIODevice* socket)
{
    delete m_channels.take(socket);
}

// Closing the connection drops what the server still holds for it; the agent sees it closed.
void EventChannels::CutOff(Channel& channel)
{
    QIODevice* socket = channel.socket;
    ServiceLog::Warn(QStringLiteral("Channel cut off: its agent left %1 bytes of events unread.").arg(channel.unread));
    Forget(socket);
    if (auto* local = qobject_cast<QLocalSocket*>(socket))
        local->abort();
    else if (auto* tcp = qobject_cast<QAbstractSocket*>(socket))
        tcp->abort();
}
