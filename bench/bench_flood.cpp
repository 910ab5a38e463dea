// Flood benchmark of the server endpoint: a peer process writes N small command packages
// back to back while the server's thread is busy; the server must deliver every one, in
// order, without its memory growing with the backlog. The baseline is a bare QLocalServer or
// QTcpServer on the same thread that splits the same stream by its length prefix.
//
//   bench_flood [--header] [count]           runs local, then TCP (default count 100000)
//   bench_flood --peer local|tcp NAME|PORT COUNT   (the peer; started by the above)

#include "benchtable.h"

#include <backupframe.h>

#include <QCoreApplication>
#include <QDataStream>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QSemaphore>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtEndian>
#include <QThread>

#include <atomic>
#include <cstdio>
#include <memory>

namespace {

// A request of about 100 bytes that carries its sequence number.
QByteArray package(quint32 n)
{
    RequestCommand request(CustomCommandType);
    request.setClientUuid(QStringLiteral("bench-peer-"));
    QByteArray data;
    QDataStream(&data, QIODevice::WriteOnly) << n;
    request.setRequestData(data);
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(&request, bytes);
    return bytes;
}

quint32 numberOf(const QByteArray& bytes)
{
    CommCommand* command = CommandBuilder::BytearrayToCommand(bytes);
    quint32 n = 0xFFFFFFFFu;
    if (auto* request = dynamic_cast<RequestCommand*>(command))
        QDataStream(request->getRequestData()) >> n;
    CommandBuilder::DestroyCommand(command);
    return n;
}

// A field of /proc/self/status in KiB.
qint64 statusKiB(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(qstrlen(field)).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

// Resets the peak resident size to the current one (Linux 4.0 and later).
void resetPeak()
{
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    if (clear.open(QIODevice::WriteOnly))
        clear.write("5");
}

int runPeer(const QString& transport, const QString& where, quint32 count)
{
    std::unique_ptr<QIODevice> socket;
    if (transport == QLatin1String("tcp")) {
        auto tcp = std::make_unique<QTcpSocket>();
        tcp->connectToHost(QHostAddress::LocalHost, where.toUShort());
        if (!tcp->waitForConnected(10000))
            return 2;
        socket = std::move(tcp);
    } else {
        auto local = std::make_unique<QLocalSocket>();
        local->connectToServer(where);
        if (!local->waitForConnected(10000))
            return 2;
        socket = std::move(local);
    }
    for (quint32 n = 0; n < count; ++n)
        socket->write(package(n));
    std::printf("queued\n");
    std::fflush(stdout);
    while (socket->bytesToWrite() > 0) {
        if (!socket->waitForBytesWritten(30000))
            return 3;
    }
    // Stay connected until the server has read everything: it closes first.
    socket->waitForReadyRead(60000);
    return 0;
}

// The baseline: the same listening and framing with bare Qt sockets, on the server thread.
class BareServer : public QObject
{
public:
    std::function<void(const QByteArray&)> deliver;

    bool start(bool tcp, const QString& name)
    {
        if (tcp) {
            connect(&m_tcp, &QTcpServer::newConnection, this, [this] { attach(m_tcp.nextPendingConnection()); });
            return m_tcp.listen(QHostAddress::LocalHost, 0);
        }
        QLocalServer::removeServer(name);
        connect(&m_local, &QLocalServer::newConnection, this, [this] { attach(m_local.nextPendingConnection()); });
        return m_local.listen(name);
    }
    quint16 port() const { return m_tcp.serverPort(); }

private:
    void attach(QIODevice* socket)
    {
        if (!socket)
            return;
        socket->setParent(this);
        connect(socket, &QIODevice::readyRead, this, [this, socket] { read(socket); });
    }
    void read(QIODevice* socket)
    {
        m_buffer.append(socket->readAll());
        int offset = 0;
        while (m_buffer.size() - offset >= 8) {
            const qint64 length = qFromBigEndian<qint64>(m_buffer.constData() + offset);
            if (m_buffer.size() - offset < length)
                break;
            deliver(QByteArray::fromRawData(m_buffer.constData() + offset, int(length)));
            offset += int(length);
        }
        m_buffer.remove(0, offset);
    }

    QLocalServer m_local{this};
    QTcpServer m_tcp{this};
    QByteArray m_buffer;
};

struct Outcome {
    quint32 delivered = 0;
    quint32 outOfOrder = 0;
    double seconds = 0;
    qint64 idleRss = 0;
    qint64 peakRss = 0;
};

bool runFlood(quint64 protocol, bool bare, quint32 count, Outcome& outcome)
{
    QThread thread;
    thread.start();
    auto* server = new CommunServer;
    server->moveToThread(&thread);
    auto* bareServer = new BareServer;
    bareServer->moveToThread(&thread);

    std::atomic<quint32> delivered{0};
    quint32 outOfOrder = 0;
    const QString name = QStringLiteral("bench-flood-%1").arg(QCoreApplication::applicationPid());
    bool started = false;
    quint16 port = 0;
    if (bare) {
        QMetaObject::invokeMethod(bareServer, [&] {
            bareServer->deliver = [&](const QByteArray& bytes) {
                if (numberOf(bytes) != delivered.load())
                    ++outOfOrder;
                delivered.fetch_add(1);
            };
            started = bareServer->start(protocol == CommunAttribute::TcpProtocol, name);
            port = bareServer->port();
        }, Qt::BlockingQueuedConnection);
    } else QMetaObject::invokeMethod(server, [&] {
        QObject::connect(server, &CommunServer::incomingBlockData, server,
                         [&](quint64, QIODevice*, QByteArray bytes) {
                             if (numberOf(bytes) != delivered.load())
                                 ++outOfOrder;
                             delivered.fetch_add(1);
                         });
        started = server->Init(static_cast<CommunAttribute::CommProtocolType>(protocol));
        if (started && protocol == CommunAttribute::TcpProtocol)
            started = server->StartTcp(0, QHostAddress::LocalHost);
        else if (started)
            started = server->Start(name, 0);
        port = server->getTcpServerPort();
    }, Qt::BlockingQueuedConnection);
    if (!started)
        return false;

    // Busy from before the peer connects until the peer has queued everything.
    QSemaphore busy;
    QMetaObject::invokeMethod(server, [&busy] { busy.acquire(); }, Qt::QueuedConnection);

    resetPeak();
    outcome.idleRss = statusKiB("VmRSS:");

    QProcess peer;
    peer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    const bool tcp = protocol == CommunAttribute::TcpProtocol;
    peer.start(QCoreApplication::applicationFilePath(),
               {QStringLiteral("--peer"), tcp ? QStringLiteral("tcp") : QStringLiteral("local"),
                tcp ? QString::number(port) : name, QString::number(count)});
    if (!peer.waitForStarted(10000))
        return false;
    while (!peer.canReadLine() && peer.state() == QProcess::Running)
        peer.waitForReadyRead(100);
    QThread::msleep(200);   // the kernel buffers fill up; the peer blocks behind them

    QElapsedTimer timer;
    timer.start();
    busy.release();
    while (delivered.load() < count && timer.elapsed() < 300000)
        QThread::msleep(5);
    outcome.seconds = timer.nsecsElapsed() / 1e9;
    outcome.peakRss = statusKiB("VmHWM:");
    outcome.delivered = delivered.load();

    QMetaObject::invokeMethod(server, [&] {
        outcome.outOfOrder = outOfOrder;
        server->UnInit();
        delete server;   // closes the peer's connection: it exits
        delete bareServer;
    }, Qt::BlockingQueuedConnection);
    peer.waitForFinished(30000);
    thread.quit();
    thread.wait();
    return true;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments();
    if (args.size() == 5 && args.at(1) == QLatin1String("--peer"))
        return runPeer(args.at(2), args.at(3), args.at(4).toUInt());
    if (args.removeAll(QStringLiteral("--header")) > 0)
        BenchTable::header();

    const quint32 count = args.size() > 1 ? args.at(1).toUInt() : 100000;
    int failures = 0;
    for (quint64 protocol : {quint64(CommunAttribute::LocalProtocol), quint64(CommunAttribute::TcpProtocol)}) {
        const std::string label = std::string("flood ") + std::to_string(count) + " x " +
                                  std::to_string(package(0).size()) + " B " +
                                  (protocol == CommunAttribute::TcpProtocol ? "tcp" : "local");
        std::vector<double> seconds[2];
        std::vector<double> memory[2];
        std::vector<double> perPackageSmall;
        for (int run = 0; run < 3; ++run) {
            for (const bool bare : {false, true}) {
                Outcome outcome;
                if (!runFlood(protocol, bare, count, outcome) || outcome.delivered != count
                    || outcome.outOfOrder != 0) {
                    std::fprintf(stderr, "%s: %u of %u delivered, %u out of order\n", label.c_str(),
                                 outcome.delivered, count, outcome.outOfOrder);
                    ++failures;
                    continue;
                }
                seconds[bare].push_back(outcome.seconds);
                memory[bare].push_back((outcome.peakRss - outcome.idleRss) / 1024.0);
            }
            // A tenth of the flood: the time per package should not change (linear time).
            Outcome small;
            if (runFlood(protocol, false, count / 10, small) && small.delivered == count / 10)
                perPackageSmall.push_back(small.seconds / (count / 10));
        }
        BenchTable::row(label + ", time", BenchTable::median(seconds[0]), BenchTable::median(seconds[1]), "s");
        BenchTable::row(label + ", peak above idle", BenchTable::median(memory[0]), BenchTable::median(memory[1]),
                        "MiB");
        BenchTable::row(label + ", per package / at N/10", BenchTable::median(seconds[0]) / count,
                        BenchTable::median(perPackageSmall), "s");
    }
    return failures == 0 ? 0 : 1;
}
