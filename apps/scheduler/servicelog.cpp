#include "servicelog.h"

#include <backupframe.h>

#include <log4cpp/Category.hh>

namespace ServiceLog {

void Info(const QString& text)
{
    Logger::GetFileLogHandle().info(text.toStdString());
}

void Warn(const QString& text)
{
    Logger::GetFileLogHandle().warn(text.toStdString());
}

void Error(const QString& text)
{
    Logger::GetFileLogHandle().error(text.toStdString());
}

} // namespace ServiceLog
