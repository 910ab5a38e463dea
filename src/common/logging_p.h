#ifndef BACKUPFRAME_LOGGING_P_H
#define BACKUPFRAME_LOGGING_P_H

#include "common/logger.h"

#include <QString>

#include <log4cpp/Category.hh>

// The library's own log lines: failures as errors, recoverable conditions as warnings,
// both through the file log (echoed on the console).
namespace LibraryLog {
inline void Error(const QString& text)
{
    Logger::GetFileLogHandle().error(text.toStdString());
}

inline void Warn(const QString& text)
{
    Logger::GetFileLogHandle().warn(text.toStdString());
}
}

#endif
