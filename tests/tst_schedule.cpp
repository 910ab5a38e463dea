#include "triggerschedule.h"

#include <QtTest>

#include <limits>

Q_DECLARE_METATYPE(TriggerAttribute)

using namespace TriggerSchedule;

namespace {

const quint64 Largest = std::numeric_limits<quint64>::max();

// A trigger built field by field, so that a table row names only the fields it uses.
struct Trigger
{
    TriggerAttribute m_attribute;

    Trigger(quint64 type, const QString& start)
    {
        m_attribute.setTriggerType(type);
        m_attribute.setStartTime(start);
    }
    Trigger& every(quint64 interval, quint64 duration = 0)
    {
        m_attribute.setInterval(interval);
        m_attribute.setDuration(duration);
        return *this;
    }
    Trigger& until(const QString& end, quint64 endFlag = 1)
    {
        m_attribute.setEndTime(end);
        m_attribute.setTriggerEndFlag(endFlag);
        return *this;
    }
    Trigger& onWeekDays(const QString& days) { m_attribute.setWeekDays(days); return *this; }
    Trigger& inMonths(const QString& months) { m_attribute.setWhichMoths(months); return *this; }
    Trigger& onMonthDays(const QString& days) { m_attribute.setMonthDays(days); return *this; }
    Trigger& onLastDay() { m_attribute.setDayLastFlag(1); return *this; }
    operator TriggerAttribute() const { return m_attribute; }
};

// A Berlin wall-clock time; a " +02" suffix picks one instance of a repeated hour.
QDateTime at(const QString& text)
{
    if (text.isEmpty())
        return QDateTime();
    const QDateTime wall = QDateTime::fromString(text.left(19), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    if (text.size() == 19)
        return wall;
    const int offsetHours = text.mid(20, 3).toInt();
    return QDateTime(wall.date(), wall.time(), Qt::OffsetFromUTC, offsetHours * 3600);
}

QString describe(const QDateTime& time)
{
    return time.isValid() ? time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODate)
                          : QStringLiteral("never");
}

}

class tst_Schedule : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void nextFireTime_data();
    void nextFireTime();
    void repeatedCallsWalkTheSchedule();
    void validate_data();
    void validate();
};

void tst_Schedule::initTestCase()
{
    QCOMPARE(qgetenv("TZ"), QByteArray("Europe/Berlin"));
    QCOMPARE(at("2026-03-29 03:30:00").offsetFromUtc(), 7200);
}

void tst_Schedule::nextFireTime_data()
{
    QTest::addColumn<TriggerAttribute>("trigger");
    QTest::addColumn<QString>("after");
    QTest::addColumn<QString>("expected");   // empty: never fires again

    const Trigger once(Once, "2026-05-10 08:00:00");
    QTest::newRow("once a second before its start fires at the start") << TriggerAttribute(once) << "2026-05-10 07:59:59" << "2026-05-10 08:00:00";
    QTest::newRow("once does not fire again at its start") << TriggerAttribute(once) << "2026-05-10 08:00:00" << "";
    QTest::newRow("once with an interval repeats forever") << TriggerAttribute(Trigger(once).every(3600)) << "2027-12-15 12:30:00" << "2027-12-15 13:00:00";

    const Trigger daily(Daily, "2026-01-10 23:30:00");
    QTest::newRow("daily does not fire before its start date") << TriggerAttribute(daily) << "2026-01-05 23:45:00" << "2026-01-10 23:30:00";
    QTest::newRow("daily after its time moves into the next month") << TriggerAttribute(daily) << "2026-01-31 23:30:00" << "2026-02-01 23:30:00";
    QTest::newRow("daily after its time moves into the next year") << TriggerAttribute(daily) << "2026-12-31 23:45:00" << "2027-01-01 23:30:00";
    QTest::newRow("daily before its time fires the same day") << TriggerAttribute(daily) << "2026-07-04 00:00:00" << "2026-07-04 23:30:00";

    const Trigger mondayFriday = Trigger(Weekly, "2026-01-05 09:00:00").onWeekDays("1,5");
    QTest::newRow("weekly goes from Monday to Friday") << TriggerAttribute(mondayFriday) << "2026-01-05 09:00:00" << "2026-01-09 09:00:00";
    QTest::newRow("weekly wraps from Friday to Monday") << TriggerAttribute(mondayFriday) << "2026-01-09 09:00:00" << "2026-01-12 09:00:00";
    QTest::newRow("weekly on Sunday skips the Sunday before its start") << TriggerAttribute(Trigger(Weekly, "2026-01-05 09:00:00").onWeekDays("7")) << "2026-01-01 00:00:00" << "2026-01-11 09:00:00";
    QTest::newRow("weekly without days keeps the start's weekday") << TriggerAttribute(Trigger(Weekly, "2026-01-08 07:00:00")) << "2026-01-08 07:00:00" << "2026-01-15 07:00:00";

    const Trigger lastDay = Trigger(Monthly, "2026-01-31 06:00:00").onLastDay();
    QTest::newRow("monthly without days keeps the 31st and skips April") << TriggerAttribute(Trigger(Monthly, "2026-01-31 12:00:00")) << "2026-03-31 12:00:00" << "2026-05-31 12:00:00";
    QTest::newRow("monthly on the 31st skips February") << TriggerAttribute(Trigger(Monthly, "2026-01-31 12:00:00").onMonthDays("31")) << "2026-01-31 12:00:00" << "2026-03-31 12:00:00";
    QTest::newRow("monthly on the 30th and 31st fires on 30 April") << TriggerAttribute(Trigger(Monthly, "2026-03-31 12:00:00").onMonthDays("30,31")) << "2026-03-31 12:00:00" << "2026-04-30 12:00:00";
    QTest::newRow("monthly days listed out of order fire in order") << TriggerAttribute(Trigger(Monthly, "2026-01-01 08:00:00").onMonthDays("20,5")) << "2026-01-05 08:00:00" << "2026-01-20 08:00:00";
    QTest::newRow("monthly last day in a leap February is the 29th") << TriggerAttribute(lastDay) << "2028-01-31 06:00:00" << "2028-02-29 06:00:00";
    QTest::newRow("monthly last day in a common February is the 28th") << TriggerAttribute(lastDay) << "2027-01-31 06:00:00" << "2027-02-28 06:00:00";
    QTest::newRow("monthly in March and November wraps to next March") << TriggerAttribute(Trigger(Monthly, "2026-01-15 08:00:00").inMonths("11,3")) << "2026-11-15 08:00:00" << "2027-03-15 08:00:00";
    QTest::newRow("29 February only waits eight years across 2100") << TriggerAttribute(Trigger(Monthly, "2096-02-29 00:00:00").inMonths("2").onMonthDays("29")) << "2096-02-29 00:00:00" << "2104-02-29 00:00:00";

    const Trigger quarterHours = Trigger(Daily, "2026-01-01 10:00:00").every(900, 3600);
    const Trigger sevenHours = Trigger(Daily, "2026-01-01 10:00:00").every(7 * 3600);
    QTest::newRow("every 15 minutes for an hour repeats inside the hour") << TriggerAttribute(quarterHours) << "2026-01-03 10:20:00" << "2026-01-03 10:30:00";
    QTest::newRow("every 15 minutes for an hour stops before the hour is full") << TriggerAttribute(quarterHours) << "2026-01-03 10:45:00" << "2026-01-04 10:00:00";
    QTest::newRow("repetition without duration runs past midnight") << TriggerAttribute(sevenHours) << "2026-01-02 17:00:00" << "2026-01-03 00:00:00";
    QTest::newRow("repetition without duration stops at the next occurrence") << TriggerAttribute(sevenHours) << "2026-01-03 07:00:00" << "2026-01-03 10:00:00";
    QTest::newRow("repetition restarts from each occurrence") << TriggerAttribute(sevenHours) << "2026-01-03 10:00:00" << "2026-01-03 17:00:00";

    QTest::newRow("end time stops the schedule") << TriggerAttribute(Trigger(daily).until("2026-01-12 09:00:00")) << "2026-01-11 23:30:00" << "";
    QTest::newRow("a fire exactly at the end time happens") << TriggerAttribute(Trigger(daily).until("2026-01-12 23:30:00")) << "2026-01-11 23:30:00" << "2026-01-12 23:30:00";
    QTest::newRow("end time also stops repetitions") << TriggerAttribute(Trigger(quarterHours).until("2026-01-05 10:20:00")) << "2026-01-05 10:15:00" << "";
    QTest::newRow("end time without the end flag is ignored") << TriggerAttribute(Trigger(daily).until("2026-01-12 09:00:00", 0)) << "2026-01-20 12:00:00" << "2026-01-20 23:30:00";
    QTest::newRow("unreadable end time is ignored") << TriggerAttribute(Trigger(daily).until("soon")) << "2026-01-20 12:00:00" << "2026-01-20 23:30:00";

    QTest::newRow("unknown type never fires") << TriggerAttribute(Trigger(4, "2026-01-01 10:00:00")) << "2025-12-01 00:00:00" << "";
    QTest::newRow("empty start never fires") << TriggerAttribute(Trigger(Daily, "")) << "2025-12-01 00:00:00" << "";
    QTest::newRow("impossible start date never fires") << TriggerAttribute(Trigger(Daily, "2026-02-30 10:00:00")) << "2025-12-01 00:00:00" << "";

    const Trigger gap(Daily, "2026-03-27 02:30:00");
    const Trigger overlap(Daily, "2026-10-20 02:30:00");
    QTest::newRow("daily inside the spring gap fires an hour later") << TriggerAttribute(gap) << "2026-03-28 02:30:00" << "2026-03-29 03:30:00";
    QTest::newRow("daily after the spring gap is back on its time") << TriggerAttribute(gap) << "2026-03-29 03:30:00" << "2026-03-30 02:30:00";
    QTest::newRow("once starting inside the spring gap fires after it") << TriggerAttribute(Trigger(Once, "2026-03-29 02:30:00")) << "2026-03-29 00:00:00" << "2026-03-29 03:30:00";
    QTest::newRow("daily in the repeated hour fires at the first instance") << TriggerAttribute(overlap) << "2026-10-24 02:30:00" << "2026-10-25 02:30:00 +02";
    QTest::newRow("daily does not fire again at the second instance") << TriggerAttribute(overlap) << "2026-10-25 02:30:00 +02" << "2026-10-26 02:30:00";
    QTest::newRow("repetition across the spring change keeps absolute hours") << TriggerAttribute(Trigger(Daily, "2026-03-20 01:00:00").every(7200)) << "2026-03-29 01:00:00" << "2026-03-29 04:00:00";
    QTest::newRow("repetition across the autumn change keeps absolute hours") << TriggerAttribute(Trigger(Daily, "2026-10-20 01:00:00").every(7200)) << "2026-10-25 01:00:00" << "2026-10-25 02:00:00 +01";

    QTest::newRow("an interval of 2^63-1 seconds does not wrap around") << TriggerAttribute(Trigger(daily).every(quint64(std::numeric_limits<qint64>::max()))) << "2026-01-10 23:30:00" << "2026-01-11 23:30:00";
    QTest::newRow("largest interval leaves the daily time alone") << TriggerAttribute(Trigger(daily).every(Largest)) << "2026-01-10 23:30:00" << "2026-01-11 23:30:00";
    QTest::newRow("largest duration repeats until the next occurrence") << TriggerAttribute(Trigger(Daily, "2026-01-01 10:00:00").every(3600, Largest)) << "2026-01-02 08:30:00" << "2026-01-02 09:00:00";
}

void tst_Schedule::nextFireTime()
{
    QFETCH(TriggerAttribute, trigger);
    QFETCH(QString, after);
    QFETCH(QString, expected);

    const QDateTime next = NextFireTime(trigger, at(after));
    QVERIFY2(next == at(expected), qPrintable(describe(next) + " instead of " + describe(at(expected))));
    if (next.isValid())
        QCOMPARE(next.toString(TimeFormat), expected.left(19));
}

void tst_Schedule::repeatedCallsWalkTheSchedule()
{
    const TriggerAttribute trigger = Trigger(Weekly, "2026-01-05 09:00:00").onWeekDays("3,1").every(1800, 3600);
    const QStringList expected = {"2026-01-05 09:00:00", "2026-01-05 09:30:00", "2026-01-07 09:00:00",
                                  "2026-01-07 09:30:00", "2026-01-12 09:00:00"};
    QStringList walked;
    QDateTime time = at("2026-01-01 00:00:00");
    while (walked.size() < expected.size() && (time = NextFireTime(trigger, time)).isValid())
        walked << time.toString(TimeFormat);
    QCOMPARE(walked, expected);
}

void tst_Schedule::validate_data()
{
    QTest::addColumn<TriggerAttribute>("trigger");
    QTest::addColumn<QString>("field");   // how the reason starts; empty: the trigger is valid

    const Trigger daily(Daily, "2026-01-05 09:00:00");
    QTest::newRow("a trigger without start time runs on demand") << TriggerAttribute(Trigger(Weekly, "")) << "";
    QTest::newRow("a start inside the spring gap is accepted") << TriggerAttribute(Trigger(Once, "2026-03-29 02:30:00")) << "";
    QTest::newRow("a duration without interval is accepted") << TriggerAttribute(Trigger(daily).every(0, 3600)) << "";
    QTest::newRow("an end equal to the start is accepted") << TriggerAttribute(Trigger(daily).until("2026-01-05 09:00:00")) << "";
    QTest::newRow("an unflagged end is not looked at") << TriggerAttribute(Trigger(daily).until("never", 0)) << "";
    QTest::newRow("29 February alone is accepted") << TriggerAttribute(Trigger(Monthly, "2026-01-01 00:00:00").inMonths("2").onMonthDays("29")) << "";
    QTest::newRow("February with the last-day flag is accepted") << TriggerAttribute(Trigger(Monthly, "2026-01-31 00:00:00").inMonths("2").onLastDay()) << "";
    QTest::newRow("type 4 is unknown") << TriggerAttribute(Trigger(4, "2026-01-05 09:00:00")) << "Trigger type";
    QTest::newRow("an interval past 32 bits is refused") << TriggerAttribute(Trigger(daily).every(Q_UINT64_C(0x100000000), 0)) << "Interval";
    QTest::newRow("a start in ISO form is refused") << TriggerAttribute(Trigger(Daily, "2026-01-05T09:00:00")) << "Start time";
    QTest::newRow("an impossible start date is refused") << TriggerAttribute(Trigger(Daily, "2026-02-29 09:00:00")) << "Start time";
    QTest::newRow("a flagged end that does not parse is refused") << TriggerAttribute(Trigger(daily).until("")) << "End time";
    QTest::newRow("an end before the start is refused") << TriggerAttribute(Trigger(daily).until("2026-01-05 08:59:59")) << "End time";
    QTest::newRow("week day 0 is refused") << TriggerAttribute(Trigger(daily).onWeekDays("0,1")) << "Week days";
    QTest::newRow("week day 8 is refused") << TriggerAttribute(Trigger(daily).onWeekDays("8")) << "Week days";
    QTest::newRow("week days with a trailing comma are refused") << TriggerAttribute(Trigger(daily).onWeekDays("1,3,")) << "Week days";
    QTest::newRow("a huge week day does not wrap around") << TriggerAttribute(Trigger(daily).onWeekDays("18446744073709551617")) << "Week days";
    QTest::newRow("month 13 is refused") << TriggerAttribute(Trigger(daily).inMonths("12,13")) << "Months";
    QTest::newRow("months separated by semicolons are refused") << TriggerAttribute(Trigger(daily).inMonths("1;2")) << "Months";
    QTest::newRow("month day 32 is refused") << TriggerAttribute(Trigger(daily).onMonthDays("32")) << "Month days";
    QTest::newRow("a signed month day is refused") << TriggerAttribute(Trigger(daily).onMonthDays("-1")) << "Month days";
    QTest::newRow("February and April never have a 31st") << TriggerAttribute(Trigger(Monthly, "2026-01-01 00:00:00").inMonths("2,4").onMonthDays("31")) << "Month days";
    QTest::newRow("a start on the 31st never falls in February") << TriggerAttribute(Trigger(Monthly, "2026-01-31 00:00:00").inMonths("2")) << "Month days";
}

void tst_Schedule::validate()
{
    QFETCH(TriggerAttribute, trigger);
    QFETCH(QString, field);

    QString reason = QStringLiteral("stale");
    const bool valid = Validate(trigger, reason);
    QCOMPARE(valid, field.isEmpty());
    if (valid)
        QCOMPARE(reason, QString());
    else
        QVERIFY2(reason.startsWith(field + ' ') && reason.endsWith('.'), qPrintable(reason));
}

QTEST_GUILESS_MAIN(tst_Schedule)

#include "tst_schedule.moc"
