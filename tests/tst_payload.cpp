#include <backupframe.h>

#include <QDataStream>
#include <QtTest>

#include <functional>
#include <memory>

namespace {

const quint64 kAbove63 = Q_UINT64_C(0x8000000000000001);

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

JournalAttribute journal(const QString& uuid)
{
    JournalAttribute journal;
    journal.setJournalUuid(uuid);
    journal.setPlanUuid(QStringLiteral("{plan}"));
    journal.setTimeConsuming(kAbove63);
    journal.setCommandActionFlag(Q_UINT64_C(0xFFFFFFFFFFFFFFFF));
    journal.setExecutionState(QStringLiteral("Done"));
    return journal;
}

SchedulerPlan plan(const QString& uuid)
{
    SchedulerPlan plan;
    plan.setPlanUuid(uuid);
    plan.setPlanName(QStringLiteral("plan ") + uuid);
    plan.getObjectSchemeAttribute().setStatus(QStringLiteral("Success"));
    plan.getObjectTaskAttribute().setOperationParameter(QByteArray("\x00\x01", 2));
    plan.getObjectTriggerAttribute().setInterval(kAbove63);
    plan.setBytesProcessed(Q_UINT64_C(0xFFFFFFFFFFFFFFFF));
    plan.setWasCancelled(true);
    plan.setIsRunning(true);
    return plan;
}

QStringList journalUuids(const QList<JournalAttribute*>& list)
{
    QStringList uuids;
    for (const JournalAttribute* item : list)
        uuids.append(item ? item->getJournalUuid() : QStringLiteral("<null>"));
    return uuids;
}

QStringList planUuids(const QList<SchedulerPlan*>& list)
{
    QStringList uuids;
    for (const SchedulerPlan* item : list)
        uuids.append(item ? item->getPlanUuid() : QStringLiteral("<null>"));
    return uuids;
}

EmailConfigAttribute emailConfig()
{
    EmailConfigAttribute config;
    config.setEnableEmailNotification(kAbove63);
    config.setMailRecipients(QStringLiteral("a@x.org;b@x.org"));
    config.setSmtpServerAddress(QStringLiteral("smtp.x.org"));
    config.setSmtpServerPort(65535);
    config.setSmtpServerEncryptionType(2);
    config.setStmpAuthentication(1);
    config.setLoginUserName(QStringLiteral("user"));
    config.setLoginPassword(QByteArray("\x00pa\xffss", 6));
    config.setMailSender(QStringLiteral("backup@x.org"));
    config.setMailSubject(QStringLiteral("Backup \u00e9t\u00e9"));
    config.setOperationSuccessful(Q_UINT64_C(0xFFFFFFFFFFFFFFFF));
    config.setOperationFailure(1);
    return config;
}

using Factory = std::function<CommandObj*()>;

} // namespace

Q_DECLARE_METATYPE(Factory)

class tst_Payload : public QObject
{
    Q_OBJECT

private slots:
    void emptyListIsNullArray_data();
    void emptyListIsNullArray();
    void nullOrEmptyArrayLeavesListAlone();
    void stringListDropsRepeatsOnRead();
    void stringListReadAppendsOnlyNewStrings();
    void nullDefaultsTravelAsNull_data();
    void nullDefaultsTravelAsNull();
    void requestStringKeepsNullAndEmptyApart();
    void triggerExecuteInfoBytes();
    void emailConfigUpdateRoundTrip();
    void planDataIsThePlanEncoding();
    void journalsRoundTrip();
    void journalListSkipsNullPointers();
    void journalReadAppends();
    void schedulersRoundTrip();
    void listAssignmentReplacesAndSurvivesSelf();
    void setListCopiesAndCallerKeepsOwnership();
    void objectListTakesOwnership();
    void newOperationDefaults();
    void newOperationRoundTrip();
    void dialogTrigger_data();
    void dialogTrigger();
};

void tst_Payload::emptyListIsNullArray_data()
{
    QTest::addColumn<Factory>("make");
    QTest::newRow("an empty string list") << Factory([] { return new QstringListData; });
    QTest::newRow("an empty journal list") << Factory([] { return new ResultLoadJournalsData; });
    QTest::newRow("an empty plan list") << Factory([] { return new ResultLoadSchedulersData; });
    QTest::newRow("a plan list holding only a null pointer") << Factory([] {
        auto* data = new ResultLoadSchedulersData;
        data->getObjectActionPlansList().append(nullptr);
        return data;
    });
}

void tst_Payload::emptyListIsNullArray()
{
    QFETCH(Factory, make);
    std::unique_ptr<CommandObj> data(make());
    QCOMPARE(encode(data.get()), hex("FFFFFFFF"));
}

void tst_Payload::nullOrEmptyArrayLeavesListAlone()
{
    QstringListData strings;
    strings.setQstringList({QStringLiteral("keep")});
    CommandBuilder::BytearrayToData(hex("FFFFFFFF"), &strings);
    CommandBuilder::BytearrayToData(hex("00000000"), &strings);
    QCOMPARE(strings.getQstringList(), QList<QString>{QStringLiteral("keep")});

    ResultLoadJournalsData journals;
    journals.getObjectJournalAttrList().append(new JournalAttribute(journal(QStringLiteral("keep"))));
    CommandBuilder::BytearrayToData(hex("FFFFFFFF"), &journals);
    CommandBuilder::BytearrayToData(hex("00000000"), &journals);
    QCOMPARE(journalUuids(journals.getJournalAttrList()), QStringList{"keep"});
}

void tst_Payload::stringListDropsRepeatsOnRead()
{
    QstringListData data;
    data.setQstringList({QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("a")});
    // All three strings are written; the array holds them back to back.
    const QByteArray bytes = hex("00000012  00000002 0061  00000002 0062  00000002 0061");
    QCOMPARE(encode(&data), bytes);

    QstringListData back;
    CommandBuilder::BytearrayToData(bytes, &back);
    QCOMPARE(back.getQstringList(), (QList<QString>{QStringLiteral("a"), QStringLiteral("b")}));
}

void tst_Payload::stringListReadAppendsOnlyNewStrings()
{
    QstringListData target;
    target.setQstringList({QStringLiteral("b")});
    CommandBuilder::BytearrayToData(hex("00000012  00000002 0061  00000002 0062  00000002 0063"), &target);
    QCOMPARE(target.getQstringList(),
             (QList<QString>{QStringLiteral("b"), QStringLiteral("a"), QStringLiteral("c")}));
}

void tst_Payload::nullDefaultsTravelAsNull_data()
{
    QTest::addColumn<Factory>("make");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("a fresh string request is three null markers")
        << Factory([] { return new RequestStringData; }) << hex("FFFFFFFF FFFFFFFF FFFFFFFF");
    QTest::newRow("a fresh minizip request is one null marker")
        << Factory([] { return new RequestMinizipData; }) << hex("FFFFFFFF");
}

void tst_Payload::nullDefaultsTravelAsNull()
{
    QFETCH(Factory, make);
    QFETCH(QByteArray, bytes);
    std::unique_ptr<CommandObj> data(make());
    QCOMPARE(encode(data.get()), bytes);
}

void tst_Payload::requestStringKeepsNullAndEmptyApart()
{
    RequestStringData data;
    data.setStringValue(QLatin1String(""));
    data.setDstRemotePwd(QByteArray("\x00\xff", 2));
    QCOMPARE(encode(&data), hex("00000000  FFFFFFFF  00000002 00FF"));

    RequestStringData back;
    back.setDstRemoteUser(QStringLiteral("overwritten"));
    CommandBuilder::BytearrayToData(encode(&data), &back);
    const RequestStringData copy(back);
    QVERIFY(copy.getStringValue().isEmpty() && !copy.getStringValue().isNull());
    QVERIFY(copy.getDstRemoteUser().isNull());
    QCOMPARE(copy.getDstRemotePwd(), QByteArray("\x00\xff", 2));
}

void tst_Payload::triggerExecuteInfoBytes()
{
    RequestTriggerExecuteInfoData data;
    // The next start time starts empty, not null.
    QCOMPARE(encode(&data), hex("00000000  0000000000000000"));

    data.setNextStartTime(QStringLiteral("1"));
    data.setTriggerEndFlag(kAbove63);
    QCOMPARE(encode(&data), hex("00000002 0031  8000000000000001"));
    RequestTriggerExecuteInfoData back;
    CommandBuilder::BytearrayToData(encode(&data), &back);
    QCOMPARE(back.getNextStartTime(), QStringLiteral("1"));
    QCOMPARE(back.getTriggerEndFlag(), kAbove63);
}

void tst_Payload::emailConfigUpdateRoundTrip()
{
    // The field order itself is pinned by the settings tests; here the payload
    // must carry the record unchanged, 64-bit and 16-bit values included.
    RequestEmailConfigUpdateData data;
    data.setEmailConfigAttribute(emailConfig());
    RequestEmailConfigUpdateData back;
    CommandBuilder::BytearrayToData(encode(&data), &back);
    QCOMPARE(encode(&back), encode(&data));
    QCOMPARE(back.getObjectEmailConfigAttribute().getSmtpServerPort(), quint16(65535));
    QCOMPARE(back.getEmailConfigAttribute().getLoginPassword(), QByteArray("\x00pa\xffss", 6));
}

void tst_Payload::planDataIsThePlanEncoding()
{
    SchedulerPlan source = plan(QStringLiteral("{p}"));
    SchedulerPlanData data;
    data.setSchedulerPlan(source);
    QCOMPARE(encode(&data), encode(&source));

    SchedulerPlanData back;
    CommandBuilder::BytearrayToData(encode(&data), &back);
    QVERIFY(back.getRfrnSchedulerPlan() == source);
    QCOMPARE(back.getRfrnSchedulerPlan().getBytesProcessed(), Q_UINT64_C(0xFFFFFFFFFFFFFFFF));
}

void tst_Payload::journalsRoundTrip()
{
    JournalAttribute first = journal(QStringLiteral("1"));
    JournalAttribute second = journal(QStringLiteral("2"));
    ResultLoadJournalsData data;
    data.setJournalAttrList({&first, &second});

    // One byte array holding the two journals back to back, without a count.
    ResultLoadJournalsData one;
    one.setJournalAttrList({&first});
    const QByteArray bytes = encode(&data);
    const int journalSize = encode(&one).size() - 4;
    QCOMPARE(bytes.left(4), hex("000000A4"));     // 2 x 82 bytes
    QCOMPARE(bytes.size(), 4 + 2 * journalSize);

    ResultLoadJournalsData back;
    CommandBuilder::BytearrayToData(bytes, &back);
    QCOMPARE(back.getJournalAttrList().size(), 2);
    QVERIFY(*back.getJournalAttrList().at(0) == first);
    QVERIFY(*back.getJournalAttrList().at(1) == second);
}

void tst_Payload::journalListSkipsNullPointers()
{
    ResultLoadJournalsData data;
    data.getObjectJournalAttrList() << new JournalAttribute(journal(QStringLiteral("1"))) << nullptr
                                    << new JournalAttribute(journal(QStringLiteral("2")));
    ResultLoadJournalsData back;
    CommandBuilder::BytearrayToData(encode(&data), &back);
    QCOMPARE(journalUuids(back.getJournalAttrList()), (QStringList{"1", "2"}));

    // A copy carries the null entry along and destroys cleanly.
    const ResultLoadJournalsData copy(data);
    QCOMPARE(journalUuids(copy.getJournalAttrList()), (QStringList{"1", "<null>", "2"}));
}

void tst_Payload::journalReadAppends()
{
    ResultLoadJournalsData source;
    source.getObjectJournalAttrList() << new JournalAttribute(journal(QStringLiteral("c")));
    ResultLoadJournalsData target;
    target.getObjectJournalAttrList() << new JournalAttribute(journal(QStringLiteral("a")))
                                      << new JournalAttribute(journal(QStringLiteral("b")));
    JournalAttribute* const firstHeld = target.getJournalAttrList().first();
    CommandBuilder::BytearrayToData(encode(&source), &target);
    QCOMPARE(journalUuids(target.getJournalAttrList()), (QStringList{"a", "b", "c"}));
    QCOMPARE(target.getJournalAttrList().first(), firstHeld);
}

void tst_Payload::schedulersRoundTrip()
{
    ResultLoadSchedulersData data;
    data.getObjectActionPlansList() << new SchedulerPlan(plan(QStringLiteral("1")))
                                    << new SchedulerPlan(plan(QStringLiteral("2")));
    ResultLoadSchedulersData back;
    back.getObjectActionPlansList() << new SchedulerPlan(plan(QStringLiteral("0")));
    CommandBuilder::BytearrayToData(encode(&data), &back);
    QCOMPARE(planUuids(back.getActionPlansList()), (QStringList{"0", "1", "2"}));
    QVERIFY(*back.getActionPlansList().at(1) == plan(QStringLiteral("1")));
    QVERIFY(*back.getActionPlansList().at(2) == plan(QStringLiteral("2")));
}

void tst_Payload::listAssignmentReplacesAndSurvivesSelf()
{
    ResultLoadSchedulersData target;
    target.getObjectActionPlansList() << new SchedulerPlan(plan(QStringLiteral("old1")))
                                      << new SchedulerPlan(plan(QStringLiteral("old2")));
    ResultLoadSchedulersData source;
    source.getObjectActionPlansList() << new SchedulerPlan(plan(QStringLiteral("new")));
    target = source;
    QCOMPARE(planUuids(target.getActionPlansList()), QStringList{"new"});
    QVERIFY(target.getActionPlansList().first() != source.getActionPlansList().first());

    const QList<SchedulerPlan*> before = target.getActionPlansList();
    ResultLoadSchedulersData& alias = target;
    target = alias;
    QCOMPARE(target.getActionPlansList(), before);
    QVERIFY(*target.getActionPlansList().first() == plan(QStringLiteral("new")));

    ResultLoadJournalsData journals;
    journals.getObjectJournalAttrList() << new JournalAttribute(journal(QStringLiteral("1")));
    ResultLoadJournalsData& journalAlias = journals;
    journals = journalAlias;
    QCOMPARE(journalUuids(journals.getJournalAttrList()), QStringList{"1"});
    journals = ResultLoadJournalsData();
    QVERIFY(journals.getJournalAttrList().isEmpty());
}

void tst_Payload::setListCopiesAndCallerKeepsOwnership()
{
    // The caller's objects live on the stack: the record deleting them would crash.
    SchedulerPlan first = plan(QStringLiteral("1"));
    ResultLoadSchedulersData data;
    data.getObjectActionPlansList() << new SchedulerPlan(plan(QStringLiteral("old")));
    data.setActionPlansList({&first, &first});
    QCOMPARE(planUuids(data.getActionPlansList()), (QStringList{"1", "1"}));
    QVERIFY(data.getActionPlansList().at(0) != &first);
    QVERIFY(data.getActionPlansList().at(0) != data.getActionPlansList().at(1));

    // Copies are deep: changing one leaves the other alone.
    ResultLoadSchedulersData copy(data);
    copy.getActionPlansList().first()->setPlanName(QStringLiteral("changed"));
    QCOMPARE(data.getActionPlansList().first()->getPlanName(), QStringLiteral("plan 1"));

    // Setting the record's own pointers again must not read what it just deleted.
    data.setActionPlansList(data.getActionPlansList());
    QVERIFY(*data.getActionPlansList().at(1) == first);

    JournalAttribute held = journal(QStringLiteral("j"));
    ResultLoadJournalsData journals;
    journals.setJournalAttrList({&held});
    journals.setJournalAttrList(journals.getObjectJournalAttrList());
    const ResultLoadJournalsData journalCopy(journals);
    QVERIFY(journalCopy.getJournalAttrList().first() != journals.getJournalAttrList().first());
    QVERIFY(*journalCopy.getJournalAttrList().first() == held);
}

void tst_Payload::objectListTakesOwnership()
{
    // Objects appended through the reference are freed by the record (the
    // sanitizer build reports a leak otherwise).
    auto* data = new ResultLoadJournalsData;
    data->getObjectJournalAttrList() << new JournalAttribute << new JournalAttribute;
    const QByteArray bytes = encode(data);
    CommandBuilder::BytearrayToData(bytes, data);
    QCOMPARE(data->getJournalAttrList().size(), 4);
    CommandObj* asBase = data;
    delete asBase;
}

void tst_Payload::newOperationDefaults()
{
    const RequestNewOperationData data;
    QCOMPARE(data.getCreateTime().size(), 19);
    const QDateTime parsed = QDateTime::fromString(data.getCreateTime(), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    QVERIFY2(parsed.isValid(), qPrintable(data.getCreateTime()));
    QVERIFY(qAbs(parsed.secsTo(QDateTime::currentDateTime())) < 60);
    QCOMPARE(data.getBackupNowLater(), quint64(0));
}

void tst_Payload::newOperationRoundTrip()
{
    RequestNewOperationData data;
    data.setCreateTime(QStringLiteral("2020-01-02 03:04:05"));
    data.getObjectTaskAttribute().setOperationParameter(QByteArray("\x00\x01", 2));
    data.getObjectTriggerAttribute().setTriggerEndFlag(kAbove63);
    data.setBackupNowLater(Q_UINT64_C(0xFFFFFFFFFFFFFFFF));

    RequestNewOperationData back;
    CommandBuilder::BytearrayToData(encode(&data), &back);
    QCOMPARE(back.getCreateTime(), QStringLiteral("2020-01-02 03:04:05"));
    QVERIFY(back.getTaskAttribute() == data.getTaskAttribute());
    QVERIFY(back.getTriggerAttribute() == data.getTriggerAttribute());
    QCOMPARE(back.getBackupNowLater(), Q_UINT64_C(0xFFFFFFFFFFFFFFFF));
    // The number comes last, after the create time, the task and the trigger.
    QCOMPARE(encode(&data).right(8), hex("FFFFFFFFFFFFFFFF"));
    QCOMPARE(encode(&data).left(4), hex("00000026"));
}

void tst_Payload::dialogTrigger_data()
{
    // Dialog fields: type, start, end, interval hours, duration hours, week days,
    // months, month days, day-last flag. Numbers: type, interval, duration, day-last.
    QTest::addColumn<QStringList>("dialog");
    QTest::addColumn<QList<quint64>>("numbers");
    QTest::newRow("hours become seconds and a word becomes 0")
        << QStringList{"3", "s", "e", "2", "abc", "1,2", "3,4", "5,6", "1"}
        << QList<quint64>{3, 7200, 0, 1};
    QTest::newRow("hexadecimal and negative texts are no numbers, a plus sign is allowed")
        << QStringList{"0x10", "", "", "-1", "+2", "", "", "", "x"}
        << QList<quint64>{0, 0, 7200, 0};
    QTest::newRow("texts beyond 32 bits are no numbers")
        << QStringList{"4294967295", "", "", "4294967295", "4294967296", "", "", "", "4294967296"}
        << QList<quint64>{4294967295u, Q_UINT64_C(4294967295) * 3600, 0, 0};
}

void tst_Payload::dialogTrigger()
{
    QFETCH(QStringList, dialog);
    QFETCH(QList<quint64>, numbers);
    SchedulerDialogData record;
    record.setTriggerType(dialog.at(0));
    record.setStartTime(dialog.at(1));
    record.setEndTime(dialog.at(2));
    record.setIntervalHours(dialog.at(3));
    record.setDurationHours(dialog.at(4));
    record.setWeekDays(dialog.at(5));
    record.setMonths(dialog.at(6));
    record.setMonthDays(dialog.at(7));
    record.setDayLastFlag(dialog.at(8));

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
