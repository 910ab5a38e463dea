// The desktop program's real widgets against a real scheduler process: plans made through the
// dialog, runs seen live, cancels, journals, e-mail settings, and the service going and coming back.
#include "emaildialog.h"
#include "journalsview.h"
#include "mainwindow.h"
#include "plandialog.h"
#include "planmodel.h"
#include "programpath.h"
#include "protocol.h"
#include "scheduleeditor.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMainWindow>
#include <QMenuBar>
#include <QRegularExpression>
#include <QTabBar>
#include <QDir>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QSortFilterProxyModel>
#include <QSpinBox>
#include <QStandardItemModel>
#include <QStandardPaths>
#include <QTableView>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <memory>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

constexpr int kWaitMs = 15000;

const QStringList kOperations{QStringLiteral("copy\tsource=FOLDER and destination=FOLDER lines"),
                              QStringLiteral("sleep\tmilliseconds to wait"),
                              QStringLiteral("fail\tthe error reason; fails at once")};

QString uniqueName()
{
    static int counter = 0;
    return QStringLiteral("tst_desktop_%1_%2").arg(QCoreApplication::applicationPid()).arg(++counter);
}

template <typename T>
T* child(QObject* parent, const QString& name)
{
    T* found = parent->findChild<T*>(name);
    if (!found)
        qWarning("no child named %s", qPrintable(name));
    return found;
}

void setCombo(QObject* parent, const QString& name, int index)
{
    child<QComboBox>(parent, name)->setCurrentIndex(index);
}

// A folder of four files of size bytes each, a different pattern in each.
bool makeTree(const QString& folder, int size)
{
    if (!QDir().mkpath(folder))
        return false;
    for (int i = 0; i < 4; ++i) {
        QFile file(QStringLiteral("%1/part%2.bin").arg(folder).arg(i));
        QByteArray chunk(1 << 20, char('a' + i));
        if (!file.open(QIODevice::WriteOnly))
            return false;
        for (int written = 0; written < size; written += chunk.size())
            file.write(chunk);
    }
    return true;
}

QString percents(const QList<int>& values)
{
    QStringList texts;
    for (int value : values)
        texts << QString::number(value);
    return texts.join(QLatin1Char(','));
}

} // namespace

class tst_Desktop : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();
    void validation_data();
    void validation();
    void scheduleToTrigger_data();
    void scheduleToTrigger();
    void dialogTabOrder();
    void mnemonicsUnique_data();
    void mnemonicsUnique();
    void planThroughDialogRunsLive();
    void cancelAndJournals();
    void emailSettings();
    void bannerAndReconnect();
    void geometryRemembered();

private:
    bool StartScheduler();
    void StopScheduler();
    PlanDialog* OpenNewPlan();
    // The plan dialog on screen (closed ones may linger until deleted).
    PlanDialog* ShownDialog() const;
    // Fills the task part; source and destination only when given.
    void FillTask(PlanDialog* dialog, const QString& name, const QString& operation, const QString& source,
                  const QString& destination, const QString& parameter = QString());
    void CreatePlan(const QString& name, const QString& operation, const QString& source = QString(),
                    const QString& destination = QString(), const QString& parameter = QString());
    int Row(const QString& name) const;
    SchedulerPlan Plan(const QString& name) const;
    void Select(const QString& name);
    QStringList JournalColumn(int column) const;

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_serverName;
    QProcess m_scheduler;
    std::unique_ptr<MainWindow> m_window;
};

void tst_Desktop::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);   // QSettings and the data home stay out of the user's
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    m_serverName = uniqueName();
    QVERIFY2(StartScheduler(), "the scheduler did not start serving");
}

void tst_Desktop::cleanupTestCase()
{
    StopScheduler();
#if defined(__SANITIZE_ADDRESS__)
    // Qt's offscreen platform never frees its screens at exit: not a leak of this code.
    for (QScreen* screen : QGuiApplication::screens())
        __lsan_ignore_object(screen);
#endif
}

bool tst_Desktop::StartScheduler()
{
    m_scheduler.setProcessChannelMode(QProcess::MergedChannels);
    m_scheduler.start(programPath("BACKUPFRAME_TEST_SCHEDULER", SCHEDULER_PATH),
                      {"--data-dir", m_dir->filePath(QStringLiteral("data")), "--server-name", m_serverName});
    QByteArray output;
    (void)QTest::qWaitFor([&] {
        output += m_scheduler.readAll();
        return output.contains("serving '") || m_scheduler.state() == QProcess::NotRunning;
    }, kWaitMs);
    return output.contains("serving '") && m_scheduler.state() == QProcess::Running;
}

void tst_Desktop::StopScheduler()
{
    if (m_scheduler.state() == QProcess::NotRunning)
        return;
    m_scheduler.terminate();
    if (!m_scheduler.waitForFinished(kWaitMs))
        m_scheduler.kill();
    m_scheduler.waitForFinished(5000);
}

void tst_Desktop::init()
{
    const QByteArray function(QTest::currentTestFunction());
    if (function.startsWith("validation") || function.startsWith("schedule") || function.startsWith("dialog")
        || function.startsWith("mnemonics"))
        return;   // the dialog alone
    CommunAttribute endpoint;
    endpoint.setProtocolType(CommunAttribute::LocalProtocol);
    endpoint.setDestSvrNameIp(m_serverName);
    m_window.reset(new MainWindow(endpoint));
    m_window->Client()->SetHeartbeatMs(500);
    m_window->SetConfirm([](const QString&) { return true; });
    m_window->Journals()->SetConfirm([](const QString&) { return true; });
    QVERIFY(m_window->Start());
    m_window->show();
    QTRY_VERIFY_WITH_TIMEOUT(!m_window->Operations().isEmpty(), kWaitMs);
    QVERIFY(!m_window->BannerShown());
}

void tst_Desktop::cleanup()
{
    m_window.reset();
}

PlanDialog* tst_Desktop::ShownDialog() const
{
    for (PlanDialog* candidate : m_window->findChildren<PlanDialog*>()) {
        if (candidate->isVisible())
            return candidate;
    }
    return nullptr;
}

PlanDialog* tst_Desktop::OpenNewPlan()
{
    m_window->NewPlan();
    return ShownDialog();
}

void tst_Desktop::FillTask(PlanDialog* dialog, const QString& name, const QString& operation, const QString& source,
                           const QString& destination, const QString& parameter)
{
    child<QLineEdit>(dialog, "name")->setText(name);
    auto* operations = child<QComboBox>(dialog, "operation");
    operations->setCurrentIndex(operations->findText(operation));
    child<QLineEdit>(dialog, "source")->setText(source);
    child<QLineEdit>(dialog, "destination")->setText(destination);
    child<QPlainTextEdit>(dialog, "parameter")->setPlainText(parameter);
}

void tst_Desktop::CreatePlan(const QString& name, const QString& operation, const QString& source,
                             const QString& destination, const QString& parameter)
{
    PlanDialog* dialog = OpenNewPlan();
    QVERIFY2(dialog, "the plan dialog did not open");
    FillTask(dialog, name, operation, source, destination, parameter);
    QPointer<PlanDialog> guard(dialog);
    dialog->accept();
    QTRY_VERIFY2_WITH_TIMEOUT(!guard || !guard->isVisible(), qPrintable(guard ? guard->ErrorText() : QString()),
                              kWaitMs);
    QTRY_VERIFY_WITH_TIMEOUT(Row(name) >= 0, kWaitMs);
}

int tst_Desktop::Row(const QString& name) const
{
    const PlanModel* model = m_window->Model();
    for (int row = 0; row < model->rowCount(); ++row) {
        if (model->PlanAt(row).getPlanName() == name)
            return row;
    }
    return -1;
}

SchedulerPlan tst_Desktop::Plan(const QString& name) const
{
    const int row = Row(name);
    return row < 0 ? SchedulerPlan() : m_window->Model()->PlanAt(row);
}

void tst_Desktop::Select(const QString& name)
{
    QTableView* view = m_window->PlanView();
    auto* proxy = static_cast<QSortFilterProxyModel*>(view->model());
    view->selectRow(proxy->mapFromSource(m_window->Model()->index(Row(name), 0)).row());
}

QStringList tst_Desktop::JournalColumn(int column) const
{
    QStringList cells;
    const QStandardItemModel* model = m_window->Journals()->Model();
    for (int row = 0; row < model->rowCount(); ++row)
        cells << model->item(row, column)->text();
    return cells;
}

void tst_Desktop::validation_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("source");        // "EXISTING": a folder that exists
    QTest::addColumn<QString>("destination");   // likewise; "SAME": the source again
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("startHours");        // from now
    QTest::addColumn<QString>("weekDays");      // the boxes ticked, "1,5"
    QTest::addColumn<QString>("monthDays");
    QTest::addColumn<bool>("lastDay");
    QTest::addColumn<int>("endHours");          // from the start; 0: no end
    QTest::addColumn<QPoint>("repeat");         // every x hours for y hours; x 0: no repeat
    QTest::addColumn<QString>("problem");       // a part of the message; empty: accepted

    const QString ok = QStringLiteral("EXISTING");
    const int daily = ScheduleEditor::Daily;
    QTest::newRow("a daily copy between two folders is accepted")
        << "nightly" << "copy" << ok << ok << daily << 1 << "" << "" << false << 0 << QPoint() << "";
    QTest::newRow("a plan without a name is refused")
        << "  " << "sleep" << "" << "" << daily << 1 << "" << "" << false << 0 << QPoint() << "Give the plan a name";
    QTest::newRow("a copy without a source folder is refused")
        << "n" << "copy" << "" << ok << daily << 1 << "" << "" << false << 0 << QPoint() << "folder to back up.";
    QTest::newRow("a copy into a folder that does not exist is refused")
        << "n" << "copy" << ok << "/nonexistent/backup" << daily << 1 << "" << "" << false << 0 << QPoint()
        << "does not exist: /nonexistent/backup";
    QTest::newRow("a relative folder is refused")
        << "n" << "copy" << "photos" << ok << daily << 1 << "" << "" << false << 0 << QPoint() << "full paths";
    QTest::newRow("a copy into its own source is refused")
        << "n" << "copy" << ok << "SAME" << daily << 1 << "" << "" << false << 0 << QPoint() << "must be different";
    QTest::newRow("a single run in the past is refused")
        << "n" << "sleep" << "" << "" << int(ScheduleEditor::Once) << -1 << "" << "" << false << 0 << QPoint()
        << "start in the future";
    QTest::newRow("a weekly plan without a day is refused")
        << "n" << "sleep" << "" << "" << int(ScheduleEditor::Weekly) << 1 << "" << "" << false << 0 << QPoint()
        << "one day of the week";
    QTest::newRow("a monthly plan on day 32 is refused")
        << "n" << "sleep" << "" << "" << int(ScheduleEditor::Monthly) << 1 << "" << "1,32" << false << 0 << QPoint()
        << "days 1 to 31, not 32";
    QTest::newRow("a monthly plan with words for days is refused")
        << "n" << "sleep" << "" << "" << int(ScheduleEditor::Monthly) << 1 << "" << "first" << false << 0 << QPoint()
        << "numbers separated by commas";
    QTest::newRow("a monthly plan without days or the last day is refused")
        << "n" << "sleep" << "" << "" << int(ScheduleEditor::Monthly) << 1 << "" << "" << false << 0 << QPoint()
        << "days of the month";
    QTest::newRow("a monthly plan on the last day alone is accepted")
        << "n" << "sleep" << "" << "" << int(ScheduleEditor::Monthly) << 1 << "" << "" << true << 0 << QPoint() << "";
    QTest::newRow("an end before the start is refused")
        << "n" << "sleep" << "" << "" << daily << 1 << "" << "" << false << -2 << QPoint() << "stop before it starts";
    QTest::newRow("a repetition shorter than its interval is refused")
        << "n" << "sleep" << "" << "" << daily << 1 << "" << "" << false << 0 << QPoint(4, 2) << "never repeats";
}

void tst_Desktop::validation()
{
    QFETCH(QString, name);
    QFETCH(QString, operation);
    QFETCH(QString, source);
    QFETCH(QString, destination);
    QFETCH(int, kind);
    QFETCH(int, startHours);
    QFETCH(QString, weekDays);
    QFETCH(QString, monthDays);
    QFETCH(bool, lastDay);
    QFETCH(int, endHours);
    QFETCH(QPoint, repeat);
    QFETCH(QString, problem);

    QTemporaryDir folders;
    const QString existing = folders.path();
    QDir(existing).mkdir(QStringLiteral("into"));
    source.replace(QStringLiteral("EXISTING"), existing);
    destination.replace(QStringLiteral("EXISTING"), existing + QStringLiteral("/into"));
    destination.replace(QStringLiteral("SAME"), existing);

    PlanDialog dialog;
    dialog.SetOperations(kOperations);
    FillTask(&dialog, name, operation, source, destination);
    setCombo(&dialog, "kind", kind);
    const QDateTime start = QDateTime::currentDateTime().addSecs(startHours * 3600);
    child<QDateTimeEdit>(&dialog, "start")->setDateTime(start);
    for (const QString& day : weekDays.split(',', Qt::SkipEmptyParts))
        child<QCheckBox>(&dialog, "weekDay" + day)->setChecked(true);
    child<QLineEdit>(&dialog, "monthDays")->setText(monthDays);
    child<QCheckBox>(&dialog, "lastDay")->setChecked(lastDay);
    child<QCheckBox>(&dialog, "hasEnd")->setChecked(endHours != 0);
    child<QDateTimeEdit>(&dialog, "end")->setDateTime(start.addSecs(endHours * 3600));
    child<QCheckBox>(&dialog, "repeat")->setChecked(repeat.x() > 0);
    child<QSpinBox>(&dialog, "interval")->setValue(qMax(1, repeat.x()));
    child<QSpinBox>(&dialog, "duration")->setValue(repeat.y());

    QSignalSpy submitted(&dialog, &PlanDialog::submitted);
    child<QDialogButtonBox>(&dialog, QString())->button(QDialogButtonBox::Ok)->click();
    QVERIFY2(dialog.ErrorText().contains(problem), qPrintable(dialog.ErrorText()));
    QCOMPARE(dialog.ErrorText().isEmpty(), problem.isEmpty());
    QCOMPARE(submitted.count(), problem.isEmpty() ? 1 : 0);
}

void tst_Desktop::scheduleToTrigger_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QStringList>("ticked");      // object names of check boxes to tick (or untick: "-name")
    QTest::addColumn<QString>("monthDays");
    QTest::addColumn<QPoint>("repeat");
    QTest::addColumn<bool>("hasEnd");
    // type, start, end flag, interval, duration, week days, months, month days, last day
    QTest::addColumn<QStringList>("trigger");

    const QString start = QStringLiteral("2031-03-03 09:30:00");
    QTest::newRow("only when started leaves the start empty")
        << int(ScheduleEditor::OnDemand) << QStringList() << "" << QPoint() << false
        << QStringList{"0", "", "0", "0", "0", "", "", "", "0"};
    QTest::newRow("once fires at the start")
        << int(ScheduleEditor::Once) << QStringList() << "" << QPoint() << false
        << QStringList{"0", start, "0", "0", "0", "", "", "", "0"};
    QTest::newRow("daily with a repetition counts hours as seconds")
        << int(ScheduleEditor::Daily) << QStringList() << "" << QPoint(2, 6) << false
        << QStringList{"1", start, "0", "7200", "21600", "", "", "", "0"};
    QTest::newRow("weekly on Monday and Friday with an end sets the end flag")
        << int(ScheduleEditor::Weekly) << QStringList{"weekDay1", "weekDay5"} << "" << QPoint() << true
        << QStringList{"2", start, "1", "0", "0", "1,5", "", "", "0"};
    QTest::newRow("monthly in every month lists no months")
        << int(ScheduleEditor::Monthly) << QStringList{"lastDay"} << "1, 15" << QPoint() << false
        << QStringList{"3", start, "0", "0", "0", "", "", "1,15", "1"};
    QTest::newRow("monthly in January and July lists those")
        << int(ScheduleEditor::Monthly)
        << QStringList{"-month2", "-month3", "-month4", "-month5", "-month6", "-month8", "-month9", "-month10",
                       "-month11", "-month12"}
        << "31" << QPoint() << false << QStringList{"3", start, "0", "0", "0", "", "1,7", "31", "0"};
}

void tst_Desktop::scheduleToTrigger()
{
    QFETCH(int, kind);
    QFETCH(QStringList, ticked);
    QFETCH(QString, monthDays);
    QFETCH(QPoint, repeat);
    QFETCH(bool, hasEnd);
    QFETCH(QStringList, trigger);

    PlanDialog dialog;
    dialog.SetOperations(kOperations);
    setCombo(&dialog, "kind", kind);
    child<QDateTimeEdit>(&dialog, "start")->setDateTime(QDateTime::fromString("2031-03-03 09:30:00", TimeText::Format()));
    for (const QString& box : ticked)
        child<QCheckBox>(&dialog, box.startsWith('-') ? box.mid(1) : box)->setChecked(!box.startsWith('-'));
    child<QLineEdit>(&dialog, "monthDays")->setText(monthDays);
    child<QCheckBox>(&dialog, "repeat")->setChecked(repeat.x() > 0);
    child<QSpinBox>(&dialog, "interval")->setValue(qMax(1, repeat.x()));
    child<QSpinBox>(&dialog, "duration")->setValue(repeat.y());
    child<QCheckBox>(&dialog, "hasEnd")->setChecked(hasEnd);
    child<QDateTimeEdit>(&dialog, "end")->setDateTime(QDateTime::fromString("2032-01-01 00:00:00", TimeText::Format()));

    const TriggerAttribute made = dialog.NewOperationData().getTriggerAttribute();
    const QStringList fields{QString::number(made.getTriggerType()), made.getStartTime(),
                             QString::number(made.getTriggerEndFlag()), QString::number(made.getInterval()),
                             QString::number(made.getDuration()), made.getWeekDays(), made.getWhichMoths(),
                             made.getMonthDays(), QString::number(made.getDayLastFlag())};
    QCOMPARE(fields, trigger);
    QCOMPARE(made.getEndTime(), hasEnd ? QStringLiteral("2032-01-01 00:00:00") : QString());
}

void tst_Desktop::dialogTabOrder()
{
    PlanDialog dialog;
    dialog.SetOperations(kOperations);
    QStringList order;
    QWidget* widget = child<QWidget>(&dialog, "name");
    do {
        if (widget->focusPolicy() & Qt::TabFocus && !widget->objectName().isEmpty()
            && !widget->objectName().startsWith(QLatin1String("qt_")))
            order << widget->objectName();
        widget = widget->nextInFocusChain();
    } while (widget != child<QWidget>(&dialog, "name") && order.size() < 12);
    QCOMPARE(order.mid(0, 10), (QStringList{"name", "operation", "source", "sourceBrowse", "destination",
                                            "destinationBrowse", "parameter", "kind", "start", "weekDay1"}));
}

void tst_Desktop::mnemonicsUnique_data()
{
    QTest::addColumn<QString>("window");
    QTest::newRow("the main window with its journals") << "main";
    QTest::newRow("the plan dialog") << "plan";
    QTest::newRow("the e-mail dialog") << "email";
}

// Alt+letter reaches one thing only: two labels with the same letter make both keys dead.
void tst_Desktop::mnemonicsUnique()
{
    QFETCH(QString, window);
    std::unique_ptr<QWidget> shown;
    if (window == QLatin1String("main"))
        shown.reset(new MainWindow(CommunAttribute()));
    else if (window == QLatin1String("plan"))
        shown.reset(new PlanDialog);
    else
        shown.reset(new EmailDialog(nullptr));
    QStringList texts;
    for (QLabel* label : shown->findChildren<QLabel*>())
        texts << label->text();
    for (QAbstractButton* button : shown->findChildren<QAbstractButton*>())
        texts << button->text();
    for (QTabBar* tabs : shown->findChildren<QTabBar*>()) {
        for (int i = 0; i < tabs->count(); ++i)
            texts << tabs->tabText(i);
    }
    if (auto* main = qobject_cast<QMainWindow*>(shown.get())) {
        for (QAction* menu : main->menuBar()->actions())
            texts << menu->text();
    }
    QMap<QChar, QString> seen;
    static const QRegularExpression mnemonic(QStringLiteral("&([^&])"));
    for (const QString& text : texts) {
        const QRegularExpressionMatch match = mnemonic.match(QString(text).remove(QStringLiteral("&&")));
        if (!match.hasMatch())
            continue;
        const QChar key = match.captured(1).at(0).toLower();
        QVERIFY2(!seen.contains(key), qPrintable(QStringLiteral("'%1' and '%2'").arg(seen.value(key), text)));
        seen.insert(key, text);
    }
    QVERIFY(seen.size() >= 3);
}

void tst_Desktop::planThroughDialogRunsLive()
{
    const QString source = m_dir->filePath(QStringLiteral("photos"));
    const QString mirror = m_dir->filePath(QStringLiteral("mirror"));
    QVERIFY(makeTree(source, 16 << 20));
    QVERIFY(QDir().mkpath(mirror));
    CreatePlan(QStringLiteral("photos"), QStringLiteral("copy"), source, mirror);
    QCOMPARE(Plan("photos").getTaskAttribute().getOperationParameter(),
             QStringLiteral("source=%1\ndestination=%2").arg(source, mirror).toUtf8());
    QCOMPARE(m_window->Model()->index(Row("photos"), PlanModel::ScheduleColumn).data().toString(),
             QStringLiteral("Only when started"));

    // Every progress value the row shows while the run goes.
    QList<int> shown;
    QObject watch;
    connect(m_window->Model(), &QAbstractItemModel::dataChanged, &watch, [&] {
        const int percent = m_window->Model()->index(Row("photos"), PlanModel::ProgressColumn)
                                .data(PlanModel::ProgressRole).toInt();
        if (percent >= 0 && !shown.contains(percent))
            shown << percent;
    });
    Select(QStringLiteral("photos"));
    m_window->RunPlan();
    QTRY_COMPARE_WITH_TIMEOUT(PlanModel::StatusText(Plan("photos")), QStringLiteral("Succeeded"), 60000);
    QVERIFY2(std::any_of(shown.begin(), shown.end(), [](int p) { return p > 0 && p < 100; }),
             qPrintable(QStringLiteral("progress seen: %1").arg(percents(shown))));
    QTRY_COMPARE_WITH_TIMEOUT(m_window->LastResult(), QStringLiteral("photos: Succeeded"), kWaitMs);
    qInfo("progress shown: %s", qPrintable(percents(shown)));
    QVERIFY(!Plan("photos").getEndTime().isEmpty());

    // The source gone, the next run fails, and its journal says why and what to do.
    QVERIFY(QDir(source).removeRecursively());
    m_window->RunPlan();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->LastResult(), QStringLiteral("photos: Failed"), kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(JournalColumn(JournalsView::ResultColumn).value(0), QStringLiteral("Failed"), kWaitMs);
    QVERIFY(!JournalColumn(JournalsView::ReasonColumn).value(0).isEmpty());
    QVERIFY(!JournalColumn(JournalsView::SolutionColumn).value(0).isEmpty());
    QCOMPARE(JournalColumn(JournalsView::ResultColumn).value(1), QStringLiteral("Succeeded"));   // newest first

    // Edited through the dialog: a weekly schedule shows in words and gets a next start.
    Select(QStringLiteral("photos"));
    m_window->EditPlan();
    PlanDialog* dialog = ShownDialog();
    QVERIFY(dialog);
    QCOMPARE(child<QLineEdit>(dialog, "source")->text(), source);
    setCombo(dialog, "kind", ScheduleEditor::Weekly);
    child<QCheckBox>(dialog, "weekDay3")->setChecked(true);
    child<QDateTimeEdit>(dialog, "start")->setDateTime(QDateTime::fromString("2031-01-01 02:00:00", TimeText::Format()));
    QVERIFY(makeTree(source, 1 << 20));
    dialog->accept();
    QTRY_VERIFY_WITH_TIMEOUT(!Plan("photos").getNextStartTime().isEmpty(), kWaitMs);
    QCOMPARE(m_window->Model()->index(Row("photos"), PlanModel::ScheduleColumn).data().toString(),
             QStringLiteral("Every %1 at 02:00").arg(QLocale().dayName(3, QLocale::ShortFormat)));
}

void tst_Desktop::cancelAndJournals()
{
    // A parameter the service refuses: its reason is shown in the dialog, which stays open.
    PlanDialog* refused = OpenNewPlan();
    QVERIFY(refused);
    FillTask(refused, QStringLiteral("bad"), QStringLiteral("sleep"), QString(), QString(), QStringLiteral("soon"));
    refused->accept();
    QTRY_VERIFY2_WITH_TIMEOUT(refused->ErrorText().contains(QStringLiteral("wants a number of milliseconds")),
                              qPrintable(refused->ErrorText()), kWaitMs);
    QVERIFY(refused->isVisible());
    refused->reject();

    CreatePlan(QStringLiteral("b-wait"), QStringLiteral("sleep"), QString(), QString(), QStringLiteral("60000"));
    CreatePlan(QStringLiteral("a-quick"), QStringLiteral("sleep"), QString(), QString(), QStringLiteral("0"));

    // Sorted by name, descending when the header is clicked again.
    QTableView* view = m_window->PlanView();
    view->sortByColumn(PlanModel::NameColumn, Qt::DescendingOrder);
    QCOMPARE(view->model()->index(view->model()->rowCount() - 1, 0).data().toString(), QStringLiteral("a-quick"));

    // By keys: Ctrl+R runs the selected plan, Ctrl+. cancels its run.
    QApplication::setActiveWindow(m_window.get());
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    view->setFocus();
    Select(QStringLiteral("b-wait"));
    QTest::keyClick(view, Qt::Key_R, Qt::ControlModifier);
    QTRY_COMPARE_WITH_TIMEOUT(PlanModel::StatusText(Plan("b-wait")), QStringLiteral("Running"), kWaitMs);
    QTest::keyClick(view, Qt::Key_Period, Qt::ControlModifier);
    QTRY_COMPARE_WITH_TIMEOUT(PlanModel::StatusText(Plan("b-wait")), QStringLiteral("Cancelled"), kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(m_window->LastResult(), QStringLiteral("b-wait: Cancelled"), kWaitMs);

    Select(QStringLiteral("a-quick"));
    m_window->RunPlan();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->LastResult(), QStringLiteral("a-quick: Succeeded"), kWaitMs);

    // One plan's journals, then all; delete the selected one, then all.
    JournalsView* journals = m_window->Journals();
    m_window->ShowJournals();
    QTRY_COMPARE_WITH_TIMEOUT(JournalColumn(JournalsView::PlanColumn), QStringList{"a-quick"}, kWaitMs);
    journals->ShowPlan(QString());
    QTRY_VERIFY_WITH_TIMEOUT(JournalColumn(JournalsView::PlanColumn).contains("b-wait"), kWaitMs);
    const int before = journals->Model()->rowCount();
    journals->View()->setFocus();
    journals->View()->selectRow(0);
    QTest::keyClick(journals->View(), Qt::Key_Delete);   // the Del key, as the button
    QTRY_COMPARE_WITH_TIMEOUT(journals->Model()->rowCount(), before - 1, kWaitMs);
    QVERIFY2(Row("a-quick") >= 0, "Del in the journals deleted the selected plan");
    journals->SetConfirm([](const QString&) { return false; });
    child<QPushButton>(journals, "deleteAll")->click();
    journals->Reload();
    QTRY_COMPARE_WITH_TIMEOUT(journals->Model()->rowCount(), before - 1, kWaitMs);
    journals->SetConfirm([](const QString&) { return true; });
    child<QPushButton>(journals, "deleteAll")->click();
    QTRY_COMPARE_WITH_TIMEOUT(journals->Model()->rowCount(), 0, kWaitMs);

    // A one-off run is no plan: its events add no row.
    const int plans = m_window->Model()->rowCount();
    RequestNewOperationData once;
    once.getObjectTaskAttribute().setOperationRegisterName(QStringLiteral("sleep"));
    once.getObjectTaskAttribute().setOperationParameter("0");
    m_window->Client()->Send(SingleOperationNewType, QString(), QStringLiteral("once: sleep"),
                             SchedulerProtocol::EncodePayload(once), [](const DesktopClient::Reply&) {});
    QTRY_COMPARE_WITH_TIMEOUT(m_window->LastResult(), QStringLiteral("once: sleep: Succeeded"), kWaitMs);
    QCOMPARE(m_window->Model()->rowCount(), plans);

    // A deleted plan leaves the table; the event reaches every window.
    Select(QStringLiteral("a-quick"));
    m_window->DeletePlan();
    QTRY_COMPARE_WITH_TIMEOUT(Row("a-quick"), -1, kWaitMs);
}

void tst_Desktop::emailSettings()
{
    m_window->ShowEmailSettings();
    auto* dialog = m_window->findChild<EmailDialog*>();
    QVERIFY(dialog);
    QTRY_VERIFY_WITH_TIMEOUT(child<QPushButton>(dialog, "save")->isEnabled(), kWaitMs);
    child<QLineEdit>(dialog, "recipients")->setText(QStringLiteral("ops@example.org"));
    child<QLineEdit>(dialog, "smtpServer")->setText(QStringLiteral("127.0.0.1"));
    child<QLineEdit>(dialog, "sender")->setText(QStringLiteral("backup@example.org"));
    child<QSpinBox>(dialog, "smtpPort")->setValue(1);   // nothing listens there: the test fails at once
    child<QCheckBox>(dialog, "onFailure")->setChecked(true);
    child<QPushButton>(dialog, "save")->click();
    QTRY_COMPARE_WITH_TIMEOUT(dialog->Outcome(), QStringLiteral("Settings saved."), kWaitMs);

    dialog->SetSettings(EmailConfigAttribute());
    dialog->Load();
    QTRY_COMPARE_WITH_TIMEOUT(child<QLineEdit>(dialog, "recipients")->text(), QStringLiteral("ops@example.org"), kWaitMs);
    QCOMPARE(dialog->Settings().getSmtpServerPort(), quint16(1));
    QCOMPARE(dialog->Settings().getOperationFailure(), quint64(1));

    child<QPushButton>(dialog, "sendTest")->click();
    QTRY_VERIFY_WITH_TIMEOUT(dialog->Outcome().startsWith(QStringLiteral("The test mail was not sent: ")), 60000);
    QVERIFY2(dialog->Outcome().size() > 30, qPrintable(dialog->Outcome()));
    qInfo("test mail: %s", qPrintable(dialog->Outcome()));   // the server's error says why
}

void tst_Desktop::bannerAndReconnect()
{
    CreatePlan(QStringLiteral("survivor"), QStringLiteral("sleep"), QString(), QString(), QStringLiteral("0"));
    StopScheduler();
    QTRY_VERIFY_WITH_TIMEOUT(m_window->BannerShown(), kWaitMs);
    QVERIFY(m_window->ServiceState().contains(QStringLiteral("does not answer")));
    Select(QStringLiteral("survivor"));
    m_window->RunPlan();   // refused at once, without waiting for anything
    QVERIFY(PlanModel::StatusText(Plan("survivor")) != QStringLiteral("Running"));

    QSignalSpy subscribed(m_window->Client(), &DesktopClient::subscribed);
    QVERIFY2(StartScheduler(), "the scheduler did not start again");
    QTRY_VERIFY_WITH_TIMEOUT(!m_window->BannerShown(), kWaitMs);
    QVERIFY(m_window->ServiceState().startsWith(QStringLiteral("Connected")));
    // Subscribed again: the run's end arrives as an event.
    QTRY_VERIFY_WITH_TIMEOUT(subscribed.count() > 0, kWaitMs);
    QTRY_VERIFY_WITH_TIMEOUT(Row("survivor") >= 0, kWaitMs);
    Select(QStringLiteral("survivor"));
    m_window->RunPlan();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->LastResult(), QStringLiteral("survivor: Succeeded"), kWaitMs);
}

void tst_Desktop::geometryRemembered()
{
    m_window->resize(777, 444);
    m_window->close();
    MainWindow again{CommunAttribute()};
    QCOMPARE(again.size(), QSize(777, 444));
}

QTEST_MAIN(tst_Desktop)
#include "tst_desktop.moc"
