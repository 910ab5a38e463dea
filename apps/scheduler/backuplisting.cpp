#include "backuplisting.h"

#include "copyjob.h"
#include "triggerschedule.h"
#include "zipjob.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QRegularExpression>

namespace {

QString entry(const QString& kind, const QString& path, qint64 bytes, qint64 files, const QDateTime& time)
{
    return QStringList{kind, path, QString::number(bytes), QString::number(files),
                       time.isValid() ? time.toString(TriggerSchedule::TimeFormat) : QString()}
        .join(QLatin1Char('\t'));
}

} // namespace

QString BackupListing::ArchivePattern(const QString& planUuid)
{
    const QString id = QString(planUuid).remove(QLatin1Char('{')).left(8).toLower();
    return QStringLiteral("-%1-\\d{8}-\\d{6}\\.zip$").arg(QRegularExpression::escape(id));
}

bool BackupListing::Of(const TaskAttribute& task, const QString& planUuid, QStringList& entries, QString& reason)
{
    const QString operation = task.getOperationRegisterName();
    if (operation == QLatin1String("copy")) {
        CopySettings settings;
        if (!CopySettings::Parse(task.getOperationParameter(), settings, reason))
            return false;
        qint64 bytes = 0;
        qint64 files = 0;
        QDateTime newest;
        QDirIterator it(settings.destination, QDir::Files | QDir::Hidden | QDir::NoSymLinks, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            it.next();
            const QFileInfo info = it.fileInfo();
            bytes += info.size();
            ++files;
            if (!newest.isValid() || info.lastModified() > newest)
                newest = info.lastModified();
        }
        if (files > 0)
            entries << entry(QStringLiteral("mirror"), settings.destination, bytes, files, newest);
        return true;
    }
    if (operation == QLatin1String("zip")) {
        ZipSettings settings;
        if (!ZipSettings::Parse(task.getOperationParameter(), settings, reason))
            return false;
        const QRegularExpression pattern(ArchivePattern(planUuid));
        const QDir folder(settings.folders.destination);
        // The name ends in the run's start: by name is oldest first.
        for (const QFileInfo& archive : folder.entryInfoList(QDir::Files, QDir::Name)) {
            if (pattern.match(archive.fileName()).hasMatch())
                entries << entry(QStringLiteral("archive"), archive.absoluteFilePath(), archive.size(), 1,
                                 archive.lastModified());
        }
        return true;
    }
    reason = QStringLiteral("The plan's operation '%1' writes no backup; copy and zip plans do.").arg(operation);
    return false;
}
