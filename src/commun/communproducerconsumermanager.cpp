#include "commun/communproducerconsumermanager.h"

#include "command/commandbuilder.h"
#include "command/commcommand.h"
#include "common/logging_p.h"

#include <QIODevice>
#include <QList>
#include <QMetaType>
#include <QMutexLocker>
#include <QSemaphore>

#include <new>

namespace {
const int kQueueCapacity = 1000;

// The queue shared by the producer and the consumer. The lock guards the list only
// and is never held while waiting on a semaphore or emitting.
QSemaphore g_freeSlots(kQueueCapacity);
QSemaphore g_usedSlots(0);
QList<SocketCommandPackage*> g_queue;
QMutex g_queueMutex;
} // namespace

CommunProducer CommunProducerConsumerManager::m_producer;
CommunConsumer CommunProducerConsumerManager::m_consumer;
QMutex CommunProducerConsumerManager::m_producerMutex;

CommunProducer::CommunProducer(QObject* parent)
    : QObject(parent)
{
}

CommunProducer::~CommunProducer() = default;

bool CommunProducer::Init()
{
    return true;
}

bool CommunProducer::Start()
{
    return true;
}

void CommunProducer::Stop()
{
}

void CommunProducer::UnInit()
{
}

bool CommunProducer::Produce(CommCommand* pcommand, void* psocket, quint64 protocolType, quint64 packageKind)
{
    if (!pcommand)
        return false;
    auto* ppackage = new (std::nothrow) SocketCommandPackage;
    if (!ppackage)
        return false;
    ppackage->setPackageKind(packageKind);
    ppackage->setSocket(static_cast<QIODevice*>(psocket));
    ppackage->setProtocolType(protocolType);
    ppackage->setCommand(pcommand);
    g_freeSlots.acquire();   // back-pressure: blocks while the queue is full
    {
        QMutexLocker locker(&g_queueMutex);
        g_queue.append(ppackage);
    }
    g_usedSlots.release();
    return true;
}

CommunConsumer::CommunConsumer(QObject* parent)
    : QThread(parent)
    , m_stopFlag(false)
{
}

CommunConsumer::~CommunConsumer() = default;

bool CommunConsumer::Init()
{
    return true;
}

void CommunConsumer::StopConsumer()
{
    QMutexLocker locker(&m_stopMutex);
    m_stopFlag = true;
}

bool CommunConsumer::IsStopped()
{
    QMutexLocker locker(&m_stopMutex);
    return m_stopFlag;
}

void CommunConsumer::ClearQueue()
{
    QMutexLocker locker(&g_queueMutex);
    for (SocketCommandPackage* ppackage : qAsConst(g_queue)) {
        if (ppackage)
            delete ppackage->getCommand();
        delete ppackage;
        // Keep the slot counts true to the queue, so that its capacity stays 1000: left
        // as they were, every package freed here would be a place lost for good.
        if (g_usedSlots.tryAcquire())
            g_freeSlots.release();
    }
    g_queue.clear();
}

void CommunConsumer::run()
{
    {
        QMutexLocker locker(&m_stopMutex);
        m_stopFlag = false;
    }
    bool stopped = IsStopped();
    while (!stopped) {
        g_usedSlots.acquire();
        SocketCommandPackage* ppackage = nullptr;
        {
            QMutexLocker locker(&g_queueMutex);
            if (g_queue.isEmpty())
                continue;
            ppackage = g_queue.takeFirst();
        }
        g_freeSlots.release();
        if (!ppackage)
            continue;
        CommCommand* pcommand = ppackage->getCommand();
        if (pcommand && pcommand->getCommandType() == StopLocalModelCommandType) {
            CommandBuilder::DestroyCommand(pcommand);
            delete ppackage;
            break;
        }
        emit dealQueuePackageCommand(ppackage);   // the receiver owns package and command now
        stopped = IsStopped();
    }
    StopConsumer();
}

CommunProducerConsumerManager::CommunProducerConsumerManager(QObject* parent)
    : QObject(parent)
{
}

CommunProducerConsumerManager::~CommunProducerConsumerManager() = default;

bool CommunProducerConsumerManager::Init()
{
    return m_producer.Init() && m_consumer.Init();
}

bool CommunProducerConsumerManager::Start()
{
    // Connected before the thread starts, so that a package it takes at once finds its
    // listener; only once, so that a restart does not announce every package twice.
    qRegisterMetaType<SocketCommandPackage*>("SocketCommandPackage*");
    connect(&m_consumer, &CommunConsumer::dealQueuePackageCommand, this,
            &CommunProducerConsumerManager::dealQueuePackageCommand,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    m_consumer.start(QThread::InheritPriority);
    m_producer.Start();
    return true;
}

void CommunProducerConsumerManager::Stop()
{
    // The marker wakes a consumer blocked on an empty queue and ends it after everything
    // queued before it. Only without a marker is the stop flag needed; setting it with a
    // marker queued would let the consumer leave before the marker and find it on restart.
    // A consumer that does not run gets no marker, which would end its next run at once.
    bool queued = false;
    if (m_consumer.isRunning()) {
        CommCommand* pmarker = CommandBuilder::BuilderCommand(StopLocalModelCommandType);
        queued = pmarker && m_producer.Produce(pmarker, nullptr, 0, SocketCommandPackage::StopPackage);
        if (pmarker && !queued)
            CommandBuilder::DestroyCommand(pmarker);
    }
    m_producer.Stop();
    if (!queued)
        m_consumer.StopConsumer();
    m_consumer.quit();
    m_consumer.wait();
}

void CommunProducerConsumerManager::UnInit()
{
    m_producer.UnInit();
    m_consumer.ClearQueue();
}

bool CommunProducerConsumerManager::RequestCommunCommand(CommCommand* pcommand, void* psocket,
                                                         quint64 protocolType, quint64 packageKind)
{
    if (!pcommand) {
        LibraryLog::Error(QStringLiteral("Request command into parameter pointer is null."));
        return false;
    }
    QMutexLocker locker(&m_producerMutex);
    const QString traceFlag = pcommand->getTraceFlag();
    if (!m_producer.Produce(pcommand, psocket, protocolType, packageKind)) {
        LibraryLog::Warn(QStringLiteral("Producer consumer comm queue was full,request command%1 append failed.")
                             .arg(traceFlag));
        return false;
    }
    return true;
}
