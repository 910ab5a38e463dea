#ifndef BACKUPFRAME_SCHEDULER_BACKUPLISTING_H
#define BACKUPFRAME_SCHEDULER_BACKUPLISTING_H

#include <backupframe.h>

#include <QString>
#include <QStringList>

// What a plan has written: a copy plan's mirror (its folder, bytes, files and newest file
// time), or each archive of a zip plan (found by the plan's id in its name, so that archives
// written under an earlier name of the plan count too), oldest first. Reads the disk: call it
// off the main thread.
class BackupListing
{
public:
    // Entries "kind<TAB>path<TAB>bytes<TAB>files<TAB>yyyy-MM-dd hh:mm:ss", kind "mirror" or
    // "archive"; false with the reason when the plan is no copy or zip plan or its parameter is bad.
    static bool Of(const TaskAttribute& task, const QString& planUuid, QStringList& entries, QString& reason);
    // The pattern of the archive names of the plan with this uuid.
    static QString ArchivePattern(const QString& planUuid);
};

#endif
