#ifndef BACKUPFRAME_SCHEDULER_EVENTCHANNELS_H
#define BACKUPFRAME_SCHEDULER_EVENTCHANNELS_H

#include "schedulerservice.h"

#include <backupframe.h>

#include <QHash>
#include <QObject>
#include <QPointer>

#include <memory>

// The agents that asked to be told of changes: each registered its connection with a
// ChannelCommand and gets every event as a ResultChannel through its own CommTerminal.
// A channel whose connection went is forgotten; one whose agent does not read is cut off
// once its unread events pass a limit, and progress is not sent while it is behind, so a
// slow agent cannot make the service's memory grow. Main thread.
//
// event                                    command (type)              payload
// plan created, edited, queued, started,   "SingleFlushScheduler" 809  SchedulerPlanData
//   progressed or ended (a one-off run too,
//   but for its end: its journal tells)
// plan deleted                             "FlushSchedulers" 103       none
// plans reloaded from the database         "FlushSchedulers" 103       none, no plan
// run started                              "TriggerExecute" 600        RequestTriggerExecuteInfoData
// next start changed                       "TriggerUpdateInfo" 601     RequestTriggerExecuteInfoData
// a journal written (run ended, skipped)   "FlushJournals" 104         ResultLoadJournalsData, one journal
// journals deleted                         "FlushJournals" 104         none, no plan
class EventChannels : public QObject
{
    Q_OBJECT

public:
    // Unread event bytes at which an agent is cut off.
    static constexpr qint64 kUnreadLimit = 1024 * 1024;

    explicit EventChannels(SchedulerService& service, QObject* parent = nullptr);
    ~EventChannels() override;

    // Registers the connection's channel (a second registration only renews it) and confirms
    // it with a ResultChannel without data.
    void Subscribe(CommunServer* server, QIODevice* socket, ChannelCommand& channel);
    int Count() const { return m_channels.size(); }
    // Writes out what the channels still hold, waiting at most ms in all (at service stop, when
    // no event loop will run again: the last events say how the runs ended).
    void Flush(int ms);

private:
    struct Channel {
        QPointer<CommunServer> server;
        QPointer<QIODevice> socket;
        std::unique_ptr<CommTerminal> terminal;
        qint64 unread = 0;   // event bytes handed to the connection and not yet written out
    };

    void OnPlanChanged(const QString& planUuid, bool droppable);
    void OnTriggerInfo(quint64 type, const QString& planUuid);
    void OnJournalAdded(const JournalAttribute& journal);
    // droppable: superseded by the next event of its kind (progress), not sent to a channel that is behind.
    void Publish(quint64 type, const QString& planUuid, const QString& planName, const QByteArray& payload,
                 bool droppable = false);
    void Send(Channel& channel, const QByteArray& bytes);
    void onChannelSend(SocketCommandPackage* package, ResultCommand* result);
    void Forget(QIODevice* socket);
    void CutOff(Channel& channel);

    SchedulerService& m_service;
    QHash<QIODevice*, Channel*> m_channels;
};

#endif
