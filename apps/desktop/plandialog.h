#ifndef BACKUPFRAME_DESKTOP_PLANDIALOG_H
#define BACKUPFRAME_DESKTOP_PLANDIALOG_H

#include <backupframe.h>

#include <QDialog>
#include <QList>

class QCheckBox;
class QComboBox;
class QDateTimeEdit;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QSpinBox;
class QWidget;

// A plan as a person sets it up: name, operation with its folders and settings, and the schedule
// (once, daily, weekly, monthly, repeats, end). Input is checked when OK is pressed and what is
// wrong is said in the dialog; accepted only when the plan can be sent.
class PlanDialog : public QDialog
{
    Q_OBJECT

public:
    enum Kind { OnDemand, Once, Daily, Weekly, Monthly };

    explicit PlanDialog(QWidget* parent = nullptr);

    // The service's operations, "name<TAB>what its parameter holds" each.
    void SetOperations(const QStringList& entries);
    // Fills the dialog from a stored plan, for editing it.
    void SetPlan(const SchedulerPlan& plan);
    // What is wrong with the input, for a person; empty when it can be sent.
    QString Validate() const;
    QString PlanName() const;
    // The schedule as typed, the record the library turns into a trigger.
    SchedulerDialogData DialogData() const;
    // The new plan's task and trigger.
    RequestNewOperationData NewOperationData() const;
    // The edited plan: the one given to SetPlan with name, task and trigger replaced.
    SchedulerPlan EditedPlan() const;
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
    QWidget* BuildSchedulePart();
    QWidget* FolderRow(QLineEdit* edit, const QString& title);
    void SetTabOrder();
    void OnOperationChanged();
    void OnKindChanged();
    QByteArray Parameter() const;
    bool TakesFolders() const;
    QString ValidateTask() const;
    QString ValidateSchedule() const;
    static QString CheckedList(const QList<QCheckBox*>& boxes);

    SchedulerPlan m_plan;
    QLineEdit* m_name;
    QComboBox* m_operation;
    QWidget* m_sourceRow;
    QWidget* m_destinationRow;
    QLineEdit* m_source;
    QLineEdit* m_destination;
    QPlainTextEdit* m_parameter;
    QComboBox* m_kind;
    QDateTimeEdit* m_start;
    QWidget* m_weekPart;
    QList<QCheckBox*> m_weekDays;
    QWidget* m_monthPart;
    QList<QCheckBox*> m_months;
    QLineEdit* m_monthDays;
    QCheckBox* m_lastDay;
    QCheckBox* m_repeat;
    QSpinBox* m_interval;
    QSpinBox* m_duration;
    QCheckBox* m_hasEnd;
    QDateTimeEdit* m_end;
    QLabel* m_error;
};

#endif
