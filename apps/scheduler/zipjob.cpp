#include "zipjob.h"

#include "backupverifier.h"
#include "operationparameters.h"
#include "protocol.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

#include <zip.h>

#include <cerrno>

namespace {

const QString kExpected = QStringLiteral(
    "zip wants source=FOLDER and destination=FOLDER lines (exclude=PATTERNS, keep=NUMBER and verify=0|1 are "
    "optional).");
const QString kCopyExpected = QStringLiteral(
    "copy wants source=FOLDER and destination=FOLDER lines (exclude=PATTERNS and verify=0|1 are optional).");
const QString kStampFormat = QStringLiteral("yyyyMMdd-hhmmss");
constexpr double kProgressPrecision = 0.001;
constexpr int kNameTries = 3;

// The permission bits of a file as a zip entry's external attributes hold them for unix.
zip_uint32_t unixAttributes(const QFileInfo& info, bool folder)
{
    zip_uint32_t mode = folder ? 0040000u : 0100000u;
    const QFileDevice::Permissions p = info.permissions();
    const QPair<QFileDevice::Permission, zip_uint32_t> bits[] = {
        {QFileDevice::ReadOwner, 0400}, {QFileDevice::WriteOwner, 0200}, {QFileDevice::ExeOwner, 0100},
        {QFileDevice::ReadGroup, 040},  {QFileDevice::WriteGroup, 020},  {QFileDevice::ExeGroup, 010},
        {QFileDevice::ReadOther, 04},   {QFileDevice::WriteOther, 02},   {QFileDevice::ExeOther, 01}};
    for (const auto& bit : bits)
        mode |= p.testFlag(bit.first) ? bit.second : 0u;
    return mode << 16;
}

QString zipError(zip_t* archive)
{
    return QString::fromLocal8Bit(zip_error_strerror(zip_get_error(archive)));
}

// The errno behind a libzip error, or 0 when it has none.
int systemError(const zip_error_t* error)
{
    return zip_error_system_type(error) == ZIP_ET_SYS ? zip_error_code_system(error) : 0;
}

} // namespace

QString ZipSettings::ParameterHelp()
{
    return QStringLiteral("source=FOLDER and destination=FOLDER lines (absolute; the destination must exist), "
                          "optional exclude=PATTERNS (as for copy) and keep=NUMBER (archives of the plan to keep, "
                          "0 keeps all; default 0) and verify=0|1 (1 reads the new archive back, checking every "
                          "entry, before it is kept; default 0); writes the source into a new PLAN-ID-yyyyMMdd-hhmmss.zip "
                          "(the plan's name, the start of its id, the run's start); can be cancelled");
}

// The folder keys are checked by the copy's own rules, so that both operations accept the same folders.
bool ZipSettings::Parse(const QByteArray& block, ZipSettings& settings, QString& reason)
{
    OperationParameters parameters;
    const QStringList keys{QStringLiteral("source"), QStringLiteral("destination"), QStringLiteral("exclude"),
                           QStringLiteral("keep"), QStringLiteral("verify")};
    if (!parameters.Parse(block, keys, reason)) {
        reason += QLatin1Char(' ') + kExpected;
        return false;
    }
    const QString keep = parameters.Value(keys[3]);
    bool ok = true;
    settings.keep = keep.isEmpty() ? 0 : keep.toInt(&ok);
    if (!ok || settings.keep < 0) {
        reason = QStringLiteral("'%1' is not a number of archives to keep (0 keeps all). ").arg(keep) + kExpected;
        return false;
    }
    const QByteArray folders = QStringLiteral("source=%1\ndestination=%2\nexclude=%3\nverify=%4")
                                   .arg(parameters.Value(keys[0]), parameters.Value(keys[1]), parameters.Value(keys[2]),
                                        parameters.Value(keys[4]))
                                   .toUtf8();
    if (CopySettings::Parse(folders, settings.folders, reason))
        return true;
    reason.replace(kCopyExpected, kExpected);
    return false;
}

quint64 ZipJob::Work(QString& reason, QString& solution)
{
    m_archive.clear();
    const bool succeeded = Prepare() && Write() && Prune();
    if (succeeded)
        ReportProgress(m_total, m_total);
    return Conclude(succeeded,
                    QStringLiteral("The zip backup was cancelled after %1 of %2 bytes; no archive was left.")
                        .arg(m_done)
                        .arg(m_total),
                    reason, solution);
}

bool ZipJob::Prepare()
{
    QString reason;
    if (!ZipSettings::Parse(m_task.getOperationParameter(), m_settings, reason))
        return Fail(reason, QStringLiteral("Edit the plan's parameter, then run it again."));
    return CheckFolders() && Walk() && ChooseName();
}

bool ZipJob::CheckFolders()
{
    QString reason, solution;
    return SourceTree::CheckFolders(m_settings.folders,
                                    QStringLiteral("Connect the drive that holds it or create the folder, or correct "
                                                   "destination= in the plan's parameter, then run the plan again."),
                                    reason, solution)
           || Fail(reason, solution);
}

bool ZipJob::Walk()
{
    m_done = 0;
    QString reason, solution;
    if (!m_tree.Walk(m_settings.folders, [this] { return IsCancelled(); }, reason, solution))
        return reason.isEmpty() ? false : Fail(reason, solution);
    m_total = m_tree.totalBytes;
    if (m_tree.folders.isEmpty() && m_tree.files.empty())
        return Fail(QStringLiteral("The source folder %1 holds nothing to back up.").arg(m_settings.folders.source),
                    QStringLiteral("Check source= and exclude= in the plan's parameter, then run the plan again."));
    return true;
}

// "<plan name>-<first part of the plan's id>": a name a user recognises, and still one per plan
// when two plans share a name. Without a plan name (a job run on its own), the task's name.
QString ZipJob::ArchiveBase() const
{
    static const QRegularExpression unsafe(QStringLiteral("[^A-Za-z0-9._-]+"));
    static const QRegularExpression taskId(QStringLiteral("^task_\\{?([0-9a-fA-F]{8})"));
    QString base = m_planName.isEmpty() ? m_task.getTaskName() : m_planName;
    base = base.replace(unsafe, QStringLiteral("_")).left(40);
    const QRegularExpressionMatch id = taskId.match(m_task.getTaskName());
    if (!m_planName.isEmpty() && id.hasMatch())
        base += QLatin1Char('-') + id.captured(1).toLower();
    return base.isEmpty() ? QStringLiteral("backup") : base;
}

// Names the archive after the task and this second; a second already taken by an archive of the
// task is waited out rather than overwritten.
bool ZipJob::ChooseName()
{
    const QString task = ArchiveBase();
    for (int attempt = 0; attempt < kNameTries; ++attempt) {
        const QDateTime now = QDateTime::currentDateTime();
        m_name = QStringLiteral("%1-%2.zip").arg(task, now.toString(kStampFormat));
        if (!QFileInfo::exists(QDir(m_settings.folders.destination).filePath(m_name)))
            return true;
        if (SleepUnlessCancelled(1000 - now.time().msec()))
            return false;
    }
    return Fail(QStringLiteral("%1 already exists in %2.").arg(m_name, m_settings.folders.destination),
                QStringLiteral("Move it away (its clock may be ahead), then run the plan again."));
}

bool ZipJob::Write()
{
    const QDir destination(m_settings.folders.destination);
    m_partPath = destination.filePath(QStringLiteral(".%1.part").arg(m_name));
    zip_t* archive = Open();
    if (!archive)
        return false;
    ReportProgress(0, m_total);
    if (!AddEntries(archive) || !Close(archive) || !Verify()) {
        QFile::remove(m_partPath);
        return false;
    }
    const QString target = destination.filePath(m_name);
    if (!QFile::rename(m_partPath, target)) {   // never over an existing file
        QFile::remove(m_partPath);
        return Fail(QStringLiteral("%1 could not be renamed to %2.").arg(m_partPath, m_name),
                    QStringLiteral("Check that nothing else writes %1, then run the plan again.").arg(target));
    }
    m_archive = target;
    return true;
}

// With verify=1, the archive is read back whole before it gets its name: a damaged one is not kept.
bool ZipJob::Verify()
{
    if (!m_settings.folders.verify)
        return true;
    QString reason, solution;
    if (BackupVerifier(*this).CheckArchive(m_partPath, nullptr, reason, solution))
        return true;
    return reason.isEmpty() ? false : Fail(reason + QStringLiteral(" It was deleted."), solution);
}

// Opened through a file source, whose error keeps the system's error number (zip_open's does not).
zip_t* ZipJob::Open()
{
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = zip_source_file_create(QFile::encodeName(m_partPath).constData(), 0, -1, &error);
    zip_t* archive = source ? zip_open_from_source(source, ZIP_CREATE | ZIP_TRUNCATE, &error) : nullptr;
    if (!archive) {
        zip_source_free(source);
        // libzip calls a refused look at the folder a read error: the system's own text says more.
        const int system = systemError(&error);
        Fail(FileFailure::Writing(QStringLiteral("%1 could not be made").arg(m_partPath),
                                  m_settings.folders.destination, system,
                                  system ? qt_error_string(system) : QString::fromLocal8Bit(zip_error_strerror(&error))));
    }
    zip_error_fini(&error);
    return archive;
}

bool ZipJob::AddEntries(zip* archive)
{
    const auto entryFailed = [&](const QString& path) {
        const QString message = zipError(archive);
        zip_discard(archive);
        return Fail(QStringLiteral("%1 could not be added to the archive: %2.").arg(path, message),
                    QStringLiteral("Run the plan again; if it fails again, leave the entry out with "
                                   "exclude=PATTERN."));
    };
    for (const QString& folder : qAsConst(m_tree.folders)) {
        const QFileInfo info(JoinedPath(m_settings.folders.source, folder));
        const zip_int64_t index = zip_dir_add(archive, folder.toUtf8().constData(), ZIP_FL_ENC_UTF_8);
        if (index < 0 || zip_file_set_mtime(archive, index, info.lastModified().toSecsSinceEpoch(), 0) < 0
            || zip_file_set_external_attributes(archive, index, 0, ZIP_OPSYS_UNIX, unixAttributes(info, true)) < 0)
            return entryFailed(info.filePath());
    }
    for (const SourceTree::File& entry : m_tree.files) {
        const QString& file = entry.relativePath;
        if (IsCancelled()) {
            zip_discard(archive);
            return false;
        }
        const QFileInfo info(JoinedPath(m_settings.folders.source, file));
        zip_source_t* source = zip_source_file(archive, QFile::encodeName(info.filePath()).constData(), 0, -1);
        if (!source)
            return entryFailed(info.filePath());
        const zip_int64_t index = zip_file_add(archive, file.toUtf8().constData(), source, ZIP_FL_ENC_UTF_8);
        if (index < 0) {
            zip_source_free(source);
            return entryFailed(info.filePath());
        }
        if (zip_file_set_mtime(archive, index, info.lastModified().toSecsSinceEpoch(), 0) < 0
            || zip_file_set_external_attributes(archive, index, 0, ZIP_OPSYS_UNIX, unixAttributes(info, false)) < 0)
            return entryFailed(info.filePath());
    }
    return true;
}

// Writes the archive: libzip reports its progress from 0 to 1 and asks between pieces whether to stop.
bool ZipJob::Close(zip* archive)
{
    zip_register_progress_callback_with_state(
        archive, kProgressPrecision,
        [](zip_t*, double ratio, void* job) { static_cast<ZipJob*>(job)->OnProgress(ratio); }, nullptr, this);
    zip_register_cancel_callback_with_state(
        archive, [](zip_t*, void* job) { return static_cast<ZipJob*>(job)->IsCancelled() ? 1 : 0; }, nullptr, this);
    if (zip_close(archive) == 0)
        return true;
    const int code = zip_error_code_zip(zip_get_error(archive));
    const int system = systemError(zip_get_error(archive));
    const QString message = zipError(archive);
    zip_discard(archive);
    if (code == ZIP_ER_CANCELLED && IsCancelled())
        return false;
    if (code == ZIP_ER_OPEN || code == ZIP_ER_READ)
        return FailReadingSource(message);
    return Fail(FileFailure::Writing(QStringLiteral("The archive %1 could not be written").arg(m_partPath),
                                     m_settings.folders.destination, system, message));
}

// libzip reads the source files only while it writes the archive, and does not say which one
// failed: the first that cannot be opened now is named.
bool ZipJob::FailReadingSource(const QString& message)
{
    for (const SourceTree::File& entry : m_tree.files) {
        const QString path = JoinedPath(m_settings.folders.source, entry.relativePath);
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return Fail(FileFailure::Reading(
                path, QFileInfo::exists(path) ? FileFailure::ErrorOf(file.errorString()) : ENOENT, file.errorString()));
    }
    return Fail(QStringLiteral("The archive %1 could not be written: a file of the source could not be read (%2).")
                    .arg(m_partPath, message),
                QStringLiteral("Check that every file of the source can be read, or leave it out with "
                               "exclude=PATTERN, then run the plan again."));
}

void ZipJob::OnProgress(double ratio)
{
    const quint64 done = static_cast<quint64>(qBound(0.0, ratio, 1.0) * static_cast<double>(m_total));
    if (done <= m_done && m_done != 0)
        return;
    m_done = done;
    ReportProgress(m_done, m_total);
}

QString ZipJob::ArchivePattern() const
{
    const QString task = m_name.left(m_name.size() - kStampFormat.size() - 5);   // "-" + stamp + ".zip"
    return QStringLiteral("^%1-\\d{8}-\\d{6}\\.zip$").arg(QRegularExpression::escape(task));
}

// Deletes the task's oldest archives beyond keep; only names of the task's own pattern are touched.
bool ZipJob::Prune()
{
    if (m_settings.keep <= 0)
        return true;
    const QDir destination(m_settings.folders.destination);
    QStringList archives =
        destination.entryList(QDir::Files | QDir::Hidden, QDir::Name).filter(QRegularExpression(ArchivePattern()));
    archives.sort();
    for (int i = 0; i < archives.size() - m_settings.keep; ++i) {
        if (!QFile::remove(destination.filePath(archives[i])))
            return Fail(QStringLiteral("The archive %1 was written but the old archive %2 could not be deleted.")
                            .arg(m_name, destination.filePath(archives[i])),
                        QStringLiteral("Check that the service's user may delete files in the destination folder, "
                                       "then run the plan again."));
    }
    return true;
}
