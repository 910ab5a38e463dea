// The process-wide dispatch queue: order, capacity, stop marker and clean-up.

#include "communtestsupport.h"

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

// Collects the plan names the manager announces, and frees what it is handed.
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
                    CommandBuilder::DestroyCommand(package->getCommand());
                    delete package;
                });
    }
    QStringList names;
    int foreignThread = 0;
};

} // namespace

class tst_Dispatch : public QObject
{
    Q_OBJECT

private slots:
    void announcedInRequestOrderFromSeveralThreads();
    void the1001stRequestBlocksUntilOneIsTaken();
    void stopAnnouncesWhatWasQueuedBeforeItsMarker();
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

void tst_Dispatch::the1001stRequestBlocksUntilOneIsTaken()
{
    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());
    // What UnInit frees gives its places back: all 1000 are free below.
    for (int i = 0; i < 3; ++i)
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

void tst_Dispatch::stopAnnouncesWhatWasQueuedBeforeItsMarker()
{
    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());
    for (int i = 0; i < 5; ++i)
        QVERIFY(request(i));
    QVERIFY(manager.Start());
    manager.Stop();   // returns only once the consumer has ended
    QTRY_COMPARE_WITH_TIMEOUT(seen.names, numbers(0, 5), 5000);

    // Nobody consumes any more: what comes now stays queued until UnInit frees it, and
    // the freed places are free again (a leak would make the 1000th request block).
    const int destroyedBefore = CountedCommand::destroyed.loadAcquire();
    for (int i = 5; i < 8; ++i)
        QVERIFY(request(i));
    QCoreApplication::processEvents();
    QCOMPARE(seen.names.size(), 5);
    manager.UnInit();
    QCOMPARE(CountedCommand::destroyed.loadAcquire() - destroyedBefore, 3);

    // A new run starts cleanly: no marker is left over to end it at once.
    QVERIFY(manager.Start());
    QVERIFY(request(8));
    QTRY_COMPARE_WITH_TIMEOUT(seen.names.size(), 6, 5000);
    manager.Stop();
    manager.UnInit();
    QCOMPARE(seen.names.last(), QStringLiteral("8"));
}

void tst_Dispatch::nullCommandIsRefused()
{
    LogCapture log;
    QVERIFY(!CommunProducerConsumerManager::RequestCommunCommand(nullptr, nullptr, 2, 4));
    QCOMPARE(log.lines(), QStringList{QStringLiteral("ERROR Request command into parameter pointer is null.")});
}

QTEST_GUILESS_MAIN(tst_Dispatch)
#include "tst_dispatch.moc"
