#ifndef BACKUPFRAME_COMMUNPRODUCERCONSUMERMANAGER_H
#define BACKUPFRAME_COMMUNPRODUCERCONSUMERMANAGER_H

#include "backupframe_global.h"
#include "commun/socketcommandpackage.h"

#include <QMutex>
#include <QObject>
#include <QThread>

class CommCommand;

// Puts packages into the process-wide bounded queue (capacity 1000); blocks while it is full.
class BACKUPFRAME_EXPORT CommunProducer : public QObject
{
    Q_OBJECT

public:
    explicit CommunProducer(QObject* parent = nullptr);
    ~CommunProducer() override;

    bool Init();
    bool Start();
    void Stop();
    void UnInit();
    bool Produce(CommCommand* pcommand, void* psocket, quint64 protocolType, quint64 packageKind);
};

// The one thread the library starts: takes packages off the queue in FIFO order and
// announces each with dealQueuePackageCommand, handing package and command to the
// receiver. Ends at the stop marker (a command of type 1).
class BACKUPFRAME_EXPORT CommunConsumer : public QThread
{
    Q_OBJECT

public:
    explicit CommunConsumer(QObject* parent = nullptr);
    ~CommunConsumer() override;

    bool Init();
    // Sets the stop flag: the thread ends after the package it is handling.
    void StopConsumer();
    // Deletes every queued package with its command.
    void ClearQueue();

signals:
    void dealQueuePackageCommand(SocketCommandPackage* ppackage);

protected:
    void run() override;

private:
    bool IsStopped();

    bool m_stopFlag;
    QMutex m_stopMutex;
};

// Front of the dispatch queue. The producer, the consumer, the queue and the request lock
// are process-wide; a host creates one manager, calls Init and Start on it and listens to
// its dealQueuePackageCommand, which re-emits the consumer's on the manager's thread.
// Lock order on the request path: m_producerMutex, then the free slots, then the queue lock.
class BACKUPFRAME_EXPORT CommunProducerConsumerManager : public QObject
{
    Q_OBJECT

public:
    explicit CommunProducerConsumerManager(QObject* parent = nullptr);
    ~CommunProducerConsumerManager() override;

    bool Init();
    bool Start();
    // Queues the stop marker behind everything already queued and waits for the consumer to end.
    void Stop();
    void UnInit();

    // Any thread; one producer at a time, so packages enter the queue in call order.
    // On success the queue owns the command.
    static bool RequestCommunCommand(CommCommand* pcommand, void* psocket, quint64 protocolType,
                                     quint64 packageKind);

signals:
    void dealQueuePackageCommand(SocketCommandPackage* ppackage);

private:
    static CommunProducer m_producer;
    static CommunConsumer m_consumer;
    static QMutex m_producerMutex;
};

#endif
