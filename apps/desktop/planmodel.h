#ifndef BACKUPFRAME_DESKTOP_PLANMODEL_H
#define BACKUPFRAME_DESKTOP_PLANMODEL_H

#include <backupframe.h>

#include <QAbstractTableModel>
#include <QList>

// The plans as the service last told them, one row each, kept live by its events.
// Main thread; the view sorts through a proxy on SortRole.
class PlanModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { NameColumn, OperationColumn, ScheduleColumn, StatusColumn, LastRunColumn, NextStartColumn,
                  ProgressColumn, ColumnCount };
    enum Role {
        ProgressRole = Qt::UserRole,   // 0..100 while the plan runs and its size is known, else -1
        ProgressKnownRole,             // whether the running plan's size is known
        SortRole,
        UuidRole
    };

    explicit PlanModel(QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    void SetPlans(const QList<SchedulerPlan>& plans);
    // Replaces the plan of that uuid, or adds it.
    void Upsert(const SchedulerPlan& plan);
    void Remove(const QString& planUuid);
    // The next start the service computed after a run started or the schedule changed.
    void SetNextStart(const QString& planUuid, const QString& nextStart);
    int RowOf(const QString& planUuid) const;
    const SchedulerPlan& PlanAt(int row) const { return m_plans.at(row); }
    const QList<SchedulerPlan>& Plans() const { return m_plans; }

    // "Running", "Queued" or the stored status of the plan's last run.
    static QString StatusText(const SchedulerPlan& plan);
    // The schedule as a person says it: "Every day at 02:00", "Only when started", ...
    static QString ScheduleText(const TriggerAttribute& trigger);
    static int Percent(const SchedulerPlan& plan);

private:
    QVariant Display(const SchedulerPlan& plan, int column) const;

    QList<SchedulerPlan> m_plans;
};

#endif
