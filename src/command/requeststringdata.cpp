#include "command/requeststringdata.h"

#include <QDataStream>

RequestStringData::RequestStringData() = default;

RequestStringData::RequestStringData(const RequestStringData& other)
    : CommandObj(other)
{
    formother(other);
}

RequestStringData& RequestStringData::operator=(const RequestStringData& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

RequestStringData::~RequestStringData() = default;

void RequestStringData::formother(const RequestStringData& other)
{
    m_stringValue = other.m_stringValue;
    m_dstRemoteUser = other.m_dstRemoteUser;
    m_dstRemotePwd = other.m_dstRemotePwd;
}

void RequestStringData::Write(QDataStream& out)
{
    out << m_stringValue << m_dstRemoteUser << m_dstRemotePwd;
}

void RequestStringData::Read(QDataStream& in)
{
    in >> m_stringValue >> m_dstRemoteUser >> m_dstRemotePwd;
}

QString RequestStringData::getStringValue() const { return m_stringValue; }
void RequestStringData::setStringValue(const QString& stringValue) { m_stringValue = stringValue; }
QString RequestStringData::getDstRemoteUser() const { return m_dstRemoteUser; }
void RequestStringData::setDstRemoteUser(const QString& dstRemoteUser) { m_dstRemoteUser = dstRemoteUser; }
QByteArray RequestStringData::getDstRemotePwd() const { return m_dstRemotePwd; }
void RequestStringData::setDstRemotePwd(const QByteArray& dstRemotePwd) { m_dstRemotePwd = dstRemotePwd; }
