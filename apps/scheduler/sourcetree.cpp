#include "sourcetree.h"

#include "copyjob.h"
#include "filefailure.h"

#include <QDirIterator>
#include <QFileInfo>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

QString JoinedPath(const QString& root, const QString& relativePath)
{
    if (relativePath.isEmpty())
        return root;
    return root.endsWith(QLatin1Char('/')) ? root + relativePath : root + QLatin1Char('/') + relativePath;
}

bool IsWithinPath(const QString& inner, const QString& outer)
{
    const QString prefix = outer.endsWith(QLatin1Char('/')) ? outer : outer + QLatin1Char('/');
    return inner == outer || inner.startsWith(prefix);
}

bool MakeFolderPath(const QString& path, int& error)
{
    if (QFileInfo(path).isDir())
        return true;
    const QString parent = QFileInfo(path).path();
    if (parent != path && !MakeFolderPath(parent, error))
        return false;
    if (::mkdir(QFile::encodeName(path).constData(), 0777) == 0)
        return true;
    error = errno;
    if (error != EEXIST)
        return false;
    error = ENOTDIR;   // a file stands where the folder should be
    return QFileInfo(path).isDir();
}

namespace {

QString missingOrNotFolder(const QFileInfo& info)
{
    return info.exists() ? QStringLiteral("is not a folder") : QStringLiteral("does not exist");
}

} // namespace

bool SourceTree::CheckFolders(const CopySettings& settings, const QString& destinationSolution, QString& reason,
                              QString& solution)
{
    const QFileInfo source(settings.source);
    const QFileInfo destination(settings.destination);
    if (!source.isDir()) {
        reason = QStringLiteral("The source folder %1 %2.").arg(settings.source, missingOrNotFolder(source));
        solution = QStringLiteral("Connect the drive that holds it, or correct source= in the plan's parameter, "
                                  "then run the plan again.");
    } else if (!destination.isDir()) {
        reason = QStringLiteral("The destination folder %1 %2.").arg(settings.destination, missingOrNotFolder(destination));
        solution = destinationSolution;
    } else if (IsWithinPath(destination.canonicalFilePath(), source.canonicalFilePath())) {
        reason = QStringLiteral("The destination %1 lies inside the source %2 (through a link).")
                     .arg(settings.destination, settings.source);
        solution = QStringLiteral("Choose a destination outside the source folder, then run the plan again.");
    } else {
        return true;
    }
    return false;
}

bool SourceTree::Walk(const CopySettings& settings, const std::function<bool()>& cancelled, QString& reason,
                      QString& solution)
{
    QStringList pending;
    if (!Start(settings, pending, reason, solution))
        return false;
    while (!pending.isEmpty()) {
        if (cancelled())
            return false;
        const QString folder = pending.takeFirst();
        const QFileInfo info(JoinedPath(settings.source, folder));
        // Asked with the rights this thread has (access() would answer for the real user's): a folder
        // that cannot be listed would otherwise look empty.
        if (::faccessat(AT_FDCWD, QFile::encodeName(info.filePath()).constData(), R_OK | X_OK, AT_EACCESS) != 0) {
            const int error = errno;
            const FileFailure failure = FileFailure::Reading(info.filePath(), error, qt_error_string(error));
            reason = failure.reason;
            solution = failure.solution;
            return false;
        }
        QDirIterator entries(info.filePath(),
                             QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::NoSymLinks);
        while (entries.hasNext()) {
            entries.next();
            const QFileInfo entry = entries.fileInfo();
            const QString relativePath =
                folder.isEmpty() ? entry.fileName() : folder + QLatin1Char('/') + entry.fileName();
            if (settings.IsExcluded(relativePath))
                continue;
            if (entry.isDir()) {
                folders << relativePath;
                pending << relativePath;
            } else if (entry.isFile()) {
                files.push_back({relativePath, entry.size()});
                totalBytes += static_cast<quint64>(entry.size());
            }
        }
    }
    return true;
}

// The walk starts at the root, or at settings.only after the folders above it; a file alone ends it.
bool SourceTree::Start(const CopySettings& settings, QStringList& pending, QString& reason, QString& solution)
{
    folders.clear();
    files.clear();
    totalBytes = 0;
    pending = QStringList{settings.only};
    if (settings.only.isEmpty())
        return true;
    const QStringList parts = settings.only.split(QLatin1Char('/'));
    for (int i = 1; i < parts.size(); ++i)
        folders << parts.mid(0, i).join(QLatin1Char('/'));
    const QFileInfo info(JoinedPath(settings.source, settings.only));
    if (info.isDir() && !info.isSymLink()) {
        folders << settings.only;
        return true;
    }
    pending.clear();
    if (info.isFile() && !info.isSymLink()) {
        files.push_back({settings.only, info.size()});
        totalBytes = static_cast<quint64>(info.size());
        return true;
    }
    reason = QStringLiteral("%1 is not in the backup %2.").arg(settings.only, settings.source);
    solution = QStringLiteral("Correct path= (a file or folder relative to the backup's root), then run again.");
    return false;
}
