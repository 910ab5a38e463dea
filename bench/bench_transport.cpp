// The transport against bare sockets, server in another process (this program started again
// with --serve). The library side is a CommunServer echoing each package with SendResult and
// a CommunClientWork sending the next package on each returnResult; the baseline is a bare
// QLocalSocket/QTcpSocket ping-pong with the same 8-byte length prefix and the same bytes,
// event-loop driven on both sides. Cases: small package round trip (median and 99th
// percentile), the same through the full client road (RequestCommunCommand, dispatch queue,
// manager slot, worker on its own thread or on the manager's), and 1 MiB packages echoed
// (throughput). Further baselines add to the bare sockets the queued hops the transport's
// contract fixes, and for the road also its thread handoffs, to show the floor they set.
//
//   bench_transport [--header] [round|throughput]
//   bench_transport --serve lib|bare|hops local|tcp NAME    (a server; prints "ready PORT")

#include "benchtable.h"

#include <backupframe.h>

#include <QCoreApplication>
#include <QDataStream>
#include <QEventLoop>
#include <QHostAddress>
#include <QLocalServer>
#include <QLocalSocket>
#include <QMutex>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryFile>
#include <QThread>
#include <QTimer>
#include <QWaitCondition>
#include <QtEndian>

#include <functional>
#include <memory>

namespace {

const int kRuns = 7;

qint64 lengthAt(const QByteArray& bytes)
{
    return bytes.size() < 8 ? -1 : qFromBigEndian<qint64>(bytes.constData());
}

// A request package of about `size` bytes (the length prefix included).
QByteArray requestPackage(int payload)
{
    RequestCommand request(CustomCommandType);
    request.setClientUuid(QStringLiteral("bench"));
    request.setRequestData(QByteArray(payload, 'x'));
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(&request, bytes);
    return bytes;
}

// ---- servers ----

int serveLibrary(bool tcp, const QString& name)
{
    CommunServer server;
    if (!server.Init(tcp ? CommunAttribute::TcpProtocol : CommunAttribute::LocalProtocol))
        return 2;
    const bool started = tcp ? server.StartTcp(0, QHostAddress::LocalHost) : server.Start(name, 0);
    if (!started)
        return 2;
    QObject::connect(&server, &CommunServer::incomingBlockData, &server,
                     [&server](quint64, QIODevice* psocket, QByteArray bytes) {
                         const qint64 length = lengthAt(bytes);
                         server.SendResult(psocket, length < bytes.size() ? bytes.left(int(length)) : bytes);
                     });
    std::printf("ready %u\n", server.getTcpServerPort());
    std::fflush(stdout);
    return QCoreApplication::exec();
}

// With hops, the bare sockets take the event-loop hops the transport's contract fixes: readyRead
// reaches the reader through a queued connection, each complete package reaches its consumer
// through another, and bytesWritten reaches the sender through a third. This shows the floor
// those hops set.
bool g_hops = false;

// Echoes every complete package; the buffer keeps what follows it.
void echoBare(QIODevice* socket, QByteArray& buffer)
{
    buffer.append(socket->readAll());
    int offset = 0;
    for (;;) {
        const qint64 length = lengthAt(buffer.mid(offset, 8));
        if (length < 8 || buffer.size() - offset < length)
            break;
        if (g_hops) {
            const QByteArray package = buffer.mid(offset, int(length));
            QMetaObject::invokeMethod(socket, [socket, package] { socket->write(package); }, Qt::QueuedConnection);
        } else {
            socket->write(buffer.constData() + offset, length);
        }
        offset += int(length);
    }
    if (offset > 0)
        buffer.remove(0, offset);
}

template <typename Socket>
void attachBare(Socket* socket)
{
    auto buffer = std::make_shared<QByteArray>();
    QObject::connect(socket, &Socket::readyRead, socket, [socket, buffer] { echoBare(socket, *buffer); },
                     g_hops ? Qt::QueuedConnection : Qt::AutoConnection);
    if (g_hops)
        QObject::connect(socket, &Socket::bytesWritten, socket, [](qint64) {}, Qt::QueuedConnection);
    QObject::connect(socket, &Socket::disconnected, socket, &QObject::deleteLater);
}

int serveBare(bool tcp, const QString& name)
{
    QLocalServer local;
    QTcpServer tcpServer;
    if (tcp) {
        if (!tcpServer.listen(QHostAddress::LocalHost, 0))
            return 2;
        QObject::connect(&tcpServer, &QTcpServer::newConnection, [&tcpServer] {
            while (QTcpSocket* socket = tcpServer.nextPendingConnection())
                attachBare(socket);
        });
    } else {
        QLocalServer::removeServer(name);
        if (!local.listen(name))
            return 2;
        QObject::connect(&local, &QLocalServer::newConnection, [&local] {
            while (QLocalSocket* socket = local.nextPendingConnection())
                attachBare(socket);
        });
    }
    std::printf("ready %u\n", tcp ? tcpServer.serverPort() : 0);
    std::fflush(stdout);
    return QCoreApplication::exec();
}

// ---- the server process ----

class ServerProcess
{
public:
    bool start(const QString& kind, bool tcp)
    {
        m_name = QStringLiteral("bench-transport-%1-%2").arg(QCoreApplication::applicationPid()).arg(++s_serial);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QCoreApplication::applicationFilePath(),
                        {QStringLiteral("--serve"), kind, tcp ? QStringLiteral("tcp") : QStringLiteral("local"), m_name});
        if (!m_process.waitForStarted(10000))
            return false;
        while (!m_process.canReadLine()) {
            if (!m_process.waitForReadyRead(10000))
                return false;
        }
        m_port = QString::fromLatin1(m_process.readLine()).section(QLatin1Char(' '), 1).trimmed().toUShort();
        return true;
    }
    ~ServerProcess()
    {
        m_process.kill();
        m_process.waitForFinished(10000);
    }
    QString name() const { return m_name; }
    quint16 port() const { return m_port; }

private:
    static int s_serial;
    QProcess m_process;
    QString m_name;
    quint16 m_port = 0;
};
int ServerProcess::s_serial = 0;

// ---- a ping-pong: send, wait for the echo, send again ----

// Drives count round trips: send(i) starts one; the caller calls done() on each echo.
// Returns the duration of each round trip in seconds.
class PingPong : public QObject
{
public:
    std::function<void()> send;

    std::vector<double> run(int count)
    {
        m_left = count;
        m_samples.clear();
        m_samples.reserve(count);
        QTimer::singleShot(60000, &m_loop, [this] { m_loop.exit(1); });
        m_timer.start();
        send();
        m_loop.exec();
        return m_samples;
    }
    void done()
    {
        m_samples.push_back(m_timer.nsecsElapsed() / 1e9);
        if (--m_left <= 0) {
            m_loop.quit();
            return;
        }
        m_timer.start();
        send();
    }

private:
    QEventLoop m_loop;
    QElapsedTimer m_timer;
    std::vector<double> m_samples;
    int m_left = 0;
};

// ---- bare client ----

std::vector<double> bareRoundTrips(bool tcp, const ServerProcess& server, const QByteArray& package, int count,
                                   int runs, bool hops = false)
{
    std::unique_ptr<QIODevice> socket;
    if (tcp) {
        auto* s = new QTcpSocket;
        socket.reset(s);
        s->connectToHost(QHostAddress::LocalHost, server.port());
        s->waitForConnected(10000);
    } else {
        auto* s = new QLocalSocket;
        socket.reset(s);
        s->connectToServer(server.name());
        s->waitForConnected(10000);
    }
    PingPong pingPong;
    QByteArray buffer;
    QIODevice* device = socket.get();
    pingPong.send = [device, &package] { device->write(package); };
    QObject::connect(device, &QIODevice::readyRead, &pingPong, [&] {
        buffer.append(device->readAll());
        const qint64 length = lengthAt(buffer);
        if (length >= 8 && buffer.size() >= length) {
            buffer.remove(0, int(length));
            if (hops)
                QMetaObject::invokeMethod(&pingPong, [&pingPong] { pingPong.done(); }, Qt::QueuedConnection);
            else
                pingPong.done();
        }
    }, hops ? Qt::QueuedConnection : Qt::AutoConnection);
    if (hops)
        QObject::connect(device, &QIODevice::bytesWritten, &pingPong, [](qint64) {}, Qt::QueuedConnection);
    std::vector<double> all;
    for (int run = 0; run < runs; ++run) {
        const std::vector<double> samples = pingPong.run(count);
        all.insert(all.end(), samples.begin(), samples.end());
    }
    return all;
}

// ---- the client road's floor with bare parts ----

// A bounded queue (capacity 1000) with a consumer thread that hands each item to the main
// thread through a queued call: the dispatch queue's mechanism, bare.
class BareDispatch : public QThread
{
public:
    std::function<void()> deliver;   // runs on the main thread, once per item

    explicit BareDispatch(QObject* receiver) : m_receiver(receiver) {}
    void put(bool stop = false)
    {
        QMutexLocker locker(&m_mutex);
        m_items.append(stop);
        m_notEmpty.wakeOne();
    }
    void stop() { put(true); wait(); }

protected:
    void run() override
    {
        for (;;) {
            bool stop = false;
            {
                QMutexLocker locker(&m_mutex);
                while (m_items.isEmpty())
                    m_notEmpty.wait(&m_mutex);
                stop = m_items.takeFirst();
            }
            if (stop)
                return;
            QMetaObject::invokeMethod(m_receiver, [this] { deliver(); }, Qt::QueuedConnection);
        }
    }

private:
    QObject* m_receiver;
    QMutex m_mutex;
    QWaitCondition m_notEmpty;
    QList<bool> m_items;
};

// The request goes producer -> consumer thread -> main thread -> socket thread, the answer
// socket thread -> main thread, with the transport's queued hops on the socket thread.
std::vector<double> bareRoadRoundTrips(bool tcp, const ServerProcess& server, const QByteArray& package, int count)
{
    QThread thread;
    thread.start();
    QObject onThread;
    onThread.moveToThread(&thread);
    QIODevice* device = nullptr;
    QByteArray buffer;
    PingPong pingPong;
    QMetaObject::invokeMethod(&onThread, [&] {
        if (tcp) {
            auto* s = new QTcpSocket;
            s->connectToHost(QHostAddress::LocalHost, server.port());
            s->waitForConnected(10000);
            device = s;
        } else {
            auto* s = new QLocalSocket;
            s->connectToServer(server.name());
            s->waitForConnected(10000);
            device = s;
        }
        QObject::connect(device, &QIODevice::readyRead, &onThread, [&] {
            buffer.append(device->readAll());
            const qint64 length = lengthAt(buffer);
            if (length >= 8 && buffer.size() >= length) {
                buffer.remove(0, int(length));
                QMetaObject::invokeMethod(&onThread, [&] {
                    QMetaObject::invokeMethod(&pingPong, [&pingPong] { pingPong.done(); }, Qt::QueuedConnection);
                }, Qt::QueuedConnection);
            }
        }, Qt::QueuedConnection);
        QObject::connect(device, &QIODevice::bytesWritten, &onThread, [](qint64) {}, Qt::QueuedConnection);
    }, Qt::BlockingQueuedConnection);
    BareDispatch dispatch(&pingPong);
    dispatch.deliver = [&] {
        QMetaObject::invokeMethod(&onThread, [device, package] { device->write(package); }, Qt::QueuedConnection);
    };
    dispatch.start();
    pingPong.send = [&dispatch] { dispatch.put(); };
    const std::vector<double> samples = pingPong.run(count);
    dispatch.stop();
    QMetaObject::invokeMethod(&onThread, [&] { delete device; }, Qt::BlockingQueuedConnection);
    thread.quit();
    thread.wait();
    return samples;
}

// ---- library client: CommunClientWork on this thread ----

bool connectWorker(CommunClientWork& work, bool tcp, const ServerProcess& server)
{
    CommunAttribute attribute;
    attribute.setProtocolType(tcp ? CommunAttribute::TcpProtocol : CommunAttribute::LocalProtocol);
    attribute.setDestSvrNameIp(tcp ? QStringLiteral("127.0.0.1") : server.name());
    attribute.setDestPort(server.port());
    work.SetCommunAttribute(attribute);
    QEventLoop loop;
    bool connected = false;
    QObject::connect(&work, &CommunClientWork::hostConnected, &loop, [&](quint64, QString, quint16, bool ok) {
        connected = ok;
        loop.quit();
    });
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    QMetaObject::invokeMethod(&work, "onreconnectServer", Qt::QueuedConnection);
    loop.exec();
    return connected;
}

std::vector<double> libraryRoundTrips(bool tcp, const ServerProcess& server, const QByteArray& package, int count,
                                      int runs)
{
    CommunClientWork work;
    if (!work.Init() || !connectWorker(work, tcp, server))
        return {};
    PingPong pingPong;
    pingPong.send = [&work, &package] {
        QMetaObject::invokeMethod(&work, "onRequestData", Qt::DirectConnection, Q_ARG(QByteArray, package));
    };
    QObject::connect(&work, &CommunClientWork::returnResult, &pingPong, [&pingPong](QByteArray) { pingPong.done(); });
    std::vector<double> all;
    for (int run = 0; run < runs; ++run) {
        const std::vector<double> samples = pingPong.run(count);
        all.insert(all.end(), samples.begin(), samples.end());
    }
    return all;
}

// ---- the full client road ----

class BenchManager : public ClientCommunManager
{
    Q_OBJECT

public:
    void SetConnectAttribute(const CommunAttribute& attribute) override { m_communAttribute = attribute; }
    void DealRequestCommand(CommCommand* pcommand) override
    {
        QByteArray bytes;
        CommandBuilder::CommandToBytearray(pcommand, bytes);
        emit requestBytes(bytes);
    }

signals:
    void requestBytes(QByteArray bytes);
};

// The worker on a thread of its own, as the agent has it, or on the manager's thread.
std::vector<double> roadRoundTrips(bool tcp, const ServerProcess& server, int payload, int count, int runs,
                                   bool workerThread = true)
{
    CommunProducerConsumerManager dispatch;
    BenchManager manager;
    QObject::connect(&dispatch, SIGNAL(dealQueuePackageCommand(SocketCommandPackage*)), &manager,
                     SLOT(onDealQueuePackageCommand(SocketCommandPackage*)));
    dispatch.Init();
    dispatch.Start();

    QThread thread;
    auto* work = new CommunClientWork;
    if (workerThread) {
        thread.start();
        work->moveToThread(&thread);
    }
    const Qt::ConnectionType blocking = workerThread ? Qt::BlockingQueuedConnection : Qt::DirectConnection;
    bool ready = false;
    QMetaObject::invokeMethod(work, [&] { ready = work->Init(); }, blocking);
    QObject::connect(&manager, SIGNAL(requestBytes(QByteArray)), work, SLOT(onRequestData(QByteArray)),
                     Qt::QueuedConnection);

    CommunAttribute attribute;
    attribute.setProtocolType(tcp ? CommunAttribute::TcpProtocol : CommunAttribute::LocalProtocol);
    attribute.setDestSvrNameIp(tcp ? QStringLiteral("127.0.0.1") : server.name());
    attribute.setDestPort(server.port());
    QMetaObject::invokeMethod(work, [&] { work->SetCommunAttribute(attribute); }, blocking);
    {
        QEventLoop loop;
        QObject::connect(work, &CommunClientWork::hostConnected, &loop, [&](quint64, QString, quint16, bool ok) {
            ready = ready && ok;
            loop.quit();
        }, Qt::QueuedConnection);
        QTimer::singleShot(10000, &loop, &QEventLoop::quit);
        QMetaObject::invokeMethod(work, "onreconnectServer", Qt::QueuedConnection);
        loop.exec();
    }
    std::vector<double> all;
    if (ready) {
        PingPong pingPong;
        pingPong.send = [attribute, payload] {
            auto* request = new RequestCommand(CustomCommandType);
            request->setClientUuid(QStringLiteral("bench"));
            request->setRequestData(QByteArray(payload, 'x'));
            request->setCommunAttribute(attribute);
            ClientCommunManager::RequestCommunCommand(request);
        };
        QObject::connect(work, &CommunClientWork::returnResult, &pingPong, [&pingPong](QByteArray) { pingPong.done(); },
                         Qt::QueuedConnection);
        for (int run = 0; run < runs; ++run) {
            const std::vector<double> samples = pingPong.run(count);
            all.insert(all.end(), samples.begin(), samples.end());
        }
    }
    QMetaObject::invokeMethod(work, [work] { work->UnInit(); delete work; }, blocking);
    thread.quit();
    thread.wait();
    dispatch.Stop();
    dispatch.UnInit();
    return all;
}

// ---- the cases ----

// Median over the runs of each run's figure: medians of per-run samples.
double medianOfRuns(const std::vector<double>& all, int runs, double p)
{
    if (all.empty())
        return 0;
    std::vector<double> figures;
    const size_t per = all.size() / runs;
    for (int run = 0; run < runs; ++run)
        figures.push_back(BenchTable::percentile(
            std::vector<double>(all.begin() + run * per, all.begin() + (run + 1) * per), p));
    return BenchTable::median(figures);
}

void smallRoundTrip(bool tcp)
{
    const QByteArray package = requestPackage(40);
    const int count = 2000;
    const std::string transport = tcp ? "tcp" : "local";
    ServerProcess bareServer;
    ServerProcess libServer;
    ServerProcess hopsServer;
    if (!bareServer.start(QStringLiteral("bare"), tcp) || !libServer.start(QStringLiteral("lib"), tcp)
        || !hopsServer.start(QStringLiteral("hops"), tcp)) {
        std::fprintf(stderr, "transport: cannot start the servers\n");
        return;
    }
    // Warm all up, then interleave runs so that machine noise falls on each alike.
    bareRoundTrips(tcp, bareServer, package, 200, 1);
    libraryRoundTrips(tcp, libServer, package, 200, 1);
    bareRoundTrips(tcp, hopsServer, package, 200, 1, true);
    std::vector<double> bare;
    std::vector<double> lib;
    std::vector<double> hops;
    std::vector<double> road;
    std::vector<double> roadOneThread;
    std::vector<double> bareRoad;
    const auto append = [](std::vector<double>& to, const std::vector<double>& from) {
        to.insert(to.end(), from.begin(), from.end());
    };
    for (int run = 0; run < kRuns; ++run) {
        append(bare, bareRoundTrips(tcp, bareServer, package, count, 1));
        append(lib, libraryRoundTrips(tcp, libServer, package, count, 1));
        append(hops, bareRoundTrips(tcp, hopsServer, package, count, 1, true));
        append(road, roadRoundTrips(tcp, libServer, 40, count, 1));
        append(roadOneThread, roadRoundTrips(tcp, libServer, 40, count, 1, false));
        append(bareRoad, bareRoadRoundTrips(tcp, hopsServer, package, count));
    }
    const std::string name = "round trip " + std::to_string(package.size()) + " B " + transport;
    const std::string roadName = "full client road " + transport;
    BenchTable::row(name + ", median", medianOfRuns(lib, kRuns, 0.5) * 1e6, medianOfRuns(bare, kRuns, 0.5) * 1e6, "us");
    BenchTable::row(name + ", p99", medianOfRuns(lib, kRuns, 0.99) * 1e6, medianOfRuns(bare, kRuns, 0.99) * 1e6, "us");
    BenchTable::row(roadName + ", median", medianOfRuns(road, kRuns, 0.5) * 1e6, medianOfRuns(bare, kRuns, 0.5) * 1e6,
                    "us");
    BenchTable::row(roadName + ", p99", medianOfRuns(road, kRuns, 0.99) * 1e6, medianOfRuns(bare, kRuns, 0.99) * 1e6,
                    "us");
    BenchTable::row(roadName + ", worker on manager's thread", medianOfRuns(roadOneThread, kRuns, 0.5) * 1e6,
                    medianOfRuns(bare, kRuns, 0.5) * 1e6, "us");
    // The library beside bare parts that take the contract's queued hops and thread handoffs.
    BenchTable::row(roadName + ", median vs bare road", medianOfRuns(road, kRuns, 0.5) * 1e6,
                    medianOfRuns(bareRoad, kRuns, 0.5) * 1e6, "us");
    BenchTable::row(roadName + ", p99 vs bare road", medianOfRuns(road, kRuns, 0.99) * 1e6,
                    medianOfRuns(bareRoad, kRuns, 0.99) * 1e6, "us");
    BenchTable::row(name + ", median vs hops", medianOfRuns(lib, kRuns, 0.5) * 1e6,
                    medianOfRuns(hops, kRuns, 0.5) * 1e6, "us");
}

void throughput(bool tcp)
{
    const QByteArray package = requestPackage(1024 * 1024 - 64);
    const int count = 20;
    ServerProcess bareServer;
    ServerProcess libServer;
    if (!bareServer.start(QStringLiteral("bare"), tcp) || !libServer.start(QStringLiteral("lib"), tcp)) {
        std::fprintf(stderr, "transport: cannot start the servers\n");
        return;
    }
    bareRoundTrips(tcp, bareServer, package, 3, 1);
    libraryRoundTrips(tcp, libServer, package, 3, 1);
    std::vector<double> bare;
    std::vector<double> lib;
    for (int run = 0; run < kRuns; ++run) {
        const std::vector<double> b = bareRoundTrips(tcp, bareServer, package, count, 1);
        const std::vector<double> l = libraryRoundTrips(tcp, libServer, package, count, 1);
        bare.insert(bare.end(), b.begin(), b.end());
        lib.insert(lib.end(), l.begin(), l.end());
    }
    // Both directions carry the package: twice its size per round trip.
    const double mib = 2.0 * package.size() / (1024.0 * 1024.0);
    BenchTable::row(std::string("throughput 1 MiB echoed ") + (tcp ? "tcp" : "local"),
                    mib / medianOfRuns(lib, kRuns, 0.5), mib / medianOfRuns(bare, kRuns, 0.5), "MiB/s");
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    // The client's TCP socket exists only with the service's TCP switch on.
    QTemporaryFile ini;
    if (ini.open()) {
        ini.write("[Network]\ntcp_server_code=88\n");
        ini.flush();
        ConfigReader::IniReader(ini.fileName());
    }
    if (args.size() == 5 && args.at(1) == QLatin1String("--serve")) {
        const bool tcp = args.at(3) == QLatin1String("tcp");
        g_hops = args.at(2) == QLatin1String("hops");
        return args.at(2) == QLatin1String("lib") ? serveLibrary(tcp, args.at(4)) : serveBare(tcp, args.at(4));
    }
    if (args.contains(QStringLiteral("--header")))
        BenchTable::header();
    // A case name (round, throughput) runs that case alone, for profiling.
    const bool all = !args.contains(QStringLiteral("round")) && !args.contains(QStringLiteral("throughput"));
    if (all || args.contains(QStringLiteral("round"))) {
        smallRoundTrip(false);
        smallRoundTrip(true);
    }
    if (all || args.contains(QStringLiteral("throughput"))) {
        throughput(false);
        throughput(true);
    }
    return 0;
}

#include "bench_transport.moc"
