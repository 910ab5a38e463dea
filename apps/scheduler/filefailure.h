#ifndef BACKUPFRAME_SCHEDULER_FILEFAILURE_H
#define BACKUPFRAME_SCHEDULER_FILEFAILURE_H

#include <QString>

// A failed read or write told as a user meets it: what failed, why, and what to do about it.
// Sorted by the system's error number, so that copy and zip give one advice per cause.
struct FileFailure {
    QString reason;
    QString solution;

    // what is the failed step with its path ("%1 could not be written"); folder is the destination
    // folder the write went to; error is an errno, message the system's text for it.
    static FileFailure Writing(const QString& what, const QString& folder, int error, const QString& message);
    // path is the source file or folder that could not be read.
    static FileFailure Reading(const QString& path, int error, const QString& message);
    // The errno behind a message Qt made from one (QFileDevice::errorString), or 0 when it is not
    // one of those that have an advice of their own.
    static int ErrorOf(const QString& message);
};

#endif
