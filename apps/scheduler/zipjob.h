#ifndef BACKUPFRAME_SCHEDULER_ZIPJOB_H
#define BACKUPFRAME_SCHEDULER_ZIPJOB_H

#include "copyjob.h"

#include <QStringList>

struct zip;

// What a zip backup is told by its parameter block: the folders, excludes and verify switch of a
// copy, and how many archives of the plan to keep (0 keeps all).
struct ZipSettings {
    CopySettings folders;
    int keep = 0;

    // One line for the operation list: what the parameter block holds.
    static QString ParameterHelp();
    // False with a reason that says what is expected when the block is not a zip's parameter.
    static bool Parse(const QByteArray& block, ZipSettings& settings, QString& reason);
};

// Writes the source tree into a new archive <task name>-<yyyyMMdd-hhmmss>.zip in the destination
// folder, under a temporary name renamed into place only once complete; then, when told to keep
// a number, deletes the task's oldest archives beyond it. Work runs on the job's thread.
class ZipJob : public RunJob
{
public:
    using RunJob::RunJob;

    // The archive the last successful Work wrote; read it after Wait.
    QString ArchivePath() const { return m_archive; }

protected:
    quint64 Work(QString& reason, QString& solution) override;

private:
    bool Prepare();
    bool CheckFolders();
    bool ChooseName();
    bool Walk();
    bool Write();
    zip* Open();
    bool AddEntries(zip* archive);
    bool Close(zip* archive);
    bool Verify();
    bool FailReadingSource(const QString& message);
    bool Prune();
    void OnProgress(double ratio);
    QString ArchiveBase() const;
    QString ArchivePattern() const;

    ZipSettings m_settings;
    SourceTree m_tree;       // relative to the source, parents first
    quint64 m_total = 0;
    quint64 m_done = 0;
    QString m_name;          // of the archive, without folder
    QString m_partPath;
    QString m_archive;
};

#endif
