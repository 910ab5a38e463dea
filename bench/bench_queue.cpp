// The dispatch queue against a bare one: commands per second from 1 and from 4 producer
// threads to the announcement on the manager's thread. The baseline is a bounded list
// under a mutex with two wait conditions (capacity 1000), one consumer thread, and a queued
// call to the main thread per command, which is the mechanism underneath.

#include "benchtable.h"

#include <backupframe.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QList>
#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include <atomic>
#include <vector>

namespace {

const int kCommands = 100000;

// Starts producers threads, each calling produce(n) for its share; returns at once.
std::vector<QThread*> startProducers(int producers, const std::function<void()>& produceOne)
{
    std::vector<QThread*> threads;
    for (int p = 0; p < producers; ++p) {
        QThread* thread = QThread::create([produceOne, producers] {
            for (int i = 0; i < kCommands / producers; ++i)
                produceOne();
        });
        thread->start();
        threads.push_back(thread);
    }
    return threads;
}

void joinAll(std::vector<QThread*>& threads)
{
    for (QThread* thread : threads) {
        thread->wait();
        delete thread;
    }
    threads.clear();
}

double libraryRun(CommunProducerConsumerManager& dispatch, int producers)
{
    QEventLoop loop;
    int seen = 0;
    QMetaObject::Connection c = QObject::connect(&dispatch, &CommunProducerConsumerManager::dealQueuePackageCommand,
                                                 &loop, [&](SocketCommandPackage* package) {
                                                     delete package->getCommand();
                                                     delete package;
                                                     if (++seen == kCommands)
                                                         loop.quit();
                                                 });
    QElapsedTimer timer;
    timer.start();
    std::vector<QThread*> threads = startProducers(producers, [] {
        CommunProducerConsumerManager::RequestCommunCommand(new RequestCommand(CustomCommandType), nullptr,
                                                            CommunAttribute::LocalProtocol,
                                                            SocketCommandPackage::LocalRequestPackage);
    });
    loop.exec();
    const double seconds = timer.nsecsElapsed() / 1e9;
    joinAll(threads);
    QObject::disconnect(c);
    return seconds;
}

// The bare queue.
class BareQueue : public QThread
{
public:
    QObject* receiver = nullptr;
    std::function<void(RequestCommand*)> deliver;

    void put(RequestCommand* command)
    {
        QMutexLocker locker(&m_mutex);
        while (m_list.size() >= 1000)
            m_notFull.wait(&m_mutex);
        m_list.append(command);
        m_notEmpty.wakeOne();
    }
    void stop() { put(nullptr); wait(); }

protected:
    void run() override
    {
        for (;;) {
            RequestCommand* command = nullptr;
            {
                QMutexLocker locker(&m_mutex);
                while (m_list.isEmpty())
                    m_notEmpty.wait(&m_mutex);
                command = m_list.takeFirst();
                m_notFull.wakeOne();
            }
            if (!command)
                return;
            QMetaObject::invokeMethod(receiver, [this, command] { deliver(command); }, Qt::QueuedConnection);
        }
    }

private:
    QMutex m_mutex;
    QWaitCondition m_notEmpty;
    QWaitCondition m_notFull;
    QList<RequestCommand*> m_list;
};

double bareRun(int producers)
{
    QEventLoop loop;
    int seen = 0;
    BareQueue queue;
    queue.receiver = &loop;
    queue.deliver = [&](RequestCommand* command) {
        delete command;
        if (++seen == kCommands)
            loop.quit();
    };
    queue.start();
    QElapsedTimer timer;
    timer.start();
    std::vector<QThread*> threads = startProducers(producers, [&queue] {
        queue.put(new RequestCommand(CustomCommandType));
    });
    loop.exec();
    const double seconds = timer.nsecsElapsed() / 1e9;
    joinAll(threads);
    queue.stop();
    return seconds;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (app.arguments().contains(QStringLiteral("--header")))
        BenchTable::header();
    CommunProducerConsumerManager dispatch;
    dispatch.Init();
    dispatch.Start();
    for (const int producers : {1, 4}) {
        libraryRun(dispatch, producers);   // warm-up
        std::vector<double> lib;
        std::vector<double> bare;
        for (int run = 0; run < 5; ++run) {
            lib.push_back(libraryRun(dispatch, producers));
            bare.push_back(bareRun(producers));
        }
        BenchTable::row("dispatch queue, " + std::to_string(producers) + " producer(s), commands/s",
                        kCommands / BenchTable::median(lib), kCommands / BenchTable::median(bare), "/s");
    }
    dispatch.Stop();
    dispatch.UnInit();
    return 0;
}
