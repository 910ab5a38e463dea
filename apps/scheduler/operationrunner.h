#ifndef BACKUPFRAME_SCHEDULER_OPERATIONRUNNER_H
#define BACKUPFRAME_SCHEDULER_OPERATIONRUNNER_H

#include <backupframe.h>

#include <QHash>
#include <QObject>
#include <QString>

class QTimer;

// Runs the registered operations of plans. Runs are queued through the process's
// dispatch queue (ClientCommunManager::RequestCommunCommand) and start on the thread
// of this object when the consumer announces them. Lives on the main thread.
class OperationRunner : public ClientCommunManager
{
    Q_OBJECT

public:
    enum Outcome { Succeeded, Failed, Cancelled };

    explicit OperationRunner(QObject* parent = nullptr);

    // "noop" succeeds at once, "fail" fails at once, "sleep" waits its parameter in ms.
    static bool IsRegistered(const QString& operation);
    // Queues the run of a plan; false if the dispatch queue refused it.
    bool QueueRun(const QString& planUuid);
    bool IsWaiting(const QString& planUuid) const;
    // Stops a waiting operation; the finish is reported with Cancelled.
    bool Cancel(const QString& planUuid);

    // Starts the operation; emits runFinished now or when the operation ends.
    void Start(const QString& planUuid, const TaskAttribute& task);

    void SetConnectAttribute(const CommunAttribute& attribute) override;
    void DealRequestCommand(CommCommand* command) override;

signals:
    // A queued run reached the front of the queue: look the plan up and Start it.
    void runDequeued(const QString& planUuid);
    void runFinished(const QString& planUuid, int outcome, const QString& reason);

private:
    QHash<QString, QTimer*> m_waiting;
};

#endif
