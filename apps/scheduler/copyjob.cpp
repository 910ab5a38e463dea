#include "copyjob.h"

#include "backupverifier.h"
#include "operationparameters.h"
#include "protocol.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>

namespace {

constexpr qint64 kChunk = 1024 * 1024;

const QString kExpected = QStringLiteral(
    "copy wants source=FOLDER and destination=FOLDER lines (exclude=PATTERNS and verify=0|1 are optional).");
const QString kExcludeHint = QStringLiteral("or leave it out with exclude=PATTERN");

// The permissions of the file itself: the "User" flags say what this process may do, not the mode.
QFileDevice::Permissions modeOf(const QFileInfo& info)
{
    return info.permissions() & ~(QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser);
}

} // namespace

QString CopySettings::ParameterHelp()
{
    return QStringLiteral("source=FOLDER and destination=FOLDER lines (absolute; the destination must exist), "
                          "optional exclude=PATTERNS (comma-separated wildcards on names or relative paths) and "
                          "verify=0|1 (1 compares the mirror with the source afterwards; default 0); "
                          "mirrors the source, copying only what changed; can be cancelled");
}

bool CopySettings::Parse(const QByteArray& block, CopySettings& settings, QString& reason)
{
    OperationParameters parameters;
    const QStringList keys{QStringLiteral("source"), QStringLiteral("destination"), QStringLiteral("exclude"),
                           QStringLiteral("verify")};
    if (!parameters.Parse(block, keys, reason)) {
        reason += QLatin1Char(' ') + kExpected;
        return false;
    }
    settings.source = parameters.Value(keys[0]);
    settings.destination = parameters.Value(keys[1]);
    if (!OperationParameters::AbsolutePaths({settings.source, settings.destination}, true, kExpected, reason))
        return false;
    settings.source = QDir::cleanPath(settings.source);
    settings.destination = QDir::cleanPath(settings.destination);
    if (IsWithinPath(settings.destination, settings.source)) {
        reason = QStringLiteral("The destination %1 lies inside the source %2: each copy would copy the last one.")
                     .arg(settings.destination, settings.source);
        return false;
    }
    if (!parameters.Switch(keys[3], settings.verify, reason)) {
        reason += QLatin1Char(' ') + kExpected;
        return false;
    }
    return ParseExcludes(parameters.Value(keys[2]), kExpected, settings.excludes, reason);
}

bool CopySettings::ParseExcludes(const QString& patterns, const QString& expected,
                                 QList<QRegularExpression>& excludes, QString& reason)
{
    excludes.clear();
    for (const QString& pattern : patterns.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QRegularExpression expression(QRegularExpression::wildcardToRegularExpression(pattern.trimmed()));
        if (!expression.isValid()) {
            reason = QStringLiteral("'%1' is not a wildcard pattern. ").arg(pattern.trimmed()) + expected;
            return false;
        }
        excludes << expression;
    }
    return true;
}

bool CopySettings::IsExcluded(const QString& relativePath) const
{
    const QString name = relativePath.section(QLatin1Char('/'), -1);
    return std::any_of(excludes.begin(), excludes.end(), [&](const QRegularExpression& expression) {
        return expression.match(name).hasMatch() || expression.match(relativePath).hasMatch();
    });
}

quint64 CopyJob::Work(QString& reason, QString& solution)
{
    m_copiedFiles = 0;
    QString refused;
    const bool succeeded =
        (CopySettings::Parse(m_task.getOperationParameter(), m_settings, refused)
         || Fail(refused, QStringLiteral("Edit the plan's parameter, then run it again.")))
        && Mirror() && (!m_settings.verify || Verify());
    if (succeeded)
        EndProgress();
    return Conclude(succeeded,
                    QStringLiteral("The copy was cancelled after %1 of %2 bytes; the file being written was dropped.")
                        .arg(ProgressDone())
                        .arg(ProgressTotal()),
                    reason, solution);
}

bool CopyJob::Mirror()
{
    return CheckFolders() && Walk() && MakeFolders() && CopyAll();
}

// The mirror against the source, as a phase of its own with progress from 0 again.
bool CopyJob::Verify()
{
    EndProgress();
    QString reason, solution;
    return BackupVerifier(*this).CheckMirror(m_settings, reason, solution)
           || (reason.isEmpty() ? false : Fail(reason, solution));
}

bool CopyJob::CopyAll()
{
    BeginProgress(m_tree.totalBytes);
    m_buffer.resize(kChunk);
    for (const SourceFile& file : m_tree.files) {
        if (IsCancelled() || !CopyOne(file))
            return false;
    }
    return true;
}

bool CopyJob::CheckFolders()
{
    QString reason, solution;
    return SourceTree::CheckFolders(m_settings,
                                    QStringLiteral("Connect the drive that holds it or create the folder (the copy "
                                                   "does not, so that a missing drive is not filled in its place), or "
                                                   "correct destination= in the plan's parameter, then run the plan "
                                                   "again."),
                                    reason, solution)
           || Fail(reason, solution);
}

bool CopyJob::Walk()
{
    QString reason, solution;
    if (!m_tree.Walk(m_settings, [this] { return IsCancelled(); }, reason, solution))
        return reason.isEmpty() ? false : Fail(reason, solution);
    return true;
}

// Parents come first in the tree, so each folder is made in one that exists.
bool CopyJob::MakeFolders()
{
    for (const QString& folder : qAsConst(m_tree.folders)) {
        const QString path = JoinedPath(m_settings.destination, folder);
        if (::mkdir(QFile::encodeName(path).constData(), 0777) == 0)
            continue;
        const int error = errno;
        if (error == EEXIST && QFileInfo(path).isDir())
            continue;
        if (error == EEXIST)
            return Fail(QStringLiteral("The folder %1 could not be made: a file of that name stands in its place.")
                            .arg(path),
                        QStringLiteral("Move or rename that file, then run the plan again."));
        return Fail(FileFailure::Writing(QStringLiteral("The folder %1 could not be made").arg(path),
                                         QFileInfo(path).path(), error, qt_error_string(error)));
    }
    return true;
}

bool CopyJob::CopyOne(const SourceFile& file)
{
    const QString from = JoinedPath(m_settings.source, file.relativePath);
    const QString to = JoinedPath(m_settings.destination, file.relativePath);
    const QFileInfo source(from);
    if (!source.exists())
        return FailReading(from, qt_error_string(ENOENT));
    if (source.size() != file.size)
        return FailChangedSize(from, file.size);
    const QFileInfo target(to);
    if (IsKept(target, source)) {
        AddProgress(static_cast<quint64>(file.size));
        return true;
    }
    // A save file refuses to replace a copy it may not write: a read-only source made it so.
    if (target.isFile() && !target.isWritable())
        QFile::setPermissions(to, modeOf(target) | QFileDevice::WriteOwner);
    QFile in(from);
    if (!in.open(QIODevice::ReadOnly))
        return FailReading(from, in.errorString());
    QSaveFile out(to);
    if (!out.open(QIODevice::WriteOnly))
        return FailWriting(to, out.errorString());
    if (!Transfer(in, out, file)) {
        out.cancelWriting();   // the temporary file goes with out; the copy under the real name stays as it was
        return false;
    }
    if (!out.commit())
        return FailWriting(to, out.errorString());
    ++m_copiedFiles;
    return KeepAttributes(from, to);
}

bool CopyJob::Transfer(QFile& in, QSaveFile& out, const SourceFile& file)
{
    qint64 left = file.size;
    while (left > 0) {
        if (IsCancelled())
            return false;
        const qint64 read = in.read(m_buffer.data(), qMin(left, kChunk));
        if (read < 0)
            return FailReading(in.fileName(), in.errorString());
        if (read == 0)
            return FailChangedSize(in.fileName(), file.size);
        if (out.write(m_buffer.constData(), read) != read)
            return FailWriting(out.fileName(), out.errorString());
        left -= read;
        AddProgress(static_cast<quint64>(read));
    }
    char more = 0;
    if (in.read(&more, 1) != 0)
        return FailChangedSize(in.fileName(), file.size);
    return true;
}

bool CopyJob::KeepAttributes(const QString& from, const QString& to)
{
    const QFileInfo source(from);
    QFile copy(to);
    if (!copy.open(QIODevice::ReadOnly)
        || !copy.setFileTime(source.lastModified(), QFileDevice::FileModificationTime)
        || !copy.setPermissions(modeOf(source)))
        return FailWriting(to, copy.errorString());
    return true;
}

// A file already at the destination stays when it is up to date, or whatever it is when told to keep.
bool CopyJob::IsKept(const QFileInfo& target, const QFileInfo& source) const
{
    switch (m_settings.existing) {
    case CopySettings::Existing::Keep:
        return target.exists() || target.isSymLink();
    case CopySettings::Existing::Replace:
        return false;
    case CopySettings::Existing::ReplaceChanged:
        break;
    }
    return target.isFile() && target.size() == source.size()
           && target.lastModified().toSecsSinceEpoch() == source.lastModified().toSecsSinceEpoch();
}

// A file gone since the walk is told as such, whatever error reading it gave.
bool CopyJob::FailReading(const QString& path, const QString& error)
{
    const int code = QFileInfo::exists(path) ? FileFailure::ErrorOf(error) : ENOENT;
    return Fail(FileFailure::Reading(path, code, error));
}

bool CopyJob::FailWriting(const QString& path, const QString& error)
{
    return Fail(FileFailure::Writing(QStringLiteral("%1 could not be written").arg(path), QFileInfo(path).path(),
                                     FileFailure::ErrorOf(error), error));
}

bool CopyJob::FailChangedSize(const QString& path, qint64 expected)
{
    return Fail(QStringLiteral("%1 changed size during the copy (%2 bytes when the copy began, %3 now).")
                    .arg(path)
                    .arg(expected)
                    .arg(QFileInfo(path).size()),
                QStringLiteral("It is being written while the plan runs: run the plan again when it is not in "
                               "use, %1.")
                    .arg(kExcludeHint));
}
