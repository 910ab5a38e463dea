#ifndef BACKUPFRAME_DESKTOP_MAINWINDOW_H
#define BACKUPFRAME_DESKTOP_MAINWINDOW_H

#include "desktopclient.h"

#include <backupframe.h>

#include <QMainWindow>
#include <QSet>
#include <QStringList>

#include <functional>

class EmailDialog;
class JournalsView;
class PlanDialog;
class PlanModel;
class QAction;
class QLabel;
class QSortFilterProxyModel;
class QSystemTrayIcon;
class QTabWidget;
class QTableView;

// The desktop program's window: the plans (live through the service's events), their actions,
// the journals, a banner while the service is away, a tray icon where there is a tray.
// Owns the DesktopClient. Main thread.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    using Confirm = std::function<bool(const QString& question)>;

    explicit MainWindow(const CommunAttribute& endpoint, QWidget* parent = nullptr);
    ~MainWindow() override;

    // Starts talking to the service; the window shows the banner until it answers.
    bool Start();
    DesktopClient* Client() const { return m_client; }
    PlanModel* Model() const { return m_model; }
    QTableView* PlanView() const { return m_view; }
    JournalsView* Journals() const { return m_journals; }
    // Asks before deleting a plan; replaced by tests.
    void SetConfirm(const Confirm& confirm) { m_confirm = confirm; }
    // "nightly: Failed", the newest run's end that this window saw.
    QString LastResult() const { return m_lastResult; }
    QString ServiceState() const;
    bool BannerShown() const;
    // The operations the service offers, "name<TAB>what its parameter holds".
    QStringList Operations() const { return m_operations; }

public slots:
    void NewPlan();
    void EditPlan();
    void DeletePlan();
    void RunPlan();
    void CancelPlan();
    void ShowJournals();
    void ShowEmailSettings();
    void Reload();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void BuildActions();
    void BuildCentral();
    void BuildTray();
    void OnLinkChanged(bool up);
    void OnSubscribed();
    void OnEvent(const DesktopClient::Event& event);
    void OnJournal(const DesktopClient::Event& event);
    void OnPlanState(const DesktopClient::Event& event);
    void UpdateActions();
    void UpdateJournalPlans();
    void LoadOperations();
    // Sends a request about the selected plan whose answer is its state afterwards.
    void PlanRequest(quint64 type, const QString& verb, int timeoutMs = DesktopClient::kAnswerMs);
    void SubmitPlan(PlanDialog* dialog, bool isNew);
    bool SelectedPlan(SchedulerPlan& plan) const;
    void Tell(const QString& text);
    void ShowServiceMessage(const QString& title, const QString& text);

    DesktopClient* m_client;
    PlanModel* m_model;
    QSortFilterProxyModel* m_proxy;
    QTableView* m_view = nullptr;
    QTabWidget* m_tabs = nullptr;
    JournalsView* m_journals = nullptr;
    QWidget* m_banner = nullptr;
    QLabel* m_serviceState = nullptr;
    QSystemTrayIcon* m_tray = nullptr;
    EmailDialog* m_email = nullptr;
    Confirm m_confirm;
    QStringList m_operations;
    QString m_lastResult;
    bool m_reloading = false;
    QSet<QString> m_unknown;     // uuids of events that the next reload tells whether they are plans
    QSet<QString> m_notPlans;    // one-off runs (a restore, a verify): their events are not rows
    QAction* m_newAction = nullptr;
    QAction* m_editAction = nullptr;
    QAction* m_deleteAction = nullptr;
    QAction* m_runAction = nullptr;
    QAction* m_cancelAction = nullptr;
    QAction* m_reloadAction = nullptr;
    QAction* m_emailAction = nullptr;
};

#endif
