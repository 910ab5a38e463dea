#ifndef BACKUPFRAME_LOGGER_H
#define BACKUPFRAME_LOGGER_H

#include "backupframe_global.h"

#include <QString>
#include <string>

namespace log4cpp {
class Category;
}

// The library's logging facade over log4cpp: a console appender on the root
// category and a rolling file ("log/<file>" under the base directory) on "sub1".
// Initialize once before other threads start; UnInitialize once at exit.
class BACKUPFRAME_EXPORT Logger
{
public:
    Logger() = default;
    Logger(const Logger&) = default;
    Logger& operator=(const Logger&) = default;
    virtual ~Logger() = default;

    static bool Initialize(const QString& baseDir, const QString& subDir, const QString& fileName);
    static void UnInitialize();
    // The file log, also echoed to the console: use error() and warn() only.
    static log4cpp::Category& GetFileLogHandle();
    static log4cpp::Category& GetConsoleHandle();

private:
    static bool DealFileName(const QString& path, QString& resolvedFile);
    static std::string qstring2string(const QString& text);
};

#endif
