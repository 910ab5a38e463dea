// The transport end to end, over named local sockets and TCP on 127.0.0.1: server and
// client workers on threads of their own, the dispatch queue, the client manager and the
// terminal; connection outcomes, load, floods and misbehaving peers.

#include "communtestsupport.h"

#include <QLocalSocket>
#include <QPointer>
#include <QSettings>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace communtest;

namespace {

// The host's concrete client manager: encodes what the queue announces and hands the bytes on.
class HostManager : public ClientCommunManager
{
    Q_OBJECT

public:
    void SetConnectAttribute(const CommunAttribute& attribute) override
    {
        QMutexLocker locker(&m_mutex);
        m_communAttribute = attribute;
    }
    void DealRequestCommand(CommCommand* command) override
    {
        {
            QMutexLocker locker(&m_mutex);
            dealtOn = QThread::currentThread();
            dealtTraceFlag = command->getTraceFlag();
        }
        QByteArray bytes;
        CommandBuilder::CommandToBytearray(command, bytes);
        emit requestBytes(bytes);
    }
    void listenTo(CommunProducerConsumerManager* dispatch)
    {
        connect(dispatch, &CommunProducerConsumerManager::dealQueuePackageCommand, this,
                &HostManager::onDealQueuePackageCommand);
    }
    QThread* dealtThread()
    {
        QMutexLocker locker(&m_mutex);
        return dealtOn;
    }
    QString traceFlag()
    {
        QMutexLocker locker(&m_mutex);
        return dealtTraceFlag;
    }

signals:
    void requestBytes(QByteArray bytes);

private:
    QThread* dealtOn = nullptr;
    QString dealtTraceFlag;
};

// The answer of the server below: the request's envelope, result 0, the request data.
QByteArray expectedAnswer(const CommCommand& request, const QByteArray& data)
{
    ResultCommand result(2101);
    result.GetRequestCommandInfo(request);
    result.setUintResult(0);
    result.setResultData(data);
    return encode(&result);
}

// Answers each channel command twice on the socket it came on: directly with SendResult,
// then through a CommTerminal and its channelSendCommand.
void answerTwice(CommunServer* server, QIODevice* socket, const QByteArray& bytes)
{
    CommCommand* command = CommandBuilder::BytearrayToCommand(bytes);
    auto* channel = dynamic_cast<ChannelCommand*>(command);
    if (!channel) {
        CommandBuilder::DestroyCommand(command);
        return;
    }
    server->SendResult(socket, expectedAnswer(*channel, channel->getRequestData()));

    CommTerminal terminal;
    QObject::connect(&terminal, &CommTerminal::channelSendCommand,
                     [server](SocketCommandPackage* package, ResultCommand* result) {
                         server->SendResult(package->getSocket(), encode(result));
                         delete package;
                         CommandBuilder::DestroyCommand(result);
                     });
    terminal.SocketCommandInfo(socket, channel);
    terminal.SendData(QByteArray("from the terminal"));
    CommandBuilder::DestroyCommand(command);
}

void echo(CommunServer* server, QIODevice* socket, const QByteArray& bytes)
{
    server->SendResult(socket, echoAnswer(bytes));
}

qint64 declaredLength(const QByteArray& package)
{
    qint64 length = 0;
    QDataStream(package) >> length;
    return length;
}

// A plain socket of the current transport, connected to the server; for peers that misbehave.
std::unique_ptr<QIODevice> rawPeer(const ServerOnThread& server)
{
    if (server.endpoint().getProtocolType() == CommunAttribute::TcpProtocol) {
        auto socket = std::make_unique<QTcpSocket>();
        socket->connectToHost(QHostAddress::LocalHost, server.port());
        if (!socket->waitForConnected(5000))
            return nullptr;
        return socket;
    }
    auto socket = std::make_unique<QLocalSocket>();
    socket->connectToServer(server.name());
    if (!socket->waitForConnected(5000))
        return nullptr;
    return socket;
}

void abortPeer(QIODevice* peer)
{
    if (auto* tcp = qobject_cast<QTcpSocket*>(peer))
        tcp->abort();
    else if (auto* local = qobject_cast<QLocalSocket*>(peer))
        local->abort();
}

bool waitWritten(QIODevice* peer)
{
    return QTest::qWaitFor([peer] { return peer->bytesToWrite() == 0; }, 5000);
}

bool roundTrip(ClientOnThread& client, quint32 n)
{
    const int before = client.results.size();
    client.request(numberedPackage(n));
    if (!QTest::qWaitFor([&] { return client.results.size() > before; }, 5000))
        return false;
    CommCommand* command = CommandBuilder::BytearrayToCommand(client.results.last());
    auto* result = dynamic_cast<ResultCommand*>(command);
    quint32 echoed = 0xFFFFFFFFu;
    if (result)
        QDataStream(result->getResultData()) >> echoed;
    CommandBuilder::DestroyCommand(command);
    return echoed == n;
}

} // namespace

class tst_Transport : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase_data();
    void initTestCase();
    void init();

    void endToEnd();
    void firstConnectedOncePerEndpointHostConnectedEveryTime();
    void unservedEndpointFails();
    void secondServerOnTheSameEndpointRefusesToStart();
    void afterStopNewClientIsAcceptedButNeverRead();
    void fiftyClientsEachGetTheirOwnAnswers();
    void misbehavingPeers_data();
    void misbehavingPeers();
    void answerToAVanishedPeerIsDropped();
    void clientRecoversAfterServerRestart();
    void floodWhileTheServerIsBusy();

private:
    QTemporaryDir m_dir;
    LogCapture m_log;
};

void tst_Transport::initTestCase_data()
{
    addTransportRows();
}

void tst_Transport::initTestCase()
{
    // The client creates its TCP socket only with the switch code 88 in the configuration.
    const QString ini = m_dir.filePath(QStringLiteral("service.ini"));
    QSettings settings(ini, QSettings::IniFormat);
    settings.setValue(QStringLiteral("/Network/tcp_server_code"), 88);
    settings.sync();
    QVERIFY(ConfigReader::IniReader(ini));
    QCOMPARE(ConfigReader::getTcpServerCode(), static_cast<unsigned short>(88));
}

void tst_Transport::init()
{
    m_log.clear();
}

void tst_Transport::endToEnd()
{
    ServerOnThread server(answerTwice);
    QVERIFY2(server.start(currentProtocol()), "server did not start");

    CommunProducerConsumerManager dispatch;
    QVERIFY(dispatch.Init());
    QVERIFY(dispatch.Start());
    QThread managerThread;
    managerThread.start();
    auto* manager = new HostManager;
    manager->moveToThread(&managerThread);
    manager->listenTo(&dispatch);

    ClientOnThread client;
    QVERIFY(client.initialised());
    QVERIFY2(client.connectTo(server.endpoint()), "client did not connect");
    QVERIFY(connect(manager, SIGNAL(requestBytes(QByteArray)), client.work(), SLOT(onRequestData(QByteArray))));

    CommCommand* command = CommandBuilder::BuilderCommand(ChannelCommandType);
    auto* request = dynamic_cast<ChannelCommand*>(command);
    QVERIFY(request);
    request->setCommunAttribute(server.endpoint());
    request->setPlanUuid(QStringLiteral("plan-42"));
    request->setPlanName(QStringLiteral("nightly"));
    request->setClientUuid(QStringLiteral("agent-1"));
    request->setRedistrarName(QStringLiteral("registrar"));
    request->setRequestData(QByteArray::fromHex("00ff10ab"));
    ChannelCommand sent(*request);
    sent.CreateTraceFlag();

    QVERIFY(ClientCommunManager::RequestCommunCommand(command));   // the queue owns it now
    QTRY_COMPARE_WITH_TIMEOUT(client.results.size(), 2, 10000);

    QCOMPARE(manager->dealtThread(), &managerThread);
    QCOMPARE(manager->traceFlag(), QStringLiteral("[planUuid:plan-42,planName:nightly,commandType:ChannelCommand]"));

    // The direct answer, byte for byte (a tail of the next package may ride along).
    const QByteArray direct = client.results.at(0);
    QVERIFY(declaredLength(direct) <= direct.size());
    QCOMPARE(direct.left(declaredLength(direct)).toHex(), expectedAnswer(sent, sent.getRequestData()).toHex());

    // The terminal's answer decodes to a ResultChannel for the same request.
    CommCommand* decoded = CommandBuilder::BytearrayToCommand(client.results.at(1));
    auto* channelResult = dynamic_cast<ResultChannel*>(decoded);
    QVERIFY(channelResult);
    QCOMPARE(channelResult->getCommandType(), quint64(ResultChannelType));
    QCOMPARE(channelResult->getSendCommandType(), quint64(ChannelCommandType));
    QCOMPARE(channelResult->getRedistrarName(), QStringLiteral("registrar"));
    QCOMPARE(channelResult->getTraceFlag(), sent.getTraceFlag());
    QCOMPARE(channelResult->getCommunAttribute(), server.endpoint());
    QCOMPARE(channelResult->getResultData(), QByteArray("from the terminal"));
    QCOMPARE(declaredLength(client.results.at(1)), qint64(client.results.at(1).size()));
    CommandBuilder::DestroyCommand(decoded);

    dispatch.Stop();
    dispatch.UnInit();
    runOn(manager, [manager] { delete manager; });
    managerThread.quit();
    managerThread.wait();
}

void tst_Transport::firstConnectedOncePerEndpointHostConnectedEveryTime()
{
    ServerOnThread server(echo);
    QVERIFY(server.start(currentProtocol()));
    ClientOnThread client;

    QVERIFY(client.connectTo(server.endpoint()));
    client.reconnect();
    QTRY_COMPARE_WITH_TIMEOUT(client.hostOutcomes.size(), 2, 5000);
    client.reconnect();
    QTRY_COMPARE_WITH_TIMEOUT(client.hostOutcomes.size(), 3, 5000);
    QCOMPARE(client.firstOutcomes.size(), 1);

    QVERIFY(client.connectTo(server.endpoint()));   // a new endpoint setting arms it again
    QTRY_COMPARE_WITH_TIMEOUT(client.firstOutcomes.size(), 2, 5000);
    QCOMPARE(client.hostOutcomes.size(), 4);
    for (const auto& outcome : client.hostOutcomes + client.firstOutcomes) {
        QVERIFY(outcome.flag);
        QCOMPARE(outcome.type, currentProtocol());
        QCOMPARE(outcome.name, server.endpoint().getDestSvrNameIp());
        QCOMPARE(outcome.port, server.endpoint().getDestPort());
    }
    QVERIFY(roundTrip(client, 7));
}

void tst_Transport::unservedEndpointFails()
{
    CommunAttribute nowhere;
    nowhere.setProtocolType(currentProtocol());
    if (currentProtocol() == CommunAttribute::TcpProtocol) {
        QTcpServer probe;   // a port that was free a moment ago and is closed now
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        nowhere.setDestPort(probe.serverPort());
        probe.close();
        nowhere.setDestSvrNameIp(QStringLiteral("127.0.0.1"));
    } else {
        nowhere.setDestSvrNameIp(uniqueName("nobody"));
    }
    ClientOnThread client;
    QVERIFY(!client.connectTo(nowhere));
    QTRY_COMPARE_WITH_TIMEOUT(client.firstOutcomes.size(), 1, 5000);
    QVERIFY(!client.firstOutcomes.first().flag);

    // A request now reconnects, fails again and is dropped with the send list.
    client.request(numberedPackage(1));
    // (TCP may report the refusal twice: once for the connection, once for the pending write.)
    QTRY_VERIFY_WITH_TIMEOUT(client.hostOutcomes.size() >= 2, 5000);
    for (const auto& outcome : client.hostOutcomes)
        QVERIFY(!outcome.flag);
    QCOMPARE(client.firstOutcomes.size(), 1);
    QTRY_VERIFY_WITH_TIMEOUT(
        m_log.lines().contains(QStringLiteral("WARN The CommunClientWork reconnect server in the onRequestData.")), 5000);
}

void tst_Transport::secondServerOnTheSameEndpointRefusesToStart()
{
    ServerOnThread first(echo);
    QVERIFY(first.start(currentProtocol()));
    ServerOnThread second(echo);
    QVERIFY2(!second.start(currentProtocol(), first.name(), first.port()), "a second server took the endpoint");

    // The first one still serves, old and new clients alike.
    ClientOnThread client;
    QVERIFY(client.connectTo(first.endpoint()));
    QVERIFY(roundTrip(client, 11));
    ClientOnThread late;
    QVERIFY(late.connectTo(first.endpoint()));
    QVERIFY(roundTrip(late, 12));
    QCOMPARE(second.received(), 0);
}

void tst_Transport::afterStopNewClientIsAcceptedButNeverRead()
{
    ServerOnThread server(echo);
    QVERIFY(server.start(currentProtocol()));
    ClientOnThread sentinel;
    QVERIFY(sentinel.connectTo(server.endpoint()));
    QVERIFY(roundTrip(sentinel, 1));

    runOn(server.server(), [&] { server.server()->Stop(); });
    std::unique_ptr<QIODevice> late = rawPeer(server);
    QVERIFY2(late, "the listener refused the connection");
    QVERIFY(late->write(numberedPackage(99)) > 0);
    QVERIFY(waitWritten(late.get()));

    // The clients connected before the stop are still served; the new one never is.
    QVERIFY(roundTrip(sentinel, 2));
    QVERIFY(roundTrip(sentinel, 3));
    QCOMPARE(server.received(), 3);
    QCOMPARE(late->bytesAvailable(), qint64(0));
}

void tst_Transport::fiftyClientsEachGetTheirOwnAnswers()
{
    const int clients = 50;
    const int requests = 100;
    ServerOnThread server(echo);
    QVERIFY(server.start(currentProtocol()));

    QThread threads[5];
    for (QThread& thread : threads)
        thread.start();
    std::vector<std::unique_ptr<ClientOnThread>> workers;
    for (int c = 0; c < clients; ++c) {
        workers.push_back(std::make_unique<ClientOnThread>(&threads[c % 5]));
        workers.back()->setEndpoint(server.endpoint());
        workers.back()->reconnect();
    }
    QVERIFY(QTest::qWaitFor([&] {
        for (auto& worker : workers)
            if (worker->firstOutcomes.isEmpty())
                return false;
        return true;
    }, 20000));
    for (auto& worker : workers)
        QVERIFY(worker->firstOutcomes.first().flag);

    for (int n = 0; n < requests; ++n) {
        for (int c = 0; c < clients; ++c) {
            RequestCommand request(CustomCommandType);
            QByteArray data;
            QDataStream(&data, QIODevice::WriteOnly) << qint32(c) << qint32(n);
            request.setRequestData(data);
            workers[c]->request(encode(&request));
        }
    }
    QVERIFY(QTest::qWaitFor([&] {
        for (auto& worker : workers)
            if (worker->results.size() < requests)
                return false;
        return true;
    }, 60000));

    for (int c = 0; c < clients; ++c) {
        QCOMPARE(workers[c]->results.size(), requests);
        for (int n = 0; n < requests; ++n) {
            CommCommand* command = CommandBuilder::BytearrayToCommand(workers[c]->results.at(n));
            auto* result = dynamic_cast<ResultCommand*>(command);
            QVERIFY(result);
            qint32 client = -1;
            qint32 number = -1;
            QDataStream(result->getResultData()) >> client >> number;
            CommandBuilder::DestroyCommand(command);
            QCOMPARE(client, c);
            QCOMPARE(number, n);
        }
    }
    QCOMPARE(server.received(), clients * requests);
    workers.clear();
    for (QThread& thread : threads) {
        thread.quit();
        thread.wait();
    }
}

void tst_Transport::misbehavingPeers_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("vanish");
    QTest::addColumn<QString>("serverLog");

    const QByteArray package = numberedPackage(5);
    QTest::newRow("a peer that writes half a package and vanishes")
        << package.left(package.size() / 2) << true << QStringLiteral("WARN Server %1 socket comm occurred error : ");
    QTest::newRow("a peer that writes an 8-byte length field only and vanishes")
        << package.left(8) << true << QStringLiteral("WARN Server %1 socket comm occurred error : ");
    QTest::newRow("a peer that sends text whose length field is huge")
        << QByteArray("GET / HTTP/1.1\r\nHost: x\r\n\r\n") << false << QString();
    QTest::newRow("a peer that declares a length below 8")
        << QByteArray::fromHex("0000000000000003deadbeef") << false
        << QStringLiteral("ERROR Server read block bytes failed in the onreadyRead.");
    QTest::newRow("a peer that connects and never sends") << QByteArray() << false << QString();
}

void tst_Transport::misbehavingPeers()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, vanish);
    QFETCH(QString, serverLog);
    const QString transport = currentProtocol() == CommunAttribute::TcpProtocol ? "tcp" : "local";

    ServerOnThread server(echo);
    QVERIFY(server.start(currentProtocol()));
    ClientOnThread good;
    QVERIFY(good.connectTo(server.endpoint()));
    QVERIFY(roundTrip(good, 1));

    std::unique_ptr<QIODevice> peer = rawPeer(server);
    QVERIFY(peer);
    if (!bytes.isEmpty()) {
        QCOMPARE(peer->write(bytes), qint64(bytes.size()));
        QVERIFY(waitWritten(peer.get()));
    }
    if (vanish)
        abortPeer(peer.get());
    if (!serverLog.isEmpty()) {
        const QString expected = serverLog.contains("%1") ? serverLog.arg(transport) : serverLog;
        QVERIFY(QTest::qWaitFor([&] {
            for (const QString& line : m_log.lines())
                if (line.startsWith(expected))
                    return true;
            return false;
        }, 5000));
    }

    // Everybody else is still served, and nothing the bad peer sent was delivered.
    QVERIFY(roundTrip(good, 2));
    QVERIFY(roundTrip(good, 3));
    QCOMPARE(server.received(), 3);

    if (!vanish && bytes.size() < 16) {
        // A peer whose bytes were dropped (or who sent none) can still talk properly.
        const QByteArray package = numberedPackage(77);
        QCOMPARE(peer->write(package), qint64(package.size()));
        QByteArray answer;
        QVERIFY(QTest::qWaitFor([&] {
            answer += peer->readAll();
            return answer.size() >= 8 && declaredLength(answer) <= answer.size();
        }, 5000));
        QCOMPARE(server.received(), 4);
        QCOMPARE(numberOf(package), quint32(77));
        QCOMPARE(answer.toHex(), echoAnswer(package).toHex());
    }
}

void tst_Transport::answerToAVanishedPeerIsDropped()
{
    QIODevice* lastSocket = nullptr;
    QPointer<QIODevice> watch;
    ServerOnThread server([&](CommunServer*, QIODevice* socket, const QByteArray&) {
        lastSocket = socket;
        watch = socket;
    });
    QVERIFY(server.start(currentProtocol()));
    std::unique_ptr<QIODevice> peer = rawPeer(server);
    QVERIFY(peer);
    peer->write(numberedPackage(1));
    QTRY_COMPARE_WITH_TIMEOUT(server.received(), 1, 5000);
    abortPeer(peer.get());

    // Wait, on the server's thread, until the server-side socket has deleted itself.
    QVERIFY(QTest::qWaitFor([&] {
        bool gone = false;
        runOn(server.server(), [&] { gone = watch.isNull(); });
        return gone;
    }, 5000));
    m_log.clear();
    runOn(server.server(), [&] { server.server()->SendResult(lastSocket, numberedPackage(2)); });
    QCOMPARE(m_log.lines(), QStringList{QStringLiteral("ERROR Server socket into parameter error in the SendResult.")});

    // From another thread the answer is carried over to the server's thread first.
    m_log.clear();
    tsanRelease();
    server.server()->SendResult(lastSocket, numberedPackage(3));
    QTRY_COMPARE_WITH_TIMEOUT(m_log.lines().size(), 1, 5000);
}

void tst_Transport::clientRecoversAfterServerRestart()
{
    auto server = std::make_unique<ServerOnThread>(echo);
    QVERIFY(server->start(currentProtocol()));
    const QString name = server->name();
    const quint16 port = server->port();
    ClientOnThread client;
    QVERIFY(client.connectTo(server->endpoint()));
    QVERIFY(roundTrip(client, 1));

    server.reset();   // the serving side goes away under the connected client
    server = std::make_unique<ServerOnThread>(echo);
    QVERIFY2(server->start(currentProtocol(), name, port), "the endpoint could not be served again");

    // The request that finds the old connection dead may be lost with it; the next one
    // reconnects and goes through.
    int attempts = 0;
    bool answered = false;
    while (!answered && attempts < 2) {
        ++attempts;
        answered = roundTrip(client, 100 + attempts);
    }
    QVERIFY2(answered, "the client did not recover");
    QVERIFY(roundTrip(client, 200));
}

void tst_Transport::floodWhileTheServerIsBusy()
{
    const quint32 count = 100000;
    quint32 expected = 0;
    quint32 outOfOrder = 0;
    ServerOnThread server([&](CommunServer*, QIODevice*, const QByteArray& bytes) {
        if (numberOf(bytes) != expected)
            ++outOfOrder;
        ++expected;
    });
    QVERIFY(server.start(currentProtocol()));
    std::unique_ptr<QIODevice> peer = rawPeer(server);
    QVERIFY(peer);
    peer->write(numberedPackage(0));
    QTRY_COMPARE_WITH_TIMEOUT(server.received(), 1, 5000);

    // Keep the server's thread busy while the peer writes everything back to back.
    QSemaphore busy;
    postTo(server.server(), [&busy] { busy.acquire(); });
    QByteArray all;
    for (quint32 n = 1; n < count; ++n)
        all += numberedPackage(n);
    QCOMPARE(peer->write(all), qint64(all.size()));
    busy.release();

    QTRY_COMPARE_WITH_TIMEOUT(server.received(), int(count), 120000);
    quint32 seen = 0;
    quint32 disorder = 0;
    runOn(server.server(), [&] {
        seen = expected;
        disorder = outOfOrder;
    });
    QCOMPARE(seen, count);
    QCOMPARE(disorder, quint32(0));
}

QTEST_GUILESS_MAIN(tst_Transport)
#include "tst_transport.moc"
