#include "commun/communattribute.h"

#include <QDataStream>

CommunAttribute::CommunAttribute()
    : m_protocolType(NoneProtocol)
    , m_destSvrNameIp(QLatin1String(""))
    , m_destPort(0)
{
}

CommunAttribute::CommunAttribute(const CommunAttribute& other)
{
    formother(other);
}

CommunAttribute& CommunAttribute::operator=(const CommunAttribute& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

CommunAttribute::~CommunAttribute() = default;

void CommunAttribute::formother(const CommunAttribute& other)
{
    m_protocolType = other.m_protocolType;
    m_destSvrNameIp = other.m_destSvrNameIp;
    m_destPort = other.m_destPort;
}

bool CommunAttribute::operator==(const CommunAttribute& other) const
{
    return m_protocolType == other.m_protocolType
        && m_destSvrNameIp == other.m_destSvrNameIp
        && m_destPort == other.m_destPort;
}

bool CommunAttribute::operator!=(const CommunAttribute& other) const
{
    return !(*this == other);
}

quint64 CommunAttribute::getProtocolType() const { return m_protocolType; }
void CommunAttribute::setProtocolType(quint64 type) { m_protocolType = type; }
QString CommunAttribute::getDestSvrNameIp() const { return m_destSvrNameIp; }
void CommunAttribute::setDestSvrNameIp(const QString& nameOrIp) { m_destSvrNameIp = nameOrIp; }
quint16 CommunAttribute::getDestPort() const { return m_destPort; }
void CommunAttribute::setDestPort(quint16 port) { m_destPort = port; }

void CommunAttribute::Write(QDataStream& out) const
{
    out << static_cast<qint64>(m_protocolType);
    out << m_destSvrNameIp;
    out << static_cast<qint16>(m_destPort);
}

void CommunAttribute::Read(QDataStream& in)
{
    qint64 type = 0;
    qint16 port = 0;
    in >> type;
    in >> m_destSvrNameIp;
    in >> port;
    m_protocolType = static_cast<quint64>(type);
    m_destPort = static_cast<quint16>(port);
}
