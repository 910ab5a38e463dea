#include "triggeroptions.h"

#include "agentoptions.h"

#include <QDateTime>

#include <algorithm>
#include <climits>
#include <functional>

namespace {

const QString kTimeFormat = TimeText::Format();
// Hours become seconds in 32 bits inside the conversion: keep the product in range.
constexpr uint kMaxHours = 1000000;

bool checkNumber(const QString& text, uint max, QString& normalised)
{
    bool ok = false;
    const uint value = text.trimmed().toUInt(&ok, 10);
    if (!ok || value > max)
        return false;
    normalised = QString::number(value);
    return true;
}

// "5, 1,3,1" -> "1,3,5" when every part is a number in [1, max]: ascending, each once.
bool checkList(const QString& text, quint64 max, QString& normalised)
{
    QList<quint64> values;
    for (const QString& part : text.split(QLatin1Char(','))) {
        bool ok = false;
        const uint value = part.trimmed().toUInt(&ok, 10);
        if (!ok || value < 1 || value > max)
            return false;
        values.append(value);
    }
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
    CommonTools::ListToString(values, normalised);
    return true;
}

bool checkTime(const QString& text, QString& normalised)
{
    const QDateTime time = QDateTime::fromString(text.trimmed(), kTimeFormat);
    if (!time.isValid())
        return false;
    normalised = time.toString(kTimeFormat);
    return true;
}

} // namespace

bool TriggerOptions::Parse(const AgentOptions& options, QString& error)
{
    if (!ParseValues(options, error))
        return false;
    for (const char* flag : {"no-end", "last-day", "no-last-day"}) {
        if (options.IsSet(QString::fromLatin1(flag)))
            m_given.insert(QString::fromLatin1(flag), QStringLiteral("1"));
    }
    if ((Given("end") && Given("no-end")) || (Given("last-day") && Given("no-last-day"))) {
        error = QStringLiteral("contradicting trigger options");
        return false;
    }
    if (Given("start") && Given("end")
        && QDateTime::fromString(Text("end"), kTimeFormat) < QDateTime::fromString(Text("start"), kTimeFormat)) {
        error = QStringLiteral("--end is before --start");
        return false;
    }
    return true;
}

bool TriggerOptions::ParseValues(const AgentOptions& options, QString& error)
{
    struct Check {
        const char* name;
        std::function<bool(const QString&, QString&)> check;
        const char* expected;
    };
    const QList<Check> checks{
        {"type", [](const QString& t, QString& n) { return checkNumber(t, UINT_MAX, n); }, "a number"},
        {"start", checkTime, "a time \"yyyy-MM-dd hh:mm:ss\""},
        {"end", checkTime, "a time \"yyyy-MM-dd hh:mm:ss\""},
        {"interval", [](const QString& t, QString& n) { return checkNumber(t, kMaxHours, n); }, "hours (0 to 1000000)"},
        {"duration", [](const QString& t, QString& n) { return checkNumber(t, kMaxHours, n); }, "hours (0 to 1000000)"},
        {"week-days", [](const QString& t, QString& n) { return checkList(t, 7, n); }, "a list of days 1 to 7"},
        {"months", [](const QString& t, QString& n) { return checkList(t, 12, n); }, "a list of months 1 to 12"},
        {"month-days", [](const QString& t, QString& n) { return checkList(t, 31, n); }, "a list of days 1 to 31"}};
    for (const Check& check : checks) {
        const QString name = QString::fromLatin1(check.name);
        if (!options.IsSet(name))
            continue;
        QString normalised;
        if (!check.check(options.Value(name), normalised)) {
            error = QStringLiteral("--%1 wants %2, not '%3'").arg(name, QString::fromLatin1(check.expected),
                                                                    options.Value(name));
            return false;
        }
        m_given.insert(name, normalised);
    }
    return true;
}

bool TriggerOptions::Given(const char* name) const
{
    return m_given.contains(QString::fromLatin1(name));
}

QString TriggerOptions::Text(const char* name) const
{
    return m_given.value(QString::fromLatin1(name));
}

SchedulerDialogData TriggerOptions::Dialog() const
{
    SchedulerDialogData dialog;
    dialog.setTriggerType(Given("type") ? Text("type") : QStringLiteral("0"));
    dialog.setStartTime(Text("start"));
    dialog.setEndTime(Text("end"));
    dialog.setIntervalHours(Given("interval") ? Text("interval") : QStringLiteral("0"));
    dialog.setDurationHours(Given("duration") ? Text("duration") : QStringLiteral("0"));
    dialog.setWeekDays(Text("week-days"));
    dialog.setMonths(Text("months"));
    dialog.setMonthDays(Text("month-days"));
    dialog.setDayLastFlag(Given("last-day") ? QStringLiteral("1") : QStringLiteral("0"));
    return dialog;
}

void TriggerOptions::FillNew(RequestNewOperationData& data) const
{
    data.GetDialogTrigger(Dialog());
    data.getObjectTriggerAttribute().setTriggerEndFlag(Given("end") ? 1 : 0);
}

void TriggerOptions::ApplyTo(TriggerAttribute& trigger) const
{
    RequestNewOperationData converted;
    converted.GetDialogTrigger(Dialog());
    const TriggerAttribute wanted = converted.getTriggerAttribute();
    if (Given("type"))
        trigger.setTriggerType(wanted.getTriggerType());
    if (Given("start"))
        trigger.setStartTime(wanted.getStartTime());
    if (Given("end") || Given("no-end")) {
        trigger.setEndTime(wanted.getEndTime());
        trigger.setTriggerEndFlag(Given("end") ? 1 : 0);
    }
    if (Given("interval"))
        trigger.setInterval(wanted.getInterval());
    if (Given("duration"))
        trigger.setDuration(wanted.getDuration());
    if (Given("week-days"))
        trigger.setWeekDays(wanted.getWeekDays());
    if (Given("months"))
        trigger.setWhichMoths(wanted.getWhichMoths());
    if (Given("month-days"))
        trigger.setMonthDays(wanted.getMonthDays());
    if (Given("last-day") || Given("no-last-day"))
        trigger.setDayLastFlag(wanted.getDayLastFlag());
}
