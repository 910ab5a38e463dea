#include "commun/communobject.h"

#include "common/logger.h"
#include "commun/communattribute.h"
#include "commun/socketsinkdata.h"

#include <QDataStream>
#include <QLocalSocket>

#include <log4cpp/Category.hh>

namespace {
const int kLengthFieldSize = 8;

void logError(const char* message)
{
    Logger::GetFileLogHandle().error(QString(message).toStdString());
}

void logWarn(const char* message)
{
    Logger::GetFileLogHandle().warn(QString(message).toStdString());
}

bool isKnownProtocol(quint64 protocolType)
{
    return protocolType == CommunAttribute::LocalProtocol || protocolType == CommunAttribute::TcpProtocol;
}
} // namespace

CommunObject::CommunObject(QObject* parent)
    : QObject(parent)
{
}

CommunObject::~CommunObject() = default;

bool CommunObject::ReadBlockBytes(QIODevice* psocket, quint64 protocolType, SocketSinkData* psink)
{
    if (!psocket || !psink) {
        logError("Into the parameter pointer is null in the ReadBlockBytes.");
        return false;
    }
    if (ReadSocketData(psocket, protocolType, psink).isEmpty()) {
        logWarn("Receive data return empty in the ReadBlockBytes.");
        return true;
    }
    for (;;) {
        PackageJudgement judgement = Invalid;
        JudgeCommandPackage(psink, judgement);
        if (judgement == Incomplete)
            return true;
        if (judgement != Complete) {
            psink->Clear();
            logError("Judge command package failed in the ReadBlockBytes.");
            return false;
        }
        // The whole buffer travels: bytes of a following package ride along as a tail
        // that the decoder ignores.
        emit readyReadBytes(psocket, psink->getData());
        const qint64 declared = psink->getPackageSize();
        const qint64 held = psink->getProgress();
        if (held <= declared) {
            psink->Clear();
            return true;
        }
        psink->setProgress(held - declared);
        psink->RemoveData(0, static_cast<int>(declared));
        psink->setPackageSize(0);
    }
}

bool CommunObject::SendBlockData(QIODevice* psocket, quint64 protocolType, QList<SocketSinkData*>& sendList,
                                 const QByteArray& bytes)
{
    if (!psocket)
        return false;
    auto* psink = new SocketSinkData;
    psink->setPackageSize(bytes.size());
    psink->setProgress(0);
    psink->setData(bytes);
    sendList.append(psink);
    if (sendList.size() > 1)
        return true;   // started by WrittenBlockBytes once the one in flight is written
    if (WriteSocketData(psocket, protocolType, bytes) == psink->getPackageSize())
        return true;
    logError("Send data failed in the SendBlockData.");
    return false;
}

bool CommunObject::WrittenBlockBytes(QIODevice* psocket, quint64 protocolType,
                                     QList<SocketSinkData*>& sendList, qint64 bytes)
{
    if (!psocket) {
        logError("Into the parameter pointer is null in the WrittenBlockBytes.");
        return false;
    }
    if (sendList.isEmpty()) {
        logError("Send socket list is empty in the WrittenBlockBytes.");
        return false;
    }
    SocketSinkData* pfront = sendList.front();
    if (pfront) {
        pfront->setProgress(pfront->getProgress() + bytes);
        if (pfront->getProgress() < pfront->getPackageSize())
            return true;
    }
    delete sendList.takeFirst();
    while (!sendList.isEmpty() && !sendList.front()) {
        logWarn("Front send sink data is NULL in the WrittenBlockBytes.");
        sendList.removeFirst();
    }
    if (sendList.isEmpty())
        return true;
    pfront = sendList.front();
    if (WriteSocketData(psocket, protocolType, pfront->getRfrnData()) == pfront->getPackageSize())
        return true;
    logError("Send data failed in the WrittenBlockBytes.");
    return false;
}

void CommunObject::JudgeCommandPackage(SocketSinkData* psink, PackageJudgement& judgement)
{
    if (!psink) {
        judgement = Invalid;
        return;
    }
    if (psink->getPackageSize() == 0) {
        if (psink->getProgress() < kLengthFieldSize) {
            judgement = Incomplete;
            return;
        }
        QByteArray head = psink->getRfrnData().left(kLengthFieldSize);
        QDataStream in(&head, QIODevice::ReadOnly);
        in.setVersion(QDataStream::Qt_5_4);
        qint64 declared = 0;
        in >> declared;
        // Such a length never comes from the encoder and would stall the loop.
        if (declared < kLengthFieldSize) {
            judgement = Invalid;
            return;
        }
        psink->setPackageSize(declared);
    }
    judgement = psink->getProgress() < psink->getPackageSize() ? Incomplete : Complete;
}

QByteArray CommunObject::ReadSocketData(QIODevice* psocket, quint64 protocolType, SocketSinkData* psink)
{
    if (!psocket || !psink || !IsSocketValid(psocket, protocolType))
        return QByteArray();
    QByteArray bytes = psocket->readAll();
    psink->getRfrnData().append(bytes);
    psink->setProgress(psink->getProgress() + bytes.size());
    return bytes;
}

qint64 CommunObject::WriteSocketData(QIODevice* psocket, quint64 protocolType, const QByteArray& bytes)
{
    if (!psocket || !IsSocketValid(psocket, protocolType))
        return -1;
    const qint64 written = psocket->write(bytes);
    return written == bytes.size() ? written : -1;
}

bool CommunObject::IsSocketValid(QIODevice* psocket, quint64 protocolType)
{
    if (!psocket || !isKnownProtocol(protocolType))
        return false;
    if (protocolType == CommunAttribute::LocalProtocol) {
        auto* plocal = qobject_cast<QLocalSocket*>(psocket);
        return plocal && plocal->isValid();
    }
    auto* ptcp = qobject_cast<QAbstractSocket*>(psocket);
    return ptcp && ptcp->isValid();
}

QAbstractSocket::SocketState CommunObject::SocketState(QIODevice* psocket, quint64 protocolType)
{
    if (!psocket || !isKnownProtocol(protocolType))
        return QAbstractSocket::UnconnectedState;
    if (protocolType == CommunAttribute::TcpProtocol) {
        auto* ptcp = qobject_cast<QAbstractSocket*>(psocket);
        return ptcp ? ptcp->state() : QAbstractSocket::UnconnectedState;
    }
    auto* plocal = qobject_cast<QLocalSocket*>(psocket);
    if (!plocal)
        return QAbstractSocket::UnconnectedState;
    switch (plocal->state()) {
    case QLocalSocket::ConnectingState:
        return QAbstractSocket::ConnectingState;
    case QLocalSocket::ConnectedState:
        return QAbstractSocket::ConnectedState;
    case QLocalSocket::ClosingState:
        return QAbstractSocket::ClosingState;
    default:
        return QAbstractSocket::UnconnectedState;
    }
}
