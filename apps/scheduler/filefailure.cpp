#include "filefailure.h"

#include <QtGlobal>

#include <cerrno>

namespace {

const int kKnownErrors[] = {ENOSPC, EDQUOT, EROFS, EACCES, EPERM, ENOENT};

const QString kExcludeHint = QStringLiteral("or leave it out with exclude=PATTERN");

} // namespace

FileFailure FileFailure::Writing(const QString& what, const QString& folder, int error, const QString& message)
{
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        return {QStringLiteral("%1: the destination is full (%2).").arg(what, message),
                QStringLiteral("Free space on the destination (or raise the service's user's disk quota there) or "
                               "choose a larger destination, then run the plan again.")};
    case EROFS:
        return {QStringLiteral("%1: the destination is on a read-only file system (%2).").arg(what, message),
                QStringLiteral("Mount the destination's file system read-write (or turn off the drive's write "
                               "protection), or choose another destination, then run the plan again.")};
    case EACCES:
    case EPERM:
        return {QStringLiteral("%1: the service's user may not write in %2 (%3).").arg(what, folder, message),
                QStringLiteral("Give the service's user write permission on %1, or choose another destination, "
                               "then run the plan again.")
                    .arg(folder)};
    default:
        return {QStringLiteral("%1: %2.").arg(what, message),
                QStringLiteral("Check that the service's user may write %1 and that it is neither read-only nor "
                               "full, then run the plan again.")
                    .arg(folder)};
    }
}

FileFailure FileFailure::Reading(const QString& path, int error, const QString& message)
{
    switch (error) {
    case EACCES:
    case EPERM:
        return {QStringLiteral("%1 could not be read: the service's user may not read it (%2).").arg(path, message),
                QStringLiteral("Give the service's user read permission on %1, %2, then run the plan again.")
                    .arg(path, kExcludeHint)};
    case ENOENT:
        return {QStringLiteral("%1 vanished during the run.").arg(path),
                QStringLiteral("It was moved or deleted while the plan ran: run the plan again, %1.").arg(kExcludeHint)};
    default:
        return {QStringLiteral("%1 could not be read: %2.").arg(path, message),
                QStringLiteral("Check the source drive for errors, %1, then run the plan again.").arg(kExcludeHint)};
    }
}

int FileFailure::ErrorOf(const QString& message)
{
    for (const int error : kKnownErrors) {
        if (message == qt_error_string(error))
            return error;
    }
    return 0;
}
