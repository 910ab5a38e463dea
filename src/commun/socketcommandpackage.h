#ifndef BACKUPFRAME_SOCKETCOMMANDPACKAGE_H
#define BACKUPFRAME_SOCKETCOMMANDPACKAGE_H

#include "backupframe_global.h"

#include <QMetaType>

class CommCommand;
class QIODevice;

// One unit of the dispatch queue: what it is for, the connection it belongs to, the
// transport and the command. Deleting it frees only the record; whoever takes it off
// the queue owns the command as well and disposes of both.
class BACKUPFRAME_EXPORT SocketCommandPackage
{
public:
    enum PackageKind : quint64 {
        ResultPackage = 0,          // a result to send back on the socket
        StopPackage = 2,            // ends the consumer thread
        LocalRequestPackage = 4,    // a client request over the local socket
        TcpRequestPackage = 6       // a client request over TCP
    };

    SocketCommandPackage();
    SocketCommandPackage(const SocketCommandPackage& other) = default;
    SocketCommandPackage& operator=(const SocketCommandPackage& other) = default;
    virtual ~SocketCommandPackage();

    quint64 getPackageKind() const;
    void setPackageKind(quint64 kind);
    QIODevice* getSocket() const;
    void setSocket(QIODevice* psocket);
    quint64 getProtocolType() const;
    void setProtocolType(quint64 type);
    CommCommand* getCommand() const;
    void setCommand(CommCommand* pcommand);

private:
    quint64 m_packageKind;
    QIODevice* m_socket;
    quint64 m_protocolType;
    CommCommand* m_command;
};

Q_DECLARE_METATYPE(SocketCommandPackage*)

#endif
