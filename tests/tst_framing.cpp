// Stream framing and send lists of CommunObject, on real socket pairs (local and TCP).

#include "communtestsupport.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <memory>

using namespace communtest;

namespace {

// [length 18][type 101][0a 0b]
const QByteArray kPackageA = QByteArray::fromHex("0000000000000012" "0000000000000065" "0a0b");
// [length 20][type 102][01 02 03 04]
const QByteArray kPackageB = QByteArray::fromHex("0000000000000014" "0000000000000066" "01020304");
// [length 22][type 103][six bytes]
const QByteArray kPackageC = QByteArray::fromHex("0000000000000016" "0000000000000067" "a1a2a3a4a5a6");

QList<QByteArray> bytewise(const QByteArray& bytes)
{
    QList<QByteArray> chunks;
    for (char c : bytes)
        chunks.append(QByteArray(1, c));
    return chunks;
}

// A connected pair: the writer is a client socket, the reader the accepted socket.
class SocketPair
{
public:
    bool open(quint64 protocol)
    {
        if (protocol == CommunAttribute::LocalProtocol) {
            if (!m_localServer.listen(uniqueName("framing")))
                return false;
            auto* writer = new QLocalSocket;
            m_writer.reset(writer);
            writer->connectToServer(m_localServer.serverName());
            if (!writer->waitForConnected(5000) || !m_localServer.waitForNewConnection(5000))
                return false;
            m_reader = m_localServer.nextPendingConnection();
        } else {
            if (!m_tcpServer.listen(QHostAddress::LocalHost, 0))
                return false;
            auto* writer = new QTcpSocket;
            m_writer.reset(writer);
            writer->connectToHost(QHostAddress::LocalHost, m_tcpServer.serverPort());
            if (!writer->waitForConnected(5000) || !m_tcpServer.waitForNewConnection(5000))
                return false;
            m_reader = m_tcpServer.nextPendingConnection();
        }
        return m_reader != nullptr;
    }

    // Writes the chunk and waits until all of it can be read on the other side.
    bool deliver(const QByteArray& chunk)
    {
        if (m_writer->write(chunk) != chunk.size())
            return false;
        return QTest::qWaitFor([&] { return m_reader->bytesAvailable() >= chunk.size(); }, 5000);
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
    void initTestCase_data();
    void init();

    void receive_data();
    void receive();
    void emptyReadKeepsTheSink();
    void nullArgumentsAreRefused();

    void sendListWritesOnePackageAtATime();
    void partialReportWritesNothingNew();
    void failedWriteKeepsTheRecordAndQueuesBehindIt();
    void nullFrontEntriesAreSkipped();

    void validityAndState_data();
    void validityAndState();

    void judge_data();
    void judge();

private:
    quint64 protocol() const { return currentProtocol(); }

    LogCapture m_log;
};

void tst_Framing::initTestCase_data()
{
    addTransportRows();
}

void tst_Framing::init()
{
    m_log.clear();
}

void tst_Framing::receive_data()
{
    QTest::addColumn<QList<QByteArray>>("chunks");
    QTest::addColumn<QList<QByteArray>>("emitted");
    QTest::addColumn<bool>("lastResult");
    QTest::addColumn<qint64>("sinkSize");
    QTest::addColumn<QByteArray>("sinkData");

    const QList<QByteArray> none;
    QTest::newRow("a whole package is emitted once and the sink is emptied")
        << QList<QByteArray>{kPackageA} << QList<QByteArray>{kPackageA} << true << qint64(0) << QByteArray();
    QTest::newRow("fewer than 8 bytes are held and nothing is emitted")
        << QList<QByteArray>{kPackageA.left(5)} << none << true << qint64(0) << kPackageA.left(5);
    QTest::newRow("the next read completes a length field split after 5 bytes")
        << QList<QByteArray>{kPackageA.left(5), kPackageA.mid(5)} << QList<QByteArray>{kPackageA} << true
        << qint64(0) << QByteArray();
    QTest::newRow("a parsed length is kept while the body is incomplete")
        << QList<QByteArray>{kPackageA.left(12)} << none << true << qint64(18) << kPackageA.left(12);
    QTest::newRow("two packages in one write give two emissions, the first with the second as tail")
        << QList<QByteArray>{kPackageA + kPackageB} << QList<QByteArray>{kPackageA + kPackageB, kPackageB} << true
        << qint64(0) << QByteArray();
    QTest::newRow("three packages in one write give three shrinking emissions")
        << QList<QByteArray>{kPackageA + kPackageB + kPackageC}
        << QList<QByteArray>{kPackageA + kPackageB + kPackageC, kPackageB + kPackageC, kPackageC} << true
        << qint64(0) << QByteArray();
    QTest::newRow("a package plus 3 bytes of the next keeps those 3 bytes unparsed")
        << QList<QByteArray>{kPackageA + kPackageB.left(3)} << QList<QByteArray>{kPackageA + kPackageB.left(3)}
        << true << qint64(0) << kPackageB.left(3);
    QTest::newRow("the rest of that next package completes it")
        << QList<QByteArray>{kPackageA + kPackageB.left(3), kPackageB.mid(3)}
        << QList<QByteArray>{kPackageA + kPackageB.left(3), kPackageB} << true << qint64(0) << QByteArray();
    QTest::newRow("a package delivered one byte at a time is emitted once")
        << bytewise(kPackageA) << QList<QByteArray>{kPackageA} << true << qint64(0) << QByteArray();
    QTest::newRow("a declared length of exactly 8 is a complete package")
        << QList<QByteArray>{QByteArray::fromHex("0000000000000008")}
        << QList<QByteArray>{QByteArray::fromHex("0000000000000008")} << true << qint64(0) << QByteArray();
    QTest::newRow("a declared length of 7 is invalid and resets the sink")
        << QList<QByteArray>{QByteArray::fromHex("0000000000000007ff")} << none << false << qint64(0)
        << QByteArray();
    QTest::newRow("a declared length of 0 is invalid")
        << QList<QByteArray>{QByteArray::fromHex("0000000000000000ffff")} << none << false << qint64(0)
        << QByteArray();
    QTest::newRow("a negative declared length is invalid")
        << QList<QByteArray>{QByteArray::fromHex("ffffffffffffffec00")} << none << false << qint64(0)
        << QByteArray();
    QTest::newRow("an invalid package after a good one loses only the bad bytes")
        << QList<QByteArray>{kPackageA + QByteArray::fromHex("0000000000000003")} << QList<QByteArray>{
               kPackageA + QByteArray::fromHex("0000000000000003")}
        << false << qint64(0) << QByteArray();
}

void tst_Framing::receive()
{
    QFETCH(QList<QByteArray>, chunks);
    QFETCH(QList<QByteArray>, emitted);
    QFETCH(bool, lastResult);
    QFETCH(qint64, sinkSize);
    QFETCH(QByteArray, sinkData);

    SocketPair pair;
    QVERIFY2(pair.open(protocol()), "socket pair did not connect");
    CommunObject framing;
    QSignalSpy spy(&framing, &CommunObject::readyReadBytes);
    SocketSinkData sink;

    bool result = false;
    for (const QByteArray& chunk : chunks) {
        QVERIFY(pair.deliver(chunk));
        result = framing.ReadBlockBytes(pair.reader(), protocol(), &sink);
    }

    QCOMPARE(result, lastResult);
    QCOMPARE(spy.count(), emitted.size());
    for (int i = 0; i < emitted.size(); ++i) {
        QCOMPARE(spy.at(i).at(0).value<QIODevice*>(), pair.reader());
        QCOMPARE(spy.at(i).at(1).toByteArray().toHex(), emitted.at(i).toHex());
    }
    QCOMPARE(sink.getPackageSize(), sinkSize);
    QCOMPARE(sink.getProgress(), qint64(sinkData.size()));
    QCOMPARE(sink.getData().toHex(), sinkData.toHex());
    QCOMPARE(m_log.count(QStringLiteral("ERROR Judge command package failed in the ReadBlockBytes.")),
             lastResult ? 0 : 1);
}

void tst_Framing::emptyReadKeepsTheSink()
{
    SocketPair pair;
    QVERIFY(pair.open(protocol()));
    CommunObject framing;
    SocketSinkData sink;
    sink.setPackageSize(18);
    sink.setProgress(4);
    sink.setData(kPackageA.left(4));

    QVERIFY(framing.ReadBlockBytes(pair.reader(), protocol(), &sink));
    QCOMPARE(m_log.lines(), QStringList{QStringLiteral("WARN Receive data return empty in the ReadBlockBytes.")});

    // An unknown protocol type makes the socket unusable: the same outcome.
    QVERIFY(pair.deliver(kPackageA));
    QVERIFY(framing.ReadBlockBytes(pair.reader(), 4, &sink));
    QCOMPARE(sink.getPackageSize(), qint64(18));
    QCOMPARE(sink.getProgress(), qint64(4));
    QCOMPARE(sink.getData(), kPackageA.left(4));
    QCOMPARE(pair.reader()->bytesAvailable(), qint64(kPackageA.size()));
}

void tst_Framing::nullArgumentsAreRefused()
{
    SocketPair pair;
    QVERIFY(pair.open(protocol()));
    CommunObject framing;
    SocketSinkData sink;
    QList<SocketSinkData*> list;

    QVERIFY(!framing.ReadBlockBytes(nullptr, protocol(), &sink));
    QVERIFY(!framing.ReadBlockBytes(pair.reader(), protocol(), nullptr));
    QVERIFY(!framing.SendBlockData(nullptr, protocol(), list, kPackageA));
    QVERIFY(list.isEmpty());
    QVERIFY(!framing.WrittenBlockBytes(nullptr, protocol(), list, 1));
    QVERIFY(!framing.WrittenBlockBytes(pair.writer(), protocol(), list, 1));
    QCOMPARE(m_log.lines(), (QStringList{
                                QStringLiteral("ERROR Into the parameter pointer is null in the ReadBlockBytes."),
                                QStringLiteral("ERROR Into the parameter pointer is null in the ReadBlockBytes."),
                                QStringLiteral("ERROR Into the parameter pointer is null in the WrittenBlockBytes."),
                                QStringLiteral("ERROR Send socket list is empty in the WrittenBlockBytes."),
                            }));
}

void tst_Framing::sendListWritesOnePackageAtATime()
{
    SocketPair pair;
    QVERIFY(pair.open(protocol()));
    CommunObject framing;
    QList<SocketSinkData*> list;

    QList<qint64> reports;
    QList<qint64> pendingAtReport;
    connect(pair.writer(), &QIODevice::bytesWritten, this, [&](qint64 bytes) {
        reports.append(bytes);
        pendingAtReport.append(pair.writer()->bytesToWrite());
        QVERIFY(framing.WrittenBlockBytes(pair.writer(), protocol(), list, bytes));
    });

    QVERIFY(framing.SendBlockData(pair.writer(), protocol(), list, kPackageA));
    QVERIFY(framing.SendBlockData(pair.writer(), protocol(), list, kPackageB));
    QVERIFY(framing.SendBlockData(pair.writer(), protocol(), list, kPackageC));
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
    QCOMPARE(pendingAtReport, (QList<qint64>{0, 0, 0}));
}

void tst_Framing::partialReportWritesNothingNew()
{
    SocketPair pair;
    QVERIFY(pair.open(protocol()));
    CommunObject framing;
    QList<SocketSinkData*> list;

    QVERIFY(framing.SendBlockData(pair.writer(), protocol(), list, kPackageA));
    QVERIFY(framing.SendBlockData(pair.writer(), protocol(), list, kPackageB));
    const qint64 handedOver = pair.writer()->bytesToWrite();
    QCOMPARE(handedOver, qint64(kPackageA.size()));

    QVERIFY(framing.WrittenBlockBytes(pair.writer(), protocol(), list, 5));
    QCOMPARE(list.size(), 2);
    QCOMPARE(list.front()->getProgress(), qint64(5));
    QCOMPARE(pair.writer()->bytesToWrite(), handedOver);

    QVERIFY(framing.WrittenBlockBytes(pair.writer(), protocol(), list, kPackageA.size() - 5));
    QCOMPARE(list.size(), 1);
    QCOMPARE(list.front()->getData(), kPackageB);
    QCOMPARE(list.front()->getProgress(), qint64(0));
    QCOMPARE(pair.writer()->bytesToWrite(), qint64(kPackageA.size() + kPackageB.size()));
    qDeleteAll(list);
}

void tst_Framing::failedWriteKeepsTheRecordAndQueuesBehindIt()
{
    SocketPair pair;
    QVERIFY(pair.open(protocol()));
    CommunObject framing;
    QList<SocketSinkData*> list;
    static_cast<QIODevice*>(pair.writer())->close();

    QVERIFY(!framing.SendBlockData(pair.writer(), protocol(), list, kPackageA));
    QCOMPARE(list.size(), 1);
    QCOMPARE(m_log.lines(), QStringList{QStringLiteral("ERROR Send data failed in the SendBlockData.")});
    QVERIFY(framing.SendBlockData(pair.writer(), protocol(), list, kPackageB));
    QCOMPARE(list.size(), 2);
    QCOMPARE(list.at(1)->getData(), kPackageB);
    QCOMPARE(framing.WriteSocketData(pair.writer(), protocol(), kPackageA), qint64(-1));
    qDeleteAll(list);
}

void tst_Framing::nullFrontEntriesAreSkipped()
{
    SocketPair pair;
    QVERIFY(pair.open(protocol()));
    CommunObject framing;
    QList<SocketSinkData*> list;
    QVERIFY(framing.SendBlockData(pair.writer(), protocol(), list, kPackageA));
    list.append(nullptr);
    list.append(nullptr);
    QVERIFY(framing.SendBlockData(pair.writer(), protocol(), list, kPackageB));

    QVERIFY(framing.WrittenBlockBytes(pair.writer(), protocol(), list, kPackageA.size()));
    QCOMPARE(list.size(), 1);
    QCOMPARE(pair.writer()->bytesToWrite(), qint64(kPackageA.size() + kPackageB.size()));
    QCOMPARE(m_log.count(QStringLiteral("WARN Front send sink data is NULL in the WrittenBlockBytes.")), 2);

    // The last package done, nothing is left to write.
    QVERIFY(framing.WrittenBlockBytes(pair.writer(), protocol(), list, kPackageB.size()));
    QVERIFY(list.isEmpty());
}

void tst_Framing::validityAndState_data()
{
    QTest::addColumn<int>("typeOffset");   // added to the pair's own protocol type
    QTest::addColumn<bool>("closeWriter");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<int>("state");

    QTest::newRow("a connected socket of its own type is valid and connected") << 0 << false << true << 3;
    QTest::newRow("a closed socket is invalid and unconnected") << 0 << true << false << 0;
    QTest::newRow("protocol type 1 is unusable") << -100 << false << false << 0;
    QTest::newRow("protocol type 4 is unusable") << 100 << false << false << 0;
}

void tst_Framing::validityAndState()
{
    QFETCH(int, typeOffset);
    QFETCH(bool, closeWriter);
    QFETCH(bool, valid);
    QFETCH(int, state);

    SocketPair pair;
    QVERIFY(pair.open(protocol()));
    CommunObject framing;
    if (closeWriter)
        static_cast<QIODevice*>(pair.writer())->close();
    quint64 type = protocol();
    if (typeOffset < 0)
        type = 1;
    else if (typeOffset > 0)
        type = 4;

    QCOMPARE(framing.IsSocketValid(pair.writer(), type), valid);
    QCOMPARE(int(framing.SocketState(pair.writer(), type)), state);
    QCOMPARE(framing.WriteSocketData(pair.writer(), type, kPackageA), valid ? qint64(kPackageA.size()) : qint64(-1));
    QVERIFY(!framing.IsSocketValid(nullptr, type));
    QCOMPARE(int(framing.SocketState(nullptr, type)), 0);
}

void tst_Framing::judge_data()
{
    QTest::addColumn<QByteArray>("held");
    QTest::addColumn<qint64>("declaredBefore");
    QTest::addColumn<int>("judgement");
    QTest::addColumn<qint64>("declaredAfter");

    QTest::newRow("seven bytes are incomplete and leave the length unparsed")
        << QByteArray::fromHex("00000000000000") << qint64(0) << int(CommunObject::Incomplete) << qint64(0);
    QTest::newRow("the length field alone of an 18-byte package is incomplete")
        << QByteArray::fromHex("0000000000000012") << qint64(0) << int(CommunObject::Incomplete) << qint64(18);
    QTest::newRow("the length is read big-endian")
        << QByteArray::fromHex("0000000000000100") + QByteArray(248, 'x') << qint64(0) << int(CommunObject::Complete)
        << qint64(256);
    QTest::newRow("an already parsed length is not read again")
        << kPackageA.left(10) + QByteArray(10, 'x') << qint64(20) << int(CommunObject::Complete) << qint64(20);
    QTest::newRow("a length below 8 is invalid")
        << QByteArray::fromHex("0000000000000001") << qint64(0) << int(CommunObject::Invalid) << qint64(0);
    QTest::newRow("the largest length is simply waited for")
        << QByteArray::fromHex("7fffffffffffffff") << qint64(0) << int(CommunObject::Incomplete)
        << qint64(0x7fffffffffffffffLL);
}

void tst_Framing::judge()
{
    QFETCH(QByteArray, held);
    QFETCH(qint64, declaredBefore);
    QFETCH(int, judgement);
    QFETCH(qint64, declaredAfter);

    CommunObject framing;
    SocketSinkData sink;
    sink.setData(held);
    sink.setProgress(held.size());
    sink.setPackageSize(declaredBefore);
    CommunObject::PackageJudgement result = CommunObject::Complete;
    framing.JudgeCommandPackage(&sink, result);
    QCOMPARE(int(result), judgement);
    QCOMPARE(sink.getPackageSize(), declaredAfter);

    framing.JudgeCommandPackage(nullptr, result);
    QCOMPARE(int(result), int(CommunObject::Invalid));
}

QTEST_GUILESS_MAIN(tst_Framing)
#include "tst_framing.moc"
