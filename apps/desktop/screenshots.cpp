#include "screenshots.h"

#include "emaildialog.h"
#include "journalsview.h"
#include "mainwindow.h"
#include "plandialog.h"
#include "planmodel.h"

#include <QApplication>
#include <QDir>
#include <QStandardItemModel>
#include <QTabWidget>
#include <QTableView>
#include <QTimer>

#include <functional>

namespace {

constexpr int kPollMs = 200;
constexpr int kGiveUpMs = 30000;
// Time for the last answers (journals, e-mail settings) to be drawn after they arrived.
constexpr int kSettleMs = 1500;

void save(QWidget* widget, const QString& folder, const QString& name)
{
    const QString path = QDir(folder).filePath(name);
    if (!widget->grab().save(path))
        qWarning("backupframe-desktop: could not write %s", qPrintable(path));
    else
        qInfo("backupframe-desktop: wrote %s", qPrintable(path));
}

// Calls then() once ready() holds, checking every kPollMs; gives up after kGiveUpMs.
void when(const std::function<bool()>& ready, const std::function<void()>& then, int waitedMs = 0)
{
    if (ready() || waitedMs >= kGiveUpMs) {
        QTimer::singleShot(kSettleMs, then);
        return;
    }
    QTimer::singleShot(kPollMs, [=] { when(ready, then, waitedMs + kPollMs); });
}

QWidget* shownChild(MainWindow* window, const char* className)
{
    for (QWidget* widget : window->findChildren<QWidget*>()) {
        if (widget->isWindow() && widget->isVisible() && widget->inherits(className))
            return widget;
    }
    return nullptr;
}

void dialogs(MainWindow* window, const QString& folder)
{
    window->PlanView()->selectRow(0);
    window->EditPlan();
    QTimer::singleShot(kSettleMs, [window, folder] {
        if (QWidget* dialog = shownChild(window, "PlanDialog")) {
            save(dialog, folder, QStringLiteral("plan-dialog.png"));
            dialog->close();
        }
        window->ShowEmailSettings();
        QTimer::singleShot(kSettleMs, [window, folder] {
            if (QWidget* dialog = shownChild(window, "EmailDialog")) {
                save(dialog, folder, QStringLiteral("email-settings.png"));
                dialog->close();
            }
            window->PlanView()->clearSelection();
            window->ShowJournals();
            QTimer::singleShot(kSettleMs, [window, folder] {
                save(window, folder, QStringLiteral("journals.png"));
                QApplication::quit();
            });
        });
    });
}

} // namespace

void TakeScreenshots(MainWindow* window, const QString& folder)
{
    QDir().mkpath(folder);
    when([window] { return window->Model()->rowCount() > 0 || window->BannerShown(); }, [window, folder] {
        if (window->BannerShown()) {
            save(window, folder, QStringLiteral("service-down.png"));
            QApplication::quit();
            return;
        }
        window->PlanView()->clearSelection();
        save(window, folder, QStringLiteral("main-window.png"));
        dialogs(window, folder);
    });
}
