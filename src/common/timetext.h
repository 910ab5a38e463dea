#ifndef BACKUPFRAME_TIMETEXT_H
#define BACKUPFRAME_TIMETEXT_H

#include <QString>

// The text form of the times that records carry, in local time: creation times are written
// with it and plans are ordered by parsing their create time with it.
namespace TimeText {
inline QString Format()
{
    return QStringLiteral("yyyy-MM-dd hh:mm:ss");
}
}

#endif
