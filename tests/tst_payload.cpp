#include <backupframe.h>

#include <QDataStream>
#include <QtTest>

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace {

const quint64 kAbove63 = Q_UINT64_C(0x8000000000000001);
const quint64 kAllOnes = Q_UINT64_C(0xFFFFFFFFFFFFFFFF);

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

QByteArray encode(CommandObj* data)
{
    QByteArray bytes;
    CommandBuilder::DataToBytearray(data, bytes);
    return bytes;
}

// A device that cannot seek, as a socket: lists cannot be written behind a patched length
// there, nor read from a view of a buffer.
class Pipe : public QIODevice
{
public:
    QByteArray bytes;
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return bytes.size() + QIODevice::bytesAvailable(); }

protected:
    qint64 readData(char* data, qint64 max) override
    {
        const qint64 count = qMin<qint64>(max, bytes.size());
        memcpy(data, bytes.constData(), size_t(count));
        bytes.remove(0, int(count));
        return count;
    }
    qint64 writeData(const char* data, qint64 count) override
    {
        bytes.append(data, int(count));
        return count;
    }
};

// The two pointer-list payloads behind one face, so that every ownership check runs on both.
QList<JournalAttribute*>& items(ResultLoadJournalsData& data) { return data.getObjectJournalAttrList(); }
QList<SchedulerPlan*>& items(ResultLoadSchedulersData& data) { return data.getObjectActionPlansList(); }
void setItems(ResultLoadJournalsData& data, const QList<JournalAttribute*>& list) { data.setJournalAttrList(list); }
void setItems(ResultLoadSchedulersData& data, const QList<SchedulerPlan*>& list) { data.setActionPlansList(list); }

// Journals and plans alike are told apart by their plan uuid.
template <typename Item>
Item make(const QString& planUuid)
{
    Item item;
    item.setPlanUuid(planUuid);
    return item;
}

template <typename Data>
QStringList ids(Data& data)
{
    QStringList result;
    for (const auto* item : items(data))
        result.append(item ? item->getPlanUuid() : QStringLiteral("<null>"));
    return result;
}

// Fills the record's own list (an empty uuid stands for a null pointer): the record owns these.
template <typename Data>
void hold(Data& data, const QStringList& uuids)
{
    using Item = std::decay_t<decltype(*items(data).first())>;
    for (const QString& uuid : uuids)
        items(data).append(uuid.isEmpty() ? nullptr : new Item(make<Item>(uuid)));
}

// Reads, copies, assignment and set...List: the record keeps and frees exactly what it owns
// (the sanitizer build reports a double free, a use after free or a leak otherwise).
template <typename Data>
void checkOwnership()
{
    using Item = std::decay_t<decltype(*items(std::declval<Data&>()).first())>;
    Data data;
    hold(data, {"1", "", "2"});
    // Reading appends to the held items; null entries are skipped on the wire.
    Data back;
    hold(back, {"0"});
    Item* const held = items(back).first();
    for (const QByteArray& bytes : {encode(&data), hex("FFFFFFFF"), hex("00000000")})
        CommandBuilder::BytearrayToData(bytes, &back);
    QCOMPARE(ids(back), (QStringList{"0", "1", "2"}));
    QCOMPARE(items(back).first(), held);
    // Copies are deep and keep null entries.
    Data copy(data);
    QCOMPARE(ids(copy), (QStringList{"1", "<null>", "2"}));
    QVERIFY(items(copy).first() != items(data).first());

    // Assignment replaces the held items; self-assignment keeps the very same ones.
    back = copy;
    QCOMPARE(ids(back), ids(copy));
    const QList<Item*> before = items(back);
    Data& alias = back;
    back = alias;
    QCOMPARE(items(back), before);

    // set...List copies: the caller's objects live on the stack, and the record's own
    // pointers handed back must not be read after they were freed.
    Item onStack = make<Item>("s");
    setItems(back, {&onStack, &onStack});
    QCOMPARE(ids(back), (QStringList{"s", "s"}));
    QVERIFY(items(back).at(0) != &onStack && items(back).at(0) != items(back).at(1));
    setItems(back, items(back));
    QVERIFY(*items(back).at(1) == onStack);

    // Deleted through the base, a record frees what was appended through the reference.
    CommandObj* asBase = new Data(data);
    delete asBase;
}

using Factory = std::function<CommandObj*(bool filled)>;
using Check = std::function<void()>;

template <typename Data>
Factory factory(std::function<void(Data&)> fill)
{
    return [fill](bool filled) {
        auto* data = new Data;
        if (filled && fill)
            fill(*data);
        return data;
    };
}

} // namespace

Q_DECLARE_METATYPE(Factory)
Q_DECLARE_METATYPE(Check)

class tst_Payload : public QObject
{
    Q_OBJECT

private slots:
    void bytes_data();
    void bytes();
    void stringListWritesAllReadsFirstOfEach();
    void ownership_data();
    void ownership();
    void newOperationDefaults();
    void dialogTrigger_data();
    void dialogTrigger();
};

void tst_Payload::bytes_data()
{
    QTest::addColumn<Factory>("make");
    QTest::addColumn<QByteArray>("head");   // the first bytes of the encoding, all of them when tail is empty
    QTest::addColumn<QByteArray>("tail");   // its last bytes
    QTest::newRow("an empty string list is the null array") << factory<QstringListData>(nullptr) << hex("FFFFFFFF") << QByteArray();
    QTest::newRow("an empty journal list is the null array")
        << factory<ResultLoadJournalsData>(nullptr) << hex("FFFFFFFF") << QByteArray();
    QTest::newRow("a plan list holding only a null pointer is the null array")
        << factory<ResultLoadSchedulersData>([](ResultLoadSchedulersData& d) { d.getObjectActionPlansList() << nullptr; })
        << hex("FFFFFFFF") << QByteArray();
    QTest::newRow("a fresh string request is three null markers")
        << factory<RequestStringData>(nullptr) << hex("FFFFFFFF FFFFFFFF FFFFFFFF") << QByteArray();
    QTest::newRow("a string request keeps an empty value apart from the null user")
        << factory<RequestStringData>([](RequestStringData& d) {
               d.setStringValue(QLatin1String(""));
               d.setDstRemotePwd(QByteArray("\x00\xff", 2));
           })
        << hex("00000000  FFFFFFFF  00000002 00FF") << QByteArray();
    QTest::newRow("a fresh minizip request is one null marker")
        << factory<RequestMinizipData>(nullptr) << hex("FFFFFFFF") << QByteArray();
    QTest::newRow("trigger execute info starts with an empty, not null, time and carries all 64 bits")
        << factory<RequestTriggerExecuteInfoData>([](RequestTriggerExecuteInfoData& d) { d.setTriggerEndFlag(kAbove63); })
        << hex("00000000  8000000000000001") << QByteArray();
    QTest::newRow("an e-mail settings update carries 64-bit and 16-bit values")
        << factory<RequestEmailConfigUpdateData>([](RequestEmailConfigUpdateData& d) {
               EmailConfigAttribute& config = d.getObjectEmailConfigAttribute();
               config.setEnableEmailNotification(kAbove63);
               config.setSmtpServerPort(65535);
               config.setOperationFailure(kAllOnes);
           })
        << hex("8000000000000001 00000000 00000000 FFFF") << hex("FFFFFFFFFFFFFFFF");
    SchedulerPlan plan = make<SchedulerPlan>("{p}");
    QTest::newRow("a plan travels alone as exactly the plan's own encoding")
        << factory<SchedulerPlanData>([plan](SchedulerPlanData& d) { d.setSchedulerPlan(plan); }) << encode(&plan)
        << QByteArray();
    QTest::newRow("a new-operation request ends in its 64-bit number, after the trigger")
        << factory<RequestNewOperationData>([](RequestNewOperationData& d) {
               d.setCreateTime(QStringLiteral("2020-01-02 03:04:05"));
               d.getObjectTriggerAttribute().setTriggerEndFlag(kAbove63);
               d.setBackupNowLater(kAllOnes);
           })
        << hex("00000026 0032") << hex("8000000000000001 FFFFFFFFFFFFFFFF");
    QTest::newRow("two journals of 62 bytes each lie back to back without a count")
        << factory<ResultLoadJournalsData>([](ResultLoadJournalsData& d) { hold(d, {"1", "2"}); })
        << hex("0000007C  00000000 00000002 0031") << hex("0000000000000000 00000000");
    QTest::newRow("two plans of 187 bytes each lie back to back without a count")
        << factory<ResultLoadSchedulersData>([](ResultLoadSchedulersData& d) { hold(d, {"1", "2"}); })
        << hex("00000176  00000002 0031") << hex("0000000000000000 00");
}

// Read back into a fresh record and written again, every payload gives the same bytes.
void tst_Payload::bytes()
{
    QFETCH(Factory, make);
    QFETCH(QByteArray, head);
    QFETCH(QByteArray, tail);
    std::unique_ptr<CommandObj> data(make(true));
    const QByteArray bytes = encode(data.get());
    QCOMPARE(bytes.left(tail.isEmpty() ? bytes.size() : head.size()).toHex(' '), head.toHex(' '));
    QCOMPARE(bytes.right(tail.size()).toHex(' '), tail.toHex(' '));

    std::unique_ptr<CommandObj> back(make(false));
    CommandBuilder::BytearrayToData(bytes, back.get());
    QCOMPARE(encode(back.get()).toHex(' '), bytes.toHex(' '));

    // Through a device that cannot seek, the same bytes go out and the same record comes back.
    Pipe pipe;
    pipe.open(QIODevice::ReadWrite | QIODevice::Unbuffered);
    QDataStream stream(&pipe);
    stream.setVersion(PackageFormat::StreamVersion);
    data->Write(stream);
    QCOMPARE(pipe.bytes.toHex(' '), bytes.toHex(' '));
    std::unique_ptr<CommandObj> piped(make(false));
    piped->Read(stream);
    QCOMPARE(encode(piped.get()).toHex(' '), bytes.toHex(' '));
}

void tst_Payload::stringListWritesAllReadsFirstOfEach()
{
    QstringListData data;
    data.setQstringList({"a", "b", "a"});
    const QByteArray bytes = hex("00000012  00000002 0061  00000002 0062  00000002 0061");
    QCOMPARE(encode(&data), bytes);

    // Reading appends the strings not yet held; a null or empty array adds nothing.
    QstringListData back;
    CommandBuilder::BytearrayToData(bytes, &back);
    QCOMPARE(back.getQstringList(), (QList<QString>{"a", "b"}));
    back.setQstringList({"c", "b"});
    for (const QByteArray& input : {bytes, hex("FFFFFFFF"), hex("00000000")})
        CommandBuilder::BytearrayToData(input, &back);
    QCOMPARE(back.getQstringList(), (QList<QString>{"c", "b", "a"}));

    // A null and an empty string are equal strings: the second is dropped as a repeat.
    QstringListData nullAndEmpty;
    CommandBuilder::BytearrayToData(hex("0000000E  FFFFFFFF  00000000  00000002 0061"), &nullAndEmpty);
    QCOMPARE(nullAndEmpty.getQstringList(), (QList<QString>{QString(), "a"}));
    QVERIFY(nullAndEmpty.getQstringList().first().isNull());
}

void tst_Payload::ownership_data()
{
    QTest::addColumn<Check>("check");
    QTest::newRow("journal lists") << Check(checkOwnership<ResultLoadJournalsData>);
    QTest::newRow("plan lists") << Check(checkOwnership<ResultLoadSchedulersData>);
}

void tst_Payload::ownership()
{
    QFETCH(Check, check);
    check();
}

void tst_Payload::newOperationDefaults()
{
    const RequestNewOperationData data;
    const QDateTime parsed = QDateTime::fromString(data.getCreateTime(), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    QVERIFY2(parsed.isValid() && data.getCreateTime().size() == 19, qPrintable(data.getCreateTime()));
    QVERIFY(qAbs(parsed.secsTo(QDateTime::currentDateTime())) < 60);
    QCOMPARE(data.getBackupNowLater(), quint64(0));
}

void tst_Payload::dialogTrigger_data()
{
    // Dialog fields: type, start, end, interval hours, duration hours, week days,
    // months, month days, day-last flag. Numbers: type, interval, duration, day-last.
    QTest::addColumn<QStringList>("dialog");
    QTest::addColumn<QList<quint64>>("numbers");
    QTest::newRow("hours become seconds and a word becomes 0")
        << QStringList{"3", "s", "e", "2", "abc", "1,2", "3,4", "5,6", "1"} << QList<quint64>{3, 7200, 0, 1};
    QTest::newRow("hexadecimal and negative texts are no numbers, a plus sign is allowed")
        << QStringList{"0x10", "", "", "-1", "+2", "", "", "", "x"} << QList<quint64>{0, 0, 7200, 0};
    QTest::newRow("texts beyond 32 bits are no numbers")
        << QStringList{"4294967295", "", "", "4294967295", "4294967296", "", "", "", "4294967296"}
        << QList<quint64>{4294967295u, Q_UINT64_C(4294967295) * 3600, 0, 0};
}

void tst_Payload::dialogTrigger()
{
    QFETCH(QStringList, dialog);
    QFETCH(QList<quint64>, numbers);
    SchedulerDialogData record;
    int field = 0;
    for (auto set : {&SchedulerDialogData::setTriggerType, &SchedulerDialogData::setStartTime,
                     &SchedulerDialogData::setEndTime, &SchedulerDialogData::setIntervalHours,
                     &SchedulerDialogData::setDurationHours, &SchedulerDialogData::setWeekDays,
                     &SchedulerDialogData::setMonths, &SchedulerDialogData::setMonthDays,
                     &SchedulerDialogData::setDayLastFlag})
        (record.*set)(dialog.at(field++));

    RequestNewOperationData data;
    data.getObjectTriggerAttribute().setTriggerName(QStringLiteral("kept"));
    data.GetDialogTrigger(record);
    const TriggerAttribute t = data.getTriggerAttribute();
    QCOMPARE((QList<quint64>{t.getTriggerType(), t.getInterval(), t.getDuration(), t.getDayLastFlag()}), numbers);
    QCOMPARE((QStringList{t.getTriggerName(), t.getStartTime(), t.getEndTime(), t.getWeekDays(), t.getWhichMoths(), t.getMonthDays()}),
             (QStringList{"kept", dialog.at(1), dialog.at(2), dialog.at(5), dialog.at(6), dialog.at(7)}));
}

QTEST_APPLESS_MAIN(tst_Payload)
#include "tst_payload.moc"
