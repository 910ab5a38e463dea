#ifndef BACKUPFRAME_SCHEDULER_RESTOREJOB_H
#define BACKUPFRAME_SCHEDULER_RESTOREJOB_H

#include "copyjob.h"

#include <ctime>
#include <vector>

struct zip;
struct zip_file;

// What a restore is told by its parameter block: the backup (a copy's folder or an archive), the
// folder to restore into, what to restore of the backup, and whether files already there go.
struct RestoreSettings {
    QString source;
    QString destination;
    QString path;   // relative to the backup's root, clean; empty restores all
    bool overwrite = false;

    // One line for the operation list: what the parameter block holds.
    static QString ParameterHelp();
    // False with a reason that says what is expected when the block is not a restore's parameter.
    static bool Parse(const QByteArray& block, RestoreSettings& settings, QString& reason);
};

// Brings files of a backup back into a folder, made when missing, at their paths relative to the
// backup's root: from a copy's folder it is a copy limited to path= that keeps what stands at the
// destination (unless told to overwrite); from an archive each entry is written the same way,
// under a temporary name renamed into place once whole, with the entry's time and mode. Work
// runs on the job's thread.
class RestoreJob : public CopyJob
{
public:
    using CopyJob::CopyJob;

    // Files written by the last Work (not those kept); read it after Wait.
    int RestoredFiles() const { return m_copiedFiles; }

protected:
    quint64 Work(QString& reason, QString& solution) override;

private:
    struct Entry {
        quint64 index = 0;
        QString name;   // without a folder's trailing '/'
        qint64 size = 0;
        time_t mtime = 0;
        int mode = -1;   // unix permission bits, or -1 when the archive has none
        bool folder = false;
    };

    bool Prepare();
    bool FromMirror();
    bool FromArchive();
    bool SelectEntries(zip* archive, std::vector<Entry>& entries);
    bool RestoreEntries(zip* archive, const std::vector<Entry>& entries);
    bool RestoreEntry(zip* archive, const Entry& entry);
    bool Extract(zip_file* in, QSaveFile& out, const Entry& entry);
    bool KeepEntryAttributes(const QString& path, const Entry& entry);
    bool MakeFolder(const QString& path);
    bool FailEntry(const QString& name, const QString& message);

    RestoreSettings m_restore;
    QByteArray m_chunk;
};

#endif
