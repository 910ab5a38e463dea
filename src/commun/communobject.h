#ifndef BACKUPFRAME_COMMUNOBJECT_H
#define BACKUPFRAME_COMMUNOBJECT_H

#include "backupframe_global.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QList>
#include <QObject>

class QIODevice;
class SocketSinkData;

// Framing of command packages on a local or TCP stream socket, shared by the server
// endpoint and the client worker. Holds no state: the endpoint owns the sinks and send
// lists and calls these routines on the thread that owns the socket.
// A package is [qint64 big-endian total length, the 8 bytes included][command bytes].
class BACKUPFRAME_EXPORT CommunObject : public QObject
{
    Q_OBJECT

public:
    enum PackageJudgement {
        Incomplete = 2,
        Complete = 3,
        Invalid = 4
    };

    // The default of SetEmitBufferLimit. Socket reads are not bounded: this limit keeps the
    // handing out of a long read linear.
    static const qint64 kDefaultEmitBufferLimit = 16 * 1024;

    // Process-wide, read by every endpoint; a host sets it before its endpoints start.
    // While the receive buffer holds more than this many bytes, each complete package is
    // emitted alone; once it holds no more, a package is emitted with the bytes behind it.
    // Emitting the whole buffer for every package of a long read would cost memory and
    // time growing with the square of the read. Negative values count as 0.
    static void SetEmitBufferLimit(qint64 bytes);
    static qint64 EmitBufferLimit();

    explicit CommunObject(QObject* parent = nullptr);
    ~CommunObject() override;

    // The longest package this endpoint receives; 0, the default, sets no limit. A peer that
    // declares a longer one has its receive buffer dropped at once, whatever it sends after,
    // and OnOversizedPackage is called (a server then closes the connection).
    void SetMaxPackageSize(qint64 bytes);
    qint64 MaxPackageSize() const;

    // Appends what the socket holds to the sink and emits readyReadBytes once per
    // complete package, with the remaining buffer (the package plus any tail) as long as
    // that is within the emit buffer limit, else with the package alone.
    bool ReadBlockBytes(QIODevice* psocket, quint64 protocolType, SocketSinkData* psink);
    // Appends the package to the send list; writes it now only if nothing is in flight.
    bool SendBlockData(QIODevice* psocket, quint64 protocolType, QList<SocketSinkData*>& sendList,
                       const QByteArray& bytes);
    // Accounts written bytes to the front package; once it is complete, writes the next.
    bool WrittenBlockBytes(QIODevice* psocket, quint64 protocolType, QList<SocketSinkData*>& sendList,
                           qint64 bytes);
    // A declared length below 8 (it counts its own 8 bytes) is judged Invalid.
    void JudgeCommandPackage(SocketSinkData* psink, PackageJudgement& judgement);
    QByteArray ReadSocketData(QIODevice* psocket, quint64 protocolType, SocketSinkData* psink);
    // The count written, or -1 unless the whole array was accepted.
    qint64 WriteSocketData(QIODevice* psocket, quint64 protocolType, const QByteArray& bytes);
    bool IsSocketValid(QIODevice* psocket, quint64 protocolType);
    // A local socket's state in QAbstractSocket numbering; 0 for anything unusable.
    QAbstractSocket::SocketState SocketState(QIODevice* psocket, quint64 protocolType);

signals:
    void readyReadBytes(QIODevice* psocket, QByteArray bytes);

protected:
    // A peer declared a package above its limit; its buffer is already dropped.
    virtual void OnOversizedPackage(QIODevice* psocket, qint64 declared);
    // The limit that applies to the socket: MaxPackageSize unless an endpoint keeps limits per socket.
    virtual qint64 MaxPackageSizeOf(QIODevice* psocket) const;

private:
    bool EmitPackagesBeyondLimit(QIODevice* psocket, SocketSinkData* psink);
    // ReadSocketData without handing the bytes back: they are read straight into the sink.
    qint64 ReadIntoSink(QIODevice* psocket, quint64 protocolType, SocketSinkData* psink);
    // True when the front package is declared above the limit: the buffer is then dropped.
    bool DropOversized(QIODevice* psocket, SocketSinkData* psink);

    qint64 m_maxPackageSize = 0;
};

#endif
