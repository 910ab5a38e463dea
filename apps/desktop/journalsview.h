#ifndef BACKUPFRAME_DESKTOP_JOURNALSVIEW_H
#define BACKUPFRAME_DESKTOP_JOURNALSVIEW_H

#include <backupframe.h>

#include <QList>
#include <QWidget>

#include <functional>

class DesktopClient;
class QComboBox;
class QLabel;
class QPushButton;
class QStandardItemModel;
class QTableView;

// The journals of all plans or of one, newest first, with the result, why a run failed and what
// to do about it in plain columns; deletes the selected ones or all after asking. Main thread.
class JournalsView : public QWidget
{
    Q_OBJECT

public:
    enum Column { PlanColumn, StartColumn, DurationColumn, ResultColumn, ReasonColumn, SolutionColumn, ColumnCount };
    using Confirm = std::function<bool(const QString& question)>;

    JournalsView(DesktopClient* client, QWidget* parent = nullptr);

    // The plans offered in the filter: uuid and name each.
    void SetPlans(const QList<QPair<QString, QString>>& plans);
    // Shows one plan's journals (empty: all).
    void ShowPlan(const QString& planUuid);
    // Reads the journals again from the service.
    void Reload();
    // Asks before deleting; replaced by tests.
    void SetConfirm(const Confirm& confirm) { m_confirm = confirm; }
    QTableView* View() const { return m_view; }
    QStandardItemModel* Model() const { return m_model; }

private:
    void Fill(const QList<JournalAttribute>& journals);
    void DeleteSelected();
    void DeleteAll();
    void Delete(quint64 type, const QByteArray& payload);

    DesktopClient* m_client;
    Confirm m_confirm;
    QComboBox* m_plan;
    QTableView* m_view;
    QStandardItemModel* m_model;
    QPushButton* m_deleteSelected;
    QPushButton* m_deleteAll;
    QLabel* m_state;
    quint64 m_generation = 0;   // an answer to an older reload is dropped
};

#endif
