#include <backupframe.h>

#include <QDataStream>
#include <QtTest>

#include <algorithm>
#include <functional>

namespace {

const quint64 kAbove63 = Q_UINT64_C(0x8000000000000001);
const quint64 kAllOnes = Q_UINT64_C(0xFFFFFFFFFFFFFFFF);
const quint64 kTopBit = Q_UINT64_C(0x8000000000000000);

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

// Lets a record that is not a CommandObj travel through CommandBuilder's codec,
// exactly as the records and payloads embedding it do.
template <typename Record>
class Carrier : public CommandObj
{
public:
    explicit Carrier(const Record& record) : m_record(record) {}
    void Read(QDataStream& in) override { m_record.Read(in); }
    void Write(QDataStream& out) override { m_record.Write(out); }
    Record m_record;
};

template <typename Record>
QByteArray encode(const Record& record)
{
    Carrier<Record> carrier(record);
    QByteArray bytes;
    CommandBuilder::DataToBytearray(&carrier, bytes);
    return bytes;
}

// Reads into a copy of into, which may already hold values.
template <typename Record>
Record decode(const QByteArray& bytes, const Record& into = Record())
{
    Carrier<Record> carrier(into);
    CommandBuilder::BytearrayToData(bytes, &carrier);
    return carrier.m_record;
}

// Defaults: empty strings are length 0; only the task's parameter block is the null marker.
const char* const kDefaultScheme = "00000000  0000000A 004E 0065 0076 0065 0072  00000000  00000000";
const char* const kDefaultTask = "00000000  00000000  FFFFFFFF";
const char* const kDefaultTrigger = "00000000 0000000000000000 00000000 00000000 0000000000000000 0000000000000000"
                                    "00000000 00000000 00000000 0000000000000000 0000000000000000";

// name, type, start, end, interval, duration, week days (null), months, month days, day last, end flag
const char* const kSampleTrigger = "00000002 0074  0000000000000002  00000002 0073  00000000  0000000000001C20"
                                   "FFFFFFFFFFFFFFFF  FFFFFFFF  00000002 0031  00000000  0000000000000001"
                                   "8000000000000000";

TriggerAttribute sampleTrigger()
{
    TriggerAttribute trigger;
    trigger.setTriggerName(QStringLiteral("t"));
    trigger.setTriggerType(2);
    trigger.setStartTime(QStringLiteral("s"));
    trigger.setInterval(7200);
    trigger.setDuration(kAllOnes);
    trigger.setWeekDays(QString());
    trigger.setWhichMoths(QStringLiteral("1"));
    trigger.setDayLastFlag(1);
    trigger.setTriggerEndFlag(kTopBit);
    return trigger;
}

// Every field gets a value of its own, so that a field dropped or swapped on the wire shows.
JournalAttribute sampleJournal()
{
    JournalAttribute journal;
    int n = 0;
    for (auto set : {&JournalAttribute::setJournalUuid, &JournalAttribute::setPlanUuid, &JournalAttribute::setPlanName,
                     &JournalAttribute::setTaskName, &JournalAttribute::setStartTime, &JournalAttribute::setEndTime,
                     &JournalAttribute::setCreateTime, &JournalAttribute::setResult, &JournalAttribute::setErrorReason,
                     &JournalAttribute::setSolution, &JournalAttribute::setExecutionState})
        (journal.*set)(QStringLiteral("\u00e9t\u00e9 %1").arg(++n));
    journal.setTimeConsuming(kAbove63);
    journal.setCommandActionFlag(kAllOnes);
    return journal;
}

SchedulerPlan samplePlan(const QString& createTime = QStringLiteral("2020-01-02 03:04:05"))
{
    SchedulerPlan plan;
    int n = 0;
    for (auto set : {&SchedulerPlan::setPlanUuid, &SchedulerPlan::setPlanName, &SchedulerPlan::setStartTime,
                     &SchedulerPlan::setEndTime, &SchedulerPlan::setNextStartTime, &SchedulerPlan::setErrorMessage})
        (plan.*set)(QStringLiteral("text %1").arg(++n));
    for (auto set : {&SchedulerPlan::setTriggerFlag, &SchedulerPlan::setStartFlag, &SchedulerPlan::setEndFlag,
                     &SchedulerPlan::setCommandActionFlag, &SchedulerPlan::setBytesProcessed,
                     &SchedulerPlan::setTotalBytesToCopy, &SchedulerPlan::setResultCode})
        (plan.*set)(kAllOnes - ++n);
    for (auto set : {&SchedulerPlan::setWasError, &SchedulerPlan::setWasCancelled, &SchedulerPlan::setIsRunning})
        (plan.*set)(true);
    SchemeAttribute& scheme = plan.getObjectSchemeAttribute();
    scheme.setExecutState(QStringLiteral("Ready"));
    scheme.setStatus(QStringLiteral("Success"));
    scheme.setLatestFinishTime(QStringLiteral("2020-02-02 00:00:00"));
    scheme.setCreateTime(createTime);
    plan.getObjectTaskAttribute().setTaskName(QStringLiteral("task_1"));
    plan.getObjectTaskAttribute().setOperationRegisterName(QStringLiteral("FileBackup"));
    plan.getObjectTaskAttribute().setOperationParameter(QByteArray("\x00\xff\x01", 3));
    plan.setTriggerAttribute(sampleTrigger());
    return plan;
}

// A record changed in one late field differs from the sample, yet copies, self-assignment
// and the stream keep it whole; reading overwrites every field of a record that held values.
template <typename Record, typename Edit>
void checkLateField(const Record& sample, Edit edit)
{
    Record changed = sample;
    edit(changed);
    QVERIFY(changed != sample && !(changed == sample));
    Record assigned;
    assigned = changed;
    Record& alias = assigned;
    assigned = alias;
    QVERIFY(assigned == changed && Record(changed) == changed);
    QVERIFY(decode<Record>(encode(changed)) == changed);
    QVERIFY(decode(encode(Record()), changed) == Record());
}

using Check = std::function<void()>;

} // namespace

Q_DECLARE_METATYPE(Check)

class tst_Model : public QObject
{
    Q_OBJECT

private slots:
    void bytes_data();
    void bytes();
    void lateFieldCounts_data();
    void lateFieldCounts();
    void plansSortOldestFirst();
    void setOperationDataMakesFreshPlan();
    void relationBytesAndReadAppends();
};

void tst_Model::bytes_data()
{
    QTest::addColumn<QByteArray>("actual");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("a default journal is empty strings and zeros")
        << encode(JournalAttribute())
        << hex("00000000 00000000 00000000 00000000 00000000 00000000 00000000  0000000000000000"
               "00000000 00000000 00000000  0000000000000000  00000000");
    QTest::newRow("a trigger keeps a null string apart from empty ones and uses all 64 bits")
        << encode(sampleTrigger()) << hex(kSampleTrigger);
    QTest::newRow("a trigger read back keeps its null week days apart from its empty end time")
        << encode(decode<TriggerAttribute>(hex(kSampleTrigger))) << hex(kSampleTrigger);
    TaskAttribute emptyParameter;
    emptyParameter.setOperationParameter(QByteArray(""));
    QTest::newRow("an empty parameter block is not the null one")
        << encode(emptyParameter) << hex("00000000 00000000 00000000");
    QTest::newRow("an empty parameter block read back stays empty, the null one null")
        << encode(decode<TaskAttribute>(encode(emptyParameter))) + encode(decode<TaskAttribute>(hex(kDefaultTask)))
        << encode(emptyParameter) + hex(kDefaultTask);
    // The embedded records are written by their own Write: this row also pins their defaults.
    QTest::newRow("a default plan embeds the default scheme, task and trigger and a stopped run")
        << encode(SchedulerPlan())
        << hex("00000000 00000000 0000000000000000") + hex(kDefaultScheme) + hex(kDefaultTask) + hex(kDefaultTrigger)
               + hex("0000000000000000 00000000  0000000000000000 00000000  00000000  0000000000000000"
                     "00000000 00  0000000000000000 0000000000000000 00  0000000000000000 00");
}

void tst_Model::bytes()
{
    QFETCH(QByteArray, actual);
    QFETCH(QByteArray, expected);
    QCOMPARE(actual.toHex(' '), expected.toHex(' '));
}

void tst_Model::lateFieldCounts_data()
{
    QTest::addColumn<Check>("check");
    QTest::newRow("triggers differing only in the end flag")
        << Check([] { checkLateField(sampleTrigger(), [](TriggerAttribute& t) { t.setTriggerEndFlag(0); }); });
    QTest::newRow("tasks differing only in the parameter block")
        << Check([] { checkLateField(samplePlan().getTaskAttribute(), [](TaskAttribute& t) { t.setOperationParameter("x"); }); });
    QTest::newRow("schemes differing only in the create time")
        << Check([] { checkLateField(samplePlan().getSchemeAttribute(), [](SchemeAttribute& s) { s.setCreateTime(QString()); }); });
    QTest::newRow("journals differing only in the execution state")
        << Check([] { checkLateField(sampleJournal(), [](JournalAttribute& j) { j.setExecutionState("x"); }); });
    QTest::newRow("plans differing only in the running flag")
        << Check([] { checkLateField(samplePlan(), [](SchedulerPlan& p) { p.setIsRunning(false); }); });
    QTest::newRow("plans whose triggers differ only in the end flag")
        << Check([] { checkLateField(samplePlan(), [](SchedulerPlan& p) { p.getObjectTriggerAttribute().setTriggerEndFlag(0); }); });
}

void tst_Model::lateFieldCounts()
{
    QFETCH(Check, check);
    check();
}

void tst_Model::plansSortOldestFirst()
{
    // Across a day and a year boundary, with hours that a 12-hour clock would misorder.
    const QStringList sorted{"2019-12-31 23:00:00", "2020-01-01 02:00:00", "2020-01-01 13:00:00",
                             "2020-01-01 23:59:59", "2020-01-02 00:00:00"};
    QList<SchedulerPlan> plans;
    for (int i : {3, 1, 4, 0, 2})
        plans.append(samplePlan(sorted.at(i)));
    std::sort(plans.begin(), plans.end());
    QStringList result;
    for (const SchedulerPlan& plan : plans)
        result.append(plan.getSchemeAttribute().getCreateTime());
    QCOMPARE(result, sorted);

    // Plans created in the same second are equivalent: neither is less.
    SchedulerPlan twin = plans.first();
    twin.setPlanName(QStringLiteral("twin"));
    QVERIFY(!(plans.first() < twin) && !(twin < plans.first()));
}

void tst_Model::setOperationDataMakesFreshPlan()
{
    RequestNewOperationData request;
    request.setCreateTime(QStringLiteral("2022-03-04 05:06:07"));
    request.getObjectTaskAttribute().setTaskName(QStringLiteral("task_new"));
    request.getObjectTriggerAttribute().setInterval(3600);

    SchedulerPlan plan = samplePlan();
    plan.SetOperationData(request);

    // Expected: a default plan that keeps the old scheme's other three fields.
    SchedulerPlan expected;
    expected.setSchemeAttribute(samplePlan(request.getCreateTime()).getSchemeAttribute());
    expected.setTaskAttribute(request.getTaskAttribute());
    expected.setTriggerAttribute(request.getTriggerAttribute());
    QVERIFY(plan == expected);
    QVERIFY(plan.getPlanUuid().isEmpty() && !plan.getPlanUuid().isNull());

    // Built from the request (the conversion is implicit), a plan starts from the default scheme instead.
    expected.setSchemeAttribute(SchemeAttribute());
    expected.getObjectSchemeAttribute().setCreateTime(request.getCreateTime());
    const SchedulerPlan converted = request;
    QVERIFY(converted == expected);
}

void tst_Model::relationBytesAndReadAppends()
{
    PlanJournalRelational relation;
    relation.setPlanUuid(QStringLiteral("p"));
    QCOMPARE(encode(relation), hex("00000002 0070  FFFFFFFF"));
    relation.setJournalUuidList({"a", "b"});
    const QByteArray bytes = hex("00000002 0070  0000000C  00000002 0061  00000002 0062");
    QCOMPARE(encode(relation), bytes);

    // Reading adds to what the record holds, repeats included; an empty list adds nothing.
    PlanJournalRelational held;
    held.setJournalUuidList({"b"});
    QCOMPARE(decode(bytes, held).getPlanUuid(), QStringLiteral("p"));
    QCOMPARE(decode(bytes, held).getJournalUuidList(), (QList<QString>{"b", "a", "b"}));
    QCOMPARE(decode(hex("00000000 FFFFFFFF"), held).getJournalUuidList(), QList<QString>{"b"});

    QVERIFY(!held.InsertJournalUuid(QStringLiteral("b")));
    QVERIFY(held.InsertJournalUuid(QStringLiteral("a")));
    held.setJournalUuidList({"a", "b", "a"});
    held.DeleteJournalUuid(QStringLiteral("a"));
    QCOMPARE(held.getJournalUuidList(), QList<QString>{"b"});
}

QTEST_APPLESS_MAIN(tst_Model)
#include "tst_model.moc"
