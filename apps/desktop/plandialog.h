#ifndef BACKUPFRAME_DESKTOP_PLANDIALOG_H
#define BACKUPFRAME_DESKTOP_PLANDIALOG_H

#include <backupframe.h>

#include <QDialog>

class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QWidget;
class ScheduleEditor;

// A plan as a person sets it up: name, operation with its folders and settings, and the schedule.
// OK checks the input and says in the dialog what is wrong; valid input is handed to the owner
// through submitted(), which closes the dialog once the service has stored the plan.
class PlanDialog : public QDialog
{
    Q_OBJECT

public:
    explicit PlanDialog(QWidget* parent = nullptr);

    // The service's operations, "name<TAB>what its parameter holds" each.
    void SetOperations(const QStringList& entries);
    // Fills the dialog from a stored plan, for editing it.
    void SetPlan(const SchedulerPlan& plan);
    // What is wrong with the input, for a person; empty when it can be sent.
    QString Validate() const;
    QString PlanName() const;
    // The new plan's task, and its trigger made from the schedule by GetDialogTrigger.
    RequestNewOperationData NewOperationData() const;
    // The edited plan: the one given to SetPlan with name, task and trigger replaced.
    SchedulerPlan EditedPlan() const;
    // The message on show, empty when none is.
    QString ErrorText() const;
    // Shows why the plan cannot be stored (a check of the dialog, or the service's refusal).
    void ShowProblem(const QString& problem);

signals:
    // OK was pressed and the input is valid: the owner sends it and closes the dialog with done().
    void submitted();

public slots:
    void accept() override;

private:
    QWidget* BuildTaskPart();
    QWidget* FolderRow(QLineEdit* edit, const QString& title);
    void SetTabOrder();
    void OnOperationChanged();
    QByteArray Parameter() const;
    bool TakesFolders() const;
    QString ValidateTask() const;

    SchedulerPlan m_plan;
    QLineEdit* m_name;
    QComboBox* m_operation;
    QWidget* m_sourceRow;
    QWidget* m_destinationRow;
    QLineEdit* m_source;
    QLineEdit* m_destination;
    QPlainTextEdit* m_parameter;
    ScheduleEditor* m_schedule;
    QLabel* m_error;
};

#endif
