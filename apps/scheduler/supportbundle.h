#ifndef BACKUPFRAME_SCHEDULER_SUPPORTBUNDLE_H
#define BACKUPFRAME_SCHEDULER_SUPPORTBUNDLE_H

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

class SchedulerService;

// What a user sends along with a question: one zip archive with the service's logs, its
// configuration, the e-mail settings without the password, and a summary of the plans and
// of the recent journals. Collected on the main thread, written on any thread.
class SupportBundle
{
public:
    // The newest journals summed up.
    static constexpr int kJournals = 200;

    // Everything the archive will hold, read from the service now.
    static SupportBundle Collect(SchedulerService& service, const QString& dataDir, const QString& configFile);
    // False with the reason when path is not an absolute path to a new file.
    static bool CheckPath(const QString& path, QString& reason);

    // Writes the archive under a temporary name beside path and renames it into place; false
    // with the reason (nothing is left behind then).
    bool Write(const QString& path, QString& reason) const;

private:
    QList<QPair<QString, QByteArray>> m_texts;   // entry name, content
    QList<QPair<QString, QString>> m_files;      // entry name, file to copy in
};

#endif
