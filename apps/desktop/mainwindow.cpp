#include "mainwindow.h"

#include "emaildialog.h"
#include "journalsview.h"
#include "planmodel.h"
#include "progressdelegate.h"
#include "protocol.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QSettings>
#include <QSortFilterProxyModel>
#include <QStatusBar>
#include <QStyle>
#include <QSystemTrayIcon>
#include <QTabWidget>
#include <QTableView>
#include <QToolBar>
#include <QVBoxLayout>

using namespace SchedulerProtocol;

MainWindow::MainWindow(const CommunAttribute& endpoint, QWidget* parent)
    : QMainWindow(parent)
    , m_client(new DesktopClient(endpoint, this))
    , m_model(new PlanModel(this))
    , m_proxy(new QSortFilterProxyModel(this))
{
    setWindowTitle(tr("Backups"));
    m_confirm = [this](const QString& question) {
        return QMessageBox::question(this, tr("Delete plan"), question) == QMessageBox::Yes;
    };
    m_proxy->setSourceModel(m_model);
    m_proxy->setSortRole(PlanModel::SortRole);
    m_proxy->setSortCaseSensitivity(Qt::CaseInsensitive);
    BuildActions();
    BuildCentral();
    BuildTray();
    connect(m_client, &DesktopClient::linkChanged, this, &MainWindow::OnLinkChanged);
    connect(m_client, &DesktopClient::subscribed, this, &MainWindow::OnSubscribed);
    connect(m_client, &DesktopClient::eventArrived, this, &MainWindow::OnEvent);
    connect(m_client, &DesktopClient::messageForUser, this, &MainWindow::ShowServiceMessage);

    QSettings settings;
    if (!restoreGeometry(settings.value(QStringLiteral("window/geometry")).toByteArray()))
        resize(1100, 580);
    OnLinkChanged(false);
    m_serviceState->setText(tr("Connecting to the backup service…"));
    m_banner->hide();
}

MainWindow::~MainWindow() = default;

bool MainWindow::Start()
{
    return m_client->Start();
}

void MainWindow::BuildActions()
{
    auto make = [this](const QString& text, const QKeySequence& keys, QStyle::StandardPixmap icon,
                       void (MainWindow::*slot)()) {
        auto* action = new QAction(style()->standardIcon(icon), text, this);
        action->setShortcut(keys);
        connect(action, &QAction::triggered, this, slot);
        return action;
    };
    m_newAction = make(tr("&New plan…"), QKeySequence::New, QStyle::SP_FileDialogNewFolder, &MainWindow::NewPlan);
    m_editAction = make(tr("&Edit plan…"), QKeySequence(Qt::CTRL | Qt::Key_E), QStyle::SP_FileDialogDetailedView,
                        &MainWindow::EditPlan);
    m_deleteAction = make(tr("&Delete plan…"), QKeySequence::Delete, QStyle::SP_TrashIcon, &MainWindow::DeletePlan);
    m_runAction = make(tr("&Run now"), QKeySequence(Qt::CTRL | Qt::Key_R), QStyle::SP_MediaPlay, &MainWindow::RunPlan);
    m_cancelAction = make(tr("&Cancel run"), QKeySequence(Qt::CTRL | Qt::Key_Period), QStyle::SP_MediaStop,
                          &MainWindow::CancelPlan);
    m_reloadAction = make(tr("Re&load"), QKeySequence::Refresh, QStyle::SP_BrowserReload, &MainWindow::Reload);
    m_emailAction = make(tr("E-&mail notifications…"), QKeySequence(), QStyle::SP_MessageBoxInformation,
                         &MainWindow::ShowEmailSettings);
    auto* journals = make(tr("&Journals"), QKeySequence(Qt::CTRL | Qt::Key_J), QStyle::SP_FileDialogContentsView,
                          &MainWindow::ShowJournals);
    auto* quit = new QAction(tr("&Quit"), this);
    quit->setShortcut(QKeySequence::Quit);
    connect(quit, &QAction::triggered, this, &QMainWindow::close);

    QMenu* plans = menuBar()->addMenu(tr("&Plans"));
    plans->addActions({m_newAction, m_editAction, m_deleteAction});
    plans->addSeparator();
    plans->addActions({m_runAction, m_cancelAction});
    plans->addSeparator();
    plans->addActions({m_reloadAction, quit});
    QMenu* view = menuBar()->addMenu(tr("&View"));
    view->addAction(journals);
    QMenu* settings = menuBar()->addMenu(tr("&Settings"));
    settings->addAction(m_emailAction);

    QToolBar* bar = addToolBar(tr("Plans"));
    bar->setObjectName(QStringLiteral("planBar"));
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    bar->addActions({m_newAction, m_editAction, m_deleteAction});
    bar->addSeparator();
    bar->addActions({m_runAction, m_cancelAction});
    bar->addSeparator();
    bar->addAction(journals);
}

void MainWindow::BuildCentral()
{
    m_banner = new QWidget(this);
    m_banner->setObjectName(QStringLiteral("banner"));
    m_banner->setAutoFillBackground(true);
    m_banner->setStyleSheet(QStringLiteral("#banner { background: #fff4ce; border: 1px solid #e0c060; }"));
    auto* bannerText = new QLabel(tr("<b>The backup service is not running.</b> Plans do not run and nothing can "
                                     "be changed until it is back. Start it with <tt>backupframe-scheduler</tt> (or "
                                     "<tt>systemctl --user start backupframe-scheduler</tt>); this window "
                                     "reconnects by itself."), m_banner);
    bannerText->setWordWrap(true);
    auto* bannerIcon = new QLabel(m_banner);
    bannerIcon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(32, 32));
    auto* bannerLayout = new QHBoxLayout(m_banner);
    bannerLayout->addWidget(bannerIcon);
    bannerLayout->addWidget(bannerText, 1);

    m_view = new QTableView(this);
    m_view->setObjectName(QStringLiteral("plans"));
    m_view->setModel(m_proxy);
    m_view->setSortingEnabled(true);
    m_view->sortByColumn(PlanModel::NameColumn, Qt::AscendingOrder);
    m_view->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_view->setSelectionMode(QAbstractItemView::SingleSelection);
    m_view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_view->setAlternatingRowColors(true);
    m_view->verticalHeader()->hide();
    // Every column as wide as its text, the schedule taking the room left, the progress bar a fixed width.
    QHeaderView* header = m_view->horizontalHeader();
    header->setSectionResizeMode(QHeaderView::ResizeToContents);
    header->setSectionResizeMode(PlanModel::ScheduleColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(PlanModel::ProgressColumn, QHeaderView::Fixed);
    header->resizeSection(PlanModel::ProgressColumn, 170);
    m_view->setItemDelegateForColumn(PlanModel::ProgressColumn, new ProgressDelegate(m_view));
    m_view->setContextMenuPolicy(Qt::ActionsContextMenu);
    m_view->addActions({m_runAction, m_cancelAction, m_editAction, m_deleteAction});
    // Their keys act on the plan table only: Del in the journals must not delete a plan.
    for (QAction* action : {m_runAction, m_cancelAction, m_editAction, m_deleteAction})
        action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(m_view, &QTableView::activated, this, &MainWindow::EditPlan);
    connect(m_view->selectionModel(), &QItemSelectionModel::selectionChanged, this, &MainWindow::UpdateActions);
    connect(m_model, &QAbstractItemModel::dataChanged, this, &MainWindow::UpdateActions);

    m_journals = new JournalsView(m_client, this);
    m_tabs = new QTabWidget(this);
    m_tabs->addTab(m_view, tr("Pla&ns"));
    m_tabs->addTab(m_journals, tr("&Journals"));

    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->addWidget(m_banner);
    layout->addWidget(m_tabs, 1);
    setCentralWidget(central);

    m_serviceState = new QLabel(this);
    m_serviceState->setObjectName(QStringLiteral("serviceState"));
    statusBar()->addPermanentWidget(m_serviceState);
}

void MainWindow::BuildTray()
{
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        return;
    m_tray = new QSystemTrayIcon(style()->standardIcon(QStyle::SP_DriveHDIcon), this);
    auto* menu = new QMenu(this);
    menu->addAction(tr("Show backups"), this, [this] { showNormal(); activateWindow(); });
    menu->addAction(tr("&Quit"), qApp, &QApplication::quit);
    m_tray->setContextMenu(menu);
    m_tray->setToolTip(tr("Backups"));
    connect(m_tray, &QSystemTrayIcon::activated, this, [this] { showNormal(); activateWindow(); });
    m_tray->show();
}

QString MainWindow::ServiceState() const
{
    return m_serviceState->text();
}

bool MainWindow::BannerShown() const
{
    return !m_banner->isHidden();
}

void MainWindow::OnLinkChanged(bool up)
{
    m_banner->setHidden(up);
    m_serviceState->setText(up ? tr("Connected to the backup service (%1)").arg(m_client->EndpointText())
                               : tr("The backup service does not answer; trying again…"));
    if (up)
        m_client->Subscribe(QStringLiteral("backupframe-desktop %1").arg(QApplication::applicationPid()));
    UpdateActions();
}

// Subscribed first, read second: nothing that happens in between is missed.
void MainWindow::OnSubscribed()
{
    Reload();
    LoadOperations();
    m_journals->Reload();
}

void MainWindow::Reload()
{
    if (m_reloading)
        return;
    m_reloading = true;
    // The uuids this answer can tell about; those of later events wait for the next reload.
    const QSet<QString> asked = m_unknown;
    m_unknown.clear();
    m_client->Send(LoadSchedulersType, QString(), QString(), QByteArray(),
                   [this, asked](const DesktopClient::Reply& reply) {
        m_reloading = false;
        ResultLoadSchedulersData data;
        if (!reply.ok() || !DecodePayload(reply.data, data)) {
            Tell(tr("The plans could not be read: %1").arg(reply.error));
            return;
        }
        const QString selected = m_view->currentIndex().data(PlanModel::UuidRole).toString();
        QList<SchedulerPlan> plans;
        for (const SchedulerPlan* plan : data.getActionPlansList())
            plans.append(*plan);
        m_model->SetPlans(plans);
        for (const QString& uuid : asked) {
            if (m_model->RowOf(uuid) < 0)
                m_notPlans.insert(uuid);
        }
        if (!m_unknown.isEmpty())
            Reload();
        const int row = m_model->RowOf(selected);
        if (row >= 0)
            m_view->selectRow(m_proxy->mapFromSource(m_model->index(row, 0)).row());
        UpdateJournalPlans();
        UpdateActions();
    });
}

void MainWindow::LoadOperations()
{
    m_client->Send(LoadOperationsType, QString(), QString(), QByteArray(), [this](const DesktopClient::Reply& reply) {
        QstringListData data;
        if (reply.ok() && DecodePayload(reply.data, data))
            m_operations = data.getQstringList();
    });
}

void MainWindow::UpdateJournalPlans()
{
    QList<QPair<QString, QString>> plans;
    for (const SchedulerPlan& plan : m_model->Plans())
        plans.append({plan.getPlanUuid(), plan.getPlanName()});
    m_journals->SetPlans(plans);
}

void MainWindow::UpdateActions()
{
    const bool up = m_client->IsUp();
    SchedulerPlan plan;
    const bool selected = SelectedPlan(plan);
    const bool busy = selected && (plan.getIsRunning()
                                   || plan.getSchemeAttribute().getExecutState() == QueuedState());
    m_newAction->setEnabled(up);
    m_editAction->setEnabled(up && selected);
    m_deleteAction->setEnabled(up && selected && !busy);
    m_runAction->setEnabled(up && selected && !busy);
    m_cancelAction->setEnabled(up && busy);
    m_reloadAction->setEnabled(up);
    m_emailAction->setEnabled(up);
}

void MainWindow::OnEvent(const DesktopClient::Event& event)
{
    switch (event.type) {
    case SingleFlushSchedulerType:
        OnPlanState(event);
        break;
    case FlushSchedulersType:
        if (event.planUuid.isEmpty())
            Reload();
        else
            m_model->Remove(event.planUuid);
        UpdateJournalPlans();
        break;
    case TriggerExecuteType:
    case TriggerUpdateInfoType: {
        RequestTriggerExecuteInfoData info;
        if (DecodePayload(event.payload, info))
            m_model->SetNextStart(event.planUuid, info.getNextStartTime());
        break;
    }
    case FlushJournalsType:
        OnJournal(event);
        break;
    default:
        break;
    }
}

void MainWindow::OnPlanState(const DesktopClient::Event& event)
{
    SchedulerPlanData data;
    if (!DecodePayload(event.payload, data))
        return;
    // A run of no stored plan (a restore, a verify) is not a row; a plan made elsewhere is read whole.
    if (m_model->RowOf(event.planUuid) < 0) {
        if (!m_notPlans.contains(event.planUuid)) {
            m_unknown.insert(event.planUuid);
            Reload();
        }
        return;
    }
    m_model->Upsert(data.getRfrnSchedulerPlan());
}

void MainWindow::OnJournal(const DesktopClient::Event& event)
{
    m_journals->Reload();
    ResultLoadJournalsData data;
    if (!DecodePayload(event.payload, data) || data.getJournalAttrList().isEmpty())
        return;
    const JournalAttribute& journal = *data.getJournalAttrList().first();
    if (journal.getResult() == OutcomeText(Skipped))
        return;
    m_lastResult = tr("%1: %2").arg(journal.getPlanName(), journal.getResult());
    Tell(tr("%1 at %2").arg(m_lastResult, journal.getEndTime()));
    if (m_tray)
        m_tray->setToolTip(tr("Backups — last run %1").arg(m_lastResult));
    if (journal.getResult() == OutcomeText(Failed) && m_tray)
        m_tray->showMessage(tr("Backup failed: %1").arg(journal.getPlanName()),
                            journal.getErrorReason() + QLatin1Char('\n') + journal.getSolution(),
                            QSystemTrayIcon::Warning);
}

void MainWindow::ShowServiceMessage(const QString& title, const QString& text)
{
    if (m_tray) {
        m_tray->showMessage(title, text);
        return;
    }
    auto* box = new QMessageBox(QMessageBox::Information, title, text, QMessageBox::Ok, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void MainWindow::Tell(const QString& text)
{
    statusBar()->showMessage(text);
}

void MainWindow::ShowJournals()
{
    SchedulerPlan plan;
    m_tabs->setCurrentWidget(m_journals);
    m_journals->ShowPlan(SelectedPlan(plan) ? plan.getPlanUuid() : QString());
}

void MainWindow::ShowEmailSettings()
{
    if (!m_email)
        m_email = new EmailDialog(m_client, this);
    m_email->Load();
    m_email->open();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    QSettings settings;
    settings.setValue(QStringLiteral("window/geometry"), saveGeometry());
    QMainWindow::closeEvent(event);
}
