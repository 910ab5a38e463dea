#ifndef BACKUPFRAME_SCHEDULER_SERVICELOG_H
#define BACKUPFRAME_SCHEDULER_SERVICELOG_H

#include <QString>

// The service's own lines in the scheduler log (through the library's file log).
namespace ServiceLog {
void Info(const QString& text);
void Warn(const QString& text);
void Error(const QString& text);
}

#endif
