#include "plandialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSpinBox>
#include <QVBoxLayout>

namespace {

const QString kSourceKey = QStringLiteral("source");
const QString kDestinationKey = QStringLiteral("destination");

QStringList splitLines(const QByteArray& parameter)
{
    return QString::fromUtf8(parameter).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

// The value of a "key=value" line, when the line sets key.
bool lineValue(const QString& line, const QString& key, QString& value)
{
    const int equals = line.indexOf(QLatin1Char('='));
    if (equals < 0 || line.left(equals).trimmed() != key)
        return false;
    value = line.mid(equals + 1).trimmed();
    return true;
}

// Shows or hides a row of a form: the field and its label.
void setRowVisible(QWidget* field, bool visible)
{
    field->setVisible(visible);
    auto* form = qobject_cast<QFormLayout*>(field->parentWidget()->layout());
    if (QWidget* label = form ? form->labelForField(field) : nullptr)
        label->setVisible(visible);
}

} // namespace

PlanDialog::PlanDialog(QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(tr("Backup plan"));
    setMinimumWidth(640);
    m_error = new QLabel(this);
    m_error->setObjectName(QStringLiteral("error"));
    m_error->setWordWrap(true);
    m_error->setStyleSheet(QStringLiteral("color: #b00020; font-weight: bold;"));
    m_error->hide();
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &PlanDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &PlanDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(BuildTaskPart());
    layout->addWidget(BuildSchedulePart());
    layout->addWidget(m_error);
    layout->addWidget(buttons);
    OnOperationChanged();
    OnKindChanged();
    SetTabOrder();
}

void PlanDialog::SetTabOrder()
{
    // Top to bottom, each folder's Browse button right after its field.
    QList<QWidget*> chain{m_name, m_operation, m_source, findChild<QWidget*>(QStringLiteral("sourceBrowse")),
                          m_destination, findChild<QWidget*>(QStringLiteral("destinationBrowse")), m_parameter,
                          m_kind, m_start};
    for (QCheckBox* day : m_weekDays)
        chain << day;
    for (QCheckBox* month : m_months)
        chain << month;
    chain << m_monthDays << m_lastDay << m_repeat << m_interval << m_duration << m_hasEnd << m_end;
    for (int i = 1; i < chain.size(); ++i)
        setTabOrder(chain[i - 1], chain[i]);
}

QWidget* PlanDialog::FolderRow(QLineEdit* edit, const QString& title)
{
    auto* row = new QWidget(this);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* browse = new QPushButton(tr("Browse…"), row);
    browse->setObjectName(edit->objectName() + QStringLiteral("Browse"));
    layout->addWidget(edit);
    layout->addWidget(browse);
    connect(browse, &QPushButton::clicked, this, [this, edit, title] {
        const QString folder = QFileDialog::getExistingDirectory(this, title, edit->text());
        if (!folder.isEmpty())
            edit->setText(QDir::toNativeSeparators(folder));
    });
    return row;
}

QWidget* PlanDialog::BuildTaskPart()
{
    auto* box = new QGroupBox(tr("What to do"), this);
    auto* form = new QFormLayout(box);
    m_name = new QLineEdit(box);
    m_name->setObjectName(QStringLiteral("name"));
    m_name->setPlaceholderText(tr("e.g. Photos to the USB disk"));
    m_operation = new QComboBox(box);
    m_operation->setObjectName(QStringLiteral("operation"));
    m_source = new QLineEdit(box);
    m_source->setObjectName(QStringLiteral("source"));
    m_destination = new QLineEdit(box);
    m_destination->setObjectName(QStringLiteral("destination"));
    m_sourceRow = FolderRow(m_source, tr("Folder to back up"));
    m_destinationRow = FolderRow(m_destination, tr("Folder to back up into"));
    m_parameter = new QPlainTextEdit(box);
    m_parameter->setObjectName(QStringLiteral("parameter"));
    m_parameter->setTabChangesFocus(true);
    m_parameter->setFixedHeight(m_parameter->fontMetrics().lineSpacing() * 3 + 12);

    form->addRow(tr("&Name:"), m_name);
    form->addRow(tr("&Operation:"), m_operation);
    form->addRow(tr("&Back up:"), m_sourceRow);
    form->addRow(tr("&Into:"), m_destinationRow);
    form->addRow(tr("&Settings:"), m_parameter);
    connect(m_operation, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &PlanDialog::OnOperationChanged);
    return box;
}

QWidget* PlanDialog::BuildSchedulePart()
{
    auto* box = new QGroupBox(tr("When"), this);
    auto* form = new QFormLayout(box);
    m_kind = new QComboBox(box);
    m_kind->setObjectName(QStringLiteral("kind"));
    m_kind->addItems({tr("Only when I start it"), tr("Once"), tr("Every day"), tr("Every week"), tr("Every month")});
    m_start = new QDateTimeEdit(QDateTime::currentDateTime().addSecs(3600), box);
    m_start->setObjectName(QStringLiteral("start"));
    m_start->setDisplayFormat(QStringLiteral("yyyy-MM-dd hh:mm"));
    m_start->setCalendarPopup(true);

    m_weekPart = new QWidget(box);
    auto* week = new QHBoxLayout(m_weekPart);
    week->setContentsMargins(0, 0, 0, 0);
    for (int day = 1; day <= 7; ++day) {
        auto* check = new QCheckBox(QLocale().dayName(day, QLocale::ShortFormat), m_weekPart);
        check->setObjectName(QStringLiteral("weekDay%1").arg(day));
        m_weekDays.append(check);
        week->addWidget(check);
    }
    m_monthPart = new QWidget(box);
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

    auto* repeatRow = new QWidget(box);
    auto* repeat = new QHBoxLayout(repeatRow);
    repeat->setContentsMargins(0, 0, 0, 0);
    m_repeat = new QCheckBox(tr("&Repeat every"), repeatRow);
    m_repeat->setObjectName(QStringLiteral("repeat"));
    m_interval = new QSpinBox(repeatRow);
    m_interval->setObjectName(QStringLiteral("interval"));
    m_interval->setRange(1, 24 * 31);
    m_interval->setSuffix(tr(" h"));
    m_duration = new QSpinBox(repeatRow);
    m_duration->setObjectName(QStringLiteral("duration"));
    m_duration->setRange(0, 24 * 366);
    m_duration->setSuffix(tr(" h"));
    m_duration->setSpecialValueText(tr("until the next start"));
    repeat->addWidget(m_repeat);
    repeat->addWidget(m_interval);
    repeat->addWidget(new QLabel(tr("for"), repeatRow));
    repeat->addWidget(m_duration);
    repeat->addStretch();

    auto* endRow = new QWidget(box);
    auto* end = new QHBoxLayout(endRow);
    end->setContentsMargins(0, 0, 0, 0);
    m_hasEnd = new QCheckBox(tr("&Stop after"), endRow);
    m_hasEnd->setObjectName(QStringLiteral("hasEnd"));
    m_end = new QDateTimeEdit(QDateTime::currentDateTime().addDays(365), endRow);
    m_end->setObjectName(QStringLiteral("end"));
    m_end->setDisplayFormat(QStringLiteral("yyyy-MM-dd hh:mm"));
    m_end->setCalendarPopup(true);
    end->addWidget(m_hasEnd);
    end->addWidget(m_end);
    end->addStretch();

    form->addRow(tr("&Run:"), m_kind);
    form->addRow(tr("S&tarting:"), m_start);
    form->addRow(tr("On:"), m_weekPart);
    form->addRow(tr("In:"), m_monthPart);
    form->addRow(QString(), repeatRow);
    form->addRow(QString(), endRow);
    connect(m_kind, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &PlanDialog::OnKindChanged);
    connect(m_repeat, &QCheckBox::toggled, this, &PlanDialog::OnKindChanged);
    connect(m_hasEnd, &QCheckBox::toggled, this, &PlanDialog::OnKindChanged);
    return box;
}

void PlanDialog::SetOperations(const QStringList& entries)
{
    const QString current = m_operation->currentText();
    m_operation->clear();
    for (const QString& entry : entries)
        m_operation->addItem(entry.section(QLatin1Char('\t'), 0, 0), entry.section(QLatin1Char('\t'), 1));
    const int index = m_operation->findText(current.isEmpty() ? QStringLiteral("copy") : current);
    if (index >= 0)
        m_operation->setCurrentIndex(index);
    OnOperationChanged();
}

void PlanDialog::OnOperationChanged()
{
    // What the operation's parameter holds, where its settings are typed.
    const QString help = m_operation->currentData().toString();
    const bool folders = TakesFolders();
    m_parameter->setPlaceholderText(folders ? tr("Optional, one a line, e.g. exclude=*.tmp or verify=1 "
                                                 "(point here for all that the operation takes)")
                                            : help);
    m_parameter->setToolTip(help);
    m_sourceRow->setEnabled(folders);
    m_destinationRow->setEnabled(folders);
}

bool PlanDialog::TakesFolders() const
{
    const QString help = m_operation->currentData().toString();
    return help.contains(kSourceKey + QLatin1Char('=')) && help.contains(kDestinationKey + QLatin1Char('='));
}

void PlanDialog::OnKindChanged()
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

void PlanDialog::SetPlan(const SchedulerPlan& plan)
{
    m_plan = plan;
    m_name->setText(plan.getPlanName());
    const TaskAttribute task = plan.getTaskAttribute();
    const int operation = m_operation->findText(task.getOperationRegisterName());
    if (operation < 0)
        m_operation->addItem(task.getOperationRegisterName());
    m_operation->setCurrentIndex(operation < 0 ? m_operation->count() - 1 : operation);
    QStringList rest;
    for (const QString& line : splitLines(task.getOperationParameter())) {
        QString value;
        if (TakesFolders() && lineValue(line, kSourceKey, value))
            m_source->setText(value);
        else if (TakesFolders() && lineValue(line, kDestinationKey, value))
            m_destination->setText(value);
        else
            rest << line;
    }
    m_parameter->setPlainText(rest.join(QLatin1Char('\n')));

    const TriggerAttribute trigger = plan.getTriggerAttribute();
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
    m_interval->setValue(static_cast<int>(qMax<quint64>(1, trigger.getInterval() / 3600)));
    m_duration->setValue(static_cast<int>(trigger.getDuration() / 3600));
    m_hasEnd->setChecked(trigger.getTriggerEndFlag() != 0);
    const QDateTime endTime = QDateTime::fromString(trigger.getEndTime(), TimeText::Format());
    if (endTime.isValid())
        m_end->setDateTime(endTime);
    OnKindChanged();
}

QString PlanDialog::CheckedList(const QList<QCheckBox*>& boxes)
{
    QStringList numbers;
    for (int i = 0; i < boxes.size(); ++i) {
        if (boxes[i]->isChecked())
            numbers << QString::number(i + 1);
    }
    return numbers.join(QLatin1Char(','));
}

QString PlanDialog::PlanName() const
{
    return m_name->text().trimmed();
}

QByteArray PlanDialog::Parameter() const
{
    QStringList lines;
    if (TakesFolders()) {
        lines << kSourceKey + QLatin1Char('=') + QDir::fromNativeSeparators(m_source->text().trimmed());
        lines << kDestinationKey + QLatin1Char('=') + QDir::fromNativeSeparators(m_destination->text().trimmed());
    }
    const QString rest = m_parameter->toPlainText().trimmed();
    if (!rest.isEmpty())
        lines << rest;
    return lines.join(QLatin1Char('\n')).toUtf8();
}

SchedulerDialogData PlanDialog::DialogData() const
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

RequestNewOperationData PlanDialog::NewOperationData() const
{
    RequestNewOperationData data;
    data.getObjectTaskAttribute().setOperationRegisterName(m_operation->currentText());
    data.getObjectTaskAttribute().setOperationParameter(Parameter());
    const SchedulerDialogData dialog = DialogData();
    data.GetDialogTrigger(dialog);
    // The dialog record has no end flag: an end time given means the schedule ends.
    data.getObjectTriggerAttribute().setTriggerEndFlag(dialog.getEndTime().isEmpty() ? 0 : 1);
    return data;
}

SchedulerPlan PlanDialog::EditedPlan() const
{
    SchedulerPlan plan = m_plan;
    const RequestNewOperationData data = NewOperationData();
    plan.setPlanName(PlanName());
    TaskAttribute& task = plan.getObjectTaskAttribute();
    task.setOperationRegisterName(data.getTaskAttribute().getOperationRegisterName());
    task.setOperationParameter(data.getTaskAttribute().getOperationParameter());
    // The trigger keeps its stored name; everything the dialog says replaces the rest.
    const QString triggerName = plan.getTriggerAttribute().getTriggerName();
    plan.setTriggerAttribute(data.getTriggerAttribute());
    plan.getObjectTriggerAttribute().setTriggerName(triggerName);
    return plan;
}

QString PlanDialog::ErrorText() const
{
    return m_error->isHidden() ? QString() : m_error->text();
}

QString PlanDialog::Validate() const
{
    if (PlanName().isEmpty())
        return tr("Give the plan a name.");
    const QString task = ValidateTask();
    return task.isEmpty() ? ValidateSchedule() : task;
}

QString PlanDialog::ValidateTask() const
{
    if (m_operation->currentText().isEmpty())
        return tr("Choose an operation. The list is empty while the backup service does not answer.");
    if (!TakesFolders())
        return QString();
    const QString source = m_source->text().trimmed();
    const QString destination = m_destination->text().trimmed();
    if (source.isEmpty())
        return tr("Choose the folder to back up.");
    if (destination.isEmpty())
        return tr("Choose the folder to back up into.");
    if (QDir::isRelativePath(source) || QDir::isRelativePath(destination))
        return tr("Give both folders as full paths, starting at the top of the disk.");
    if (!QDir(source).exists())
        return tr("The folder to back up does not exist: %1").arg(source);
    if (!QDir(destination).exists())
        return tr("The folder to back up into does not exist: %1. Create it first.").arg(destination);
    if (QDir::cleanPath(source) == QDir::cleanPath(destination))
        return tr("The folder to back up and the folder to back up into must be different.");
    return QString();
}

QString PlanDialog::ValidateSchedule() const
{
    const int kind = m_kind->currentIndex();
    if (kind == OnDemand)
        return QString();
    if (kind == Once && m_start->dateTime() <= QDateTime::currentDateTime())
        return tr("A plan that runs once needs a start in the future.");
    if (kind == Weekly && CheckedList(m_weekDays).isEmpty())
        return tr("Tick at least one day of the week.");
    if (kind == Monthly) {
        if (CheckedList(m_months).isEmpty())
            return tr("Tick at least one month.");
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
    }
    if (m_repeat->isChecked() && m_duration->value() > 0 && m_duration->value() < m_interval->value())
        return tr("Repeating every %1 h for only %2 h never repeats: make the time to repeat for longer.")
            .arg(m_interval->value()).arg(m_duration->value());
    if (kind > Once && m_hasEnd->isChecked() && m_end->dateTime() <= m_start->dateTime())
        return tr("The plan would stop before it starts: choose a stop date after the start.");
    return QString();
}

void PlanDialog::ShowProblem(const QString& problem)
{
    m_error->setText(problem);
    m_error->setVisible(!problem.isEmpty());
}

void PlanDialog::accept()
{
    const QString problem = Validate();
    ShowProblem(problem);
    if (problem.isEmpty())
        emit submitted();
}
