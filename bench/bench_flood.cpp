// Flood benchmark of the server endpoint: a peer process writes N small command packages
// back to back while the server's thread is busy; the server must deliver every one, in
// order, without its memory growing with the backlog.
//
//   bench_flood [count]                      runs local, then TCP (default count 100000)
//   bench_flood --peer local|tcp NAME|PORT COUNT   (the peer; started by the above)

#include <backupframe.h>

#include <QCoreApplication>
#include <QDataStream>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QLocalSocket>
#include <QProcess>
#include <QSemaphore>
#include <QTcpSocket>
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

struct Outcome {
    quint32 delivered = 0;
    quint32 outOfOrder = 0;
    double seconds = 0;
    qint64 idleRss = 0;
    qint64 peakRss = 0;
};

bool runFlood(quint64 protocol, quint32 count, Outcome& outcome)
{
    QThread thread;
    thread.start();
    auto* server = new CommunServer;
    server->moveToThread(&thread);

    std::atomic<quint32> delivered{0};
    quint32 outOfOrder = 0;
    const QString name = QStringLiteral("bench-flood-%1").arg(QCoreApplication::applicationPid());
    bool started = false;
    quint16 port = 0;
    QMetaObject::invokeMethod(server, [&] {
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
    const QStringList args = app.arguments();
    if (args.size() == 5 && args.at(1) == QLatin1String("--peer"))
        return runPeer(args.at(2), args.at(3), args.at(4).toUInt());

    const quint32 count = args.size() > 1 ? args.at(1).toUInt() : 100000;
    std::printf("package size %d bytes, %u packages, emit buffer limit %lld bytes\n", package(0).size(), count,
                static_cast<long long>(CommunObject::EmitBufferLimit()));
    int failures = 0;
    for (quint64 protocol : {quint64(CommunAttribute::LocalProtocol), quint64(CommunAttribute::TcpProtocol)}) {
        Outcome outcome;
        const char* label = protocol == CommunAttribute::TcpProtocol ? "tcp  " : "local";
        if (!runFlood(protocol, count, outcome)) {
            std::printf("%s: could not run\n", label);
            ++failures;
            continue;
        }
        std::printf("%s: %u of %u delivered, %u out of order, %.2f s (%.0f packages/s), "
                    "RSS idle %lld KiB, peak %lld KiB (+%lld KiB)\n",
                    label, outcome.delivered, count, outcome.outOfOrder, outcome.seconds,
                    outcome.delivered / outcome.seconds, static_cast<long long>(outcome.idleRss),
                    static_cast<long long>(outcome.peakRss),
                    static_cast<long long>(outcome.peakRss - outcome.idleRss));
        if (outcome.delivered != count || outcome.outOfOrder != 0)
            ++failures;
    }
    return failures == 0 ? 0 : 1;
}
