#include "model/schemeattribute.h"

#include <QDataStream>

SchemeAttribute::SchemeAttribute()
    : m_executState(QLatin1String(""))
    , m_status(QStringLiteral("Never"))
    , m_latestFinishTime(QLatin1String(""))
    , m_createTime(QLatin1String(""))
{
}

SchemeAttribute::SchemeAttribute(const SchemeAttribute& other)
{
    formother(other);
}

SchemeAttribute& SchemeAttribute::operator=(const SchemeAttribute& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

SchemeAttribute::~SchemeAttribute() = default;

void SchemeAttribute::formother(const SchemeAttribute& other)
{
    m_executState = other.m_executState;
    m_status = other.m_status;
    m_latestFinishTime = other.m_latestFinishTime;
    m_createTime = other.m_createTime;
}

bool SchemeAttribute::operator==(const SchemeAttribute& other) const
{
    if (m_executState != other.m_executState)
        return false;
    if (m_status != other.m_status)
        return false;
    if (m_latestFinishTime != other.m_latestFinishTime)
        return false;
    return m_createTime == other.m_createTime;
}

bool SchemeAttribute::operator!=(const SchemeAttribute& other) const
{
    return !(*this == other);
}

QString SchemeAttribute::getExecutState() const { return m_executState; }
void SchemeAttribute::setExecutState(const QString& executState) { m_executState = executState; }
QString SchemeAttribute::getStatus() const { return m_status; }
void SchemeAttribute::setStatus(const QString& status) { m_status = status; }
QString SchemeAttribute::getLatestFinishTime() const { return m_latestFinishTime; }
void SchemeAttribute::setLatestFinishTime(QString latestFinishTime) { m_latestFinishTime = latestFinishTime; }
QString SchemeAttribute::getCreateTime() const { return m_createTime; }
void SchemeAttribute::setCreateTime(QString createTime) { m_createTime = createTime; }

void SchemeAttribute::Write(QDataStream& out) const
{
    out << m_executState << m_status << m_latestFinishTime << m_createTime;
}

void SchemeAttribute::Read(QDataStream& in)
{
    in >> m_executState >> m_status >> m_latestFinishTime >> m_createTime;
}
