#include "planmodel.h"

#include "agentoutput.h"
#include "protocol.h"

#include <QDateTime>
#include <QLocale>

namespace {

QString clockTime(const QDateTime& start)
{
    return start.time().toString(QStringLiteral("hh:mm"));
}

// "1,3,5" as "Mon, Wed, Fri" (1 is Monday).
QString dayNames(const QString& list)
{
    QStringList names;
    for (const QString& day : list.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const int number = day.trimmed().toInt();
        if (number >= 1 && number <= 7)
            names << QLocale().dayName(number, QLocale::ShortFormat);
    }
    return names.join(QStringLiteral(", "));
}

QString monthNames(const QString& list)
{
    QStringList names;
    for (const QString& month : list.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const int number = month.trimmed().toInt();
        if (number >= 1 && number <= 12)
            names << QLocale().monthName(number, QLocale::ShortFormat);
    }
    return names.join(QStringLiteral(", "));
}

// A stored time as a person reads it: "today 16:53", "2030-01-07 18:30".
QString shortTime(const QString& text)
{
    const QDateTime time = QDateTime::fromString(text, TimeText::Format());
    if (!time.isValid())
        return text;
    if (time.date() == QDate::currentDate())
        return PlanModel::tr("today %1").arg(time.toString(QStringLiteral("hh:mm")));
    return time.toString(QStringLiteral("yyyy-MM-dd hh:mm"));
}

QString hours(quint64 seconds)
{
    if (seconds % 3600 == 0)
        return PlanModel::tr("%n h", nullptr, static_cast<int>(seconds / 3600));
    return PlanModel::tr("%n min", nullptr, static_cast<int>(seconds / 60));
}

} // namespace

PlanModel::PlanModel(QObject* parent)
    : QAbstractTableModel(parent)
{
}

int PlanModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_plans.size();
}

int PlanModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant PlanModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QVariant();
    switch (section) {
    case NameColumn: return tr("Name");
    case OperationColumn: return tr("Operation");
    case ScheduleColumn: return tr("Schedule");
    case StatusColumn: return tr("Status");
    case LastRunColumn: return tr("Last run");
    case NextStartColumn: return tr("Next start");
    case ProgressColumn: return tr("Progress");
    default: return QVariant();
    }
}

QVariant PlanModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_plans.size())
        return QVariant();
    const SchedulerPlan& plan = m_plans.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return Display(plan, index.column());
    case Qt::ToolTipRole:
        if (index.column() == StatusColumn && plan.getWasError())
            return plan.getErrorMessage();
        if (index.column() == OperationColumn)
            return QString::fromUtf8(plan.getTaskAttribute().getOperationParameter());
        if (index.column() == ScheduleColumn)
            return ScheduleText(plan.getTriggerAttribute());
        if (index.column() == LastRunColumn)
            return plan.getIsRunning() ? plan.getStartTime() : plan.getEndTime();
        if (index.column() == NextStartColumn)
            return plan.getNextStartTime();
        return QVariant();
    case ProgressRole:
        return plan.getIsRunning() ? Percent(plan) : -1;
    case ProgressKnownRole:
        return plan.getTotalBytesToCopy() > 0;
    case Qt::TextAlignmentRole:
        return index.column() == ProgressColumn ? QVariant(Qt::AlignCenter) : QVariant();
    case SortRole:
        switch (index.column()) {
        case ProgressColumn: return plan.getIsRunning() ? Percent(plan) : -1;
        case LastRunColumn: return plan.getIsRunning() ? plan.getStartTime() : plan.getEndTime();
        case NextStartColumn: return plan.getNextStartTime();
        default: return Display(plan, index.column());
        }
    case UuidRole:
        return plan.getPlanUuid();
    default:
        return QVariant();
    }
}

QVariant PlanModel::Display(const SchedulerPlan& plan, int column) const
{
    switch (column) {
    case NameColumn: return plan.getPlanName();
    case OperationColumn: return plan.getTaskAttribute().getOperationRegisterName();
    case ScheduleColumn: return ScheduleText(plan.getTriggerAttribute());
    case StatusColumn: return StatusText(plan);
    case LastRunColumn: return shortTime(plan.getIsRunning() ? plan.getStartTime() : plan.getEndTime());
    case NextStartColumn: return shortTime(plan.getNextStartTime());
    case ProgressColumn:
        if (!plan.getIsRunning())
            return QString();
        return plan.getTotalBytesToCopy() > 0
            ? tr("%1 of %2").arg(AgentOutput::ByteSize(plan.getBytesProcessed()),
                                 AgentOutput::ByteSize(plan.getTotalBytesToCopy()))
            : tr("running…");
    default: return QVariant();
    }
}

int PlanModel::Percent(const SchedulerPlan& plan)
{
    const quint64 total = plan.getTotalBytesToCopy();
    if (total == 0)
        return 0;
    return static_cast<int>(qMin(plan.getBytesProcessed(), total) * 100 / total);
}

QString PlanModel::StatusText(const SchedulerPlan& plan)
{
    if (plan.getIsRunning())
        return tr("Running");
    if (plan.getSchemeAttribute().getExecutState() == SchedulerProtocol::QueuedState())
        return tr("Queued");
    const QString status = plan.getSchemeAttribute().getStatus();
    return status.isEmpty() ? tr("Not run yet") : status;
}

QString PlanModel::ScheduleText(const TriggerAttribute& trigger)
{
    const QDateTime start = QDateTime::fromString(trigger.getStartTime(), TimeText::Format());
    if (trigger.getStartTime().isEmpty() || !start.isValid())
        return tr("Only when started");
    QString text;
    switch (trigger.getTriggerType()) {
    case 0:
        text = tr("Once on %1 at %2").arg(start.date().toString(Qt::ISODate), clockTime(start));
        break;
    case 1:
        text = tr("Every day at %1").arg(clockTime(start));
        break;
    case 2:
        text = tr("Every %1 at %2")
                   .arg(trigger.getWeekDays().isEmpty() ? QLocale().dayName(start.date().dayOfWeek())
                                                        : dayNames(trigger.getWeekDays()),
                        clockTime(start));
        break;
    case 3: {
        QStringList days;
        if (!trigger.getMonthDays().isEmpty())
            days << trigger.getMonthDays().split(QLatin1Char(',')).join(QStringLiteral(", "));
        if (trigger.getDayLastFlag())
            days << tr("the last day");
        if (days.isEmpty())
            days << QString::number(start.date().day());
        const QString months = trigger.getWhichMoths().isEmpty() ? tr("every month")
                                                                  : monthNames(trigger.getWhichMoths());
        text = tr("On day %1 of %2 at %3").arg(days.join(tr(" and ")), months, clockTime(start));
        break;
    }
    default:
        return tr("Unknown schedule (type %1)").arg(trigger.getTriggerType());
    }
    if (trigger.getInterval() > 0) {
        text += tr(", every %1").arg(hours(trigger.getInterval()));
        if (trigger.getDuration() > 0)
            text += tr(" for %1").arg(hours(trigger.getDuration()));
    }
    if (trigger.getTriggerEndFlag())
        text += tr(", until %1").arg(shortTime(trigger.getEndTime()));
    return text;
}

void PlanModel::SetPlans(const QList<SchedulerPlan>& plans)
{
    beginResetModel();
    m_plans = plans;
    endResetModel();
}

int PlanModel::RowOf(const QString& planUuid) const
{
    for (int row = 0; row < m_plans.size(); ++row) {
        if (m_plans[row].getPlanUuid() == planUuid)
            return row;
    }
    return -1;
}

void PlanModel::Upsert(const SchedulerPlan& plan)
{
    const int row = RowOf(plan.getPlanUuid());
    if (row < 0) {
        beginInsertRows(QModelIndex(), m_plans.size(), m_plans.size());
        m_plans.append(plan);
        endInsertRows();
        return;
    }
    m_plans[row] = plan;
    emit dataChanged(index(row, 0), index(row, ColumnCount - 1));
}

void PlanModel::Remove(const QString& planUuid)
{
    const int row = RowOf(planUuid);
    if (row < 0)
        return;
    beginRemoveRows(QModelIndex(), row, row);
    m_plans.removeAt(row);
    endRemoveRows();
}

void PlanModel::SetNextStart(const QString& planUuid, const QString& nextStart)
{
    const int row = RowOf(planUuid);
    if (row < 0)
        return;
    m_plans[row].setNextStartTime(nextStart);
    emit dataChanged(index(row, NextStartColumn), index(row, NextStartColumn));
}
