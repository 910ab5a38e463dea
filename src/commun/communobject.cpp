#include "commun/communobject.h"

#include "command/packageformat.h"
#include "common/logging_p.h"
#include "commun/communattribute.h"
#include "commun/socketsinkdata.h"

#include <QLocalSocket>
#include <QtEndian>

#include <atomic>

namespace {
std::atomic<qint64> g_emitBufferLimit{CommunObject::kDefaultEmitBufferLimit};

// The most one read call takes into the sink; the loop takes the rest.
const qint64 kReadChunkLimit = 64 * 1024 * 1024;

// The length field of the package that starts at offset: a big-endian qint64, read as the
// stream of the package format reads it, without a stream and a copy per package.
// Fewer than 8 bytes there read as 0, as from a stream that runs past its end.
qint64 declaredLength(const QByteArray& data, int offset)
{
    if (offset < 0 || data.size() - offset < PackageFormat::LengthFieldSize)
        return 0;
    return qFromBigEndian<qint64>(data.constData() + offset);
}

// Drops the first count bytes the sink holds. The buffer is usually shared with a package just
// emitted: removing in place would first copy all of it, so only the rest is copied, or nothing.
void dropFront(SocketSinkData* psink, qint64 count)
{
    QByteArray& data = psink->getRfrnData();
    if (count >= data.size())
        psink->setData(QByteArray());
    else if (data.isDetached())
        psink->RemoveData(0, static_cast<int>(count));
    else
        psink->setData(data.mid(static_cast<int>(count)));
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

void CommunObject::SetEmitBufferLimit(qint64 bytes)
{
    g_emitBufferLimit.store(qMax<qint64>(bytes, 0));
}

qint64 CommunObject::EmitBufferLimit()
{
    return g_emitBufferLimit.load();
}

bool CommunObject::ReadBlockBytes(QIODevice* psocket, quint64 protocolType, SocketSinkData* psink)
{
    if (!psocket || !psink) {
        LibraryLog::Error("Into the parameter pointer is null in the ReadBlockBytes.");
        return false;
    }
    if (ReadIntoSink(psocket, protocolType, psink) <= 0) {
        LibraryLog::Warn("Receive data return empty in the ReadBlockBytes.");
        return true;
    }
    if (DropOversized(psocket, psink))
        return true;
    if (!EmitPackagesBeyondLimit(psocket, psink)) {
        psink->Clear();
        LibraryLog::Error("Judge command package failed in the ReadBlockBytes.");
        return false;
    }
    for (;;) {
        if (DropOversized(psocket, psink))
            return true;
        PackageJudgement judgement = Invalid;
        JudgeCommandPackage(psink, judgement);
        if (judgement == Incomplete)
            return true;
        if (judgement != Complete) {
            psink->Clear();
            LibraryLog::Error("Judge command package failed in the ReadBlockBytes.");
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
        dropFront(psink, declared);
        psink->setPackageSize(0);
    }
}

void CommunObject::SetMaxPackageSize(qint64 bytes)
{
    m_maxPackageSize = qMax<qint64>(0, bytes);
}

qint64 CommunObject::MaxPackageSize() const
{
    return m_maxPackageSize;
}

void CommunObject::OnOversizedPackage(QIODevice*, qint64)
{
}

qint64 CommunObject::MaxPackageSizeOf(QIODevice*) const
{
    return m_maxPackageSize;
}

bool CommunObject::DropOversized(QIODevice* psocket, SocketSinkData* psink)
{
    const qint64 limit = MaxPackageSizeOf(psocket);
    if (limit <= 0 || psink->getProgress() < PackageFormat::LengthFieldSize)
        return false;
    const qint64 declared = psink->getPackageSize() > 0 ? psink->getPackageSize() : declaredLength(psink->getRfrnData(), 0);
    if (declared <= limit)
        return false;
    psink->Clear();
    OnOversizedPackage(psocket, declared);
    return true;
}

// Emits the complete packages at the front alone while more than the limit is held, then
// drops the bytes they took in one go, so a long read is copied once, not once per package.
// False for a length field below 8; the packages before it have been emitted.
bool CommunObject::EmitPackagesBeyondLimit(QIODevice* psocket, SocketSinkData* psink)
{
    const qint64 limit = EmitBufferLimit();
    const qint64 held = psink->getProgress();
    const QByteArray& data = psink->getRfrnData();
    qint64 declared = psink->getPackageSize();
    qint64 offset = 0;
    while (held - offset > limit) {
        if (declared == 0) {
            if (held - offset < PackageFormat::LengthFieldSize)
                break;
            declared = declaredLength(data, static_cast<int>(offset));
            if (declared < PackageFormat::LengthFieldSize)
                return false;
        }
        if (held - offset < declared)
            break;
        emit readyReadBytes(psocket, data.mid(static_cast<int>(offset), static_cast<int>(declared)));
        offset += declared;
        declared = 0;
    }
    if (offset > 0) {
        dropFront(psink, offset);
        psink->setProgress(held - offset);
    }
    psink->setPackageSize(declared);
    return true;
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
    LibraryLog::Error("Send data failed in the SendBlockData.");
    return false;
}

bool CommunObject::WrittenBlockBytes(QIODevice* psocket, quint64 protocolType,
                                     QList<SocketSinkData*>& sendList, qint64 bytes)
{
    if (!psocket) {
        LibraryLog::Error("Into the parameter pointer is null in the WrittenBlockBytes.");
        return false;
    }
    if (sendList.isEmpty()) {
        LibraryLog::Error("Send socket list is empty in the WrittenBlockBytes.");
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
        LibraryLog::Warn("Front send sink data is NULL in the WrittenBlockBytes.");
        sendList.removeFirst();
    }
    if (sendList.isEmpty())
        return true;
    pfront = sendList.front();
    if (WriteSocketData(psocket, protocolType, pfront->getRfrnData()) == pfront->getPackageSize())
        return true;
    LibraryLog::Error("Send data failed in the WrittenBlockBytes.");
    return false;
}

void CommunObject::JudgeCommandPackage(SocketSinkData* psink, PackageJudgement& judgement)
{
    if (!psink) {
        judgement = Invalid;
        return;
    }
    if (psink->getPackageSize() == 0) {
        if (psink->getProgress() < PackageFormat::LengthFieldSize) {
            judgement = Incomplete;
            return;
        }
        const qint64 declared = declaredLength(psink->getRfrnData(), 0);
        // Such a length never comes from the encoder and would stall the loop.
        if (declared < PackageFormat::LengthFieldSize) {
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

// Each chunk lands in the sink's buffer at once, instead of in an array of its own first.
qint64 CommunObject::ReadIntoSink(QIODevice* psocket, quint64 protocolType, SocketSinkData* psink)
{
    if (!psocket || !psink || !IsSocketValid(psocket, protocolType))
        return 0;
    QByteArray& data = psink->getRfrnData();
    qint64 total = 0;
    for (qint64 available = psocket->bytesAvailable(); available > 0; available = psocket->bytesAvailable()) {
        available = qMin<qint64>(available, kReadChunkLimit);
        const int held = data.size();
        data.resize(held + static_cast<int>(available));
        const qint64 got = psocket->read(data.data() + held, available);
        data.resize(held + static_cast<int>(qMax<qint64>(got, 0)));
        if (got <= 0)
            break;
        total += got;
    }
    psink->setProgress(psink->getProgress() + total);
    return total;
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
