#include "commun/communserver.h"

#include "common/logging_p.h"
#include "commun/socketsinkdata.h"

#include <QMetaType>
#include <QMutexLocker>
#include <QThread>
#include <QTcpSocket>

#include <new>

namespace {
const int kProbeTimeoutMs = 3000;
} // namespace

// The listeners are members and children at once: as children they follow the server
// to another thread, and the sockets they accept with them, so that every socket lives
// where the slots run; as their parents they take the accepted sockets along when they go.
CommunServer::CommunServer(QObject* parent)
    : CommunObject(parent)
    , m_protocolType(CommunAttribute::NoneProtocol)
    , m_localServer(this)
    , m_tcpServer(this)
{
    m_localServer.setSocketOptions(QLocalServer::WorldAccessOption);
}

CommunServer::~CommunServer() = default;

bool CommunServer::Init(CommunAttribute::CommProtocolType type)
{
    m_protocolType = type;
    if (type != CommunAttribute::LocalProtocol && type != CommunAttribute::TcpProtocol)
        return false;
    qRegisterMetaType<QLocalSocket::LocalSocketError>("QLocalSocket::LocalSocketError");
    qRegisterMetaType<QAbstractSocket::SocketError>("QAbstractSocket::SocketError");
    connect(this, &CommunObject::readyReadBytes, this, &CommunServer::onreadyReadBytes,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    return true;
}

bool CommunServer::Start(QString name, quint16 port)
{
    if (m_protocolType == CommunAttribute::LocalProtocol)
        return StartLocal(name);
    if (m_protocolType == CommunAttribute::TcpProtocol)
        return StartTcp(port);
    return false;
}

bool CommunServer::StartLocal(QString name)
{
    if (IsLocalServerRun(name))
        return false;   // another process serves this name: leave it alone
    m_localServer.close();
    if (!QLocalServer::removeServer(name))
        return false;
    connect(&m_localServer, &QLocalServer::newConnection, this, &CommunServer::onnewConnection,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    return m_localServer.listen(name);
}

bool CommunServer::StartTcp(quint16 port)
{
    return StartTcp(port, QHostAddress::Any);
}

bool CommunServer::StartTcp(quint16 port, const QHostAddress& address)
{
    connect(&m_tcpServer, &QTcpServer::newConnection, this, &CommunServer::onnewConnection,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    return m_tcpServer.listen(address, port);
}

bool CommunServer::IsLocalServerRun(QString name)
{
    if (name.isEmpty() || m_protocolType != CommunAttribute::LocalProtocol)
        return false;
    auto* pprobe = new QLocalSocket;
    pprobe->connectToServer(name, QIODevice::ReadWrite);
    const bool connected = pprobe->waitForConnected(kProbeTimeoutMs);
    if (connected) {
        connect(pprobe, &QLocalSocket::disconnected, pprobe, &QObject::deleteLater, Qt::AutoConnection);
        emit pprobe->disconnected();
    }
    delete pprobe;
    return connected;
}

void CommunServer::SetMaxPendingConnections(int number)
{
    if (m_protocolType == CommunAttribute::LocalProtocol)
        m_localServer.setMaxPendingConnections(number);
    else if (m_protocolType == CommunAttribute::TcpProtocol)
        m_tcpServer.setMaxPendingConnections(number);
}

void CommunServer::Stop()
{
    if (m_protocolType == CommunAttribute::LocalProtocol)
        disconnect(&m_localServer, &QLocalServer::newConnection, this, &CommunServer::onnewConnection);
    else if (m_protocolType == CommunAttribute::TcpProtocol)
        disconnect(&m_tcpServer, &QTcpServer::newConnection, this, &CommunServer::onnewConnection);
}

void CommunServer::UnInit()
{
    CleanRecvsocketmap();
    CleanSendsocketmap();
}

quint16 CommunServer::getTcpServerPort() const
{
    return m_tcpServer.isListening() ? m_tcpServer.serverPort() : 0;
}

void CommunServer::SendResult(QIODevice* psocket, const QByteArray& package)
{
    if (!psocket) {
        LibraryLog::Error("Server socket into parameter error in the SendResult.");
        return;
    }
    if (package.isEmpty()) {
        LibraryLog::Error("Server into parameter bytes is empty in the SendResult.");
        return;
    }
    if (QThread::currentThread() != thread()) {
        // A socket may only be written on its own thread: written from elsewhere, it
        // would wait for the caller's event loop to flush the answer, maybe forever.
        QMetaObject::invokeMethod(this, [this, psocket, package] { SendResult(psocket, package); },
                                  Qt::QueuedConnection);
        return;
    }
    // The host may answer after the socket has gone: its pointer must not be followed.
    if (!IsLiveSocket(psocket)) {
        LibraryLog::Error("Server socket into parameter error in the SendResult.");
        return;
    }
    QMutexLocker locker(&m_sendMutex);
    auto it = m_sendSinkMap.find(psocket);
    if (it == m_sendSinkMap.end())
        it = m_sendSinkMap.insert(psocket, new QList<SocketSinkData*>);
    QList<SocketSinkData*>* plist = it.value();
    if (!plist) {
        LibraryLog::Error("Server send list pointer is null in the SendResult.");
        return;
    }
    if (!SendBlockData(psocket, m_protocolType, *plist, package))
        LibraryLog::Error("Server send block data failed in the SendResult.");
}

bool CommunServer::InsertRecvSinkData(QIODevice* psocket, SocketSinkData* psink)
{
    if (!psocket || !psink)
        return false;
    QMutexLocker locker(&m_recvMutex);
    auto it = m_recvSinkMap.find(psocket);
    if (it != m_recvSinkMap.end()) {
        if (it.value() != psink)
            delete it.value();
        m_recvSinkMap.erase(it);
    }
    m_recvSinkMap.insert(psocket, psink);
    return true;
}

SocketSinkData* CommunServer::FindRecvSinkData(QIODevice* psocket)
{
    if (!psocket)
        return nullptr;
    QMutexLocker locker(&m_recvMutex);
    return m_recvSinkMap.value(psocket, nullptr);
}

void CommunServer::EraseRecvSinkData(QIODevice* psocket)
{
    if (!psocket)
        return;
    QMutexLocker locker(&m_recvMutex);
    delete m_recvSinkMap.take(psocket);
}

void CommunServer::EraseSendSinkDataList(QIODevice* psocket)
{
    QMutexLocker locker(&m_sendMutex);
    if (m_sendSinkMap.isEmpty())
        return;
    QList<SocketSinkData*>* plist = m_sendSinkMap.value(psocket, nullptr);
    if (!m_sendSinkMap.contains(psocket))
        return;
    if (plist) {
        qDeleteAll(*plist);
        plist->clear();
        delete plist;
    }
    m_sendSinkMap.remove(psocket);
}

void CommunServer::CleanRecvsocketmap()
{
    QMutexLocker locker(&m_recvMutex);
    qDeleteAll(m_recvSinkMap);
    m_recvSinkMap.clear();
}

void CommunServer::CleanSendsocketmap()
{
    QMutexLocker locker(&m_sendMutex);
    for (QList<SocketSinkData*>* plist : qAsConst(m_sendSinkMap)) {
        if (!plist)
            continue;
        qDeleteAll(*plist);
        plist->clear();
        delete plist;
    }
    m_sendSinkMap.clear();
}

void CommunServer::onnewConnection()
{
    QIODevice* psocket = nullptr;
    if (m_protocolType == CommunAttribute::LocalProtocol) {
        QLocalSocket* plocal = m_localServer.nextPendingConnection();
        if (plocal) {
            connect(plocal, &QLocalSocket::readyRead, this, &CommunServer::onreadyRead, Qt::QueuedConnection);
            connect(plocal, &QLocalSocket::bytesWritten, this, &CommunServer::onbytesWritten,
                    Qt::QueuedConnection);
            connect(plocal, &QLocalSocket::disconnected, plocal, &QObject::deleteLater, Qt::QueuedConnection);
            connect(plocal, SIGNAL(errorOccurred(QLocalSocket::LocalSocketError)), this,
                    SLOT(onLocalError(QLocalSocket::LocalSocketError)), Qt::QueuedConnection);
        }
        psocket = plocal;
    } else if (m_protocolType == CommunAttribute::TcpProtocol) {
        QTcpSocket* ptcp = m_tcpServer.nextPendingConnection();
        if (ptcp) {
            connect(ptcp, &QTcpSocket::readyRead, this, &CommunServer::onreadyRead, Qt::QueuedConnection);
            connect(ptcp, &QTcpSocket::bytesWritten, this, &CommunServer::onbytesWritten, Qt::QueuedConnection);
            connect(ptcp, &QTcpSocket::disconnected, ptcp, &QObject::deleteLater, Qt::QueuedConnection);
            connect(ptcp, SIGNAL(errorOccurred(QAbstractSocket::SocketError)), this,
                    SLOT(onTcpError(QAbstractSocket::SocketError)), Qt::QueuedConnection);
        }
        psocket = ptcp;
    }
    if (!psocket) {
        LibraryLog::Error("Server socket pointer is NULL in the onnewConnection.");
        return;
    }
    TrackSocket(psocket);
    // A gone socket may have left a send list under the same address, its front never
    // to be reported written; a new connection has nothing in flight.
    EraseSendSinkDataList(psocket);
    auto* psink = new (std::nothrow) SocketSinkData;
    if (!psink) {
        LibraryLog::Error("Server new receive CommunSinkData failed in the onnewConnection.");
        return;
    }
    if (!InsertRecvSinkData(psocket, psink)) {
        delete psink;
        svrdisconnected(psocket);
        LibraryLog::Error("Server insert receive SinkData failed in the onnewConnection.");
        return;
    }
}

void CommunServer::onreadyRead()
{
    auto* psocket = static_cast<QIODevice*>(sender());
    if (!psocket) {
        LibraryLog::Error("Server get sender socket pointer is NULL in the onreadyRead.");
        return;
    }
    QMutexLocker locker(&m_recvMutex);
    SocketSinkData* psink = m_recvSinkMap.value(psocket, nullptr);
    if (!psink) {
        LibraryLog::Error("Server find sink data return NULL in the onreadyRead.");
        return;
    }
    if (!ReadBlockBytes(psocket, m_protocolType, psink))
        LibraryLog::Error("Server read block bytes failed in the onreadyRead.");
}

void CommunServer::onbytesWritten(qint64 bytes)
{
    auto* psocket = static_cast<QIODevice*>(sender());
    if (!psocket || !IsSocketValid(psocket, m_protocolType)
        || SocketState(psocket, m_protocolType) != QAbstractSocket::ConnectedState) {
        LibraryLog::Error("Server sender socket error in the onbytesWritten.");
        return;
    }
    QMutexLocker locker(&m_sendMutex);
    if (m_sendSinkMap.isEmpty()) {
        LibraryLog::Error("Server send socket map is empty in the onbytesWritten.");
        return;
    }
    auto it = m_sendSinkMap.find(psocket);
    if (it == m_sendSinkMap.end()) {
        LibraryLog::Error("Server find send map socket pointer is NULL in the onbytesWritten.");
        return;
    }
    if (!it.value()) {
        m_sendSinkMap.erase(it);
        return;
    }
    if (!WrittenBlockBytes(psocket, m_protocolType, *it.value(), bytes))
        LibraryLog::Error("Server written block bytes failed in the onbytesWritten.");
}

void CommunServer::onLocalError(QLocalSocket::LocalSocketError socketError)
{
    Q_UNUSED(socketError);
    auto* psocket = static_cast<QIODevice*>(sender());
    if (!psocket) {
        LibraryLog::Error("Server sender socket pointer is NULL in the onLocalError.");
        return;
    }
    LibraryLog::Warn(QString("Server local socket comm occurred error : %1").arg(psocket->errorString()));
    EraseRecvSinkData(psocket);
    EraseSendSinkDataList(psocket);
    svrdisconnected(psocket);
}

void CommunServer::onTcpError(QAbstractSocket::SocketError socketError)
{
    Q_UNUSED(socketError);
    auto* psocket = static_cast<QIODevice*>(sender());
    if (!psocket) {
        LibraryLog::Error("Server sender socket pointer is NULL in the onTcpError.");
        return;
    }
    LibraryLog::Warn(QString("Server tcp socket comm occurred error : %1").arg(psocket->errorString()));
    EraseRecvSinkData(psocket);
    EraseSendSinkDataList(psocket);
    svrdisconnected(psocket);
}

void CommunServer::onreadyReadBytes(QIODevice* psocket, QByteArray bytes)
{
    emit incomingBlockData(m_protocolType, psocket, bytes);
}

void CommunServer::OnOversizedPackage(QIODevice* psocket, qint64 declared)
{
    LibraryLog::Warn(QString("Server closed a connection that declared a package of %1 bytes, above its limit of %2.")
                         .arg(declared)
                         .arg(MaxPackageSizeOf(psocket)));
    // Every handler of the socket's signals is queued: closing it here calls none of them now.
    if (auto* plocal = qobject_cast<QLocalSocket*>(psocket))
        plocal->abort();
    else if (auto* ptcp = qobject_cast<QAbstractSocket*>(psocket))
        ptcp->abort();
}

// Entries of sockets that are gone are dropped when the next socket is accepted.
qint64 CommunServer::MaxPackageSizeOf(QIODevice* psocket) const
{
    return m_socketMaxPackageSizes.value(psocket, MaxPackageSize());
}

void CommunServer::SetSocketMaxPackageSize(QIODevice* psocket, qint64 bytes)
{
    if (!psocket || !IsLiveSocket(psocket))
        return;
    m_socketMaxPackageSizes.insert(psocket, qMax<qint64>(0, bytes));
}

void CommunServer::svrdisconnected(QIODevice* psocket)
{
    if (!psocket)
        return;
    if (m_protocolType == CommunAttribute::LocalProtocol) {
        // Through the connection made on accepting, this schedules the socket's deletion.
        if (auto* plocal = qobject_cast<QLocalSocket*>(psocket))
            emit plocal->disconnected();
    } else if (m_protocolType == CommunAttribute::TcpProtocol) {
        if (auto* ptcp = qobject_cast<QAbstractSocket*>(psocket))
            ptcp->disconnectFromHost();
    }
}

bool CommunServer::IsLiveSocket(QIODevice* psocket) const
{
    const auto it = m_liveSockets.constFind(psocket);
    return it != m_liveSockets.constEnd() && !it.value().isNull();
}

void CommunServer::TrackSocket(QIODevice* psocket)
{
    // A socket gone takes its own limit along, before a new one can be given its address.
    for (auto it = m_liveSockets.begin(); it != m_liveSockets.end();) {
        if (it.value().isNull()) {
            m_socketMaxPackageSizes.remove(it.key());
            it = m_liveSockets.erase(it);
        } else {
            ++it;
        }
    }
    m_liveSockets.insert(psocket, QPointer<QIODevice>(psocket));
}
