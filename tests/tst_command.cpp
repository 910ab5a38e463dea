#include <backupframe.h>

#include <QRegularExpression>
#include <QtEndian>
#include <QtTest>

#include <memory>
#include <typeinfo>

using CommandPtr = std::unique_ptr<CommCommand, void (*)(CommCommand*)>;

namespace {

CommandPtr build(quint64 type)
{
    return CommandPtr(CommandBuilder::BuilderCommand(type), &CommandBuilder::DestroyCommand);
}

CommandPtr decode(const QByteArray& bytes)
{
    return CommandPtr(CommandBuilder::BytearrayToCommand(bytes), &CommandBuilder::DestroyCommand);
}

QByteArray encode(CommCommand* command)
{
    QByteArray bytes;
    CommandBuilder::CommandToBytearray(command, bytes);
    return bytes;
}

// Fills every field of the envelope and of the command's class with distinct values.
void fill(CommCommand* command)
{
    CommunAttribute attribute;
    attribute.setProtocolType(CommunAttribute::TcpProtocol);
    attribute.setDestSvrNameIp(QStringLiteral("127.0.0.1"));
    attribute.setDestPort(65535);
    command->setCommunAttribute(attribute);
    command->setPlanUuid(QStringLiteral("{plan}"));
    command->setPlanName(QStringLiteral("nightly \u00e9t\u00e9"));
    command->setTriggerFlag(Q_UINT64_C(0x8000000000000001));
    command->setTriggerType(7);
    command->setShowMsgFlag(Q_UINT64_C(0xFFFFFFFFFFFFFFFF));
    command->CreateTraceFlag();
    if (auto* request = dynamic_cast<RequestCommand*>(command)) {
        request->setClientUuid(QStringLiteral("{client}"));
        request->setRequestData(QByteArray("\x00\x01payload", 9));
    }
    if (auto* channel = dynamic_cast<ChannelCommand*>(command))
        channel->setRedistrarName(QStringLiteral("registrar"));
    if (auto* result = dynamic_cast<ResultCommand*>(command)) {
        result->setSendCommandType(101);
        result->setUintResult(0);
        result->setResultData(QByteArray(70000, 'r'));
    }
    if (auto* resultChannel = dynamic_cast<ResultChannel*>(command))
        resultChannel->setRedistrarName(QStringLiteral("registrar"));
}

// The most derived class's name: the mangled name of a global class is its length and the name.
QString classOf(CommCommand* command)
{
    return QString::fromLatin1(typeid(*command).name()).remove(QRegularExpression(QStringLiteral("^\\d+")));
}

// The class and every field it has, as texts, so that a mismatch shows which one differs.
QStringList fields(CommCommand* c)
{
    const CommunAttribute a = c->getCommunAttribute();
    QStringList f{classOf(c), QString::number(c->getCommandType()), QString::number(a.getProtocolType()),
                  a.getDestSvrNameIp(), QString::number(a.getDestPort()), c->getPlanUuid(), c->getTraceFlag(),
                  c->getPlanName(), QString::number(c->getTriggerFlag()), QString::number(c->getTriggerType()),
                  QString::number(c->getShowMsgFlag())};
    if (auto* request = dynamic_cast<RequestCommand*>(c))
        f << request->getClientUuid() << request->getRequestData().toHex();
    if (auto* channel = dynamic_cast<ChannelCommand*>(c))
        f << channel->getRedistrarName();
    if (auto* result = dynamic_cast<ResultCommand*>(c))
        f << QString::number(result->getSendCommandType()) << QString::number(result->getUintResult())
          << result->getResultData().toHex();
    if (auto* resultChannel = dynamic_cast<ResultChannel*>(c))
        f << resultChannel->getRedistrarName();
    return f;
}

} // namespace

class tst_Command : public QObject
{
    Q_OBJECT

private slots:
    void builderPicksClassByRange_data();
    void builderPicksClassByRange();
    void roundTripKeepsClassAndFields_data();
    void roundTripKeepsClassAndFields();
    void defaultCommandBytes_data();
    void defaultCommandBytes();
    void traceFlag_data();
    void traceFlag();
    void resultsAnswerTheirRequest();
    void selfAssignmentKeepsFields();
    void decodingShortOrDamagedBytes_data();
    void decodingShortOrDamagedBytes();
    void nullPointersAreIgnored();
};

void tst_Command::builderPicksClassByRange_data()
{
    QTest::addColumn<quint64>("type");
    QTest::addColumn<QString>("className");

    QTest::newRow("0 is an envelope") << quint64(0) << "CommCommand";
    QTest::newRow("99 is the last envelope") << quint64(99) << "CommCommand";
    QTest::newRow("100 starts the requests") << quint64(100) << "RequestCommand";
    QTest::newRow("an unnamed 1999 is a request") << quint64(1999) << "RequestCommand";
    QTest::newRow("2000 starts the results") << quint64(2000) << "ResultCommand";
    QTest::newRow("2999 is the last result") << quint64(2999) << "ResultCommand";
    QTest::newRow("3000 is a channel") << quint64(3000) << "ChannelCommand";
    QTest::newRow("3999 is the last channel") << quint64(3999) << "ChannelCommand";
    QTest::newRow("4000 is a result channel") << quint64(4000) << "ResultChannel";
    QTest::newRow("4999 is the last result channel") << quint64(4999) << "ResultChannel";
    QTest::newRow("5000 is custom") << quint64(5000) << "CustomCommand";
    QTest::newRow("the largest unsigned type is custom") << Q_UINT64_C(0xFFFFFFFFFFFFFFFF) << "CustomCommand";
}

void tst_Command::builderPicksClassByRange()
{
    QFETCH(quint64, type);
    QFETCH(QString, className);

    CommandPtr command = build(type);
    QVERIFY(command);
    QCOMPARE(classOf(command.get()), className);
    QCOMPARE(command->getCommandType(), type);
}

void tst_Command::roundTripKeepsClassAndFields_data()
{
    QTest::addColumn<quint64>("type");

    QTest::newRow("stop marker") << quint64(StopLocalModelCommandType);
    QTest::newRow("LoadSchedulers request") << quint64(LoadSchedulersType);
    QTest::newRow("result") << quint64(2000);
    QTest::newRow("channel") << quint64(ChannelCommandType);
    QTest::newRow("result channel") << quint64(ResultChannelType);
    QTest::newRow("custom") << quint64(CustomCommandType);
    QTest::newRow("type above 2^63") << Q_UINT64_C(0x8000000000000000);
}

void tst_Command::roundTripKeepsClassAndFields()
{
    QFETCH(quint64, type);

    CommandPtr source = build(type);
    fill(source.get());
    const QByteArray bytes = encode(source.get());
    QCOMPARE(qFromBigEndian<qint64>(bytes.constData()), qint64(bytes.size()));
    CommandPtr target = decode(bytes);
    QVERIFY(target);
    QCOMPARE(fields(target.get()), fields(source.get()));
    // Re-encoding what was decoded reproduces the bytes exactly.
    QCOMPARE(encode(target.get()), bytes);
}

void tst_Command::defaultCommandBytes_data()
{
    QTest::addColumn<quint64>("type");
    QTest::addColumn<QByteArray>("expected");

    // A fresh envelope: the 14-byte attribute (protocol, empty name, port), three empty
    // strings, three zero numbers; a request adds an empty client uuid and null data.
    const QByteArray envelope = "0000000000000000 00000000 0000  00000000 00000000 00000000"
                                "0000000000000000 0000000000000000 0000000000000000";
    QTest::newRow("a default LoadSchedulers request")
        << quint64(101) << QByteArray::fromHex("000000000000004a 0000000000000065" + envelope + "00000000 ffffffff");
    QTest::newRow("a default custom command is laid out as a request") << quint64(5000)
        << QByteArray::fromHex("000000000000004a 0000000000001388" + envelope + "00000000 ffffffff");
    QTest::newRow("a default result reports 1") << quint64(2000) << QByteArray::fromHex(
        "0000000000000056 00000000000007d0" + envelope + "0000000000000000 0000000000000001 ffffffff");
    QTest::newRow("a default stop marker")
        << quint64(1) << QByteArray::fromHex("0000000000000042 0000000000000001" + envelope);
}

void tst_Command::defaultCommandBytes()
{
    QFETCH(quint64, type);
    QFETCH(QByteArray, expected);

    CommandPtr command = build(type);
    QCOMPARE(encode(command.get()).toHex(), expected.toHex());
}

void tst_Command::traceFlag_data()
{
    QTest::addColumn<quint64>("type");
    QTest::addColumn<QString>("uuid");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");

    QTest::newRow("an unnamed type leaves the name empty")
        << quint64(7) << "u" << "n" << "[planUuid:u,planName:n,commandType:]";
    QTest::newRow("type 203 keeps its short name")
        << quint64(203) << "" << "" << "[planUuid:,planName:,commandType:DeleteOperatio]";
    QTest::newRow("a result has no name")
        << quint64(2000) << "p" << "q" << "[planUuid:p,planName:q,commandType:]";
    // Each replacement fills the lowest placeholder left, also one brought in by a value.
    QTest::newRow("a plan name holding %3 is filled with the type's name")
        << quint64(101) << "u" << "%3" << "[planUuid:u,planName:LoadSchedulers,commandType:LoadSchedulers]";
    QTest::newRow("a plan uuid holding %2 is filled with the plan name")
        << quint64(101) << "%2" << "n" << "[planUuid:n,planName:n,commandType:LoadSchedulers]";
    QTest::newRow("e-mail update") << quint64(802) << "" << "" << "[planUuid:,planName:,commandType:EmailConfigUpdate]";
    QTest::newRow("last single command") << quint64(809) << "" << "" << "[planUuid:,planName:,commandType:SingleFlushScheduler]";
}

void tst_Command::traceFlag()
{
    QFETCH(quint64, type);
    QFETCH(QString, uuid);
    QFETCH(QString, name);
    QFETCH(QString, expected);

    CommandPtr command = build(type);
    command->setTraceFlag(QStringLiteral("old"));
    command->setPlanUuid(uuid);
    command->setPlanName(name);
    command->CreateTraceFlag();
    QCOMPARE(command->getTraceFlag(), expected);
}

void tst_Command::resultsAnswerTheirRequest()
{
    CommandPtr request = build(LoadSchedulersType);
    fill(request.get());
    ResultCommand result(2001);
    result.setResultData(QByteArray("kept"));
    result.GetRequestCommandInfo(*request);
    QCOMPARE(result.getCommandType(), quint64(2001));
    QCOMPARE(result.getSendCommandType(), quint64(LoadSchedulersType));
    QCOMPARE(result.getUintResult(), quint64(1));
    QCOMPARE(result.getResultData(), QByteArray("kept"));
    // The whole envelope is the request's: only the command type differs on the wire.
    result.setCommandType(request->getCommandType());
    CommCommand resultEnvelope(result);
    CommCommand requestEnvelope(*request);
    QCOMPARE(encode(&resultEnvelope), encode(&requestEnvelope));

    // A channel's answer also takes the registrar name; a null channel changes nothing.
    ResultChannel answer(ResultChannelType);
    answer.GetChannelCommandInfo(nullptr);
    QCOMPARE(answer.getSendCommandType(), quint64(0));
    ChannelCommand channel(ChannelCommandType);
    fill(&channel);
    answer.GetChannelCommandInfo(&channel);
    QCOMPARE(answer.getSendCommandType(), quint64(ChannelCommandType));
    QCOMPARE(answer.getRedistrarName(), QStringLiteral("registrar"));
    QCOMPARE(answer.getCommandType(), quint64(ResultChannelType));
}

void tst_Command::selfAssignmentKeepsFields()
{
    ResultChannel answer(ResultChannelType);
    fill(&answer);
    const QByteArray before = encode(&answer);
    ResultChannel& alias = answer;
    answer = alias;
    QCOMPARE(encode(&answer), before);
    // Assigned over another type, or copied, a channel keeps every field.
    ChannelCommand channel(ChannelCommandType), copy(CustomCommandType);
    fill(&channel);
    copy = channel;
    ChannelCommand constructed(channel);
    QCOMPARE(encode(&copy), encode(&channel));
    QCOMPARE(encode(&constructed), encode(&channel));
}

void tst_Command::decodingShortOrDamagedBytes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<quint64>("type");

    QTest::newRow("an empty array is a type-0 envelope") << QByteArray() << quint64(0);
    QTest::newRow("a length alone is a type-0 envelope") << QByteArray::fromHex("0000000000000010") << quint64(0);
    QTest::newRow("a header without body keeps its type")
        << QByteArray::fromHex("0000000000000010 0000000000000065") << quint64(101);
    QTest::newRow("a string length larger than the data")
        << QByteArray::fromHex("0000000000000030 00000000000007d0 0000000000000002 7fffffff") << quint64(2000);
    QTest::newRow("a negative type reads as a large unsigned one")
        << QByteArray::fromHex("0000000000000010 ffffffffffffffff") << Q_UINT64_C(0xFFFFFFFFFFFFFFFF);
}

void tst_Command::decodingShortOrDamagedBytes()
{
    QFETCH(QByteArray, bytes);
    QFETCH(quint64, type);

    CommandPtr command = decode(bytes);
    QVERIFY(command);
    QCOMPARE(command->getCommandType(), type);
    QVERIFY(command->getPlanUuid().isEmpty());
    QVERIFY(command->getPlanName().isEmpty());
}

void tst_Command::nullPointersAreIgnored()
{
    QByteArray bytes("untouched");
    CommandBuilder::CommandToBytearray(nullptr, bytes);
    CommandBuilder::DataToBytearray(nullptr, bytes);
    CommandBuilder::BytearrayToData(bytes, nullptr);
    CommandBuilder::DestroyCommand(nullptr);
    QCOMPARE(bytes, QByteArray("untouched"));

    // Every prefix of a real package decodes without reading past its end.
    CommandPtr source = build(ResultChannelType);
    fill(source.get());
    const QByteArray full = encode(source.get());
    for (int size = 0; size < full.size(); size += 7)
        QVERIFY(decode(full.left(size)));
}

QTEST_APPLESS_MAIN(tst_Command)
#include "tst_command.moc"
