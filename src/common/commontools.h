#ifndef BACKUPFRAME_COMMONTOOLS_H
#define BACKUPFRAME_COMMONTOOLS_H

#include "backupframe_global.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// Static helpers shared by both processes: progress scaling, identifiers and
// derived names, paths, id-list texts, socket error texts, password scrambling.
class BACKUPFRAME_EXPORT CommonTools
{
public:
    CommonTools() = default;
    CommonTools(const CommonTools&) = default;
    CommonTools& operator=(const CommonTools&) = default;
    virtual ~CommonTools() = default;

    // Scales byte counts below 32768 for a progress display; true only when the
    // ratio advanced beyond lastRatio (the outputs are written only then).
    static bool CalculateProgress(quint64 total, quint64 current, int& outTotal, int& outCurrent,
                                  float lastRatio);
    static QString CreateUuid();
    static QString GetJobName(QString id);
    static QString GetTriggerName(QString id);
    static bool IsFileExist(const QString& path);
    static QStringList DirFiles(const QString& dir);
    static bool SplitePath(const QString& path, QString& dir, QString& name);
    static QString DealPath(const QString& path);
    static bool MakeFileDir(const QString& filePath);
    static void ListToString(QList<quint64> list, QString& out);
    // Appends to list; parts above 32 bits or not numbers are appended as 0.
    static void StringToList(const QString& text, QList<quint64>& list);
    static QString SocketErrorMsg(QAbstractSocket::SocketError error);
    static bool EncryptPassword(const QByteArray& in, QByteArray& out);
    static bool DecryptPassword(const QByteArray& in, QByteArray& out);
};

#endif
