#ifndef BACKUPFRAME_GLOBAL_H
#define BACKUPFRAME_GLOBAL_H

#include <QtCore/qglobal.h>

#if defined(BACKUPFRAME_LIBRARY)
#  define BACKUPFRAME_EXPORT Q_DECL_EXPORT
#else
#  define BACKUPFRAME_EXPORT Q_DECL_IMPORT
#endif

#endif
