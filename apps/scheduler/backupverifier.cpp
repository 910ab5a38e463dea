#include "backupverifier.h"

#include "copyjob.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QFileInfo>

#include <zip.h>

namespace {

constexpr qint64 kChunk = 1024 * 1024;
constexpr int kListed = 20;

const QString kMirrorSolution = QStringLiteral("Run the plan again to bring the copy up to date; if files keep "
                                               "differing in content, check the destination disk.");
const QString kDamagedSolution = QStringLiteral("The archive is damaged: run the plan again to write a new one, "
                                                "and check the destination disk.");
const QString kStaleSolution = QStringLiteral("The source changed since the archive was written: run the plan "
                                              "again to write a new one.");

QString counted(int count, const char* one, const char* many)
{
    return QStringLiteral("%1 %2").arg(count).arg(QLatin1String(count == 1 ? one : many));
}

} // namespace

BackupVerifier::BackupVerifier(RunJob& job)
    : m_job(job)
    , m_buffer(2 * kChunk, Qt::Uninitialized)
{
}

bool BackupVerifier::CheckMirror(const CopySettings& settings, QString& reason, QString& solution)
{
    SourceTree tree;
    if (!tree.Walk(settings, [this] { return m_job.IsCancelled(); }, reason, solution))
        return false;
    m_job.BeginProgress(tree.totalBytes);
    for (const SourceTree::File& file : tree.files) {
        if (!CompareWithCopy(file.relativePath, JoinedPath(settings.source, file.relativePath),
                             JoinedPath(settings.destination, file.relativePath)))
            return false;
    }
    if (m_problems.isEmpty())
        return true;
    reason = QStringLiteral("The copy %1 differs from the source %2 in %3: %4.")
                 .arg(settings.destination, settings.source, counted(m_problems.size(), "file", "files"), Listed());
    solution = kMirrorSolution;
    return false;
}

// Adds what differs to the problems; false only when cancelled.
bool BackupVerifier::CompareWithCopy(const QString& name, const QString& from, const QString& to)
{
    const QFileInfo source(from);
    const QFileInfo copy(to);
    QStringList differences;
    if (!copy.isFile()) {
        m_problems << name + QStringLiteral(" (missing)");
        m_job.AddProgress(static_cast<quint64>(source.size()));
        return true;
    }
    if (copy.size() != source.size())
        differences << QStringLiteral("size");
    if (copy.lastModified().toSecsSinceEpoch() != source.lastModified().toSecsSinceEpoch())
        differences << QStringLiteral("modification time");
    QFile in(from), out(to);
    bool same = true;
    if (copy.size() != source.size()) {
        m_job.AddProgress(static_cast<quint64>(source.size()));
    } else if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::ReadOnly)) {
        const QFile& failed = in.isOpen() ? out : in;
        m_problems << QStringLiteral("%1 (%2 could not be read: %3)")
                          .arg(name, in.isOpen() ? QStringLiteral("the copy") : QStringLiteral("the source"),
                               failed.errorString());
        return true;
    } else if (!SameContent(in, out, source.size(), same)) {
        return false;
    }
    if (!same)
        differences << QStringLiteral("content");
    if (!differences.isEmpty())
        m_problems << QStringLiteral("%1 (different in %2)").arg(name, differences.join(QStringLiteral(" and ")));
    return true;
}

// Reads both files chunk by chunk up to the first difference; false only when cancelled.
bool BackupVerifier::SameContent(QFile& from, QFile& to, qint64 size, bool& same)
{
    char* const left = m_buffer.data();
    char* const right = left + kChunk;
    qint64 done = 0;
    same = true;
    while (same && done < size) {
        if (m_job.IsCancelled())
            return false;
        const qint64 read = from.read(left, qMin(kChunk, size - done));
        same = read > 0 && to.read(right, read) == read && memcmp(left, right, static_cast<size_t>(read)) == 0;
        done += qMax<qint64>(read, 0);
        m_job.AddProgress(static_cast<quint64>(qMax<qint64>(read, 0)));
    }
    m_job.AddProgress(static_cast<quint64>(size - done));   // the part left unread after a difference
    return true;
}

bool BackupVerifier::CheckArchive(const QString& archive, const CopySettings* source, QString& reason,
                                  QString& solution)
{
    SourceTree tree;
    if (source && !tree.Walk(*source, [this] { return m_job.IsCancelled(); }, reason, solution))
        return false;
    int code = ZIP_ER_OK;
    zip_t* handle = zip_open(QFile::encodeName(archive).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &code);
    if (!handle) {
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        reason = QStringLiteral("The archive %1 could not be read: %2.")
                     .arg(archive, QString::fromLocal8Bit(zip_error_strerror(&error)));
        zip_error_fini(&error);
        solution = kDamagedSolution;
        return false;
    }
    QHash<QString, Entry> entries;
    quint64 total = tree.totalBytes;
    for (zip_int64_t i = 0; i < zip_get_num_entries(handle, 0); ++i) {
        zip_stat_t stat;
        if (zip_stat_index(handle, static_cast<zip_uint64_t>(i), 0, &stat) == 0)
            total += stat.size;
    }
    m_job.BeginProgress(total);
    const bool finished =
        ReadEntries(handle, entries) && (!source || CompareWithEntries(source->source, tree, entries));
    zip_discard(handle);
    if (!finished || m_problems.isEmpty())
        return finished;
    reason = QStringLiteral("The archive %1 has %2: %3.")
                 .arg(archive, counted(m_problems.size(), "problem", "problems"), Listed());
    solution = m_damaged ? kDamagedSolution : kStaleSolution;
    return false;
}

// Reads every entry whole, keeping what a comparison with the source needs; false only when cancelled.
bool BackupVerifier::ReadEntries(zip* archive, QHash<QString, Entry>& entries)
{
    for (zip_int64_t i = 0; i < zip_get_num_entries(archive, 0); ++i) {
        Entry entry;
        QString problem;
        if (!ReadEntry(archive, static_cast<zip_uint64_t>(i), entry, problem))
            return false;
        if (!problem.isEmpty()) {
            m_problems << problem;
            m_damaged = true;
        }
        const char* name = zip_get_name(archive, static_cast<zip_uint64_t>(i), ZIP_FL_ENC_GUESS);
        if (name)
            entries.insert(QString::fromUtf8(name), entry);
    }
    return true;
}

bool BackupVerifier::ReadEntry(zip* archive, quint64 index, Entry& entry, QString& problem)
{
    zip_stat_t stat;
    const char* name = zip_get_name(archive, index, ZIP_FL_ENC_GUESS);
    const QString label = name ? QString::fromUtf8(name) : QStringLiteral("entry %1").arg(index);
    zip_file_t* file = zip_stat_index(archive, index, 0, &stat) == 0 ? zip_fopen_index(archive, index, 0) : nullptr;
    if (!file) {
        entry.damaged = true;
        problem = QStringLiteral("%1 (damaged: %2)").arg(label, QString::fromLocal8Bit(zip_strerror(archive)));
        return true;
    }
    entry.size = static_cast<qint64>(stat.size);
    entry.mtime = stat.mtime;
    QCryptographicHash hash(QCryptographicHash::Sha1);
    zip_int64_t read = 0;
    while ((read = zip_fread(file, m_buffer.data(), static_cast<zip_uint64_t>(kChunk))) > 0) {
        if (m_job.IsCancelled()) {
            zip_fclose(file);
            return false;
        }
        hash.addData(QByteArray::fromRawData(m_buffer.constData(), static_cast<int>(read)));
        m_job.AddProgress(static_cast<quint64>(read));
    }
    if (read < 0) {
        entry.damaged = true;
        problem = QStringLiteral("%1 (damaged: %2)").arg(label, QString::fromLocal8Bit(zip_file_strerror(file)));
    }
    zip_fclose(file);
    entry.hash = hash.result();
    return true;
}

// Each source file against its entry; damaged entries are listed once, as damaged. False only when cancelled.
bool BackupVerifier::CompareWithEntries(const QString& root, const SourceTree& tree,
                                        const QHash<QString, Entry>& entries)
{
    for (const SourceTree::File& file : tree.files) {
        const auto entry = entries.constFind(file.relativePath);
        const QFileInfo info(JoinedPath(root, file.relativePath));
        QStringList differences;
        if (entry == entries.constEnd()) {
            m_problems << file.relativePath + QStringLiteral(" (missing from the archive)");
            continue;
        }
        if (entry->damaged)
            continue;
        if (entry->size != info.size())
            differences << QStringLiteral("size");
        // A zip entry keeps the time in two-second steps, rounded down.
        if (qAbs(entry->mtime - info.lastModified().toSecsSinceEpoch()) > 1)
            differences << QStringLiteral("modification time");
        QFile in(info.filePath());
        QByteArray hash;
        if (!in.open(QIODevice::ReadOnly)) {
            m_problems << QStringLiteral("%1 (the source could not be read: %2)")
                              .arg(file.relativePath, in.errorString());
            continue;
        }
        if (!HashFile(in, hash))
            return false;
        if (hash != entry->hash)
            differences << QStringLiteral("content");
        if (!differences.isEmpty())
            m_problems << QStringLiteral("%1 (different in %2)")
                              .arg(file.relativePath, differences.join(QStringLiteral(" and ")));
    }
    return true;
}

bool BackupVerifier::HashFile(QFile& file, QByteArray& result)
{
    QCryptographicHash hash(QCryptographicHash::Sha1);
    qint64 read = 0;
    while ((read = file.read(m_buffer.data(), kChunk)) > 0) {
        if (m_job.IsCancelled())
            return false;
        hash.addData(QByteArray::fromRawData(m_buffer.constData(), static_cast<int>(read)));
        m_job.AddProgress(static_cast<quint64>(read));
    }
    result = hash.result();
    return true;
}

QString BackupVerifier::Listed() const
{
    QString listed = m_problems.mid(0, kListed).join(QStringLiteral(", "));
    if (m_problems.size() > kListed)
        listed += QStringLiteral(", and %1 more").arg(m_problems.size() - kListed);
    return listed;
}
