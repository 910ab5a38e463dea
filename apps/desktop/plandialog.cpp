#include "plandialog.h"

#include "scheduleeditor.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
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
    m_schedule = new ScheduleEditor(this);
    layout->addWidget(m_schedule);
    layout->addWidget(m_error);
    layout->addWidget(buttons);
    OnOperationChanged();
    SetTabOrder();
}

void PlanDialog::SetTabOrder()
{
    // Top to bottom, each folder's Browse button right after its field.
    QList<QWidget*> chain{m_name, m_operation, m_source, findChild<QWidget*>(QStringLiteral("sourceBrowse")),
                          m_destination, findChild<QWidget*>(QStringLiteral("destinationBrowse")), m_parameter};
    chain << m_schedule->TabChain();
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

    m_schedule->SetTrigger(plan.getTriggerAttribute());
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

RequestNewOperationData PlanDialog::NewOperationData() const
{
    RequestNewOperationData data;
    data.getObjectTaskAttribute().setOperationRegisterName(m_operation->currentText());
    data.getObjectTaskAttribute().setOperationParameter(Parameter());
    const SchedulerDialogData dialog = m_schedule->DialogData();
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
    return task.isEmpty() ? m_schedule->Validate() : task;
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
