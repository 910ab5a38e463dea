#ifndef BACKUPFRAME_SCHEDULER_COPYJOB_H
#define BACKUPFRAME_SCHEDULER_COPYJOB_H

#include "runjob.h"
#include "sourcetree.h"

#include <QList>
#include <QRegularExpression>
#include <QStringList>

#include <vector>

class QFile;
class QFileInfo;
class QSaveFile;

// What a copy is told by its parameter block: two absolute folders, the patterns left out, and
// whether to verify the mirror afterwards. A restore from a mirror sets the rest.
struct CopySettings {
    // What becomes of a file that already stands at the destination.
    enum class Existing { ReplaceChanged, Keep, Replace };

    QString source;
    QString destination;
    QList<QRegularExpression> excludes;
    bool verify = false;
    QString only;   // a file or folder relative to the source, the only one taken; empty takes all
    Existing existing = Existing::ReplaceChanged;

    // One line for the operation list: what the parameter block holds.
    static QString ParameterHelp();
    // False with a reason that says what is expected when the block is not a copy's parameter.
    static bool Parse(const QByteArray& block, CopySettings& settings, QString& reason);
    // True when a pattern matches the entry's name or its path relative to the source.
    bool IsExcluded(const QString& relativePath) const;
    // Comma-separated wildcards into expressions; false with a reason (to which expected is added).
    static bool ParseExcludes(const QString& patterns, const QString& expected, QList<QRegularExpression>& excludes,
                              QString& reason);
};

// Mirrors the source folder into the destination folder, which must exist: a file whose size
// and modification second match its copy is left alone; any other is written whole under a
// temporary name and renamed over its copy, then given the source's time and permissions.
// Symbolic links and special files are not copied. With verify, the mirror is then compared
// with the source. Work runs on the job's thread.
class CopyJob : public RunJob
{
public:
    using RunJob::RunJob;

    // Files written by the last Work (not those found up to date); read it after Wait.
    int CopiedFiles() const { return m_copiedFiles; }

protected:
    quint64 Work(QString& reason, QString& solution) override;
    // Copies as m_settings say: folders checked, source walked, folders made, files copied.
    bool Mirror();
    bool FailWriting(const QString& path, const QString& error);

    CopySettings m_settings;
    int m_copiedFiles = 0;

private:
    using SourceFile = SourceTree::File;

    bool CopyAll();
    bool Verify();
    bool CheckFolders();
    bool Walk();
    bool MakeFolders();
    bool CopyOne(const SourceFile& file);
    bool Transfer(QFile& in, QSaveFile& out, const SourceFile& file);
    bool IsKept(const QFileInfo& target, const QFileInfo& source) const;
    bool KeepAttributes(const QString& from, const QString& to);
    bool FailReading(const QString& path, const QString& error);
    bool FailChangedSize(const QString& path, qint64 expected);

    SourceTree m_tree;                  // folders and files relative to both roots, in copy order
    QByteArray m_buffer;
};

#endif
