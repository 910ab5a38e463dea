#ifndef BACKUPFRAME_SCHEDULER_SOURCETREE_H
#define BACKUPFRAME_SCHEDULER_SOURCETREE_H

#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

struct CopySettings;

// What a backup of a folder takes in: the source's folders (parents first) and files, listed
// folder by folder with excluded entries left unvisited; links and special files are left out.
struct SourceTree {
    struct File {
        QString relativePath;
        qint64 size;
    };

    QStringList folders;
    std::vector<File> files;
    quint64 totalBytes = 0;

    // Both folders exist and the destination is not inside the source (links followed); else false
    // with a reason and a solution. destinationSolution says what to do about a missing destination.
    static bool CheckFolders(const CopySettings& settings, const QString& destinationSolution, QString& reason,
                             QString& solution);
    // Lists the source, or only settings.only with the folders above it; false when cancelled
    // (reason left empty), a folder cannot be read or settings.only is not there.
    bool Walk(const CopySettings& settings, const std::function<bool()>& cancelled, QString& reason,
              QString& solution);

private:
    bool Start(const CopySettings& settings, QStringList& pending, QString& reason, QString& solution);
};

// root/relativePath, or root itself for an empty relative path.
QString JoinedPath(const QString& root, const QString& relativePath);
// True when inner is outer or lies below it (both clean absolute paths).
bool IsWithinPath(const QString& inner, const QString& outer);
// Makes the folder and those above it that are missing; false with the errno of the step that failed.
bool MakeFolderPath(const QString& path, int& error);

#endif
