#include "triggerschedule.h"

#include <QtAlgorithms>

#include <limits>

namespace TriggerSchedule {

const QString TimeFormat = TimeText::Format();

}

namespace {

using namespace TriggerSchedule;

// Intervals and durations are capped at a century of seconds: longer ones behave the same
// for any real plan, and every sum of seconds below stays far inside qint64.
const qint64 MaxSpanSecs = Q_INT64_C(36525) * 86400;
// 29 February recurs after at most 96 months (2096 to 2104 skips 2100), so a monthly
// search looks one month further than that before giving up.
const int MaxMonthsScanned = 97;
const qint64 EpochJulianDay = 2440588;
const qint64 NoFire = std::numeric_limits<qint64>::max();
const quint64 AllMonths = 0x1FFEu;   // bits 1..12

enum class ListState { Empty, Numbers, OutOfRange, NotNumbers };

// A trigger with its text fields read once; day lists are bit masks (bit n = day or month n).
struct Rule
{
    quint64 m_type = Once;
    QDate m_startDate;
    qint64 m_clockSecs = 0;   // the start's wall-clock time as seconds after midnight
    quint64 m_weekDays = 0;
    quint64 m_months = 0;
    quint64 m_monthDays = 0;
    bool m_lastDay = false;
    qint64 m_interval = 0;
    qint64 m_duration = 0;
};

quint64 Bit(int n)
{
    return quint64(1) << n;
}

qint64 ClampSpan(quint64 secs)
{
    return secs > quint64(MaxSpanSecs) ? MaxSpanSecs : qint64(secs);
}

// Reads "1,3,5" into a mask of the values lo..hi; other values are left out of the mask.
// Text that is not comma-separated decimal numbers gives an empty mask.
ListState ReadList(const QString& text, quint64 lo, quint64 hi, quint64& mask)
{
    mask = 0;
    if (text.isEmpty())
        return ListState::Empty;
    ListState state = ListState::Numbers;
    quint64 value = 0;
    int digits = 0;
    for (int i = 0; i <= text.size(); ++i) {
        const QChar c = i < text.size() ? text.at(i) : QLatin1Char(',');
        if (c == QLatin1Char(',')) {
            if (digits == 0) {
                mask = 0;
                return ListState::NotNumbers;
            }
            if (value < lo || value > hi)
                state = ListState::OutOfRange;
            else
                mask |= Bit(int(value));
            value = 0;
            digits = 0;
        } else if (c >= QLatin1Char('0') && c <= QLatin1Char('9')) {
            value = value > hi ? value : value * 10 + quint64(c.unicode() - '0');   // saturates above hi
            ++digits;
        } else {
            mask = 0;
            return ListState::NotNumbers;
        }
    }
    return state;
}

bool ReadDigits(const QString& text, int pos, int count, int& value)
{
    value = 0;
    for (int i = pos; i < pos + count; ++i) {
        const QChar c = text.at(i);
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
        value = value * 10 + (c.unicode() - '0');
    }
    return true;
}

// Reads TimeFormat text into a date and a wall-clock time. Done by hand because
// QDateTime::fromString refuses a wall-clock time that falls into a spring-forward gap.
bool ReadLocalTime(const QString& text, QDate& date, qint64& clockSecs)
{
    if (text.size() != 19 || text.at(4) != QLatin1Char('-') || text.at(7) != QLatin1Char('-')
        || text.at(10) != QLatin1Char(' ') || text.at(13) != QLatin1Char(':')
        || text.at(16) != QLatin1Char(':'))
        return false;
    int year, month, day, hour, minute, second;
    if (!ReadDigits(text, 0, 4, year) || !ReadDigits(text, 5, 2, month) || !ReadDigits(text, 8, 2, day)
        || !ReadDigits(text, 11, 2, hour) || !ReadDigits(text, 14, 2, minute)
        || !ReadDigits(text, 17, 2, second))
        return false;
    date = QDate(year, month, day);
    if (!date.isValid() || !QTime::isValid(hour, minute, second))
        return false;
    clockSecs = hour * 3600 + minute * 60 + second;
    return true;
}

// A wall-clock time as seconds since the epoch, as if local time were UTC.
qint64 WallSecs(const QDate& date, qint64 clockSecs)
{
    return (date.toJulianDay() - EpochJulianDay) * 86400 + clockSecs;
}

// Seconds local time is ahead of UTC at an instant. Goes only from UTC to local time,
// which libc answers the same way every time.
qint64 OffsetAt(qint64 secs)
{
    const QDateTime local = QDateTime::fromSecsSinceEpoch(secs, Qt::LocalTime);
    return WallSecs(local.date(), local.time().msecsSinceStartOfDay() / 1000) - secs;
}

// The instant of a wall-clock time: the first of the two at a fall-back, and in a
// spring-forward gap the same time moved forward by the gap. QDateTime's own answer
// depends on what mktime guessed last, so the offsets a day either side decide.
qint64 LocalInstant(const QDate& date, qint64 clockSecs)
{
    const qint64 wall = WallSecs(date, clockSecs);
    const qint64 before = OffsetAt(wall - 86400);
    const qint64 after = OffsetAt(wall + 86400);
    if (before == after)
        return wall - before;
    const qint64 larger = qMax(before, after);
    const qint64 smaller = qMin(before, after);
    if (OffsetAt(wall - larger) == larger)
        return wall - larger;
    if (OffsetAt(wall - smaller) == smaller)
        return wall - smaller;
    return wall - before;
}

bool ReadInstant(const QString& text, qint64& secs)
{
    QDate date;
    qint64 clockSecs = 0;
    if (!ReadLocalTime(text, date, clockSecs))
        return false;
    secs = LocalInstant(date, clockSecs);
    return true;
}

// Fills in the defaults of empty lists: the start's own weekday, every month, the start's own day.
bool ReadRule(const TriggerAttribute& trigger, Rule& rule)
{
    rule.m_type = trigger.getTriggerType();
    if (rule.m_type > Monthly || !ReadLocalTime(trigger.getStartTime(), rule.m_startDate, rule.m_clockSecs))
        return false;
    if (rule.m_type == Weekly && ReadList(trigger.getWeekDays(), 1, 7, rule.m_weekDays) == ListState::Empty)
        rule.m_weekDays = Bit(rule.m_startDate.dayOfWeek());
    if (rule.m_type == Monthly) {
        if (ReadList(trigger.getWhichMoths(), 1, 12, rule.m_months) == ListState::Empty)
            rule.m_months = AllMonths;
        rule.m_lastDay = trigger.getDayLastFlag() != 0;
        if (ReadList(trigger.getMonthDays(), 1, 31, rule.m_monthDays) == ListState::Empty && !rule.m_lastDay)
            rule.m_monthDays = Bit(rule.m_startDate.day());
    }
    rule.m_interval = ClampSpan(trigger.getInterval());
    rule.m_duration = ClampSpan(trigger.getDuration());
    return true;
}

// The days of a month on which a monthly rule fires, as a mask.
quint64 MonthlyDays(const Rule& rule, const QDate& firstOfMonth)
{
    if (!(rule.m_months & Bit(firstOfMonth.month())))
        return 0;
    const int last = firstOfMonth.daysInMonth();
    quint64 days = rule.m_monthDays & (Bit(last + 1) - 1);
    if (rule.m_lastDay)
        days |= Bit(last);
    return days;
}

QDate NextMonthlyDay(const Rule& rule, const QDate& from)
{
    QDate month(from.year(), from.month(), 1);
    int firstDay = from.day();
    for (int i = 0; i < MaxMonthsScanned; ++i, month = month.addMonths(1), firstDay = 1) {
        const quint64 days = MonthlyDays(rule, month) & ~(Bit(firstDay) - 1);
        if (days)
            return QDate(month.year(), month.month(), int(qCountTrailingZeroBits(days)));
    }
    return QDate();
}

QDate PreviousMonthlyDay(const Rule& rule, const QDate& to)
{
    const QDate startMonth(rule.m_startDate.year(), rule.m_startDate.month(), 1);
    QDate month(to.year(), to.month(), 1);
    int lastDay = to.day();
    for (int i = 0; i < MaxMonthsScanned && month >= startMonth; ++i, month = month.addMonths(-1), lastDay = 31) {
        const quint64 days = MonthlyDays(rule, month) & (Bit(lastDay + 1) - 1);
        if (days) {
            const QDate day(month.year(), month.month(), 63 - int(qCountLeadingZeroBits(days)));
            return day >= rule.m_startDate ? day : QDate();
        }
    }
    return QDate();
}

bool IsWeeklyDay(const Rule& rule, const QDate& day)
{
    return rule.m_type == Daily || (rule.m_weekDays & Bit(day.dayOfWeek()));
}

// The first day on or after `from` (and not before the start) on which the rule fires.
QDate NextDay(const Rule& rule, QDate from)
{
    if (from < rule.m_startDate)
        from = rule.m_startDate;
    if (rule.m_type == Once)
        return from == rule.m_startDate ? from : QDate();
    if (rule.m_type == Monthly)
        return NextMonthlyDay(rule, from);
    for (int i = 0; i < 7; ++i, from = from.addDays(1)) {
        if (IsWeeklyDay(rule, from))
            return from;
    }
    return QDate();
}

// The last day on or before `to` (and not before the start) on which the rule fires.
QDate PreviousDay(const Rule& rule, QDate to)
{
    if (to < rule.m_startDate)
        return QDate();
    if (rule.m_type == Once)
        return rule.m_startDate;
    if (rule.m_type == Monthly)
        return PreviousMonthlyDay(rule, to);
    for (int i = 0; i < 7 && to >= rule.m_startDate; ++i, to = to.addDays(-1)) {
        if (IsWeeklyDay(rule, to))
            return to;
    }
    return QDate();
}

// The first base occurrence after `after`. Starting the day before its local date covers
// a gap that moves an occurrence past midnight; by the day after, any occurrence is later.
qint64 FirstOccurrenceAfter(const Rule& rule, const QDate& today, qint64 after)
{
    QDate day = today.addDays(-1);
    for (int i = 0; i < 3; ++i, day = day.addDays(1)) {
        day = NextDay(rule, day);
        if (!day.isValid())
            return NoFire;
        const qint64 at = LocalInstant(day, rule.m_clockSecs);
        if (at > after)
            return at;
    }
    return NoFire;
}

// The last base occurrence at or before `after`, false when there is none.
bool LastOccurrenceUntil(const Rule& rule, const QDate& today, qint64 after, qint64& at)
{
    QDate day = today;
    for (int i = 0; i < 3; ++i, day = day.addDays(-1)) {
        day = PreviousDay(rule, day);
        if (!day.isValid())
            return false;
        at = LocalInstant(day, rule.m_clockSecs);
        if (at <= after)
            return true;
    }
    return false;
}

// The next repetition of the latest occurrence, when its window still runs after `after`.
qint64 NextRepetition(const Rule& rule, const QDate& today, qint64 after)
{
    qint64 base = 0;
    if (rule.m_interval <= 0 || !LastOccurrenceUntil(rule, today, after, base))
        return NoFire;
    const qint64 offset = ((after - base) / rule.m_interval + 1) * rule.m_interval;
    if (rule.m_duration > 0 && offset >= rule.m_duration)
        return NoFire;
    return base + offset;
}

qint64 FloorSecs(const QDateTime& time)
{
    const qint64 msecs = time.toMSecsSinceEpoch();
    return msecs >= 0 ? msecs / 1000 : -((999 - msecs) / 1000);
}

bool Refuse(QString& reason, const char* text)
{
    reason = QString::fromLatin1(text);
    return false;
}

bool CheckList(const QString& text, quint64 lo, quint64 hi, const char* rangeReason,
               const char* syntaxReason, QString& reason)
{
    quint64 mask = 0;
    switch (ReadList(text, lo, hi, mask)) {
    case ListState::NotNumbers: return Refuse(reason, syntaxReason);
    case ListState::OutOfRange: return Refuse(reason, rangeReason);
    default: return true;
    }
}

// Whether some listed month has some listed day in at least one year (February counts 29).
bool MonthsMeetDays(const TriggerAttribute& trigger, const QDate& startDate)
{
    if (trigger.getDayLastFlag() != 0)
        return true;
    quint64 months = 0;
    quint64 days = 0;
    if (ReadList(trigger.getWhichMoths(), 1, 12, months) == ListState::Empty)
        months = AllMonths;
    if (ReadList(trigger.getMonthDays(), 1, 31, days) == ListState::Empty) {
        if (!startDate.isValid())
            return true;
        days = Bit(startDate.day());
    }
    for (int month = 1; month <= 12; ++month) {
        const int longest = QDate(2000, month, 1).daysInMonth();
        if ((months & Bit(month)) && (days & (Bit(longest + 1) - 1)))
            return true;
    }
    return false;
}

bool CheckTimes(const TriggerAttribute& trigger, QDate& startDate, QString& reason)
{
    qint64 startClock = 0;
    const bool hasStart = !trigger.getStartTime().isEmpty();
    if (hasStart && !ReadLocalTime(trigger.getStartTime(), startDate, startClock))
        return Refuse(reason, "Start time must be empty or a local time written as yyyy-MM-dd hh:mm:ss.");
    if (trigger.getTriggerEndFlag() == 0)
        return true;
    qint64 end = 0;
    if (!ReadInstant(trigger.getEndTime(), end))
        return Refuse(reason, "End time must be a local time written as yyyy-MM-dd hh:mm:ss when the trigger ends.");
    if (hasStart && end < LocalInstant(startDate, startClock))
        return Refuse(reason, "End time must not be before the start time.");
    return true;
}

}

namespace TriggerSchedule {

QDateTime NextFireTime(const TriggerAttribute& trigger, const QDateTime& after)
{
    Rule rule;
    if (!after.isValid() || !ReadRule(trigger, rule))
        return QDateTime();
    const qint64 afterSecs = FloorSecs(after);
    qint64 end = NoFire;
    if (trigger.getTriggerEndFlag() != 0 && ReadInstant(trigger.getEndTime(), end) && afterSecs >= end)
        return QDateTime();
    const QDate today = QDateTime::fromSecsSinceEpoch(afterSecs, Qt::LocalTime).date();
    const qint64 next = qMin(FirstOccurrenceAfter(rule, today, afterSecs),
                             NextRepetition(rule, today, afterSecs));
    if (next == NoFire || next > end)
        return QDateTime();
    return QDateTime::fromSecsSinceEpoch(next, Qt::LocalTime);
}

bool Validate(const TriggerAttribute& trigger, QString& reason)
{
    reason.clear();
    if (trigger.getTriggerType() > Monthly)
        return Refuse(reason, "Trigger type must be 0 (once), 1 (daily), 2 (weekly) or 3 (monthly).");
    // The library reads these columns back as 32-bit numbers: larger values would not survive a load.
    if (trigger.getInterval() > 0xFFFFFFFFu || trigger.getDuration() > 0xFFFFFFFFu)
        return Refuse(reason, "Interval and duration must be at most 4294967295 seconds.");
    if (trigger.getDayLastFlag() > 1 || trigger.getTriggerEndFlag() > 1)
        return Refuse(reason, "The last-day and end flags must be 0 or 1.");
    QDate startDate;
    if (!CheckTimes(trigger, startDate, reason)
        || !CheckList(trigger.getWeekDays(), 1, 7, "Week days must be numbers from 1 (Monday) to 7 (Sunday).",
                      "Week days must be comma-separated numbers.", reason)
        || !CheckList(trigger.getWhichMoths(), 1, 12, "Months must be numbers from 1 to 12.",
                      "Months must be comma-separated numbers.", reason)
        || !CheckList(trigger.getMonthDays(), 1, 31, "Month days must be numbers from 1 to 31.",
                      "Month days must be comma-separated numbers.", reason))
        return false;
    if (trigger.getTriggerType() == Monthly && !MonthsMeetDays(trigger, startDate))
        return Refuse(reason, "Month days must fall in at least one of the months, or the trigger never fires.");
    return true;
}

}
