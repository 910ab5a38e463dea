#include <backupframe.h>

#include <QDataStream>
#include <QtTest>

#include <algorithm>
#include <functional>

namespace {

const quint64 kAbove63 = Q_UINT64_C(0x8000000000000001);
const quint64 kAllOnes = Q_UINT64_C(0xFFFFFFFFFFFFFFFF);

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
    explicit Carrier(Record& record) : m_record(record) {}
    void Read(QDataStream& in) override { m_record.Read(in); }
    void Write(QDataStream& out) override { m_record.Write(out); }

private:
    Record& m_record;
};

template <typename Record>
QByteArray encode(Record record)
{
    Carrier<Record> carrier(record);
    QByteArray bytes;
    CommandBuilder::DataToBytearray(&carrier, bytes);
    return bytes;
}

template <typename Record>
Record decode(const QByteArray& bytes, Record into = Record())
{
    Carrier<Record> carrier(into);
    CommandBuilder::BytearrayToData(bytes, &carrier);
    return into;
}

TriggerAttribute sampleTrigger()
{
    TriggerAttribute trigger;
    trigger.setTriggerName(QStringLiteral("trigger_1"));
    trigger.setTriggerType(3);
    trigger.setStartTime(QStringLiteral("2020-01-01 08:00:00"));
    trigger.setEndTime(QStringLiteral("2021-01-01 08:00:00"));
    trigger.setInterval(kAbove63);
    trigger.setDuration(kAllOnes);
    trigger.setWeekDays(QStringLiteral("1,3,5"));
    trigger.setWhichMoths(QStringLiteral("2,4"));
    trigger.setMonthDays(QStringLiteral("15,28"));
    trigger.setDayLastFlag(1);
    trigger.setTriggerEndFlag(Q_UINT64_C(0x8000000000000000));
    return trigger;
}

TaskAttribute sampleTask()
{
    TaskAttribute task;
    task.setTaskName(QStringLiteral("task_1"));
    task.setOperationRegisterName(QStringLiteral("FileBackup"));
    task.setOperationParameter(QByteArray("\x00\xff\x01", 3));
    return task;
}

SchemeAttribute sampleScheme(const QString& createTime = QStringLiteral("2020-01-02 03:04:05"))
{
    SchemeAttribute scheme;
    scheme.setExecutState(QStringLiteral("Ready"));
    scheme.setStatus(QStringLiteral("Success"));
    scheme.setLatestFinishTime(QStringLiteral("2020-02-02 00:00:00"));
    scheme.setCreateTime(createTime);
    return scheme;
}

JournalAttribute sampleJournal(const QString& uuid = QStringLiteral("{journal}"))
{
    JournalAttribute journal;
    journal.setJournalUuid(uuid);
    journal.setPlanUuid(QStringLiteral("{plan}"));
    journal.setPlanName(QStringLiteral("nightly \u00e9t\u00e9"));
    journal.setTaskName(QStringLiteral("task_1"));
    journal.setStartTime(QStringLiteral("s"));
    journal.setEndTime(QStringLiteral("e"));
    journal.setCreateTime(QStringLiteral("c"));
    journal.setTimeConsuming(kAbove63);
    journal.setResult(QStringLiteral("Failed"));
    journal.setErrorReason(QStringLiteral("disk full"));
    journal.setSolution(QStringLiteral("free space"));
    journal.setCommandActionFlag(kAllOnes);
    journal.setExecutionState(QStringLiteral("Done"));
    return journal;
}

// A plan with every field away from its default, run state included.
SchedulerPlan samplePlan(const QString& createTime = QStringLiteral("2020-01-02 03:04:05"))
{
    SchedulerPlan plan;
    plan.setPlanUuid(QStringLiteral("{plan}"));
    plan.setPlanName(QStringLiteral("nightly"));
    plan.setTriggerFlag(kAllOnes);
    plan.setSchemeAttribute(sampleScheme(createTime));
    plan.setTaskAttribute(sampleTask());
    plan.setTriggerAttribute(sampleTrigger());
    plan.setStartFlag(1);
    plan.setStartTime(QStringLiteral("start"));
    plan.setEndFlag(2);
    plan.setEndTime(QStringLiteral("end"));
    plan.setNextStartTime(QStringLiteral("next"));
    plan.setCommandActionFlag(3);
    plan.setErrorMessage(QStringLiteral("error"));
    plan.setWasError(true);
    plan.setBytesProcessed(kAbove63);
    plan.setTotalBytesToCopy(kAllOnes);
    plan.setWasCancelled(true);
    plan.setResultCode(Q_UINT64_C(0x8000000000000000));
    plan.setIsRunning(true);
    return plan;
}

using TriggerEdit = std::function<void(TriggerAttribute&)>;
using JournalEdit = std::function<void(JournalAttribute&)>;
using PlanEdit = std::function<void(SchedulerPlan&)>;

} // namespace

Q_DECLARE_METATYPE(TriggerEdit)
Q_DECLARE_METATYPE(JournalEdit)
Q_DECLARE_METATYPE(PlanEdit)

class tst_Model : public QObject
{
    Q_OBJECT

private slots:
    void defaultsAreEmptyNotNull();
    void defaultSchemeBytes();
    void triggerBytes();
    void roundTripsRestoreEveryField();
    void selfAssignmentKeepsRecord();
    void triggerEqualityCoversEveryField_data();
    void triggerEqualityCoversEveryField();
    void journalEqualityCoversEveryField_data();
    void journalEqualityCoversEveryField();
    void planEqualityCoversEveryField_data();
    void planEqualityCoversEveryField();
    void plansSortByCreateTime_data();
    void plansSortByCreateTime();
    void setOperationDataMakesFreshPlan();
    void relationBytes_data();
    void relationBytes();
    void relationReadAppends();
    void relationInsertAndDelete();
};

void tst_Model::defaultsAreEmptyNotNull()
{
    const TriggerAttribute trigger;
    for (const QString& text : {trigger.getTriggerName(), trigger.getStartTime(), trigger.getEndTime(),
                                trigger.getWeekDays(), trigger.getWhichMoths(), trigger.getMonthDays()})
        QVERIFY(text.isEmpty() && !text.isNull());
    const JournalAttribute journal;
    QVERIFY(!journal.getJournalUuid().isNull() && !journal.getExecutionState().isNull());
    QVERIFY(!SchedulerPlan().getPlanUuid().isNull() && !SchedulerPlan().getNextStartTime().isNull());
    QVERIFY(SchedulerPlan() == SchedulerPlan());
}

void tst_Model::defaultSchemeBytes()
{
    // Three empty strings (length 0, not the null marker) around "Never".
    QCOMPARE(encode(SchemeAttribute()), hex("00000000  0000000A 004E 0065 0076 0065 0072  00000000  00000000"));
    // The parameter block starts cleared, which is the null array on the wire.
    QCOMPARE(encode(TaskAttribute()), hex("00000000  00000000  FFFFFFFF"));
}

void tst_Model::triggerBytes()
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
    trigger.setTriggerEndFlag(Q_UINT64_C(0x8000000000000000));
    const QByteArray expected = hex(
        "00000002 0074"                 // trigger name "t"
        "0000000000000002"              // trigger type
        "00000002 0073"                 // start time "s"
        "00000000"                      // end time ""
        "0000000000001C20"              // interval 7200
        "FFFFFFFFFFFFFFFF"              // duration, all 64 bits
        "FFFFFFFF"                      // week days: null string
        "00000002 0031"                 // which months "1"
        "00000000"                      // month days ""
        "0000000000000001"              // day last flag
        "8000000000000000");            // trigger end flag
    QCOMPARE(encode(trigger), expected);
    const TriggerAttribute back = decode<TriggerAttribute>(expected);
    QVERIFY(back == trigger);
    QVERIFY(back.getWeekDays().isNull());
    QCOMPARE(back.getTriggerEndFlag(), Q_UINT64_C(0x8000000000000000));
}

void tst_Model::roundTripsRestoreEveryField()
{
    QVERIFY(decode<TriggerAttribute>(encode(sampleTrigger())) == sampleTrigger());
    QVERIFY(decode<TaskAttribute>(encode(sampleTask())) == sampleTask());
    QVERIFY(decode<SchemeAttribute>(encode(sampleScheme())) == sampleScheme());
    // Reading overwrites every field of a record that already held values.
    QVERIFY(decode<TriggerAttribute>(encode(TriggerAttribute()), sampleTrigger()) == TriggerAttribute());

    // An empty but not null parameter block stays distinguishable on the wire.
    TaskAttribute emptyParameter;
    emptyParameter.setOperationParameter(QByteArray(""));
    QCOMPARE(encode(emptyParameter).right(4), hex("00000000"));
    QVERIFY(!decode<TaskAttribute>(encode(emptyParameter)).getOperationParameter().isNull());
}

void tst_Model::selfAssignmentKeepsRecord()
{
    SchedulerPlan plan = samplePlan();
    SchedulerPlan& alias = plan;
    plan = alias;
    QVERIFY(plan == samplePlan());
}

void tst_Model::triggerEqualityCoversEveryField_data()
{
    QTest::addColumn<TriggerEdit>("edit");
    QTest::newRow("names differ") << TriggerEdit([](TriggerAttribute& t) { t.setTriggerName(QStringLiteral("x")); });
    QTest::newRow("types differ") << TriggerEdit([](TriggerAttribute& t) { t.setTriggerType(9); });
    QTest::newRow("start times differ") << TriggerEdit([](TriggerAttribute& t) { t.setStartTime(QStringLiteral("x")); });
    QTest::newRow("end times differ") << TriggerEdit([](TriggerAttribute& t) { t.setEndTime(QStringLiteral("x")); });
    QTest::newRow("intervals differ only in the top bit") << TriggerEdit([](TriggerAttribute& t) { t.setInterval(1); });
    QTest::newRow("durations differ") << TriggerEdit([](TriggerAttribute& t) { t.setDuration(0); });
    QTest::newRow("week days differ") << TriggerEdit([](TriggerAttribute& t) { t.setWeekDays(QStringLiteral("x")); });
    QTest::newRow("months differ") << TriggerEdit([](TriggerAttribute& t) { t.setWhichMoths(QStringLiteral("x")); });
    QTest::newRow("month days differ") << TriggerEdit([](TriggerAttribute& t) { t.setMonthDays(QStringLiteral("x")); });
    QTest::newRow("day last flags differ") << TriggerEdit([](TriggerAttribute& t) { t.setDayLastFlag(0); });
    QTest::newRow("only the trigger end flags differ") << TriggerEdit([](TriggerAttribute& t) { t.setTriggerEndFlag(0); });
}

void tst_Model::triggerEqualityCoversEveryField()
{
    QFETCH(TriggerEdit, edit);
    TriggerAttribute changed = sampleTrigger();
    edit(changed);
    QVERIFY(!(changed == sampleTrigger()));
    QVERIFY(changed != sampleTrigger());
    // Copies and the stream carry the change.
    QVERIFY(TriggerAttribute(changed) == changed);
    QVERIFY(decode<TriggerAttribute>(encode(changed)) == changed);
}

void tst_Model::journalEqualityCoversEveryField_data()
{
    QTest::addColumn<JournalEdit>("edit");
    QTest::newRow("journal uuids differ") << JournalEdit([](JournalAttribute& j) { j.setJournalUuid(QStringLiteral("x")); });
    QTest::newRow("plan uuids differ") << JournalEdit([](JournalAttribute& j) { j.setPlanUuid(QStringLiteral("x")); });
    QTest::newRow("plan names differ") << JournalEdit([](JournalAttribute& j) { j.setPlanName(QStringLiteral("x")); });
    QTest::newRow("task names differ") << JournalEdit([](JournalAttribute& j) { j.setTaskName(QStringLiteral("x")); });
    QTest::newRow("start times differ") << JournalEdit([](JournalAttribute& j) { j.setStartTime(QStringLiteral("x")); });
    QTest::newRow("end times differ") << JournalEdit([](JournalAttribute& j) { j.setEndTime(QStringLiteral("x")); });
    QTest::newRow("create times differ") << JournalEdit([](JournalAttribute& j) { j.setCreateTime(QStringLiteral("x")); });
    QTest::newRow("durations differ") << JournalEdit([](JournalAttribute& j) { j.setTimeConsuming(1); });
    QTest::newRow("results differ") << JournalEdit([](JournalAttribute& j) { j.setResult(QStringLiteral("x")); });
    QTest::newRow("error reasons differ") << JournalEdit([](JournalAttribute& j) { j.setErrorReason(QStringLiteral("x")); });
    QTest::newRow("solutions differ") << JournalEdit([](JournalAttribute& j) { j.setSolution(QStringLiteral("x")); });
    QTest::newRow("command action flags differ") << JournalEdit([](JournalAttribute& j) { j.setCommandActionFlag(0); });
    QTest::newRow("only the execution states differ") << JournalEdit([](JournalAttribute& j) { j.setExecutionState(QStringLiteral("x")); });
}

void tst_Model::journalEqualityCoversEveryField()
{
    QFETCH(JournalEdit, edit);
    JournalAttribute changed = sampleJournal();
    edit(changed);
    QVERIFY(changed != sampleJournal());
    QVERIFY(!(changed == sampleJournal()));
    JournalAttribute assigned;
    assigned = changed;
    QVERIFY(assigned == changed);
    QVERIFY(decode<JournalAttribute>(encode(changed)) == changed);
}

void tst_Model::planEqualityCoversEveryField_data()
{
    QTest::addColumn<PlanEdit>("edit");
    QTest::newRow("plan uuids differ") << PlanEdit([](SchedulerPlan& p) { p.setPlanUuid(QStringLiteral("x")); });
    QTest::newRow("plan names differ") << PlanEdit([](SchedulerPlan& p) { p.setPlanName(QStringLiteral("x")); });
    QTest::newRow("trigger flags differ") << PlanEdit([](SchedulerPlan& p) { p.setTriggerFlag(0); });
    QTest::newRow("schemes differ only in status") << PlanEdit([](SchedulerPlan& p) { p.getObjectSchemeAttribute().setStatus(QStringLiteral("Never")); });
    QTest::newRow("tasks differ only in the parameter") << PlanEdit([](SchedulerPlan& p) { p.getObjectTaskAttribute().setOperationParameter(QByteArray("x")); });
    QTest::newRow("triggers differ only in the end flag") << PlanEdit([](SchedulerPlan& p) { p.getObjectTriggerAttribute().setTriggerEndFlag(0); });
    QTest::newRow("start flags differ") << PlanEdit([](SchedulerPlan& p) { p.setStartFlag(0); });
    QTest::newRow("start times differ") << PlanEdit([](SchedulerPlan& p) { p.setStartTime(QStringLiteral("x")); });
    QTest::newRow("end flags differ") << PlanEdit([](SchedulerPlan& p) { p.setEndFlag(0); });
    QTest::newRow("end times differ") << PlanEdit([](SchedulerPlan& p) { p.setEndTime(QStringLiteral("x")); });
    QTest::newRow("next start times differ") << PlanEdit([](SchedulerPlan& p) { p.setNextStartTime(QStringLiteral("x")); });
    QTest::newRow("command action flags differ") << PlanEdit([](SchedulerPlan& p) { p.setCommandActionFlag(0); });
    QTest::newRow("error messages differ") << PlanEdit([](SchedulerPlan& p) { p.setErrorMessage(QStringLiteral("x")); });
    QTest::newRow("error flags differ") << PlanEdit([](SchedulerPlan& p) { p.setWasError(false); });
    QTest::newRow("bytes processed differ") << PlanEdit([](SchedulerPlan& p) { p.setBytesProcessed(1); });
    QTest::newRow("totals differ") << PlanEdit([](SchedulerPlan& p) { p.setTotalBytesToCopy(0); });
    QTest::newRow("cancel flags differ") << PlanEdit([](SchedulerPlan& p) { p.setWasCancelled(false); });
    QTest::newRow("result codes differ") << PlanEdit([](SchedulerPlan& p) { p.setResultCode(0); });
    QTest::newRow("only the running flags differ") << PlanEdit([](SchedulerPlan& p) { p.setIsRunning(false); });
}

void tst_Model::planEqualityCoversEveryField()
{
    QFETCH(PlanEdit, edit);
    SchedulerPlan changed = samplePlan();
    edit(changed);
    QVERIFY(changed != samplePlan());
    QVERIFY(!(changed == samplePlan()));
    QVERIFY(SchedulerPlan(changed) == changed);

    QByteArray bytes;
    CommandBuilder::DataToBytearray(&changed, bytes);
    SchedulerPlan back;
    CommandBuilder::BytearrayToData(bytes, &back);
    QVERIFY(back == changed);
}

void tst_Model::plansSortByCreateTime_data()
{
    QTest::addColumn<QStringList>("createTimes");
    QTest::addColumn<QStringList>("sorted");
    QTest::newRow("a later day sorts after the last second of the day before")
        << QStringList{"2020-01-02 00:00:00", "2020-01-01 23:59:59"}
        << QStringList{"2020-01-01 23:59:59", "2020-01-02 00:00:00"};
    QTest::newRow("hours compare numerically, not as text of a 12-hour clock")
        << QStringList{"2020-01-01 13:00:00", "2020-01-01 02:00:00", "2019-12-31 23:00:00"}
        << QStringList{"2019-12-31 23:00:00", "2020-01-01 02:00:00", "2020-01-01 13:00:00"};
}

void tst_Model::plansSortByCreateTime()
{
    QFETCH(QStringList, createTimes);
    QFETCH(QStringList, sorted);
    QList<SchedulerPlan> plans;
    for (const QString& createTime : createTimes)
        plans.append(samplePlan(createTime));
    std::sort(plans.begin(), plans.end());
    QStringList result;
    for (const SchedulerPlan& plan : plans)
        result.append(plan.getSchemeAttribute().getCreateTime());
    QCOMPARE(result, sorted);

    // Plans created in the same second are equivalent: neither is less.
    const SchedulerPlan first = samplePlan(sorted.first());
    SchedulerPlan twin = first;
    twin.setPlanName(QStringLiteral("twin"));
    QVERIFY(!(first < twin) && !(twin < first));
}

void tst_Model::setOperationDataMakesFreshPlan()
{
    RequestNewOperationData request;
    request.setCreateTime(QStringLiteral("2022-03-04 05:06:07"));
    TaskAttribute task;
    task.setTaskName(QStringLiteral("task_new"));
    request.setTaskAttribute(task);
    TriggerAttribute trigger;
    trigger.setTriggerName(QStringLiteral("trigger_new"));
    trigger.setInterval(3600);
    request.setTriggerAttribute(trigger);

    SchedulerPlan plan = samplePlan();
    plan.SetOperationData(request);

    // Expected: a default plan that keeps the old scheme's other three fields.
    SchedulerPlan expected;
    expected.setSchemeAttribute(sampleScheme(QStringLiteral("2022-03-04 05:06:07")));
    expected.setTaskAttribute(task);
    expected.setTriggerAttribute(trigger);
    QVERIFY(plan == expected);
    QVERIFY(plan.getPlanUuid().isEmpty() && !plan.getPlanUuid().isNull());
    QCOMPARE(plan.getSchemeAttribute().getStatus(), QStringLiteral("Success"));
    QCOMPARE(plan.getSchemeAttribute().getExecutState(), QStringLiteral("Ready"));

    // Built from the request, a plan starts from the default scheme instead.
    expected.setSchemeAttribute(SchemeAttribute());
    expected.getObjectSchemeAttribute().setCreateTime(request.getCreateTime());
    QVERIFY(SchedulerPlan(request) == expected);
}

void tst_Model::relationBytes_data()
{
    QTest::addColumn<QStringList>("uuids");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("an empty list is the null array")
        << QStringList() << hex("00000002 0070  FFFFFFFF");
    QTest::newRow("two uuids sit back to back without a count")
        << QStringList{"a", "b"}
        << hex("00000002 0070  0000000C  00000002 0061  00000002 0062");
}

void tst_Model::relationBytes()
{
    QFETCH(QStringList, uuids);
    QFETCH(QByteArray, bytes);
    PlanJournalRelational relation;
    relation.setPlanUuid(QStringLiteral("p"));
    relation.setJournalUuidList(uuids);
    QCOMPARE(encode(relation), bytes);

    const PlanJournalRelational back = decode<PlanJournalRelational>(bytes);
    QCOMPARE(back.getPlanUuid(), QStringLiteral("p"));
    QCOMPARE(back.getJournalUuidList(), QList<QString>(uuids));
}

void tst_Model::relationReadAppends()
{
    PlanJournalRelational held;
    held.setJournalUuidList({QStringLiteral("x")});

    PlanJournalRelational source;
    source.setPlanUuid(QStringLiteral("p"));
    source.setJournalUuidList({QStringLiteral("a"), QStringLiteral("x")});
    // Reading adds to what the record holds, repeats included.
    QCOMPARE(decode(encode(source), held).getJournalUuidList(),
             (QList<QString>{QStringLiteral("x"), QStringLiteral("a"), QStringLiteral("x")}));
    // An empty list on the wire leaves the held list as it was.
    QCOMPARE(decode(encode(PlanJournalRelational()), held).getJournalUuidList(), QList<QString>{QStringLiteral("x")});
}

void tst_Model::relationInsertAndDelete()
{
    PlanJournalRelational relation;
    QVERIFY(relation.InsertJournalUuid(QStringLiteral("a")));
    QVERIFY(!relation.InsertJournalUuid(QStringLiteral("a")));
    QCOMPARE(relation.getJournalUuidList(), QList<QString>{QStringLiteral("a")});

    relation.setJournalUuidList({QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("a")});
    relation.DeleteJournalUuid(QStringLiteral("a"));
    QCOMPARE(relation.getJournalUuidList(), QList<QString>{QStringLiteral("b")});
    QVERIFY(!relation.ContainsJournalUuid(QStringLiteral("a")) && relation.ContainsJournalUuid(QStringLiteral("b")));
}

QTEST_APPLESS_MAIN(tst_Model)
#include "tst_model.moc"
