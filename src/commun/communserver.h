#ifndef BACKUPFRAME_COMMUNSERVER_H
#define BACKUPFRAME_COMMUNSERVER_H

#include "backupframe_global.h"
#include "commun/communattribute.h"
#include "commun/communobject.h"

#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QLocalServer>
#include <QLocalSocket>
#include <QMutex>
#include <QPointer>
#include <QTcpServer>

class SocketSinkData;

// The listening end: one named local server or one TCP server. Emits every complete
// package as incomingBlockData and answers through SendResult on the same socket.
// Lives on one thread; the listeners and the accepted sockets live there too. The maps
// own their sinks and send lists (UnInit deletes them); the receive and send locks are
// never held together.
class BACKUPFRAME_EXPORT CommunServer : public CommunObject
{
    Q_OBJECT

public:
    explicit CommunServer(QObject* parent = nullptr);
    // Leaves the sinks to UnInit; the listeners take the accepted sockets along.
    ~CommunServer() override;

    bool Init(CommunAttribute::CommProtocolType type);
    bool Start(QString name, quint16 port);
    bool StartLocal(QString name);
    // Listens on all interfaces; port 0 picks a free port.
    bool StartTcp(quint16 port);
    // Listens on the given address only.
    bool StartTcp(quint16 port, const QHostAddress& address);
    bool IsLocalServerRun(QString name);
    void SetMaxPendingConnections(int number);
    // Stops serving new connections; the listener stays open and connected clients are still served.
    void Stop();
    void UnInit();
    // A limit of the socket's own in place of MaxPackageSize (0: none), e.g. a larger one once
    // the peer has proven who it is. Kept until the socket is gone; the server's thread only.
    void SetSocketMaxPackageSize(QIODevice* psocket, qint64 bytes);
    // The port the TCP server listens on, 0 when it does not listen.
    quint16 getTcpServerPort() const;

    // Queues the package on the socket's send list. A socket that is gone is refused, and
    // a call from another thread is carried over to the server's thread first.
    void SendResult(QIODevice* psocket, const QByteArray& package);

    bool InsertRecvSinkData(QIODevice* psocket, SocketSinkData* psink);
    SocketSinkData* FindRecvSinkData(QIODevice* psocket);
    void EraseRecvSinkData(QIODevice* psocket);
    void EraseSendSinkDataList(QIODevice* psocket);
    void CleanRecvsocketmap();
    void CleanSendsocketmap();

signals:
    void incomingBlockData(quint64 commtype, QIODevice* psocket, QByteArray bytes);

protected:
    // Closes the connection of a peer that declared a package above MaxPackageSize.
    void OnOversizedPackage(QIODevice* psocket, qint64 declared) override;
    qint64 MaxPackageSizeOf(QIODevice* psocket) const override;

private slots:
    void onnewConnection();
    void onreadyRead();
    void onbytesWritten(qint64 bytes);
    void onLocalError(QLocalSocket::LocalSocketError socketError);
    void onTcpError(QAbstractSocket::SocketError socketError);
    void onreadyReadBytes(QIODevice* psocket, QByteArray bytes);

private:
    void svrdisconnected(QIODevice* psocket);
    // Whether the pointer names an accepted socket that still exists; never dereferences it.
    bool IsLiveSocket(QIODevice* psocket) const;
    void TrackSocket(QIODevice* psocket);

    quint64 m_protocolType;
    QLocalServer m_localServer;
    QTcpServer m_tcpServer;
    QHash<QIODevice*, SocketSinkData*> m_recvSinkMap;
    QMutex m_recvMutex;
    QHash<QIODevice*, QList<SocketSinkData*>*> m_sendSinkMap;
    QMutex m_sendMutex;
    // Socket pointers outlive their objects in the maps and in the hosts' hands; these
    // guards tell which are still alive. Touched on the server's thread only.
    QHash<QIODevice*, QPointer<QIODevice>> m_liveSockets;
    QHash<QIODevice*, qint64> m_socketMaxPackageSizes;   // server's thread only
};

#endif
