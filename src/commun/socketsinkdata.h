#ifndef BACKUPFRAME_SOCKETSINKDATA_H
#define BACKUPFRAME_SOCKETSINKDATA_H

#include "backupframe_global.h"

#include <QByteArray>

// One socket's buffer in one direction. Receive side: the declared length of the
// package being assembled (0 until parsed), the bytes held and the bytes themselves.
// Send side: one whole package, its size and how much of it the socket reported written.
class BACKUPFRAME_EXPORT SocketSinkData
{
public:
    SocketSinkData();
    SocketSinkData(const SocketSinkData& other);
    SocketSinkData& operator=(const SocketSinkData& other);
    virtual ~SocketSinkData();

    qint64 getPackageSize() const;
    void setPackageSize(qint64 size);
    qint64 getProgress() const;
    void setProgress(qint64 progress);
    QByteArray getData() const;
    QByteArray& getRfrnData();
    void setData(const QByteArray& data);

    // Both counters back to 0, buffer emptied.
    void Clear();
    // QByteArray::remove(position, length) on the buffer; returns the buffer.
    QByteArray& RemoveData(int position, int length);

private:
    void formother(const SocketSinkData& other);

    qint64 m_packageSize;
    qint64 m_progress;
    QByteArray m_data;
};

#endif
