// The process-wide dispatch queue: order, capacity, stop marker and clean-up.

#include "communtestsupport.h"

#include <QSet>
#include <QtTest>

#include <memory>

using namespace communtest;

namespace {

// A request that counts its destructions, to see what the queue frees.
class CountedCommand : public RequestCommand
{
public:
    CountedCommand() : RequestCommand(LoadSchedulersType) {}
    ~CountedCommand() override { destroyed.fetchAndAddOrdered(1); }
    static QAtomicInt destroyed;
};
QAtomicInt CountedCommand::destroyed;

// Queues a local client request whose plan name is the number n.
bool request(int n)
{
    auto* command = new CountedCommand;
    command->setPlanName(QString::number(n));
    return CommunProducerConsumerManager::RequestCommunCommand(command, nullptr, CommunAttribute::LocalProtocol,
                                                               SocketCommandPackage::LocalRequestPackage);
}

QStringList numbers(int from, int to)
{
    QStringList list;
    for (int i = from; i < to; ++i)
        list.append(QString::number(i));
    return list;
}

// Collects the plan names the manager announces in order. Holds what it is handed until it
// goes, so that a package announced twice is counted twice but freed once.
class Announcements : public QObject
{
public:
    explicit Announcements(CommunProducerConsumerManager* manager)
    {
        connect(manager, &CommunProducerConsumerManager::dealQueuePackageCommand, this,
                [this](SocketCommandPackage* package) {
                    if (QThread::currentThread() != thread())
                        ++foreignThread;
                    names.append(package->getCommand()->getPlanName());
                    m_held.insert(package);
                });
    }
    ~Announcements() override
    {
        for (SocketCommandPackage* package : qAsConst(m_held)) {
            CommandBuilder::DestroyCommand(package->getCommand());
            delete package;
        }
    }
    QStringList names;
    int foreignThread = 0;

private:
    QSet<SocketCommandPackage*> m_held;
};

} // namespace

class tst_Dispatch : public QObject
{
    Q_OBJECT

private slots:
    void announcedInRequestOrderFromSeveralThreads();
    void the1001stRequestBlocksUntilOneIsTaken_data();
    void the1001stRequestBlocksUntilOneIsTaken();
    void stopAnnouncesEverythingQueuedBeforeItsMarker();
    void stopWithoutARunningConsumer_data();
    void stopWithoutARunningConsumer();
    void nullCommandIsRefused();
};

void tst_Dispatch::announcedInRequestOrderFromSeveralThreads()
{
    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());
    QVERIFY(manager.Start());

    // Each producer takes a number and queues it under one lock, so the numbers give the
    // order in which the requests entered; the threads compete for that lock.
    QMutex stampLock;
    int next = 0;
    QAtomicInt refused;
    std::unique_ptr<QThread> producers[4];
    for (auto& producer : producers) {
        producer.reset(QThread::create([&] {
            for (int i = 0; i < 300; ++i) {
                QMutexLocker locker(&stampLock);
                if (!request(next++))
                    refused.fetchAndAddOrdered(1);
            }
        }));
        producer->start();
    }
    for (auto& producer : producers)
        QVERIFY(producer->wait(20000));
    QTRY_COMPARE_WITH_TIMEOUT(seen.names.size(), 1200, 10000);
    manager.Stop();
    manager.UnInit();

    QCOMPARE(refused.loadAcquire(), 0);
    QCOMPARE(seen.names, numbers(0, 1200));
    QCOMPARE(seen.foreignThread, 0);   // announced on the manager's thread, not the consumer's
}

void tst_Dispatch::the1001stRequestBlocksUntilOneIsTaken_data()
{
    QTest::addColumn<int>("freedByUnInit");   // packages queued and freed by UnInit first

    QTest::newRow("on a queue that never held anything") << 0;
    QTest::newRow("after UnInit freed three packages") << 3;
    QTest::newRow("after UnInit freed a full queue") << 1000;
}

// What UnInit frees gives its places back: were they kept, the queue would shrink with every
// package left at shut-down, down to a queue where every request waits for ever.
void tst_Dispatch::the1001stRequestBlocksUntilOneIsTaken()
{
    QFETCH(int, freedByUnInit);
    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());
    for (int i = 0; i < freedByUnInit; ++i)
        QVERIFY(request(-1));
    manager.UnInit();

    QAtomicInt returned;
    std::unique_ptr<QThread> producer(QThread::create([&] {
        for (int i = 0; i < 1001; ++i) {
            request(i);
            returned.storeRelease(i + 1);
        }
    }));
    producer->start();
    // Nothing consumes yet: the producer must stay inside its 1001st request.
    const bool filled = QTest::qWaitFor([&] { return returned.loadAcquire() == 1000; }, 10000);
    const bool blocked = !producer->wait(300);
    const int returnedWhileBlocked = returned.loadAcquire();

    QVERIFY(manager.Start());
    QVERIFY(producer->wait(10000));
    QTRY_COMPARE_WITH_TIMEOUT(seen.names.size(), 1001, 10000);
    manager.Stop();
    manager.UnInit();
    QVERIFY(filled);
    QVERIFY(blocked);
    QCOMPARE(returnedWhileBlocked, 1000);
    QCOMPARE(seen.names, numbers(0, 1001));
}

// The marker is queued behind a full queue, so it waits until the consumer has taken a
// package; a stop flag set then would end the consumer there and lose the other 999.
void tst_Dispatch::stopAnnouncesEverythingQueuedBeforeItsMarker()
{
    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());
    for (int i = 0; i < 1000; ++i)
        QVERIFY(request(i));
    QVERIFY(manager.Start());
    manager.Stop();   // returns only once the consumer has ended
    QTRY_COMPARE_WITH_TIMEOUT(seen.names, numbers(0, 1000), 5000);

    // Nobody consumes any more: what comes now stays queued until UnInit frees it.
    const int destroyedBefore = CountedCommand::destroyed.loadAcquire();
    for (int i = 1000; i < 1003; ++i)
        QVERIFY(request(i));
    QCoreApplication::processEvents();
    QCOMPARE(seen.names.size(), 1000);
    manager.UnInit();
    QCOMPARE(CountedCommand::destroyed.loadAcquire() - destroyedBefore, 3);
}

void tst_Dispatch::stopWithoutARunningConsumer_data()
{
    QTest::addColumn<int>("queued");

    QTest::newRow("before any start, on an empty queue") << 0;
    QTest::newRow("before any start, on a full queue") << 1000;
}

// No consumer runs to take a marker: queued, it would wait for a place in a full queue for
// ever, or stay behind and end the next run before anything queued after it. A restart
// after UnInit must not connect the consumer twice: each package would be announced twice.
void tst_Dispatch::stopWithoutARunningConsumer()
{
    QFETCH(int, queued);
    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());
    for (int i = 0; i < queued; ++i)
        QVERIFY(request(i));
    std::unique_ptr<QThread> stopper(QThread::create([&manager] { manager.Stop(); }));
    stopper->start();
    QVERIFY2(stopper->wait(10000), "Stop waited for a place in the queue");

    for (int run = 0; run < 2; ++run) {
        QVERIFY(manager.Start());
        QVERIFY(request(queued + run));
        QTRY_COMPARE_WITH_TIMEOUT(seen.names, numbers(0, queued + run + 1), 10000);
        manager.Stop();
        manager.UnInit();
    }
    QCoreApplication::processEvents();
    QCOMPARE(seen.names, numbers(0, queued + 2));
}

void tst_Dispatch::nullCommandIsRefused()
{
    LogCapture log;
    QVERIFY(!CommunProducerConsumerManager::RequestCommunCommand(nullptr, nullptr, 2, 4));
    QCOMPARE(log.lines(), QStringList{QStringLiteral("ERROR Request command into parameter pointer is null.")});
}

QTEST_GUILESS_MAIN(tst_Dispatch)
#include "tst_dispatch.moc"
