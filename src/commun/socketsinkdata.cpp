#include "commun/socketsinkdata.h"

SocketSinkData::SocketSinkData()
    : m_packageSize(0)
    , m_progress(0)
{
}

SocketSinkData::SocketSinkData(const SocketSinkData& other)
{
    formother(other);
}

SocketSinkData& SocketSinkData::operator=(const SocketSinkData& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

SocketSinkData::~SocketSinkData()
{
    Clear();
}

void SocketSinkData::formother(const SocketSinkData& other)
{
    m_packageSize = other.m_packageSize;
    m_progress = other.m_progress;
    m_data = other.m_data;
}

qint64 SocketSinkData::getPackageSize() const
{
    return m_packageSize;
}

void SocketSinkData::setPackageSize(qint64 size)
{
    m_packageSize = size;
}

qint64 SocketSinkData::getProgress() const
{
    return m_progress;
}

void SocketSinkData::setProgress(qint64 progress)
{
    m_progress = progress;
}

QByteArray SocketSinkData::getData() const
{
    return m_data;
}

QByteArray& SocketSinkData::getRfrnData()
{
    return m_data;
}

void SocketSinkData::setData(const QByteArray& data)
{
    m_data = data;
}

void SocketSinkData::Clear()
{
    m_packageSize = 0;
    m_progress = 0;
    // Same as clear(), but the release of the shared buffer stays in inline code, where
    // a thread sanitizer sees it; the buffer may be shared with the thread that queued it.
    m_data = QByteArray();
}

QByteArray& SocketSinkData::RemoveData(int position, int length)
{
    return m_data.remove(position, length);
}
