// Stream framing and send lists of CommunObject, on real socket pairs (local and TCP).

#include "communtestsupport.h"

#include <QDataStream>
#include <QLocalServer>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QtTest>

using namespace communtest;

namespace {

// [length 18][type 101][0a 0b]
const QByteArray kPackageA = QByteArray::fromHex("0000000000000012" "0000000000000065" "0a0b");
// [length 20][type 102][01 02 03 04]
const QByteArray kPackageB = QByteArray::fromHex("0000000000000014" "0000000000000066" "01020304");
// [length 22][type 103][six bytes]
const QByteArray kPackageC = QByteArray::fromHex("0000000000000016" "0000000000000067" "a1a2a3a4a5a6");

// [length 16][type n]: a package that tells its place in a run.
QByteArray numbered(int n)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << qint64(16) << qint64(n);
    return bytes;
}

// Packages from..from+count-1 back to back.
QByteArray run(int from, int count)
{
    QByteArray bytes;
    for (int n = from; n < from + count; ++n)
        bytes += numbered(n);
    return bytes;
}

// What a run of count packages in one read gives when only the last `kept` fit the limit:
// those carry everything behind them, the ones before travel alone.
QList<QByteArray> emissions(int count, int kept)
{
    QList<QByteArray> list;
    for (int n = 0; n < count; ++n)
        list.append(n < count - kept ? numbered(n) : run(n, count - n));
    return list;
}

// A connected pair: the writer is a client socket, the reader the accepted socket.
class SocketPair
{
public:
    bool open()
    {
        if (!(isTcp() ? m_tcpServer.listen(QHostAddress::LocalHost, 0) : m_localServer.listen(uniqueName("framing"))))
            return false;
        m_writer = connectedSocket(m_localServer.serverName(), m_tcpServer.serverPort());
        if (!m_writer || !(isTcp() ? m_tcpServer.waitForNewConnection(5000) : m_localServer.waitForNewConnection(5000)))
            return false;
        m_reader = isTcp() ? static_cast<QIODevice*>(m_tcpServer.nextPendingConnection())
                           : m_localServer.nextPendingConnection();
        return m_reader != nullptr;
    }

    // Writes the chunk and waits until all of it can be read on the other side.
    bool deliver(const QByteArray& chunk)
    {
        return m_writer->write(chunk) == chunk.size()
               && QTest::qWaitFor([&] { return m_reader->bytesAvailable() >= chunk.size(); }, 5000);
    }

    QIODevice* writer() const { return m_writer.get(); }
    QIODevice* reader() const { return m_reader; }

private:
    QLocalServer m_localServer;
    QTcpServer m_tcpServer;
    std::unique_ptr<QIODevice> m_writer;
    QIODevice* m_reader = nullptr;
};

} // namespace

class tst_Framing : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase_data() { addTransportRows(); }
    void receive_data();
    void receive();
    void sendListWritesOnePackageAtATime();

private:
    LogCapture m_log;
};

void tst_Framing::receive_data()
{
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<QList<QByteArray>>("emitted");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QByteArray>("held");
    QTest::addColumn<qint64>("limit");   // the emit buffer limit

    const qint64 byDefault = CommunObject::kDefaultEmitBufferLimit;
    QList<QByteArray> bytewise;
    for (char c : kPackageA)
        bytewise.append(QByteArray(1, c));

    QTest::newRow("fewer than 8 bytes are held and nothing is emitted")
        << QList<QByteArray>{kPackageA.left(5)} << QList<QByteArray>{} << true << kPackageA.left(5) << byDefault;
    QTest::newRow("two packages in one write give two emissions, the first with the second as tail")
        << QList<QByteArray>{kPackageA + kPackageB} << QList<QByteArray>{kPackageA + kPackageB, kPackageB} << true
        << QByteArray() << byDefault;
    QTest::newRow("a package plus 3 bytes of the next keeps them until the next read completes it")
        << QList<QByteArray>{kPackageA + kPackageB.left(3), kPackageB.mid(3) + kPackageC.left(3)}
        << QList<QByteArray>{kPackageA + kPackageB.left(3), kPackageB + kPackageC.left(3)} << true
        << kPackageC.left(3) << byDefault;
    QTest::newRow("a package delivered one byte at a time is emitted once")
        << bytewise << QList<QByteArray>{kPackageA} << true << QByteArray() << byDefault;
    QTest::newRow("a declared length of exactly 8 is a complete, empty package")
        << QList<QByteArray>{QByteArray::fromHex("0000000000000008")}
        << QList<QByteArray>{QByteArray::fromHex("0000000000000008")} << true << QByteArray() << byDefault;
    QTest::newRow("a declared length of 7 is invalid and empties the sink")
        << QList<QByteArray>{QByteArray::fromHex("0000000000000007ff")} << QList<QByteArray>{} << false << QByteArray()
        << byDefault;
    QTest::newRow("a negative declared length is invalid")
        << QList<QByteArray>{QByteArray::fromHex("ffffffffffffffec00")} << QList<QByteArray>{} << false << QByteArray()
        << byDefault;

    // 2000 packages of 16 bytes: reading them with their tails would copy about 32 MB.
    QTest::newRow("a long read travels package by package until what is held fits the limit")
        << QList<QByteArray>{run(0, 2000)} << emissions(2000, int(byDefault / 16)) << true << QByteArray()
        << byDefault;
    QTest::newRow("a limit of ten packages lets only the last ten carry what follows them")
        << QList<QByteArray>{run(0, 50)} << emissions(50, 10) << true << QByteArray() << qint64(160);
    QTest::newRow("a limit of 0 sends every package alone")
        << QList<QByteArray>{kPackageA + kPackageB} << QList<QByteArray>{kPackageA, kPackageB} << true
        << QByteArray() << qint64(0);
    const QByteArray large = QByteArray::fromHex("0000000000004e20" "0000000000000068") + QByteArray(19984, 'Z');
    QTest::newRow("a package larger than the limit travels without the start of the next")
        << QList<QByteArray>{large + kPackageB.left(3)} << QList<QByteArray>{large} << true << kPackageB.left(3)
        << byDefault;
    QTest::newRow("a bad length behind packages beyond the limit empties the sink once they are out")
        << QList<QByteArray>{kPackageA + kPackageB + QByteArray::fromHex("0000000000000007ff")}
        << QList<QByteArray>{kPackageA, kPackageB} << false << QByteArray() << qint64(0);
}

void tst_Framing::receive()
{
    QFETCH(QList<QByteArray>, chunks);
    QFETCH(QList<QByteArray>, emitted);
    QFETCH(bool, valid);
    QFETCH(QByteArray, held);
    QFETCH(qint64, limit);
    CommunObject::SetEmitBufferLimit(limit);
    const auto restore = qScopeGuard([] { CommunObject::SetEmitBufferLimit(CommunObject::kDefaultEmitBufferLimit); });

    SocketPair pair;
    QVERIFY2(pair.open(), "socket pair did not connect");
    CommunObject framing;
    QSignalSpy spy(&framing, &CommunObject::readyReadBytes);
    SocketSinkData sink;
    m_log.clear();

    bool result = false;
    for (const QByteArray& chunk : chunks) {
        QVERIFY(pair.deliver(chunk));
        result = framing.ReadBlockBytes(pair.reader(), currentProtocol(), &sink);
    }

    QCOMPARE(result, valid);
    QCOMPARE(spy.count(), emitted.size());
    for (int i = 0; i < emitted.size(); ++i) {
        QCOMPARE(spy.at(i).at(0).value<QIODevice*>(), pair.reader());
        QCOMPARE(spy.at(i).at(1).toByteArray().toHex(), emitted.at(i).toHex());
    }
    QCOMPARE(sink.getData().toHex(), held.toHex());
    QCOMPARE(sink.getProgress(), qint64(held.size()));
    QCOMPARE(m_log.lines().count(QStringLiteral("ERROR Judge command package failed in the ReadBlockBytes.")),
             valid ? 0 : 1);
}

// Each bytesWritten report is handed on in two parts: the first, partial, must write
// nothing new; the rest completes the front package and writes the next one.
void tst_Framing::sendListWritesOnePackageAtATime()
{
    SocketPair pair;
    QVERIFY(pair.open());
    CommunObject framing;
    QList<SocketSinkData*> list;
    QList<qint64> reports;
    QList<qint64> pendingAfterPartial;
    QList<qint64> pendingAfterRest;
    connect(pair.writer(), &QIODevice::bytesWritten, this, [&](qint64 bytes) {
        reports.append(bytes);
        QVERIFY(framing.WrittenBlockBytes(pair.writer(), currentProtocol(), list, 5));
        pendingAfterPartial.append(pair.writer()->bytesToWrite());
        QVERIFY(framing.WrittenBlockBytes(pair.writer(), currentProtocol(), list, bytes - 5));
        pendingAfterRest.append(pair.writer()->bytesToWrite());
    });

    for (const QByteArray& package : {kPackageA, kPackageB, kPackageC})
        QVERIFY(framing.SendBlockData(pair.writer(), currentProtocol(), list, package));
    QCOMPARE(list.size(), 3);
    QCOMPARE(pair.writer()->bytesToWrite(), qint64(kPackageA.size()));

    const QByteArray all = kPackageA + kPackageB + kPackageC;
    QByteArray arrived;
    QVERIFY(QTest::qWaitFor([&] {
        arrived += pair.reader()->readAll();
        return arrived.size() >= all.size();
    }, 5000));
    QTRY_VERIFY_WITH_TIMEOUT(list.isEmpty(), 5000);
    QCOMPARE(arrived.toHex(), all.toHex());
    QCOMPARE(reports, (QList<qint64>{kPackageA.size(), kPackageB.size(), kPackageC.size()}));
    QCOMPARE(pendingAfterPartial, (QList<qint64>{0, 0, 0}));
    QCOMPARE(pendingAfterRest, (QList<qint64>{kPackageB.size(), kPackageC.size(), 0}));
}

QTEST_GUILESS_MAIN(tst_Framing)
#include "tst_framing.moc"
