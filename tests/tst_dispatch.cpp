// The producer/consumer dispatch queue, the client manager in front of it and the terminal.

#include "communtestsupport.h"

#include <QBuffer>
#include <QPointer>
#include <QtTest>

#include <memory>

using namespace communtest;

namespace {

// A request that counts its destructions, to see who frees what and when.
class CountedCommand : public RequestCommand
{
public:
    explicit CountedCommand(quint64 type = LoadSchedulersType)
        : RequestCommand(type)
    {
    }
    ~CountedCommand() override { destroyed.fetchAndAddOrdered(1); }
    static QAtomicInt destroyed;
};
QAtomicInt CountedCommand::destroyed;

class CountedPackage : public SocketCommandPackage
{
public:
    ~CountedPackage() override { destroyed.fetchAndAddOrdered(1); }
    static QAtomicInt destroyed;
};
QAtomicInt CountedPackage::destroyed;

CommCommand* numbered(int n, quint64 protocol = CommunAttribute::LocalProtocol)
{
    auto* command = new CountedCommand;
    command->setPlanName(QString::number(n));
    command->getObjectCommunAttribute().setProtocolType(protocol);
    return command;
}

// Collects the announcements of a dispatch manager on the test's thread and frees them.
class Announcements : public QObject
{
public:
    explicit Announcements(CommunProducerConsumerManager* manager)
    {
        connect(manager, &CommunProducerConsumerManager::dealQueuePackageCommand, this,
                [this](SocketCommandPackage* package) {
                    threads.append(QThread::currentThread());
                    kinds.append(package->getPackageKind());
                    protocols.append(package->getProtocolType());
                    names.append(package->getCommand()->getPlanName());
                    traceFlags.append(package->getCommand()->getTraceFlag());
                    CommandBuilder::DestroyCommand(package->getCommand());
                    delete package;
                });
    }
    QList<QThread*> threads;
    QList<quint64> kinds;
    QList<quint64> protocols;
    QStringList names;
    QStringList traceFlags;
};

QStringList numbers(int from, int to)
{
    QStringList list;
    for (int i = from; i < to; ++i)
        list.append(QString::number(i));
    return list;
}

// The host side of the client manager: remembers what the library hands it.
class TestManager : public ClientCommunManager
{
public:
    void SetConnectAttribute(const CommunAttribute& attribute) override
    {
        events.append(QStringLiteral("SetConnectAttribute"));
        m_communAttribute = attribute;
    }
    void DealRequestCommand(CommCommand* command) override
    {
        events.append(QStringLiteral("DealRequestCommand"));
        dealtTypes.append(command->getCommandType());
        dealtTraceFlags.append(command->getTraceFlag());
        destroyedBeforeReturn = CountedCommand::destroyed.loadAcquire();
        packagesFreedBeforeCall = CountedPackage::destroyed.loadAcquire();
    }
    void listenTo(CommunProducerConsumerManager* dispatch)
    {
        connect(dispatch, &CommunProducerConsumerManager::dealQueuePackageCommand, this,
                &TestManager::onDealQueuePackageCommand);
    }
    void deal(SocketCommandPackage* package) { onDealQueuePackageCommand(package); }
    CommunAttribute endpoint() const { return m_communAttribute; }

    QStringList events;
    QList<quint64> dealtTypes;
    QStringList dealtTraceFlags;
    int destroyedBeforeReturn = -1;
    int packagesFreedBeforeCall = -1;
};

} // namespace

class tst_Dispatch : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void announcedInRequestOrderFromSeveralThreads();
    void the1001stRequestBlocksUntilOneIsTaken();
    void stopAnnouncesWhatWasQueuedBeforeItsMarker();
    void unInitFreesWhatIsLeftAndKeepsTheCapacity();
    void nullCommandIsRefused();

    void managerQueuesByTransport_data();
    void managerQueuesByTransport();
    void managerDealsAndDestroysTheCommand();
    void managerDeletesAStraySocket();
    void managerIgnoresOtherKindsAndNull();
    void connectServerSetsTheEndpointFirst();

    void terminalWithoutSocketSendsNothing();
    void terminalBuildsAResultChannel();
    void terminalSecondInfoReplacesSocketAndTraceFlagOnly();

private:
    LogCapture m_log;
};

void tst_Dispatch::init()
{
    m_log.clear();
}

void tst_Dispatch::announcedInRequestOrderFromSeveralThreads()
{
    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());
    QVERIFY(manager.Start());

    // Each producer takes a number and queues it under one lock, so the numbers give the
    // order in which the requests entered; the threads compete for that lock.
    const int perThread = 300;
    QMutex stampLock;
    int next = 0;
    QAtomicInt refused;
    QList<QThread*> producers;
    for (int t = 0; t < 4; ++t) {
        producers.append(QThread::create([&] {
            for (int i = 0; i < perThread; ++i) {
                QMutexLocker locker(&stampLock);
                if (!CommunProducerConsumerManager::RequestCommunCommand(numbered(next++), nullptr, 2, 4))
                    refused.fetchAndAddOrdered(1);
            }
        }));
        producers.last()->start();
    }
    for (QThread* producer : producers) {
        QVERIFY(producer->wait(20000));
        delete producer;
    }
    QCOMPARE(refused.loadAcquire(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(seen.names.size(), 4 * perThread, 10000);
    manager.Stop();
    manager.UnInit();

    QCOMPARE(seen.names, numbers(0, 4 * perThread));
    QCOMPARE(seen.threads.count(QThread::currentThread()), 4 * perThread);
    QCOMPARE(seen.kinds.count(4), 4 * perThread);
    QCOMPARE(seen.protocols.count(2), 4 * perThread);
}

void tst_Dispatch::the1001stRequestBlocksUntilOneIsTaken()
{
    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());

    QAtomicInt returned;
    std::unique_ptr<QThread> producer(QThread::create([&] {
        for (int i = 0; i < 1001; ++i) {
            CommunProducerConsumerManager::RequestCommunCommand(numbered(i), nullptr, 2, 4);
            returned.storeRelease(i + 1);
        }
    }));
    producer->start();
    QTRY_COMPARE_WITH_TIMEOUT(returned.loadAcquire(), 1000, 10000);
    // Nothing consumes: the producer must still be inside its 1001st request.
    QVERIFY(!producer->wait(300));
    QCOMPARE(returned.loadAcquire(), 1000);

    QVERIFY(manager.Start());
    QVERIFY(producer->wait(10000));
    QCOMPARE(returned.loadAcquire(), 1001);
    QTRY_COMPARE_WITH_TIMEOUT(seen.names.size(), 1001, 10000);
    manager.Stop();
    manager.UnInit();
    QCOMPARE(seen.names, numbers(0, 1001));
}

void tst_Dispatch::stopAnnouncesWhatWasQueuedBeforeItsMarker()
{
    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());
    for (int i = 0; i < 5; ++i)
        QVERIFY(CommunProducerConsumerManager::RequestCommunCommand(numbered(i), nullptr, 2, 4));
    QVERIFY(manager.Start());
    manager.Stop();   // returns only once the consumer has ended

    QTRY_COMPARE_WITH_TIMEOUT(seen.names.size(), 5, 5000);
    QCOMPARE(seen.names, numbers(0, 5));

    // Nobody consumes any more: what comes now stays queued until UnInit frees it.
    const int destroyedBefore = CountedCommand::destroyed.loadAcquire();
    for (int i = 5; i < 8; ++i)
        QVERIFY(CommunProducerConsumerManager::RequestCommunCommand(numbered(i), nullptr, 2, 4));
    QCoreApplication::processEvents();
    QCOMPARE(seen.names.size(), 5);
    manager.UnInit();
    QCOMPARE(CountedCommand::destroyed.loadAcquire() - destroyedBefore, 3);

    // A new run starts cleanly: no marker is left over to end it at once.
    QVERIFY(manager.Start());
    QVERIFY(CommunProducerConsumerManager::RequestCommunCommand(numbered(8), nullptr, 2, 4));
    QTRY_COMPARE_WITH_TIMEOUT(seen.names.size(), 6, 5000);
    manager.Stop();
    manager.UnInit();
    QCOMPARE(seen.names.last(), QStringLiteral("8"));
}

void tst_Dispatch::unInitFreesWhatIsLeftAndKeepsTheCapacity()
{
    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());
    const int destroyedBefore = CountedCommand::destroyed.loadAcquire();
    for (int i = 0; i < 3; ++i)
        QVERIFY(CommunProducerConsumerManager::RequestCommunCommand(numbered(i), nullptr, 3, 6));
    manager.Stop();
    manager.UnInit();
    QCOMPARE(CountedCommand::destroyed.loadAcquire() - destroyedBefore, 3);

    // The freed places are free again: a full queue of 1000 does not block.
    std::unique_ptr<QThread> producer(QThread::create([] {
        for (int i = 0; i < 1000; ++i)
            CommunProducerConsumerManager::RequestCommunCommand(numbered(i), nullptr, 2, 4);
    }));
    producer->start();
    const bool filled = producer->wait(10000);
    if (!filled) {   // drain, so that the thread can end
        manager.Start();
        producer->wait();
        manager.Stop();
    }
    manager.UnInit();
    QVERIFY2(filled, "the queue lost capacity to the packages UnInit freed");
    QCOMPARE(CountedCommand::destroyed.loadAcquire() - destroyedBefore, 1003);
    QVERIFY(seen.names.isEmpty());
}

void tst_Dispatch::nullCommandIsRefused()
{
    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());
    QVERIFY(!CommunProducerConsumerManager::RequestCommunCommand(nullptr, nullptr, 2, 4));
    QCOMPARE(m_log.lines(), QStringList{QStringLiteral("ERROR Request command into parameter pointer is null.")});
    QVERIFY(manager.Start());
    manager.Stop();
    QCoreApplication::processEvents();
    QVERIFY(seen.names.isEmpty());
    manager.UnInit();
}

void tst_Dispatch::managerQueuesByTransport_data()
{
    QTest::addColumn<quint64>("protocol");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<quint64>("kind");

    QTest::newRow("a local command is queued as a local client request") << quint64(2) << true << quint64(4);
    QTest::newRow("a TCP command is queued as a TCP client request") << quint64(3) << true << quint64(6);
    QTest::newRow("a command without a transport is refused") << quint64(0) << false << quint64(0);
    QTest::newRow("protocol type 1 is refused") << quint64(1) << false << quint64(0);
}

void tst_Dispatch::managerQueuesByTransport()
{
    QFETCH(quint64, protocol);
    QFETCH(bool, accepted);
    QFETCH(quint64, kind);

    CommunProducerConsumerManager manager;
    Announcements seen(&manager);
    QVERIFY(manager.Init());
    QVERIFY(manager.Start());

    auto* command = new RequestCommand(LoadSchedulersType);
    command->setPlanUuid(QStringLiteral("u-1"));
    command->setPlanName(QStringLiteral("nightly"));
    command->getObjectCommunAttribute().setProtocolType(protocol);
    QCOMPARE(ClientCommunManager::RequestCommunCommand(command), accepted);
    if (accepted) {
        QTRY_COMPARE_WITH_TIMEOUT(seen.kinds.size(), 1, 5000);
        QCOMPARE(seen.kinds.first(), kind);
        QCOMPARE(seen.protocols.first(), protocol);
        QCOMPARE(seen.traceFlags.first(), QStringLiteral("[planUuid:u-1,planName:nightly,commandType:LoadSchedulers]"));
    } else {
        delete command;
    }
    manager.Stop();
    QCoreApplication::processEvents();
    QCOMPARE(seen.kinds.size(), accepted ? 1 : 0);
    QVERIFY(m_log.lines().isEmpty());
    manager.UnInit();
    QVERIFY(!ClientCommunManager::RequestCommunCommand(nullptr));
}

void tst_Dispatch::managerDealsAndDestroysTheCommand()
{
    TestManager manager;
    auto* package = new CountedPackage;
    auto* command = new CountedCommand(FlushJournalsType);
    command->setTraceFlag(QStringLiteral("[trace]"));
    package->setPackageKind(SocketCommandPackage::LocalRequestPackage);
    package->setCommand(command);
    const int commandsBefore = CountedCommand::destroyed.loadAcquire();
    const int packagesBefore = CountedPackage::destroyed.loadAcquire();

    manager.deal(package);

    QCOMPARE(manager.dealtTypes, QList<quint64>{FlushJournalsType});
    QCOMPARE(manager.dealtTraceFlags, QStringList{QStringLiteral("[trace]")});
    QCOMPARE(manager.packagesFreedBeforeCall - packagesBefore, 1);   // the package went first
    QCOMPARE(manager.destroyedBeforeReturn - commandsBefore, 0);     // the command lived through the call
    QCOMPARE(CountedCommand::destroyed.loadAcquire() - commandsBefore, 1);
    QVERIFY(m_log.lines().isEmpty());
}

void tst_Dispatch::managerDeletesAStraySocket()
{
    TestManager manager;
    auto* package = new SocketCommandPackage;
    QPointer<QBuffer> socket = new QBuffer;
    package->setPackageKind(SocketCommandPackage::TcpRequestPackage);
    package->setSocket(socket);
    package->setCommand(new CountedCommand);

    manager.deal(package);

    QVERIFY(socket.isNull());
    QCOMPARE(manager.dealtTypes.size(), 1);
    QCOMPARE(m_log.lines(),
             QStringList{QStringLiteral("WARN The client request SocketCommandPackage's socket pointer is not null.")});
}

void tst_Dispatch::managerIgnoresOtherKindsAndNull()
{
    TestManager manager;
    manager.deal(nullptr);
    QCOMPARE(m_log.lines(), QStringList{QStringLiteral("ERROR The client request SocketCommandPackage pointer is null.")});

    // A result package is not a client request: untouched, still the caller's.
    CountedPackage package;
    CountedCommand command;
    package.setPackageKind(SocketCommandPackage::ResultPackage);
    package.setCommand(&command);
    const int packagesBefore = CountedPackage::destroyed.loadAcquire();
    manager.deal(&package);
    QVERIFY(manager.dealtTypes.isEmpty());
    QCOMPARE(CountedPackage::destroyed.loadAcquire(), packagesBefore);

    // Through the dispatch queue, the manager's slot runs on the manager's thread.
    CommunProducerConsumerManager dispatch;
    manager.listenTo(&dispatch);
    QVERIFY(dispatch.Init());
    QVERIFY(dispatch.Start());
    auto* queued = new RequestCommand(LoadJournalsType);
    queued->getObjectCommunAttribute().setProtocolType(CommunAttribute::LocalProtocol);
    QVERIFY(ClientCommunManager::RequestCommunCommand(queued));
    QTRY_COMPARE_WITH_TIMEOUT(manager.dealtTypes.size(), 1, 5000);
    QCOMPARE(manager.dealtTypes.first(), quint64(LoadJournalsType));
    QCOMPARE(manager.dealtTraceFlags.first(), QStringLiteral("[planUuid:,planName:,commandType:LoadJournals]"));
    dispatch.Stop();
    dispatch.UnInit();
}

void tst_Dispatch::connectServerSetsTheEndpointFirst()
{
    TestManager manager;
    connect(&manager, &ClientCommunManager::toConnectServer, this,
            [&manager] { manager.events.append(QStringLiteral("toConnectServer")); });
    manager.ClientConnectServer(CommunAttribute::TcpProtocol, QStringLiteral("10.0.0.7"), 6060);
    QCOMPARE(manager.events, (QStringList{QStringLiteral("SetConnectAttribute"), QStringLiteral("toConnectServer")}));
    QCOMPARE(manager.endpoint().getProtocolType(), quint64(CommunAttribute::TcpProtocol));
    QCOMPARE(manager.endpoint().getDestSvrNameIp(), QStringLiteral("10.0.0.7"));
    QCOMPARE(manager.endpoint().getDestPort(), quint16(6060));
}

void tst_Dispatch::terminalWithoutSocketSendsNothing()
{
    CommTerminal terminal;
    int emitted = 0;
    connect(&terminal, &CommTerminal::channelSendCommand, this, [&] { ++emitted; });
    QVERIFY(!terminal.SendData(QByteArray("payload")));
    QCOMPARE(emitted, 0);
}

void tst_Dispatch::terminalBuildsAResultChannel()
{
    CommTerminal terminal;
    QBuffer socket;
    auto* channel = new ChannelCommand(ChannelCommandType);
    channel->setPlanUuid(QStringLiteral("plan-7"));
    channel->setTraceFlag(QStringLiteral("[t1]"));
    channel->setRedistrarName(QStringLiteral("agent-A"));
    channel->getObjectCommunAttribute().setProtocolType(CommunAttribute::TcpProtocol);
    terminal.SocketCommandInfo(&socket, channel);
    delete channel;   // the terminal keeps its own copy

    SocketCommandPackage* package = nullptr;
    ResultCommand* result = nullptr;
    connect(&terminal, &CommTerminal::channelSendCommand, this, [&](SocketCommandPackage* p, ResultCommand* r) {
        package = p;
        result = r;
    });
    QVERIFY(terminal.SendData(QByteArray("progress 42%")));
    QVERIFY(package && result);
    QCOMPARE(package->getPackageKind(), quint64(SocketCommandPackage::ResultPackage));
    QCOMPARE(package->getSocket(), static_cast<QIODevice*>(&socket));
    QCOMPARE(package->getProtocolType(), quint64(CommunAttribute::TcpProtocol));
    QCOMPARE(package->getCommand(), static_cast<CommCommand*>(nullptr));
    auto* resultChannel = dynamic_cast<ResultChannel*>(result);
    QVERIFY(resultChannel);
    QCOMPARE(resultChannel->getCommandType(), quint64(ResultChannelType));
    QCOMPARE(resultChannel->getSendCommandType(), quint64(ChannelCommandType));
    QCOMPARE(resultChannel->getRedistrarName(), QStringLiteral("agent-A"));
    QCOMPARE(resultChannel->getPlanUuid(), QStringLiteral("plan-7"));
    QCOMPARE(resultChannel->getTraceFlag(), QStringLiteral("[t1]"));
    QCOMPARE(resultChannel->getResultData(), QByteArray("progress 42%"));
    delete package;
    CommandBuilder::DestroyCommand(result);
}

void tst_Dispatch::terminalSecondInfoReplacesSocketAndTraceFlagOnly()
{
    CommTerminal terminal;
    QBuffer first;
    QBuffer second;
    ChannelCommand channelA(ChannelCommandType);
    channelA.setTraceFlag(QStringLiteral("[a]"));
    channelA.setRedistrarName(QStringLiteral("A"));
    channelA.getObjectCommunAttribute().setProtocolType(CommunAttribute::LocalProtocol);
    ChannelCommand channelB(ChannelCommandType + 1);
    channelB.setTraceFlag(QStringLiteral("[b]"));
    channelB.setRedistrarName(QStringLiteral("B"));
    channelB.getObjectCommunAttribute().setProtocolType(CommunAttribute::TcpProtocol);
    terminal.SocketCommandInfo(&first, &channelA);
    terminal.SocketCommandInfo(&second, &channelB);

    QList<QPair<SocketCommandPackage*, ResultCommand*>> emitted;
    connect(&terminal, &CommTerminal::channelSendCommand, this,
            [&](SocketCommandPackage* p, ResultCommand* r) { emitted.append({p, r}); });
    QVERIFY(terminal.SendData(QByteArray("x")));
    QCOMPARE(emitted.size(), 1);
    SocketCommandPackage* package = emitted.first().first;
    auto* result = dynamic_cast<ResultChannel*>(emitted.first().second);
    QVERIFY(result);
    QCOMPARE(package->getSocket(), static_cast<QIODevice*>(&second));
    QCOMPARE(package->getProtocolType(), quint64(CommunAttribute::LocalProtocol));
    QCOMPARE(result->getTraceFlag(), QStringLiteral("[b]"));
    QCOMPARE(result->getRedistrarName(), QStringLiteral("A"));
    QCOMPARE(result->getSendCommandType(), quint64(ChannelCommandType));
    delete package;
    delete result;
}

QTEST_GUILESS_MAIN(tst_Dispatch)
#include "tst_dispatch.moc"
