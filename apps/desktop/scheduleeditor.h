#ifndef BACKUPFRAME_DESKTOP_SCHEDULEEDITOR_H
#define BACKUPFRAME_DESKTOP_SCHEDULEEDITOR_H

#include <backupframe.h>

#include <QGroupBox>
#include <QList>

class QCheckBox;
class QComboBox;
class QDateTimeEdit;
class QLineEdit;
class QSpinBox;

// When a plan runs, as a person thinks of it: only when started, once, every day, every week on
// ticked days, every month in ticked months on listed days and/or the last day, with repeats and
// a stop date. Reads and fills the dialog record the library turns into a trigger.
class ScheduleEditor : public QGroupBox
{
    Q_OBJECT

public:
    enum Kind { OnDemand, Once, Daily, Weekly, Monthly };

    explicit ScheduleEditor(QWidget* parent = nullptr);

    void SetTrigger(const TriggerAttribute& trigger);
    // The schedule as typed; no start time when the plan runs only when started.
    SchedulerDialogData DialogData() const;
    // What is wrong with the schedule, for a person; empty when it can be sent.
    QString Validate() const;
    // The editor's fields in the order Tab goes through them.
    QList<QWidget*> TabChain() const;

private:
    QWidget* BuildWeekRow();
    QWidget* BuildMonthRow();
    QWidget* BuildRepeatRow();
    QWidget* BuildEndRow();
    void OnKindChanged();
    QString ValidateMonthDays() const;
    static QString CheckedList(const QList<QCheckBox*>& boxes);

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
};

#endif
