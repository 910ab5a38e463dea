#ifndef BACKUPFRAME_SCHEDULER_REQUESTHANDLER_H
#define BACKUPFRAME_SCHEDULER_REQUESTHANDLER_H

#include "eventchannels.h"
#include "protocol.h"
#include "schedulerservice.h"

#include <backupframe.h>

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>

// Decodes each package a CommunServer receives, asks the service, and answers on the same
// socket with a ResultCommand. A cancel is answered when the run has ended. A ChannelCommand
// subscribes its connection to the service's events. Main thread.
class RequestHandler : public QObject
{
    Q_OBJECT

public:
    explicit RequestHandler(SchedulerService& service, QObject* parent = nullptr);
    // Waits for the work it handed to other threads (bundles, listings): they answer through it.
    ~RequestHandler() override;

    // The longest request package served: far above a plan, an e-mail setting or a list of
    // journal uuids to delete (a million of them fit). A peer that declares more is cut off unread.
    static constexpr qint64 MaxRequestBytes = 64 * 1024 * 1024;
    // Until a connection has proven the secret only its Hello is read (a few hundred bytes), so
    // a stranger cannot make the service hold more than this per connection.
    static constexpr qint64 MaxUnprovenBytes = 64 * 1024;
    // Answer bytes a connection may leave unread while it asks for more; beyond that it is cut
    // off, so that a client that never reads cannot make the service hold answers without bound.
    // One answer alone always goes, however long.
    static constexpr qint64 MaxUnreadAnswerBytes = 64 * 1024 * 1024;

    // Answers the packages the server receives, up to MaxRequestBytes. With a secret, a
    // connection is served only once it has proven it with a Hello request (until then it is
    // held to MaxUnprovenBytes); any other first request is refused and the connection closed.
    void Serve(CommunServer* server, const QByteArray& secret = QByteArray());
    // At service stop: takes no more requests and writes out the events still waiting for
    // their agents, for at most ms.
    void FlushEvents(int ms);
    // The answer to one request, as it would be sent (for callers in the same process).
    ResultCommand Answer(RequestCommand& request);

private slots:
    void onIncomingBlockData(quint64 commtype, QIODevice* psocket, QByteArray bytes);
    void onRunFinished(const QString& planUuid, quint64 outcome);
    void onMailEnded(quint64 ticket, const QString& error, const QString& to);

private:
    using ErrorNumber = SchedulerProtocol::ErrorNumber;

    struct PendingAnswer {
        QPointer<CommunServer> server;
        QPointer<QIODevice> socket;
        ResultCommand result{SchedulerProtocol::ResultType};
    };

    // The answer to any command. A refusal carries a RequestStringData with its reason when
    // there is one. deferKey not empty: the answer is to be sent once Complete is called with it.
    ResultCommand Answer(CommCommand& command, QString& deferKey);
    ErrorNumber Handle(RequestCommand& request, ResultCommand& result, QString& deferKey);
    // Sends the answers waiting on key, with result (and data) as given.
    void Complete(const QString& key, ErrorNumber error, const QByteArray& data);
    ErrorNumber LoadSchedulers(ResultCommand& result);
    ErrorNumber LoadJournals(const RequestCommand& request, ResultCommand& result);
    // Decodes the request's Record, lets make store or start something under a new uuid, and
    // answers with it as a plan.
    template <typename Record, typename Make>
    ErrorNumber MakePlan(const RequestCommand& request, ResultCommand& result, Make make);
    ErrorNumber NewOperation(const RequestCommand& request, ResultCommand& result);
    ErrorNumber EditOperation(const RequestCommand& request, ResultCommand& result);
    ErrorNumber DeleteSelectJournal(const RequestCommand& request);
    ErrorNumber EmailConfigUpdate(const RequestCommand& request);
    ErrorNumber LoadEmailConfig(ResultCommand& result);
    // Answered once the mail went or failed (deferred under "mail:<ticket>").
    ErrorNumber EmailMessageTest(const RequestCommand& request, QString& deferKey);
    ErrorNumber LoadOperations(ResultCommand& result);
    ErrorNumber AddOperation(const RequestCommand& request, ResultCommand& result);
    ErrorNumber SingleOperationNew(const RequestCommand& request, ResultCommand& result);
    ErrorNumber Minizip(const RequestCommand& request, QString& deferKey);
    ErrorNumber Reload(ResultCommand& result);
    ErrorNumber LoadBackups(const QString& planUuid, QString& deferKey);
    // The plan's next start and whether its schedule has ended, after error (when none).
    ErrorNumber TriggerInfo(ErrorNumber error, const QString& planUuid, ResultCommand& result);
    ErrorNumber WithPlan(ErrorNumber error, const QString& planUuid, ResultCommand& result);

    void Send(CommunServer* server, QIODevice* socket, ResultCommand& result);
    // Counts bytes about to be sent to the socket against what it has not read yet; false
    // when they would take it past MaxUnreadAnswerBytes: the connection is then closed and
    // its waiting answers freed.
    bool Owe(CommunServer* server, QIODevice* socket, qint64 bytes);
    // A package on a guarded connection that has not proven the secret yet.
    void Admit(CommunServer* server, QIODevice* socket, CommCommand& command);
    QByteArray PlanPayload(const QString& planUuid) const;

    SchedulerService& m_service;
    EventChannels m_channels;
    bool m_stopped = false;
    QHash<CommunServer*, QByteArray> m_secrets;   // guarded servers and the secret they want
    QSet<QIODevice*> m_trusted;                   // guarded connections that proved it
    QHash<QIODevice*, qint64> m_unwritten;        // answer bytes not yet taken by each connection
    int m_nextKey = 0;     // deferral keys of answers that wait for work off the main thread
    QHash<QString, QList<PendingAnswer>> m_deferred;   // key (a cancelled plan's uuid) -> answers to send
    QString m_reason;                                  // why the request being answered was refused
};

#endif
