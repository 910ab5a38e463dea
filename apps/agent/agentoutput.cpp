#include "agentoutput.h"

#include <QJsonValue>
#include <QSet>

namespace AgentOutput {

namespace {

constexpr int kShortIdLength = 8;
// Shorter keys would too easily name some plan by accident (e.g. a mistyped name).
constexpr int kMinPrefixLength = 4;

QString bare(const QString& uuid)
{
    QString text = uuid;
    if (text.startsWith(QLatin1Char('{')) && text.endsWith(QLatin1Char('}')))
        text = text.mid(1, text.size() - 2);
    return text;
}

// JSON numbers are doubles: values beyond 2^53 travel as decimal text to stay exact.
QJsonValue number(quint64 value)
{
    if (value <= (1ULL << 53))
        return QJsonValue(static_cast<double>(value));
    return QJsonValue(QString::number(value));
}

QString duration(quint64 seconds)
{
    if (seconds % 3600 == 0)
        return QStringLiteral("%1h").arg(seconds / 3600);
    return QStringLiteral("%1s").arg(seconds);
}

} // namespace

QString Escaped(const QString& text)
{
    QString shown;
    shown.reserve(text.size());
    for (const QChar c : text) {
        const ushort code = c.unicode();
        if (c == QLatin1Char('\n'))
            shown += QStringLiteral("\\n");
        else if (c == QLatin1Char('\r'))
            shown += QStringLiteral("\\r");
        else if (c == QLatin1Char('\t'))
            shown += QStringLiteral("\\t");
        else if (code < 0x20 || (code >= 0x7f && code <= 0x9f))
            shown += QStringLiteral("\\x%1").arg(code, 2, 16, QLatin1Char('0'));
        else if (c.category() == QChar::Other_Format)
            shown += QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0'));
        else
            shown += c;
    }
    return shown;
}

QString Elided(const QString& text, int width)
{
    if (text.size() <= width)
        return text;
    int keep = width - 1;
    if (keep > 0 && text.at(keep - 1).isHighSurrogate())
        --keep;   // never split a surrogate pair
    return text.left(keep) + QChar(0x2026);
}

QString Cell(const QString& text)
{
    return Elided(Escaped(text));
}

void Table::AddRow(const QStringList& cells)
{
    QStringList shown;
    for (const QString& cell : cells)
        shown.append(Escaped(cell));
    m_rows.append(shown);
}

QString Table::Render() const
{
    QList<int> widths;
    for (const QStringList& row : m_rows) {
        for (int column = 0; column < row.size(); ++column) {
            if (widths.size() <= column)
                widths.append(0);
            widths[column] = qMax(widths[column], row[column].size());
        }
    }
    QString text;
    for (const QStringList& row : m_rows) {
        QString line;
        for (int column = 0; column < row.size(); ++column) {
            const bool last = column == row.size() - 1;
            line += last ? row[column] : row[column].leftJustified(widths[column] + 2);
        }
        while (line.endsWith(QLatin1Char(' ')))
            line.chop(1);
        text += line + QLatin1Char('\n');
    }
    return text;
}

QStringList ShortIds(const QStringList& uuids)
{
    QStringList bareIds;
    int longest = 0;
    for (const QString& uuid : uuids) {
        bareIds.append(bare(uuid));
        longest = qMax(longest, bareIds.last().size());
    }
    for (int length = kShortIdLength; length < longest; ++length) {
        QSet<QString> seen;
        QStringList cut;
        for (const QString& id : bareIds) {
            cut.append(id.left(length));
            seen.insert(cut.last());
        }
        if (seen.size() == QSet<QString>(bareIds.begin(), bareIds.end()).size())
            return cut;
    }
    return bareIds;
}

bool MatchesUuidPrefix(const QString& uuid, const QString& key)
{
    const QString bareKey = key.startsWith(QLatin1Char('{')) ? key.mid(1) : key;
    if (bareKey.size() < kMinPrefixLength)
        return false;
    const QString text = key.startsWith(QLatin1Char('{')) ? uuid : bare(uuid);
    return text.startsWith(key, Qt::CaseInsensitive);
}

QString ShortTaskName(const QString& taskName)
{
    const QString prefix = QStringLiteral("task_");
    if (!taskName.startsWith(prefix) || !taskName.endsWith(QLatin1Char('}')))
        return taskName;
    return prefix + bare(taskName.mid(prefix.size())).left(kShortIdLength);
}

QString TaskSummary(const TaskAttribute& task)
{
    const QString parameter = QString::fromUtf8(task.getOperationParameter());
    if (parameter.isEmpty())
        return task.getOperationRegisterName();
    return QStringLiteral("%1 %2").arg(task.getOperationRegisterName(), parameter);
}

int ResultCodeOf(const QString& result)
{
    static const QStringList kResults{QStringLiteral("Succeeded"), QStringLiteral("Failed"),
                                      QStringLiteral("Cancelled"), QStringLiteral("Interrupted")};
    return kResults.indexOf(result);
}

QString TriggerSummary(const TriggerAttribute& trigger)
{
    static const QStringList kinds{QStringLiteral("once"), QStringLiteral("daily"), QStringLiteral("weekly"),
                                   QStringLiteral("monthly")};
    if (trigger.getStartTime().isEmpty())
        return QStringLiteral("on demand");
    const quint64 type = trigger.getTriggerType();
    QStringList parts{type < 4 ? kinds[static_cast<int>(type)] : QStringLiteral("type %1").arg(type)};
    parts << QStringLiteral("from %1").arg(trigger.getStartTime());
    if (trigger.getInterval() > 0)
        parts << QStringLiteral("every %1").arg(duration(trigger.getInterval()));
    if (trigger.getDuration() > 0)
        parts << QStringLiteral("for %1").arg(duration(trigger.getDuration()));
    if (!trigger.getWeekDays().isEmpty())
        parts << QStringLiteral("week days %1").arg(trigger.getWeekDays());
    if (!trigger.getWhichMoths().isEmpty())
        parts << QStringLiteral("months %1").arg(trigger.getWhichMoths());
    if (!trigger.getMonthDays().isEmpty())
        parts << QStringLiteral("days %1").arg(trigger.getMonthDays());
    if (trigger.getDayLastFlag())
        parts << QStringLiteral("last day");
    if (trigger.getTriggerEndFlag())
        parts << QStringLiteral("until %1").arg(trigger.getEndTime());
    return parts.join(QStringLiteral(", "));
}

QJsonObject PlanToJson(const SchedulerPlan& plan)
{
    const SchemeAttribute scheme = plan.getSchemeAttribute();
    const TaskAttribute task = plan.getTaskAttribute();
    const TriggerAttribute trigger = plan.getTriggerAttribute();
    const QJsonObject taskJson{
        {QStringLiteral("name"), task.getTaskName()},
        {QStringLiteral("operation"), task.getOperationRegisterName()},
        {QStringLiteral("parameter"), QString::fromUtf8(task.getOperationParameter())}};
    const QJsonObject triggerJson{
        {QStringLiteral("name"), trigger.getTriggerName()},
        {QStringLiteral("type"), number(trigger.getTriggerType())},
        {QStringLiteral("start"), trigger.getStartTime()},
        {QStringLiteral("end"), trigger.getEndTime()},
        {QStringLiteral("hasEnd"), trigger.getTriggerEndFlag() != 0},
        {QStringLiteral("intervalSeconds"), number(trigger.getInterval())},
        {QStringLiteral("durationSeconds"), number(trigger.getDuration())},
        {QStringLiteral("weekDays"), trigger.getWeekDays()},
        {QStringLiteral("months"), trigger.getWhichMoths()},
        {QStringLiteral("monthDays"), trigger.getMonthDays()},
        {QStringLiteral("lastDay"), trigger.getDayLastFlag() != 0}};
    return QJsonObject{
        {QStringLiteral("uuid"), plan.getPlanUuid()},
        {QStringLiteral("name"), plan.getPlanName()},
        {QStringLiteral("status"), scheme.getStatus()},
        {QStringLiteral("executState"), scheme.getExecutState()},
        {QStringLiteral("createTime"), scheme.getCreateTime()},
        {QStringLiteral("latestFinishTime"), scheme.getLatestFinishTime()},
        {QStringLiteral("task"), taskJson},
        {QStringLiteral("trigger"), triggerJson},
        {QStringLiteral("nextStartTime"), plan.getNextStartTime()},
        {QStringLiteral("isRunning"), plan.getIsRunning()},
        {QStringLiteral("startTime"), plan.getStartTime()},
        {QStringLiteral("endTime"), plan.getEndTime()},
        {QStringLiteral("wasError"), plan.getWasError()},
        {QStringLiteral("wasCancelled"), plan.getWasCancelled()},
        {QStringLiteral("errorMessage"), plan.getErrorMessage()},
        {QStringLiteral("resultCode"), number(plan.getResultCode())},
        {QStringLiteral("triggerFlag"), number(plan.getTriggerFlag())},
        {QStringLiteral("bytesProcessed"), number(plan.getBytesProcessed())},
        {QStringLiteral("totalBytesToCopy"), number(plan.getTotalBytesToCopy())}};
}

bool PlanFromJson(const QJsonObject& json, SchedulerPlan& plan, QString& error)
{
    const QJsonObject task = json.value(QStringLiteral("task")).toObject();
    const QJsonObject trigger = json.value(QStringLiteral("trigger")).toObject();
    const QString name = json.value(QStringLiteral("name")).toString();
    if (name.isEmpty() || task.value(QStringLiteral("operation")).toString().isEmpty()) {
        error = QStringLiteral("a plan wants a \"name\" and a \"task\" with an \"operation\"");
        return false;
    }
    auto count = [&](const char* key) -> quint64 {
        const double value = trigger.value(QLatin1String(key)).toDouble(0);
        return value > 0 && value < 18446744073709551616.0 ? static_cast<quint64>(value) : 0;
    };
    plan = SchedulerPlan();
    plan.setPlanUuid(json.value(QStringLiteral("uuid")).toString());
    plan.setPlanName(name);
    plan.getObjectSchemeAttribute().setCreateTime(json.value(QStringLiteral("createTime")).toString());
    TaskAttribute& taskRecord = plan.getObjectTaskAttribute();
    taskRecord.setOperationRegisterName(task.value(QStringLiteral("operation")).toString());
    taskRecord.setOperationParameter(task.value(QStringLiteral("parameter")).toString().toUtf8());
    TriggerAttribute& triggerRecord = plan.getObjectTriggerAttribute();
    triggerRecord.setTriggerType(count("type"));
    triggerRecord.setStartTime(trigger.value(QStringLiteral("start")).toString());
    triggerRecord.setEndTime(trigger.value(QStringLiteral("end")).toString());
    triggerRecord.setTriggerEndFlag(trigger.value(QStringLiteral("hasEnd")).toBool() ? 1 : 0);
    triggerRecord.setInterval(count("intervalSeconds"));
    triggerRecord.setDuration(count("durationSeconds"));
    triggerRecord.setWeekDays(trigger.value(QStringLiteral("weekDays")).toString());
    triggerRecord.setWhichMoths(trigger.value(QStringLiteral("months")).toString());
    triggerRecord.setMonthDays(trigger.value(QStringLiteral("monthDays")).toString());
    triggerRecord.setDayLastFlag(trigger.value(QStringLiteral("lastDay")).toBool() ? 1 : 0);
    return true;
}

QString ByteSize(quint64 bytes)
{
    if (bytes < 1024)
        return QStringLiteral("%1 B").arg(bytes);
    const char* units[] = {"KiB", "MiB", "GiB", "TiB"};
    double value = bytes / 1024.0;
    int unit = 0;
    for (; value >= 1024 && unit < 3; ++unit)
        value /= 1024;
    return QStringLiteral("%1 %2").arg(value, 0, 'f', 1).arg(QLatin1String(units[unit]));
}

QString ProgressText(quint64 done, quint64 total, qint64 elapsedMs)
{
    const qint64 seconds = qMax<qint64>(0, elapsedMs) / 1000;
    const quint64 rate = elapsedMs > 0 ? static_cast<quint64>(done * 1000.0 / elapsedMs) : 0;
    const int percent = total > 0 ? static_cast<int>(qMin<quint64>(done, total) * 100 / total) : 0;
    return QStringLiteral("%1 of %2 (%3%), %4/s, %5:%6")
        .arg(ByteSize(done), ByteSize(total))
        .arg(percent)
        .arg(ByteSize(rate))
        .arg(seconds / 60)
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QJsonObject JournalToJson(const JournalAttribute& journal)
{
    return QJsonObject{
        {QStringLiteral("uuid"), journal.getJournalUuid()},
        {QStringLiteral("planUuid"), journal.getPlanUuid()},
        {QStringLiteral("planName"), journal.getPlanName()},
        {QStringLiteral("taskName"), journal.getTaskName()},
        {QStringLiteral("startTime"), journal.getStartTime()},
        {QStringLiteral("endTime"), journal.getEndTime()},
        {QStringLiteral("createTime"), journal.getCreateTime()},
        {QStringLiteral("timeConsuming"), number(journal.getTimeConsuming())},
        {QStringLiteral("result"), journal.getResult()},
        {QStringLiteral("resultCode"), ResultCodeOf(journal.getResult())},
        {QStringLiteral("errorMessage"), journal.getErrorReason()},
        {QStringLiteral("solution"), journal.getSolution()}};
}

QJsonObject EmailToJson(const EmailConfigAttribute& email)
{
    // The password itself is never printed; whether one is stored is.
    return QJsonObject{
        {QStringLiteral("enable"), number(email.getEnableEmailNotification())},
        {QStringLiteral("recipients"), email.getMailRecipients()},
        {QStringLiteral("smtpServer"), email.getSmtpServerAddress()},
        {QStringLiteral("smtpPort"), email.getSmtpServerPort()},
        {QStringLiteral("encryption"), number(email.getSmtpServerEncryptionType())},
        {QStringLiteral("auth"), number(email.getStmpAuthentication())},
        {QStringLiteral("user"), email.getLoginUserName()},
        {QStringLiteral("passwordSet"), !email.getLoginPassword().isEmpty()},
        {QStringLiteral("sender"), email.getMailSender()},
        {QStringLiteral("subject"), email.getMailSubject()},
        {QStringLiteral("onSuccess"), number(email.getOperationSuccessful())},
        {QStringLiteral("onFailure"), number(email.getOperationFailure())}};
}

QString EmailText(const EmailConfigAttribute& email)
{
    Table table;
    const QString password = email.getLoginPassword().isEmpty() ? QStringLiteral("(none)")
                                                                : QStringLiteral("(set)");
    const QList<QStringList> rows{
        {QStringLiteral("enable"), QString::number(email.getEnableEmailNotification())},
        {QStringLiteral("recipients"), email.getMailRecipients()},
        {QStringLiteral("smtp-server"), email.getSmtpServerAddress()},
        {QStringLiteral("smtp-port"), QString::number(email.getSmtpServerPort())},
        {QStringLiteral("encryption"), QString::number(email.getSmtpServerEncryptionType())},
        {QStringLiteral("auth"), QString::number(email.getStmpAuthentication())},
        {QStringLiteral("user"), email.getLoginUserName()},
        {QStringLiteral("password"), password},
        {QStringLiteral("sender"), email.getMailSender()},
        {QStringLiteral("subject"), email.getMailSubject()},
        {QStringLiteral("on-success"), QString::number(email.getOperationSuccessful())},
        {QStringLiteral("on-failure"), QString::number(email.getOperationFailure())}};
    for (const QStringList& row : rows)
        table.AddRow(row);
    return table.Render();
}

} // namespace AgentOutput
