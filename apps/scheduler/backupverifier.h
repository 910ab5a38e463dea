#ifndef BACKUPFRAME_SCHEDULER_BACKUPVERIFIER_H
#define BACKUPFRAME_SCHEDULER_BACKUPVERIFIER_H

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

class QFile;
class RunJob;
struct CopySettings;
struct SourceTree;
struct zip;

// Checks a backup on the thread of the job it serves, reporting progress in bytes read and
// stopping on the job's cancel: a mirror against its source file by file, or an archive entry by
// entry through libzip, which checks each entry's CRC as it is read to its end.
class BackupVerifier
{
public:
    explicit BackupVerifier(RunJob& job);

    // Each file of settings.source (after its excludes) against its copy in settings.destination,
    // by size, modification second and content. False with a reason listing what is wrong and a
    // solution, with the walk's when the source cannot be read, or with none when cancelled.
    bool CheckMirror(const CopySettings& settings, QString& reason, QString& solution);
    // Every entry of the archive read whole; with a source, also each of its files against its entry
    // (size, time to the two seconds a zip entry keeps, content). Results as for CheckMirror.
    bool CheckArchive(const QString& archive, const CopySettings* source, QString& reason, QString& solution);

private:
    struct Entry {
        qint64 size = 0;
        qint64 mtime = 0;
        QByteArray hash;
        bool damaged = false;
    };

    bool CompareWithCopy(const QString& name, const QString& from, const QString& to);
    bool SameContent(QFile& from, QFile& to, qint64 size, bool& same);
    bool ReadEntries(zip* archive, QHash<QString, Entry>& entries);
    bool ReadEntry(zip* archive, quint64 index, Entry& entry, QString& problem);
    bool CompareWithEntries(const QString& root, const SourceTree& tree, const QHash<QString, Entry>& entries);
    bool HashFile(QFile& file, QByteArray& hash);
    QString Listed() const;

    RunJob& m_job;
    QStringList m_problems;   // "name (what is wrong)", in the order found
    bool m_damaged = false;   // an entry or the archive itself could not be read
    QByteArray m_buffer;
};

#endif
