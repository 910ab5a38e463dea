#ifndef BACKUPFRAME_AGENT_AGENTSESSION_H
#define BACKUPFRAME_AGENT_AGENTSESSION_H

#include "agentclientmanager.h"
#include "connectionthread.h"

#include <backupframe.h>

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QThread>

#include <deque>
#include <functional>
#include <memory>

// One conversation with the scheduler along the library's road: the dispatch queue,
// the agent's client manager and a CommunClientWork on a thread of its own. Owns all
// three; used from the main thread, one request at a time, every wait bounded.
class AgentSession : public QObject
{
    Q_OBJECT

public:
    AgentSession(const CommunAttribute& endpoint, int timeoutMs, QObject* parent = nullptr);
    ~AgentSession() override;

    // Starts the dispatch and the worker and connects; false when nobody serves the endpoint.
    bool Open();
    // Sends one request and waits for its answer; false (see Error) when none came in time.
    bool Call(quint64 type, const QString& planUuid, const QString& planName, const QByteArray& payload,
              ResultCommand& answer);
    // How long each later Call waits for its answer.
    void SetTimeoutMs(int timeoutMs) { m_timeoutMs = timeoutMs; }
    // Stops the worker thread and the dispatch; called by the destructor too.
    void Close();

    // An event the scheduler pushed to this session's channel (see Subscribe).
    struct Event {
        quint64 type = 0;   // SingleFlushScheduler, FlushSchedulers, TriggerExecute, TriggerUpdateInfo, FlushJournals
        QString planUuid;
        QString planName;
        QByteArray payload;
        bool showMessage = false;   // the command's show-message flag: its text is for the user
    };
    // The event a ResultChannel with result data carries; false when it holds none.
    static bool DecodeEvent(const ResultChannel& package, Event& event);
    // Registers this connection's channel under registrarName and waits for the confirmation;
    // from then on the scheduler's events queue up for NextEvent.
    bool Subscribe(const QString& registrarName);
    enum class Wait { Event, Stopped, Idle, Lost };
    // The oldest event not taken yet, waiting at most idleMs: Event, or why there is none:
    // stop() became true (checked whenever woken, see Wake), idleMs passed, the connection was lost.
    Wait NextEvent(Event& event, const std::function<bool()>& stop, int idleMs);
    // How often the worker has connected: a new connection has lost the old one's subscription.
    int Connects() const { return m_connects; }
    // Wakes a waiting NextEvent or Call so that it checks its condition again.
    void Wake() { emit progressed(); }

    // Why Open or Call failed, e.g. "no answer within 5 s".
    QString Error() const { return m_error; }
    // Whether the last Call failed because its answer did not come in time (it was sent).
    bool AnswerTimedOut() const { return m_answerTimedOut; }
    QString EndpointText() const;

signals:
    void progressed();

private slots:
    void onFirstConnected(quint64 commtype, QString nameorip, quint16 port, bool bflag);
    void onHostConnected(quint64 commtype, QString nameorip, quint16 port, bool bflag);
    void onReturnResult(QByteArray blocks);

private:
    enum class Link { Pending, Up, Refused, Lost };

    bool StartWorker();
    void OnChannelPackage(const ResultChannel& package);
    // Waits for done, at most timeoutMs (-1: as long as it takes).
    bool WaitUntil(const std::function<bool()>& done, int timeoutMs);

    CommunAttribute m_endpoint;
    int m_timeoutMs;
    QString m_clientUuid;
    QString m_error;
    CommunProducerConsumerManager m_dispatch;
    AgentClientManager m_manager;
    ConnectionThread m_connection;
    bool m_dispatchStarted = false;
    bool m_answerTimedOut = false;
    Link m_link = Link::Pending;
    quint64 m_awaitedType = 0;              // the request type whose answer Call waits for
    std::unique_ptr<ResultCommand> m_answer;
    bool m_subscribed = false;
    int m_connects = 0;
    std::deque<Event> m_events;
};

#endif
