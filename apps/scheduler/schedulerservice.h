#ifndef BACKUPFRAME_SCHEDULER_SCHEDULERSERVICE_H
#define BACKUPFRAME_SCHEDULER_SCHEDULERSERVICE_H

#include "operationrunner.h"
#include "protocol.h"
#include "schedulerdatabase.h"

#include <backupframe.h>

#include <QHash>
#include <QObject>
#include <QPointer>

// Answers the agents' requests: decodes each package that a CommunServer receives,
// acts on the plans, journals and e-mail settings, and answers on the same socket.
// Keeps the plans (with their run state) in memory over the database. Main thread.
class SchedulerService : public QObject
{
    Q_OBJECT

public:
    SchedulerService(SchedulerDatabase& database, const QString& emailFile, QObject* parent = nullptr);

    bool LoadPlans();
    void Serve(CommunServer* server);
    OperationRunner& Runner() { return m_runner; }

private slots:
    void onIncomingBlockData(quint64 commtype, QIODevice* psocket, QByteArray bytes);
    void onRunDequeued(const QString& planUuid);
    void onRunFinished(const QString& planUuid, int outcome, const QString& reason);

private:
    using ErrorNumber = SchedulerProtocol::ErrorNumber;

    // An answer that waits for a run to start or finish.
    struct PendingAnswer {
        QPointer<CommunServer> server;
        QPointer<QIODevice> socket;
        ResultCommand result{SchedulerProtocol::ResultType};
    };

    ErrorNumber Handle(RequestCommand& request, ResultCommand& result, bool& deferred);
    ErrorNumber LoadSchedulers(ResultCommand& result);
    ErrorNumber LoadJournals(const RequestCommand& request, ResultCommand& result);
    ErrorNumber NewOperation(const RequestCommand& request, ResultCommand& result);
    ErrorNumber EditOperation(const RequestCommand& request, ResultCommand& result);
    ErrorNumber DeleteOperation(const RequestCommand& request);
    ErrorNumber ExecuteOperation(const RequestCommand& request, bool& deferred);
    ErrorNumber CancelOperation(const RequestCommand& request, ResultCommand& result);
    ErrorNumber DeleteSelectJournal(const RequestCommand& request);
    ErrorNumber DeleteAllJournal();
    ErrorNumber EmailConfigUpdate(const RequestCommand& request);
    ErrorNumber LoadEmailConfig(ResultCommand& result);

    void Answer(CommunServer* server, QIODevice* socket, ResultCommand& result);
    void SendPending(const QString& planUuid, ErrorNumber error);
    QByteArray PlanPayload(const QString& planUuid);
    SchedulerPlan WithNextStart(const SchedulerPlan& plan) const;

    SchedulerDatabase& m_database;
    const QString m_emailFile;
    EmailConfigReaderWriter m_email;
    OperationRunner m_runner;
    QHash<QString, SchedulerPlan> m_plans;
    QHash<QString, PendingAnswer> m_pending;
    QHash<QString, QDateTime> m_runStarted;
};

#endif
