#include "common/commontools.h"

#include <QDir>
#include <QFileInfo>
#include <QUuid>

bool CommonTools::CalculateProgress(quint64 total, quint64 current, int& outTotal, int& outCurrent,
                                    float lastRatio)
{
    if (total == 0) {
        outTotal = 100;
        outCurrent = 0;
        return false;
    }
    int shift = 0;
    while ((total >> shift) >= 0x8000)
        ++shift;
    const quint64 scaledTotal = (total >> shift) + 1;
    quint64 scaledCurrent = current >> shift;
    if (current == total)
        ++scaledCurrent;   // a finished job reads 100 %

    const qint32 t = static_cast<qint32>(scaledTotal);
    const qint32 c = static_cast<qint32>(scaledCurrent);
    const float ratio = static_cast<float>(c) / static_cast<float>(t);
    if (lastRatio >= ratio)
        return false;
    outTotal = t;
    outCurrent = c;
    return true;
}

QString CommonTools::CreateUuid()
{
    return QUuid::createUuid().toString();
}

QString CommonTools::GetJobName(QString id)
{
    return QStringLiteral("%1%2").arg(QStringLiteral("task_"), id);
}

QString CommonTools::GetTriggerName(QString id)
{
    return QStringLiteral("%1%2").arg(QStringLiteral("trigger_"), id);
}

bool CommonTools::IsFileExist(const QString& path)
{
    if (path.isEmpty())
        return false;
    const QFileInfo info(path);
    return info.exists() && info.isFile();
}

QStringList CommonTools::DirFiles(const QString& dir)
{
    // An empty path names the current directory, as QDir takes it.
    const QDir directory(dir);
    if (!directory.exists())
        return QStringList();
    return directory.entryList(QDir::Files, QDir::Unsorted);
}

bool CommonTools::SplitePath(const QString& path, QString& dir, QString& name)
{
    if (path.isEmpty())
        return false;
    const QString native = QDir::toNativeSeparators(path);
    const int pos = native.lastIndexOf(QDir::separator());
    if (pos < 0) {
        dir = QLatin1String("");
        name = path;
    } else if (pos == native.size() - 1) {
        dir = native;
        name = QLatin1String("");
    } else {
        dir = native.left(pos + 1);
        name = native.mid(pos + 1);
    }
    return true;
}

QString CommonTools::DealPath(const QString& path)
{
    if (path.isEmpty())
        return QLatin1String("");
    const QString native = QDir::toNativeSeparators(path);
    if (native.endsWith(QDir::separator()))
        return native;
    return QStringLiteral("%1%2").arg(native, QString(QDir::separator()));
}

bool CommonTools::MakeFileDir(const QString& filePath)
{
    if (filePath.isEmpty())
        return false;
    QString dir;
    QString name;
    if (!SplitePath(filePath, dir, name))
        return false;
    const QString dirPath = DealPath(dir);
    if (dirPath.isEmpty())
        return false;
    if (QFileInfo(dirPath).isDir())
        return true;
    return QDir().mkpath(dirPath);
}

void CommonTools::ListToString(QList<quint64> list, QString& out)
{
    out = QLatin1String("");
    for (int i = 0; i < list.size(); ++i) {
        if (i == 0)
            out = QStringLiteral("%1").arg(list.at(i));
        else
            out.append(QStringLiteral(",%1").arg(list.at(i)));
    }
}

void CommonTools::StringToList(const QString& text, QList<quint64>& list)
{
    if (text.isEmpty())
        return;
    const QStringList parts = text.split(QLatin1Char(','), Qt::SkipEmptyParts, Qt::CaseSensitive);
    for (const QString& part : parts)
        list.append(static_cast<quint64>(part.toUInt(nullptr, 10)));
}

QString CommonTools::SocketErrorMsg(QAbstractSocket::SocketError error)
{
    switch (static_cast<int>(error)) {
    case -1: return QStringLiteral("An unidentified error occurred.");
    case 0: return QStringLiteral("The connection was refused by the peer (or timed out).");
    case 1: return QStringLiteral("The remote host closed the connection. Note that the client socket (i.e., this socket) will be closed after the remote close notification has been sent.");
    case 2: return QStringLiteral("The host address was not found.");
    case 3: return QStringLiteral("The socket operation failed because the application lacked the required privileges.");
    case 4: return QStringLiteral("The local system ran out of resources (e.g., too many sockets).");
    case 5: return QStringLiteral("The socket operation timed out.");
    case 6: return QStringLiteral("The datagram was larger than the operating system's limit (which can be as low as 8192 bytes).");
    case 7: return QStringLiteral("An error occurred with the network (e.g., the network cable was accidentally plugged out).");
    case 8: return QStringLiteral("The address specified to QAbstractSocket::bind() is already in use and was set to be exclusive.");
    case 9: return QStringLiteral("The address specified to QAbstractSocket::bind() does not belong to the host.");
    case 10: return QStringLiteral("The requested socket operation is not supported by the local operating system (e.g., lack of IPv6 support).");
    case 11: return QStringLiteral("Used by QAbstractSocketEngine only, The last operation attempted has not finished yet (still in progress in the background).");
    case 12: return QStringLiteral("The socket is using a proxy, and the proxy requires authentication.");
    case 13: return QStringLiteral("The SSL/TLS handshake failed, so the connection was closed (only used in QSslSocket).");
    case 14: return QStringLiteral("Could not contact the proxy server because the connection to that server was denied.");
    case 15: return QStringLiteral("The connection to the proxy server was closed unexpectedly (before the connection to the final peer was established).");
    case 16: return QStringLiteral("The connection to the proxy server timed out or the proxy server stopped responding in the authentication phase.");
    case 17: return QStringLiteral("The proxy address set with setProxy() (or the application proxy) was not found.");
    case 18: return QStringLiteral("The connection negotiation with the proxy server failed, because the response from the proxy server could not be understood.");
    case 19: return QStringLiteral("An operation was attempted while the socket was in a state that did not permit it.");
    case 20: return QStringLiteral("The SSL library being used reported an internal error. This is probably the result of a bad installation or misconfiguration of the library.");
    case 21: return QStringLiteral("Invalid data (certificate, key, cypher, etc.) was provided and its use resulted in an error in the SSL library.");
    case 22: return QStringLiteral("A temporary error occurred (e.g., operation would block and socket is non-blocking).");
    default:
        return QStringLiteral("The socket occurred other unknown error[%1].").arg(static_cast<int>(error));
    }
}

bool CommonTools::EncryptPassword(const QByteArray& in, QByteArray& out)
{
    // Self-inverse scrambling (bitwise complement): keeps the password out of plain sight.
    const QByteArray source(in);
    QByteArray result(source.size(), '\0');
    for (int i = 0; i < source.size(); ++i)
        result[i] = static_cast<char>(~static_cast<unsigned char>(source.at(i)));
    out = result;
    return true;
}

bool CommonTools::DecryptPassword(const QByteArray& in, QByteArray& out)
{
    return EncryptPassword(in, out);
}
