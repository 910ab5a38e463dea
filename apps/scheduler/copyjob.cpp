#include "copyjob.h"

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
    "copy wants source=FOLDER and destination=FOLDER lines (exclude=PATTERNS is optional).");
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
                          "optional exclude=PATTERNS (comma-separated wildcards on names or relative paths); "
                          "mirrors the source, copying only what changed; can be cancelled");
}

bool CopySettings::Parse(const QByteArray& block, CopySettings& settings, QString& reason)
{
    OperationParameters parameters;
    const QStringList keys{QStringLiteral("source"), QStringLiteral("destination"), QStringLiteral("exclude")};
    if (!parameters.Parse(block, keys, reason)) {
        reason += QLatin1Char(' ') + kExpected;
        return false;
    }
    settings.source = parameters.Value(keys[0]);
    settings.destination = parameters.Value(keys[1]);
    if (settings.source.isEmpty() || settings.destination.isEmpty()) {
        reason = kExpected;
        return false;
    }
    for (const QString& path : {settings.source, settings.destination}) {
        if (!QDir::isAbsolutePath(path)) {
            reason = QStringLiteral("'%1' is not an absolute path. ").arg(path) + kExpected;
            return false;
        }
    }
    settings.source = QDir::cleanPath(settings.source);
    settings.destination = QDir::cleanPath(settings.destination);
    if (IsWithinPath(settings.destination, settings.source)) {
        reason = QStringLiteral("The destination %1 lies inside the source %2: each copy would copy the last one.")
                     .arg(settings.destination, settings.source);
        return false;
    }
    settings.excludes.clear();
    for (const QString& pattern : parameters.Value(keys[2]).split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QRegularExpression expression(QRegularExpression::wildcardToRegularExpression(pattern.trimmed()));
        if (!expression.isValid()) {
            reason = QStringLiteral("'%1' is not a wildcard pattern. ").arg(pattern.trimmed()) + kExpected;
            return false;
        }
        settings.excludes << expression;
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
    const bool succeeded = Prepare() && CopyAll();
    if (succeeded)
        ReportProgress(m_total, m_total);
    return Conclude(succeeded,
                    QStringLiteral("The copy was cancelled after %1 of %2 bytes; the file being written was dropped.")
                        .arg(m_done)
                        .arg(m_total),
                    reason, solution);
}

bool CopyJob::Prepare()
{
    QString reason;
    if (!CopySettings::Parse(m_task.getOperationParameter(), m_settings, reason))
        return Fail(reason, QStringLiteral("Edit the plan's parameter, then run it again."));
    return CheckFolders() && Walk() && MakeFolders();
}

bool CopyJob::CopyAll()
{
    ReportProgress(0, m_total);
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
    m_done = 0;
    m_lastRatio = 0;
    QString reason, solution;
    if (!m_tree.Walk(m_settings, [this] { return IsCancelled(); }, reason, solution))
        return reason.isEmpty() ? false : Fail(reason, solution);
    m_total = m_tree.totalBytes;
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
    if (target.isFile() && target.size() == file.size
        && target.lastModified().toSecsSinceEpoch() == source.lastModified().toSecsSinceEpoch()) {
        AddDone(file.size);
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
        AddDone(read);
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

void CopyJob::AddDone(qint64 bytes)
{
    m_done += static_cast<quint64>(bytes);
    int total = 0;
    int current = 0;
    if (!CommonTools::CalculateProgress(m_total, m_done, total, current, m_lastRatio))
        return;
    m_lastRatio = static_cast<float>(current) / static_cast<float>(total);
    ReportProgress(m_done, m_total);
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
