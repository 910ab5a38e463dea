#ifndef BACKUPFRAME_DESKTOP_DESKTOPCLIENT_H
#define BACKUPFRAME_DESKTOP_DESKTOPCLIENT_H

#include "agentclientmanager.h"

#include "agentsession.h"
#include "connectionthread.h"

#include <backupframe.h>

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QThread>
#include <QTimer>

#include <functional>
#include <list>

// The desktop program's conversation with the scheduler, along the agent's road (dispatch queue,
// AgentClientManager, a CommunClientWork on its own thread) but never waiting: each request
// gets its answer through a callback, pushed events arrive as signals. Main thread only.
class DesktopClient : public QObject
{
    Q_OBJECT

public:
    // What came back for one request: answered (with the result code and data) or why not.
    struct Reply {
        bool answered = false;
        quint64 code = 0;        // the ResultCommand's unsigned result: 0 is success
        QByteArray data;
        QString error;           // why nothing usable came (answered false) or the refusal's text
        bool ok() const { return answered && code == 0; }
    };
    using Answer = std::function<void(const Reply&)>;

    // An event the scheduler pushed to the subscribed channel.
    using Event = AgentSession::Event;

    static constexpr int kAnswerMs = 10000;

    explicit DesktopClient(const CommunAttribute& endpoint, QObject* parent = nullptr);
    ~DesktopClient() override;

    // Starts the dispatch, the worker and the first connection attempt; false when the worker did not start.
    bool Start();
    // Sends one request; answer runs once on this thread: with the answer, or when timeoutMs
    // passed or the connection went (answered false).
    void Send(quint64 type, const QString& planUuid, const QString& planName, const QByteArray& payload,
              const Answer& answer, int timeoutMs = kAnswerMs);
    // Registers this connection's channel; subscribed() follows, then events.
    void Subscribe(const QString& registrarName);
    bool IsUp() const { return m_up; }
    QString EndpointText() const { return m_endpoint.getDestSvrNameIp(); }
    // How often a silent service is asked whether it is still there (and, while it is away,
    // how often a new connection is tried).
    void SetHeartbeatMs(int ms) { m_heartbeat.setInterval(ms); }

signals:
    // up: a new connection (a subscription must be made again); down: nobody serves the endpoint.
    void linkChanged(bool up);
    void subscribed();
    void eventArrived(const DesktopClient::Event& event);
    // An answer or event carried the show-message flag: its text is for the user's eyes.
    void messageForUser(const QString& title, const QString& text);

private slots:
    void onConnected(quint64 commtype, QString nameorip, quint16 port, bool bflag);
    void onReturnResult(QByteArray blocks);
    void onHeartbeat();

private:
    struct Pending {
        quint64 id;
        quint64 type;
        Answer answer;
    };

    bool StartWorker();
    void SetUp(bool up);
    void Finish(quint64 id, const Reply& reply);
    void FailAll(const QString& error);
    void OnChannelPackage(const ResultChannel& package);

    CommunAttribute m_endpoint;
    QString m_clientUuid;
    CommunProducerConsumerManager m_dispatch;
    AgentClientManager m_manager;
    ConnectionThread m_connection;
    bool m_started = false;
    bool m_up = false;
    bool m_known = false;                   // whether linkChanged has told anything yet
    bool m_pinging = false;
    QTimer m_heartbeat;
    quint64 m_nextId = 1;
    std::list<Pending> m_pending;           // in the order sent: answers of one type come in that order
};

Q_DECLARE_METATYPE(DesktopClient::Event)

#endif
