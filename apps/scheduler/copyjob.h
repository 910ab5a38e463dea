#ifndef BACKUPFRAME_SCHEDULER_COPYJOB_H
#define BACKUPFRAME_SCHEDULER_COPYJOB_H

#include "runjob.h"
#include "sourcetree.h"

#include <QList>
#include <QRegularExpression>
#include <QStringList>

#include <vector>

class QFile;
class QSaveFile;

// What a copy is told by its parameter block: two absolute folders and the patterns left out.
struct CopySettings {
    QString source;
    QString destination;
    QList<QRegularExpression> excludes;

    // One line for the operation list: what the parameter block holds.
    static QString ParameterHelp();
    // False with a reason that says what is expected when the block is not a copy's parameter.
    static bool Parse(const QByteArray& block, CopySettings& settings, QString& reason);
    // True when a pattern matches the entry's name or its path relative to the source.
    bool IsExcluded(const QString& relativePath) const;
};

// Mirrors the source folder into the destination folder, which must exist: a file whose size
// and modification second match its copy is left alone; any other is written whole under a
// temporary name and renamed over its copy, then given the source's time and permissions.
// Symbolic links and special files are not copied. Work runs on the job's thread.
class CopyJob : public RunJob
{
public:
    using RunJob::RunJob;

    // Files written by the last Work (not those found up to date); read it after Wait.
    int CopiedFiles() const { return m_copiedFiles; }

protected:
    quint64 Work(QString& reason, QString& solution) override;

private:
    using SourceFile = SourceTree::File;

    bool Prepare();
    bool CopyAll();
    bool CheckFolders();
    bool Walk();
    bool MakeFolders();
    bool CopyOne(const SourceFile& file);
    bool Transfer(QFile& in, QSaveFile& out, const SourceFile& file);
    bool KeepAttributes(const QString& from, const QString& to);
    void AddDone(qint64 bytes);
    bool FailReading(const QString& path, const QString& error);
    bool FailWriting(const QString& path, const QString& error);
    bool FailChangedSize(const QString& path, qint64 expected);

    CopySettings m_settings;
    SourceTree m_tree;                  // folders and files relative to both roots, in copy order
    quint64 m_total = 0;
    quint64 m_done = 0;
    float m_lastRatio = 0;
    QByteArray m_buffer;
    int m_copiedFiles = 0;
};

#endif
