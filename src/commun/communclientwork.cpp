#include "commun/communclientwork.h"

#include "common/logging_p.h"
#include "commun/socketsinkdata.h"
#include "config/configreader.h"

#include <QMetaType>
#include <QMutexLocker>
#include <QTcpSocket>

#include <new>

namespace {
// A closed peer counts as a failed connection on TCP only.
bool isLocalConnectFailure(QLocalSocket::LocalSocketError error)
{
    return error == QLocalSocket::ConnectionRefusedError || error == QLocalSocket::ServerNotFoundError
           || error == QLocalSocket::ConnectionError;
}

bool isTcpConnectFailure(QAbstractSocket::SocketError error)
{
    switch (error) {
    case QAbstractSocket::ConnectionRefusedError:
    case QAbstractSocket::RemoteHostClosedError:
    case QAbstractSocket::HostNotFoundError:
    case QAbstractSocket::NetworkError:
    case QAbstractSocket::AddressInUseError:
    case QAbstractSocket::SocketAddressNotAvailableError:
        return true;
    default:
        return false;
    }
}
} // namespace

CommunClientWork::CommunClientWork(QObject* parent)
    : CommunObject(parent)
    , m_currentSocket(nullptr)
    , m_localSocket(nullptr)
    , m_tcpSocket(nullptr)
    , m_firstResult(false)
    , m_recvSink(nullptr)
{
}

CommunClientWork::~CommunClientWork()
{
    delete m_localSocket;
    delete m_tcpSocket;
    // The records too, not only the list: one in flight or behind a failed write, or
    // queued behind it, would be lost to nobody otherwise.
    CleanSendList();
    UnInit();
}

bool CommunClientWork::Init()
{
    {
        QMutexLocker locker(&m_recvMutex);
        delete m_recvSink;
        m_recvSink = new (std::nothrow) SocketSinkData;
        if (!m_recvSink)
            return false;
    }
    qRegisterMetaType<QLocalSocket::LocalSocketError>("QLocalSocket::LocalSocketError");
    qRegisterMetaType<QAbstractSocket::SocketError>("QAbstractSocket::SocketError");
    connect(this, &CommunObject::readyReadBytes, this, &CommunClientWork::onreadyReadBytes,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
    return CreateSocket();
}

void CommunClientWork::UnInit()
{
    QMutexLocker locker(&m_recvMutex);
    delete m_recvSink;
    m_recvSink = nullptr;
}

void CommunClientWork::SetCommunAttribute(const CommunAttribute& attribute)
{
    QMutexLocker locker(&m_attributeMutex);
    m_firstResult.store(true);
    m_communAttribute = attribute;
}

bool CommunClientWork::CreateSocket()
{
    // Errors arrive through errorOccurred: Qt 6 has no error() signal any more, and Qt 5.15
    // emits both at the same point.
    if (!m_localSocket) {
        m_localSocket = new (std::nothrow) QLocalSocket(this);
        if (!m_localSocket)
            return false;
        connect(m_localSocket, &QLocalSocket::connected, this, &CommunClientWork::onconnected,
                Qt::QueuedConnection);
        connect(m_localSocket, &QLocalSocket::readyRead, this, &CommunClientWork::onreadyRead,
                Qt::QueuedConnection);
        connect(m_localSocket, &QLocalSocket::bytesWritten, this, &CommunClientWork::onbytesWritten,
                Qt::QueuedConnection);
        connect(m_localSocket, SIGNAL(errorOccurred(QLocalSocket::LocalSocketError)), this,
                SLOT(onLocalError(QLocalSocket::LocalSocketError)), Qt::QueuedConnection);
    }
    if (ConfigReader::getTcpServerCode() == ConfigReader::TcpSwitchCode && !m_tcpSocket) {
        m_tcpSocket = new (std::nothrow) QTcpSocket(this);
        if (!m_tcpSocket)
            return false;
        connect(m_tcpSocket, &QTcpSocket::connected, this, &CommunClientWork::onconnected, Qt::QueuedConnection);
        connect(m_tcpSocket, &QTcpSocket::readyRead, this, &CommunClientWork::onreadyRead, Qt::QueuedConnection);
        connect(m_tcpSocket, &QTcpSocket::bytesWritten, this, &CommunClientWork::onbytesWritten,
                Qt::QueuedConnection);
        connect(m_tcpSocket, SIGNAL(errorOccurred(QAbstractSocket::SocketError)), this,
                SLOT(onTcpError(QAbstractSocket::SocketError)), Qt::QueuedConnection);
    }
    return true;
}

bool CommunClientWork::SendRequestData(const QByteArray& bytes)
{
    if (bytes.isEmpty()) {
        LibraryLog::Error("Client into parameter bytes is empty in the SendRequestData.");
        return false;
    }
    quint64 protocolType = 0;
    {
        QMutexLocker locker(&m_attributeMutex);
        protocolType = m_communAttribute.getProtocolType();
    }
    QMutexLocker locker(&m_sendMutex);
    if (!SendBlockData(m_currentSocket, protocolType, m_sendList, bytes)) {
        LibraryLog::Error("Client send block data failed in the SendRequestData.");
        return false;
    }
    return true;
}

void CommunClientWork::CleanSendList()
{
    QMutexLocker locker(&m_sendMutex);
    qDeleteAll(m_sendList);
    m_sendList.clear();
}

void CommunClientWork::CleanRecvData()
{
    QMutexLocker locker(&m_recvMutex);
    if (m_recvSink)
        m_recvSink->Clear();
}

void CommunClientWork::cltdisconnected()
{
    m_currentSocket = nullptr;
    if (m_localSocket) {
        emit m_localSocket->disconnected();
        m_localSocket->abort();
    }
    if (m_tcpSocket) {
        m_tcpSocket->disconnectFromHost();
        m_tcpSocket->abort();
    }
}

void CommunClientWork::onreconnectServer()
{
    if (m_localSocket)
        m_localSocket->abort();
    if (m_tcpSocket)
        m_tcpSocket->abort();
    CleanSendList();
    CleanRecvData();

    QMutexLocker locker(&m_attributeMutex);
    switch (m_communAttribute.getProtocolType()) {
    case CommunAttribute::LocalProtocol:
        m_currentSocket = m_localSocket;
        if (m_localSocket)
            m_localSocket->connectToServer(m_communAttribute.getDestSvrNameIp(), QIODevice::ReadWrite);
        break;
    case CommunAttribute::TcpProtocol:
        m_currentSocket = m_tcpSocket;
        if (m_tcpSocket)
            m_tcpSocket->connectToHost(m_communAttribute.getDestSvrNameIp(), m_communAttribute.getDestPort(),
                                       QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
        break;
    default:
        m_currentSocket = nullptr;
        break;
    }
}

void CommunClientWork::ReportConnection(bool bflag)
{
    CommunAttribute attribute;
    {
        QMutexLocker locker(&m_attributeMutex);
        attribute = m_communAttribute;
    }
    const quint64 type = attribute.getProtocolType();
    const QString name = attribute.getDestSvrNameIp();
    const quint16 port = attribute.getDestPort();
    emit hostConnected(type, name, port, bflag);
    // A receiver may set a new endpoint right away: that takes the endpoint lock only.
    QMutexLocker locker(&m_firstMutex);
    if (m_firstResult.exchange(false))
        emit firstConnected(type, name, port, bflag);
}

void CommunClientWork::onconnected()
{
    ReportConnection(true);
}

void CommunClientWork::onRequestData(QByteArray bytes)
{
    if (bytes.isEmpty()) {
        LibraryLog::Warn("Client request data is empty in the onRequestData.");
        return;
    }
    quint64 protocolType = 0;
    {
        QMutexLocker locker(&m_attributeMutex);
        protocolType = m_communAttribute.getProtocolType();
    }
    if (!IsSocketValid(m_currentSocket, protocolType)
        || SocketState(m_currentSocket, protocolType) != QAbstractSocket::ConnectedState) {
        LibraryLog::Warn("The CommunClientWork reconnect server in the onRequestData.");
        onreconnectServer();
    }
    if (!SendRequestData(bytes))
        LibraryLog::Error("Client send request data failed in the onRequestData.");
    bytes = QByteArray();   // clear(); kept inline like SocketSinkData::Clear
}

void CommunClientWork::onreadyRead()
{
    if (!m_currentSocket) {
        LibraryLog::Error("Client socket pointer is NULL in the onreadyRead.");
        return;
    }
    quint64 protocolType = 0;
    {
        QMutexLocker locker(&m_attributeMutex);
        protocolType = m_communAttribute.getProtocolType();
    }
    QMutexLocker locker(&m_recvMutex);
    if (!ReadBlockBytes(m_currentSocket, protocolType, m_recvSink))
        LibraryLog::Error("Client read block bytes failed in the onreadyRead.");
}

void CommunClientWork::onbytesWritten(qint64 bytes)
{
    quint64 protocolType = 0;
    {
        QMutexLocker locker(&m_attributeMutex);
        protocolType = m_communAttribute.getProtocolType();
    }
    QMutexLocker locker(&m_sendMutex);
    if (!WrittenBlockBytes(m_currentSocket, protocolType, m_sendList, bytes))
        LibraryLog::Error("Client written block bytes failed in the onbytesWritten.");
}

void CommunClientWork::onLocalError(QLocalSocket::LocalSocketError socketError)
{
    if (isLocalConnectFailure(socketError))
        ReportConnection(false);
    CleanSendList();
    CleanRecvData();
    if (m_localSocket)
        LibraryLog::Warn(QString("Client local socket comm occurred error : %1").arg(m_localSocket->errorString()));
    else
        LibraryLog::Error("Client socket pointer is NULL in the onLocalError.");
}

void CommunClientWork::onTcpError(QAbstractSocket::SocketError socketError)
{
    if (isTcpConnectFailure(socketError))
        ReportConnection(false);
    CleanSendList();
    CleanRecvData();
    if (m_tcpSocket)
        LibraryLog::Warn(QString("Client tcp socket comm occurred error : %1").arg(m_tcpSocket->errorString()));
    else
        LibraryLog::Error("Client socket pointer is NULL in the onTcpError.");
}

void CommunClientWork::onreadyReadBytes(QIODevice* psocket, QByteArray bytes)
{
    Q_UNUSED(psocket);
    emit returnResult(bytes);
}
