#include "scheduleeditor.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QRegularExpression>
#include <QSpinBox>

namespace {

constexpr int kSecondsPerHour = 3600;

// Shows or hides a row of a form: the field and its label.
void setRowVisible(QWidget* field, bool visible)
{
    field->setVisible(visible);
    auto* form = qobject_cast<QFormLayout*>(field->parentWidget()->layout());
    if (QWidget* label = form ? form->labelForField(field) : nullptr)
        label->setVisible(visible);
}

QDateTimeEdit* timeEdit(const QString& name, const QDateTime& time, QWidget* parent)
{
    auto* edit = new QDateTimeEdit(time, parent);
    edit->setObjectName(name);
    edit->setDisplayFormat(QStringLiteral("yyyy-MM-dd hh:mm"));
    edit->setCalendarPopup(true);
    return edit;
}

QHBoxLayout* rowLayout(QWidget* row)
{
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    return layout;
}

} // namespace

ScheduleEditor::ScheduleEditor(QWidget* parent)
    : QGroupBox(tr("When"), parent)
{
    m_kind = new QComboBox(this);
    m_kind->setObjectName(QStringLiteral("kind"));
    m_kind->addItems({tr("Only when I start it"), tr("Once"), tr("Every day"), tr("Every week"), tr("Every month")});
    m_start = timeEdit(QStringLiteral("start"), QDateTime::currentDateTime().addSecs(kSecondsPerHour), this);

    auto* form = new QFormLayout(this);
    form->addRow(tr("&Run:"), m_kind);
    form->addRow(tr("S&tarting:"), m_start);
    form->addRow(tr("On:"), BuildWeekRow());
    form->addRow(tr("In:"), BuildMonthRow());
    form->addRow(QString(), BuildRepeatRow());
    form->addRow(QString(), BuildEndRow());
    connect(m_kind, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &ScheduleEditor::OnKindChanged);
    connect(m_repeat, &QCheckBox::toggled, this, &ScheduleEditor::OnKindChanged);
    connect(m_hasEnd, &QCheckBox::toggled, this, &ScheduleEditor::OnKindChanged);
    OnKindChanged();
}

QWidget* ScheduleEditor::BuildWeekRow()
{
    m_weekPart = new QWidget(this);
    QHBoxLayout* week = rowLayout(m_weekPart);
    for (int day = 1; day <= 7; ++day) {
        auto* check = new QCheckBox(QLocale().dayName(day, QLocale::ShortFormat), m_weekPart);
        check->setObjectName(QStringLiteral("weekDay%1").arg(day));
        m_weekDays.append(check);
        week->addWidget(check);
    }
    return m_weekPart;
}

QWidget* ScheduleEditor::BuildMonthRow()
{
    m_monthPart = new QWidget(this);
    auto* month = new QGridLayout(m_monthPart);
    month->setContentsMargins(0, 0, 0, 0);
    for (int number = 1; number <= 12; ++number) {
        auto* check = new QCheckBox(QLocale().monthName(number, QLocale::ShortFormat), m_monthPart);
        check->setObjectName(QStringLiteral("month%1").arg(number));
        check->setChecked(true);
        m_months.append(check);
        month->addWidget(check, (number - 1) / 6, (number - 1) % 6);
    }
    m_monthDays = new QLineEdit(m_monthPart);
    m_monthDays->setObjectName(QStringLiteral("monthDays"));
    m_monthDays->setPlaceholderText(tr("days, e.g. 1,15"));
    m_lastDay = new QCheckBox(tr("and the &last day of the month"), m_monthPart);
    m_lastDay->setObjectName(QStringLiteral("lastDay"));
    month->addWidget(m_monthDays, 2, 0, 1, 3);
    month->addWidget(m_lastDay, 2, 3, 1, 3);
    return m_monthPart;
}

QWidget* ScheduleEditor::BuildRepeatRow()
{
    auto* row = new QWidget(this);
    QHBoxLayout* repeat = rowLayout(row);
    m_repeat = new QCheckBox(tr("Re&peat every"), row);
    m_repeat->setObjectName(QStringLiteral("repeat"));
    m_interval = new QSpinBox(row);
    m_interval->setObjectName(QStringLiteral("interval"));
    m_interval->setRange(1, 24 * 31);
    m_interval->setSuffix(tr(" h"));
    m_duration = new QSpinBox(row);
    m_duration->setObjectName(QStringLiteral("duration"));
    m_duration->setRange(0, 24 * 366);
    m_duration->setSuffix(tr(" h"));
    m_duration->setSpecialValueText(tr("until the next start"));
    repeat->addWidget(m_repeat);
    repeat->addWidget(m_interval);
    repeat->addWidget(new QLabel(tr("for"), row));
    repeat->addWidget(m_duration);
    repeat->addStretch();
    return row;
}

QWidget* ScheduleEditor::BuildEndRow()
{
    auto* row = new QWidget(this);
    QHBoxLayout* end = rowLayout(row);
    m_hasEnd = new QCheckBox(tr("Stop a&fter"), row);
    m_hasEnd->setObjectName(QStringLiteral("hasEnd"));
    m_end = timeEdit(QStringLiteral("end"), QDateTime::currentDateTime().addDays(365), row);
    end->addWidget(m_hasEnd);
    end->addWidget(m_end);
    end->addStretch();
    return row;
}

QList<QWidget*> ScheduleEditor::TabChain() const
{
    QList<QWidget*> chain{m_kind, m_start};
    for (QCheckBox* day : m_weekDays)
        chain << day;
    for (QCheckBox* month : m_months)
        chain << month;
    chain << m_monthDays << m_lastDay << m_repeat << m_interval << m_duration << m_hasEnd << m_end;
    return chain;
}

void ScheduleEditor::OnKindChanged()
{
    const int kind = m_kind->currentIndex();
    m_start->setEnabled(kind != OnDemand);
    // Only the days that the kind of schedule asks for are on show.
    setRowVisible(m_weekPart, kind == Weekly);
    setRowVisible(m_monthPart, kind == Monthly);
    m_repeat->setEnabled(kind != OnDemand);
    m_interval->setEnabled(kind != OnDemand && m_repeat->isChecked());
    m_duration->setEnabled(kind != OnDemand && m_repeat->isChecked());
    m_hasEnd->setEnabled(kind > Once);
    m_end->setEnabled(kind > Once && m_hasEnd->isChecked());
}

void ScheduleEditor::SetTrigger(const TriggerAttribute& trigger)
{
    const QDateTime start = QDateTime::fromString(trigger.getStartTime(), TimeText::Format());
    m_kind->setCurrentIndex(start.isValid() ? static_cast<int>(qMin<quint64>(trigger.getTriggerType(), 3)) + 1 : OnDemand);
    if (start.isValid())
        m_start->setDateTime(start);
    const QStringList days = trigger.getWeekDays().split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (int i = 0; i < m_weekDays.size(); ++i)
        m_weekDays[i]->setChecked(days.contains(QString::number(i + 1)));
    const QStringList months = trigger.getWhichMoths().split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (int i = 0; i < m_months.size(); ++i)
        m_months[i]->setChecked(months.isEmpty() || months.contains(QString::number(i + 1)));
    m_monthDays->setText(trigger.getMonthDays());
    m_lastDay->setChecked(trigger.getDayLastFlag() != 0);
    m_repeat->setChecked(trigger.getInterval() > 0);
    m_interval->setValue(static_cast<int>(qMax<quint64>(1, trigger.getInterval() / kSecondsPerHour)));
    m_duration->setValue(static_cast<int>(trigger.getDuration() / kSecondsPerHour));
    m_hasEnd->setChecked(trigger.getTriggerEndFlag() != 0);
    const QDateTime end = QDateTime::fromString(trigger.getEndTime(), TimeText::Format());
    if (end.isValid())
        m_end->setDateTime(end);
    OnKindChanged();
}

QString ScheduleEditor::CheckedList(const QList<QCheckBox*>& boxes)
{
    QStringList numbers;
    for (int i = 0; i < boxes.size(); ++i) {
        if (boxes[i]->isChecked())
            numbers << QString::number(i + 1);
    }
    return numbers.join(QLatin1Char(','));
}

SchedulerDialogData ScheduleEditor::DialogData() const
{
    SchedulerDialogData data;
    const int kind = m_kind->currentIndex();
    if (kind == OnDemand)
        return data;   // no start time: the plan runs only when asked
    const bool repeats = m_repeat->isChecked();
    data.setTriggerType(QString::number(kind - 1));
    data.setStartTime(m_start->dateTime().toString(TimeText::Format()));
    if (kind > Once && m_hasEnd->isChecked())
        data.setEndTime(m_end->dateTime().toString(TimeText::Format()));
    data.setIntervalHours(repeats ? QString::number(m_interval->value()) : QString());
    data.setDurationHours(repeats ? QString::number(m_duration->value()) : QString());
    if (kind == Weekly)
        data.setWeekDays(CheckedList(m_weekDays));
    if (kind == Monthly) {
        const QString months = CheckedList(m_months);
        data.setMonths(months.count(QLatin1Char(',')) == 11 ? QString() : months);   // all twelve: every month
        data.setMonthDays(m_monthDays->text().remove(QLatin1Char(' ')));
        data.setDayLastFlag(m_lastDay->isChecked() ? QStringLiteral("1") : QStringLiteral("0"));
    }
    return data;
}

QString ScheduleEditor::Validate() const
{
    const int kind = m_kind->currentIndex();
    if (kind == OnDemand)
        return QString();
    if (kind == Once && m_start->dateTime() <= QDateTime::currentDateTime())
        return tr("A plan that runs once needs a start in the future.");
    if (kind == Weekly && CheckedList(m_weekDays).isEmpty())
        return tr("Tick at least one day of the week.");
    if (kind == Monthly && CheckedList(m_months).isEmpty())
        return tr("Tick at least one month.");
    if (kind == Monthly && !ValidateMonthDays().isEmpty())
        return ValidateMonthDays();
    if (m_repeat->isChecked() && m_duration->value() > 0 && m_duration->value() < m_interval->value())
        return tr("Repeating every %1 h for only %2 h never repeats: make the time to repeat for longer.")
            .arg(m_interval->value()).arg(m_duration->value());
    if (kind > Once && m_hasEnd->isChecked() && m_end->dateTime() <= m_start->dateTime())
        return tr("The plan would stop before it starts: choose a stop date after the start.");
    return QString();
}

QString ScheduleEditor::ValidateMonthDays() const
{
    const QString days = m_monthDays->text().remove(QLatin1Char(' '));
    static const QRegularExpression list(QStringLiteral("^(\\d{1,2})(,\\d{1,2})*$"));
    if (days.isEmpty() && !m_lastDay->isChecked())
        return tr("Give the days of the month (e.g. 1,15) or tick \"last day of the month\".");
    if (!days.isEmpty() && !list.match(days).hasMatch())
        return tr("Days of the month are numbers separated by commas, e.g. 1,15.");
    for (const QString& day : days.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        if (day.toInt() < 1 || day.toInt() > 31)
            return tr("A month has days 1 to 31, not %1.").arg(day);
    }
    return QString();
}
