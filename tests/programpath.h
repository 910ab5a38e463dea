#ifndef BACKUPFRAME_TESTS_PROGRAMPATH_H
#define BACKUPFRAME_TESTS_PROGRAMPATH_H

#include <QString>
#include <QtGlobal>

// The program a test drives: the one built beside it, or the one the environment variable
// names (another build's, so that a Qt 5 client is tried against a Qt 6 service and back).
inline QString programPath(const char* variable, const char* builtIn)
{
    const QString named = qEnvironmentVariable(variable);
    return named.isEmpty() ? QString::fromUtf8(builtIn) : named;
}

#endif
