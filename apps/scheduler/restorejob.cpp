#include "restorejob.h"

#include "operationparameters.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include <zip.h>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr qint64 kChunk = 1024 * 1024;

const QString kExpected = QStringLiteral(
    "restore wants source=PATH and destination=FOLDER lines (path=SUBPATH and overwrite=0|1 are optional).");
const QString kEditParameter = QStringLiteral("Edit the parameter, then run the restore again.");

// A relative path that cannot climb out of the folder it is joined to.
bool isContained(const QString& path)
{
    return !QDir::isAbsolutePath(path) && !path.split(QLatin1Char('/')).contains(QStringLiteral(".."));
}

} // namespace

QString RestoreSettings::ParameterHelp()
{
    return QStringLiteral("source=PATH (absolute: a copy's destination folder or an archive written by zip) and "
                          "destination=FOLDER (absolute; made when missing) lines, optional path=SUBPATH (a file or "
                          "folder relative to the backup's root; default all) and overwrite=0|1 (1 replaces files "
                          "already at the destination; default 0 keeps them); brings the files back with their "
                          "times and permissions; can be cancelled");
}

bool RestoreSettings::Parse(const QByteArray& block, RestoreSettings& settings, QString& reason)
{
    OperationParameters parameters;
    const QStringList keys{QStringLiteral("source"), QStringLiteral("destination"), QStringLiteral("path"),
                           QStringLiteral("overwrite")};
    if (!parameters.Parse(block, keys, reason) || !parameters.Switch(keys[3], settings.overwrite, reason)) {
        reason += QLatin1Char(' ') + kExpected;
        return false;
    }
    settings.source = parameters.Value(keys[0]);
    settings.destination = parameters.Value(keys[1]);
    settings.path = parameters.Value(keys[2]);
    if (!OperationParameters::AbsolutePaths({settings.source, settings.destination}, true, kExpected, reason))
        return false;
    if (!isContained(settings.path)) {
        reason = QStringLiteral("'%1' is not a path inside the backup (relative, without '..'). ").arg(settings.path)
                 + kExpected;
        return false;
    }
    settings.source = QDir::cleanPath(settings.source);
    settings.destination = QDir::cleanPath(settings.destination);
    settings.path = settings.path.isEmpty() ? QString() : QDir::cleanPath(settings.path);
    if (settings.path == QLatin1String("."))
        settings.path.clear();
    if (IsWithinPath(settings.destination, settings.source)) {
        reason = QStringLiteral("The destination %1 lies inside the backup %2.")
                     .arg(settings.destination, settings.source);
        return false;
    }
    return true;
}

quint64 RestoreJob::Work(QString& reason, QString& solution)
{
    m_copiedFiles = 0;
    const bool succeeded = Prepare() && (QFileInfo(m_restore.source).isDir() ? FromMirror() : FromArchive());
    if (succeeded)
        EndProgress();
    return Conclude(succeeded,
                    QStringLiteral("The restore was cancelled after %1 of %2 bytes; the file being written was "
                                   "dropped.")
                        .arg(ProgressDone())
                        .arg(ProgressTotal()),
                    reason, solution);
}

bool RestoreJob::Prepare()
{
    QString refused;
    if (!RestoreSettings::Parse(m_task.getOperationParameter(), m_restore, refused))
        return Fail(refused, kEditParameter);
    const QFileInfo source(m_restore.source);
    if (!source.isDir() && !source.isFile())
        return Fail(QStringLiteral("The backup %1 %2.")
                        .arg(m_restore.source, source.exists() ? QStringLiteral("is neither a folder nor a file")
                                                               : QStringLiteral("does not exist")),
                    QStringLiteral("Connect the drive that holds it, or correct source= in the parameter, then run "
                                   "the restore again."));
    return MakeFolder(m_restore.destination);
}

// A copy of the mirror's part that keeps, unless told otherwise, whatever stands at the destination.
bool RestoreJob::FromMirror()
{
    m_settings = CopySettings();
    m_settings.source = m_restore.source;
    m_settings.destination = m_restore.destination;
    m_settings.only = m_restore.path;
    m_settings.existing = m_restore.overwrite ? CopySettings::Existing::Replace : CopySettings::Existing::Keep;
    return Mirror();
}

bool RestoreJob::FromArchive()
{
    int code = ZIP_ER_OK;
    zip_t* archive = zip_open(QFile::encodeName(m_restore.source).constData(), ZIP_RDONLY, &code);
    if (!archive) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        const QString message = QString::fromLocal8Bit(zip_error_strerror(&error));
        zip_error_fini(&error);
        return Fail(QStringLiteral("The archive %1 could not be read: %2.").arg(m_restore.source, message),
                    QStringLiteral("Check that it is an archive written by the zip operation; if it is, it is "
                                   "damaged: restore from another archive of the plan."));
    }
    std::vector<Entry> entries;
    const bool restored = SelectEntries(archive, entries) && RestoreEntries(archive, entries);
    zip_discard(archive);
    return restored;
}

// The entries under path=; an entry that would land outside the destination refuses the whole archive.
bool RestoreJob::SelectEntries(zip* archive, std::vector<Entry>& entries)
{
    const zip_int64_t count = zip_get_num_entries(archive, 0);
    for (zip_uint64_t i = 0; i < static_cast<zip_uint64_t>(count); ++i) {
        const char* raw = zip_get_name(archive, i, ZIP_FL_ENC_GUESS);
        Entry entry;
        entry.index = i;
        entry.name = raw ? QString::fromUtf8(raw) : QString();
        if (entry.name.isEmpty() || !isContained(entry.name))
            return Fail(QStringLiteral("The archive %1 holds an entry named '%2', which would be written outside "
                                       "the destination; nothing was restored.")
                            .arg(m_restore.source, entry.name),
                        QStringLiteral("Restore only archives written by the zip operation: this one was made "
                                       "elsewhere or altered."));
        entry.folder = entry.name.endsWith(QLatin1Char('/'));
        if (entry.folder)
            entry.name.chop(1);
        const QString& path = m_restore.path;
        if (!path.isEmpty() && entry.name != path && !entry.name.startsWith(path + QLatin1Char('/')))
            continue;
        zip_stat_t stat;
        zip_uint8_t system = 0;
        zip_uint32_t attributes = 0;
        if (zip_stat_index(archive, i, 0, &stat) < 0)
            return FailEntry(entry.name, QString::fromLocal8Bit(zip_strerror(archive)));
        entry.size = static_cast<qint64>(stat.size);
        entry.mtime = stat.mtime;
        if (zip_file_get_external_attributes(archive, i, 0, &system, &attributes) == 0 && system == ZIP_OPSYS_UNIX
            && (attributes >> 16) != 0)
            entry.mode = static_cast<int>((attributes >> 16) & 0777);
        entries.push_back(entry);
    }
    if (!m_restore.path.isEmpty() && entries.empty())
        return Fail(QStringLiteral("%1 is not in the backup %2.").arg(m_restore.path, m_restore.source),
                    QStringLiteral("Correct path= (a file or folder relative to the backup's root), then run again."));
    return true;
}

bool RestoreJob::RestoreEntries(zip* archive, const std::vector<Entry>& entries)
{
    quint64 total = 0;
    for (const Entry& entry : entries)
        total += entry.folder ? 0 : static_cast<quint64>(entry.size);
    BeginProgress(total);
    m_chunk.resize(kChunk);
    for (const Entry& entry : entries) {
        if (IsCancelled())
            return false;
        if (entry.folder ? !MakeFolder(JoinedPath(m_restore.destination, entry.name)) : !RestoreEntry(archive, entry))
            return false;
    }
    return true;
}

bool RestoreJob::RestoreEntry(zip* archive, const Entry& entry)
{
    const QString to = JoinedPath(m_restore.destination, entry.name);
    const QFileInfo target(to);
    if (!m_restore.overwrite && (target.exists() || target.isSymLink())) {
        AddProgress(static_cast<quint64>(entry.size));
        return true;
    }
    if (!MakeFolder(target.path()))
        return false;
    // A save file refuses to replace a file it may not write.
    if (target.isFile() && !target.isWritable())
        QFile::setPermissions(to, target.permissions() | QFileDevice::WriteOwner);
    zip_file_t* in = zip_fopen_index(archive, entry.index, 0);
    if (!in)
        return FailEntry(entry.name, QString::fromLocal8Bit(zip_strerror(archive)));
    QSaveFile out(to);
    if (!out.open(QIODevice::WriteOnly)) {
        zip_fclose(in);
        return FailWriting(to, out.errorString());
    }
    const bool extracted = Extract(in, out, entry);
    zip_fclose(in);
    if (!extracted) {
        out.cancelWriting();   // the temporary file goes; what stood under the real name stays
        return false;
    }
    if (!out.commit())
        return FailWriting(to, out.errorString());
    ++m_copiedFiles;
    return KeepEntryAttributes(to, entry);
}

// libzip checks the entry's CRC when it reads its last byte, so a damaged entry fails here.
bool RestoreJob::Extract(zip_file* in, QSaveFile& out, const Entry& entry)
{
    zip_int64_t read = 0;
    while ((read = zip_fread(in, m_chunk.data(), static_cast<zip_uint64_t>(kChunk))) > 0) {
        if (IsCancelled())
            return false;
        if (out.write(m_chunk.constData(), read) != read)
            return FailWriting(out.fileName(), out.errorString());
        AddProgress(static_cast<quint64>(read));
    }
    return read == 0 || FailEntry(entry.name, QString::fromLocal8Bit(zip_file_strerror(in)));
}

// The mode comes without set-id bits, whatever the archive says.
bool RestoreJob::KeepEntryAttributes(const QString& path, const Entry& entry)
{
    const QByteArray name = QFile::encodeName(path);
    const timespec times[2] = {{0, UTIME_OMIT}, {entry.mtime, 0}};
    if (::utimensat(AT_FDCWD, name.constData(), times, 0) == 0
        && (entry.mode < 0 || ::chmod(name.constData(), static_cast<mode_t>(entry.mode)) == 0))
        return true;
    return FailWriting(path, qt_error_string(errno));
}

bool RestoreJob::MakeFolder(const QString& path)
{
    int error = 0;
    if (MakeFolderPath(path, error))
        return true;
    if (error == ENOTDIR)
        return Fail(QStringLiteral("The folder %1 could not be made: a file of that name stands in its place.")
                        .arg(path),
                    QStringLiteral("Move or rename that file, or restore into another folder."));
    return Fail(FileFailure::Writing(QStringLiteral("The folder %1 could not be made").arg(path),
                                     QFileInfo(path).path(), error, qt_error_string(error)));
}

bool RestoreJob::FailEntry(const QString& name, const QString& message)
{
    return Fail(QStringLiteral("The entry %1 of the archive %2 could not be read: %3.")
                    .arg(name, m_restore.source, message),
                QStringLiteral("The archive is damaged: restore from another archive of the plan (verify tells "
                               "which entries are damaged)."));
}
