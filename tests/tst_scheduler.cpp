// The scheduler service in-process, on a clock that runs a day in a second: plans
// fire by themselves at their instants, missed occurrences follow the configured rule,
// a plan still running when due is skipped, and the run queue keeps its limit.
#include "runcontroller.h"
#include "schedulerservice.h"
#include "triggerschedule.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

constexpr double kDayInASecond = 86400.0;

QDateTime at(const char* text)
{
    return QDateTime::fromString(QString::fromLatin1(text), TriggerSchedule::TimeFormat);
}

RequestNewOperationData newPlan(const char* operation, quint64 type, const char* start, quint64 interval = 0,
                                const char* end = nullptr, const QByteArray& parameter = QByteArray())
{
    RequestNewOperationData data;
    data.getObjectTaskAttribute().setOperationRegisterName(QString::fromLatin1(operation));
    data.getObjectTaskAttribute().setOperationParameter(parameter);
    TriggerAttribute& trigger = data.getObjectTriggerAttribute();
    trigger.setTriggerType(type);
    trigger.setStartTime(QString::fromLatin1(start));
    trigger.setInterval(interval);
    if (end) {
        trigger.setEndTime(QString::fromLatin1(end));
        trigger.setTriggerEndFlag(1);
    }
    return data;
}

} // namespace

class tst_Scheduler : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void plansFireAtTheirInstantsUntilTheEnd();
    void missedOccurrencesFollowTheRule_data();
    void missedOccurrencesFollowTheRule();
    void aPlanStillRunningWhenDueIsSkipped();
    void runsQueueBehindTheParallelLimit();
    void listingKeepsCreationOrderWithinOneSecond();
    void journalsArePrunedAfterEachRun_data();
    void journalsArePrunedAfterEachRun();

private:
    std::unique_ptr<SchedulerService> Service(const Clock& clock, int missedRule = 2, int parallel = 1,
                                              int keepDays = 0, int keepPerPlan = 0);
    QList<JournalAttribute> Journals(SchedulerService& service, const QString& planUuid = QString());

    std::unique_ptr<QTemporaryDir> m_dir;
    SchedulerDatabase m_database;
};

void tst_Scheduler::initTestCase()
{
    // The daylight-saving night of the schedules below is Berlin's; ctest sets the zone.
    QVERIFY2(qgetenv("TZ") == "Europe/Berlin", "run with TZ=Europe/Berlin (ctest sets it)");
}

void tst_Scheduler::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_database.Init(m_dir->filePath(QStringLiteral("plans.db"))));
    QString error;
    QVERIFY2(m_database.PrepareRunTable(error), qPrintable(error));
}

void tst_Scheduler::cleanup()
{
    m_database.UnInit();
    m_dir.reset();
}

std::unique_ptr<SchedulerService> tst_Scheduler::Service(const Clock& clock, int missedRule, int parallel,
                                                        int keepDays, int keepPerPlan)
{
    SchedulerService::Settings settings;
    settings.journalKeepDays = keepDays;
    settings.journalKeepPerPlan = keepPerPlan;
    settings.missedRule = missedRule;
    settings.parallelRuns = parallel;
    settings.emailFile = m_dir->filePath(QStringLiteral("email.ini"));
    std::unique_ptr<SchedulerService> service(new SchedulerService(m_database, settings, clock));
    return service->Start() ? std::move(service) : nullptr;
}

QList<JournalAttribute> tst_Scheduler::Journals(SchedulerService& service, const QString& planUuid)
{
    QList<JournalAttribute> journals;
    if (service.LoadJournals(planUuid, journals) != SchedulerProtocol::NoError)
        qWarning("journals: %s", qPrintable(m_database.LastError()));
    return journals;
}

void tst_Scheduler::plansFireAtTheirInstantsUntilTheEnd()
{
    // Half a day before the first start: far more than any delay between here and CreatePlan.
    const ScaledClock clock(at("2026-03-26 14:00:00"), kDayInASecond);
    auto service = Service(clock);
    QVERIFY(service);
    QString uuid;
    QCOMPARE(service->CreatePlan(QStringLiteral("nightly"),
                                 newPlan("noop", TriggerSchedule::Daily, "2026-03-27 02:00:00", 0, "2026-03-29 23:00:00"),
                                 uuid), SchedulerProtocol::NoError);
    QCOMPARE(service->Store().Find(uuid)->getNextStartTime(), QStringLiteral("2026-03-27 02:00:00"));
    QStringList nextAfterEachRun;
    connect(service.get(), &SchedulerService::runFinished, this, [&](const QString& planUuid) {
        nextAfterEachRun << service->Store().Find(planUuid)->getNextStartTime();
    });

    // The night of 29 March has no 02:00 in Berlin; it fires at 03:00 summer time, then the end stops it.
    QTRY_COMPARE_WITH_TIMEOUT(Journals(*service).size(), 3, 20000);
    QCOMPARE(nextAfterEachRun, (QStringList{"2026-03-28 02:00:00", "2026-03-29 03:00:00", ""}));
    QStringList results;
    for (const JournalAttribute& journal : Journals(*service))
        results << journal.getResult();
    QCOMPARE(results, (QStringList{"Succeeded", "Succeeded", "Succeeded"}));
    QTRY_VERIFY_WITH_TIMEOUT(!service->IsBusy(uuid), 5000);
    const SchedulerPlan* plan = service->Store().Find(uuid);
    QCOMPARE(plan->getNextStartTime(), QString());
    QCOMPARE(plan->getTriggerFlag(), quint64(SchedulerProtocol::ScheduledRun));
    QCOMPARE(m_database.LastError(), QString());
    QCOMPARE(service->Store().RunRow(uuid).lastFireTime, QStringLiteral("2026-03-29 03:00:00"));
}

void tst_Scheduler::missedOccurrencesFollowTheRule_data()
{
    QTest::addColumn<int>("rule");
    QTest::addColumn<QString>("journal");   // the result of the one journal, empty: none

    QTest::newRow("0 ignores them") << 0 << QString();
    QTest::newRow("1 journals them as skipped") << 1 << "Skipped";
    QTest::newRow("2 runs once to catch up") << 2 << "Succeeded";
}

void tst_Scheduler::missedOccurrencesFollowTheRule()
{
    QFETCH(int, rule);
    QFETCH(QString, journal);
    QString uuid;
    {
        const ScaledClock before(at("2026-01-05 12:00:00"), 1);
        auto service = Service(before, rule);
        QVERIFY(service);
        QCOMPARE(service->CreatePlan(QStringLiteral("daily"), newPlan("noop", TriggerSchedule::Daily, "2026-01-05 20:00:00"),
                                     uuid), SchedulerProtocol::NoError);
    }
    // Four evenings pass while the service is down.
    const ScaledClock after(at("2026-01-08 21:00:00"), 1);
    auto service = Service(after, rule);
    QVERIFY(service);
    if (journal.isEmpty()) {
        QCOMPARE(Journals(*service).size(), 0);
    } else {
        QTRY_COMPARE_WITH_TIMEOUT(Journals(*service).size(), 1, 10000);
        QCOMPARE(Journals(*service).first().getResult(), journal);
    }
    if (rule == 1)
        QVERIFY2(Journals(*service).first().getErrorReason().contains("4 occurrences from 2026-01-05 20:00:00"),
                 qPrintable(Journals(*service).first().getErrorReason()));
    QTRY_VERIFY_WITH_TIMEOUT(!service->IsBusy(uuid), 5000);
    QCOMPARE(service->Store().Find(uuid)->getNextStartTime(), QStringLiteral("2026-01-09 20:00:00"));
    // Handled up to the restart: a second restart misses nothing more.
    service.reset();
    service = Service(after, rule);
    QCOMPARE(Journals(*service).size(), journal.isEmpty() ? 0 : 1);
}

void tst_Scheduler::aPlanStillRunningWhenDueIsSkipped()
{
    const ScaledClock clock(at("2026-01-05 09:59:00"), 60);   // a minute per second
    auto service = Service(clock);
    QVERIFY(service);
    QString uuid;
    QCOMPARE(service->CreatePlan(QStringLiteral("long"),
                                 newPlan("sleep", TriggerSchedule::Once, "2026-01-05 10:00:00", 60, nullptr, "600000"),
                                 uuid), SchedulerProtocol::NoError);
    QTRY_VERIFY_WITH_TIMEOUT(Journals(*service).size() >= 1, 10000);
    const JournalAttribute skipped = Journals(*service).first();
    QCOMPARE(skipped.getResult(), QStringLiteral("Skipped"));
    QCOMPARE(skipped.getErrorReason(), QStringLiteral("The plan was still running when it was due at 2026-01-05 10:01:00."));
    QVERIFY(!skipped.getSolution().isEmpty());
    QVERIFY(service->IsBusy(uuid));
    QCOMPARE(service->Cancel(uuid), SchedulerProtocol::NoError);
    QTRY_VERIFY_WITH_TIMEOUT(!service->IsBusy(uuid), 5000);
}

void tst_Scheduler::runsQueueBehindTheParallelLimit()
{
    const Clock clock;
    auto service = Service(clock, 2, 1);
    QVERIFY(service);
    QString first, second;
    QCOMPARE(service->CreatePlan("first", newPlan("sleep", 0, "", 0, nullptr, "600000"), first), SchedulerProtocol::NoError);
    QCOMPARE(service->CreatePlan("second", newPlan("noop", 0, ""), second), SchedulerProtocol::NoError);
    QCOMPARE(service->RunNow(first), SchedulerProtocol::NoError);
    QCOMPARE(service->RunNow(second), SchedulerProtocol::NoError);
    QCOMPARE(service->RunNow(second), SchedulerProtocol::PlanBusy);
    QCOMPARE(service->Store().Find(second)->getSchemeAttribute().getExecutState(), QStringLiteral("Queued"));
    QVERIFY(service->Store().Find(first)->getIsRunning());

    // The first ends cancelled; the second starts only then.
    QCOMPARE(service->Cancel(first), SchedulerProtocol::NoError);
    QTRY_COMPARE_WITH_TIMEOUT(Journals(*service).size(), 2, 10000);
    QCOMPARE(Journals(*service, first).first().getResult(), QStringLiteral("Cancelled"));
    QCOMPARE(Journals(*service, second).first().getResult(), QStringLiteral("Succeeded"));
}

void tst_Scheduler::listingKeepsCreationOrderWithinOneSecond()
{
    const ScaledClock clock(at("2026-01-05 12:00:00"), 0.000001);   // stands still
    auto service = Service(clock);
    QVERIFY(service);
    QStringList created;
    for (const char* createTime : {"2026-01-05 12:00:01", "2026-01-05 12:00:00", "2026-01-05 12:00:01",
                                   "2026-01-05 12:00:00", "not a time"}) {
        RequestNewOperationData data = newPlan("noop", 0, "");
        data.setCreateTime(QString::fromLatin1(createTime));
        QString uuid;
        QCOMPARE(service->CreatePlan(QString::fromLatin1(createTime), data, uuid), SchedulerProtocol::NoError);
        created << uuid;
    }
    const QStringList expected{created[4], created[1], created[3], created[0], created[2]};
    for (int pass = 0; pass < 2; ++pass) {
        QStringList listed;
        for (const SchedulerPlan* plan : service->Store().Ordered())
            listed << plan->getPlanUuid();
        QCOMPARE(listed, expected);
        QList<SchedulerPlan> sorted;
        for (const SchedulerPlan* plan : service->Store().Ordered())
            sorted << *plan;
        QVERIFY(std::is_sorted(sorted.begin(), sorted.end()));
        service.reset();   // and the same after a restart
        service = Service(clock);
    }
}

void tst_Scheduler::journalsArePrunedAfterEachRun_data()
{
    QTest::addColumn<int>("keepDays");
    QTest::addColumn<int>("keepPerPlan");
    QTest::addColumn<int>("clockAheadDays");   // the service's clock against the journals' real times
    QTest::addColumn<int>("kept");             // of the plan that ran three times

    QTest::newRow("no limits keep all") << 0 << 0 << 0 << 3;
    QTest::newRow("a count keeps the newest") << 0 << 2 << 0 << 2;
    QTest::newRow("an age keeps the recent") << 30 << 0 << 0 << 3;
    QTest::newRow("an age drops the old") << 30 << 0 << 31 << 0;
}

void tst_Scheduler::journalsArePrunedAfterEachRun()
{
    QFETCH(int, keepDays);
    QFETCH(int, keepPerPlan);
    QFETCH(int, clockAheadDays);
    QFETCH(int, kept);
    const ScaledClock clock(QDateTime::currentDateTime().addDays(clockAheadDays), 1);
    auto service = Service(clock, 2, 1, keepDays, keepPerPlan);
    QVERIFY(service);
    QString often, once;
    QCOMPARE(service->CreatePlan("often", newPlan("noop", 0, ""), often), SchedulerProtocol::NoError);
    QCOMPARE(service->CreatePlan("once", newPlan("noop", 0, ""), once), SchedulerProtocol::NoError);
    QCOMPARE(service->RunNow(once), SchedulerProtocol::NoError);
    QTRY_VERIFY_WITH_TIMEOUT(!service->IsBusy(once), 5000);
    for (int run = 0; run < 3; ++run) {
        QCOMPARE(service->RunNow(often), SchedulerProtocol::NoError);
        QTRY_VERIFY_WITH_TIMEOUT(!service->IsBusy(often), 5000);
    }
    const QList<JournalAttribute> journals = Journals(*service, often);
    QCOMPARE(journals.size(), kept);
    // Another plan's journals are not its business (the age rule applies to them at their own runs).
    QCOMPARE(Journals(*service, once).size(), clockAheadDays ? 0 : 1);
}

QTEST_GUILESS_MAIN(tst_Scheduler)
#include "tst_scheduler.moc"
