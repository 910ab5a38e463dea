#include "command/requesttriggerexecuteinfodata.h"

#include <QDataStream>

RequestTriggerExecuteInfoData::RequestTriggerExecuteInfoData()
    : m_nextStartTime(QLatin1String(""))
    , m_triggerEndFlag(0)
{
}

RequestTriggerExecuteInfoData::RequestTriggerExecuteInfoData(const RequestTriggerExecuteInfoData& other)
    : CommandObj(other)
{
    formother(other);
}

RequestTriggerExecuteInfoData& RequestTriggerExecuteInfoData::operator=(const RequestTriggerExecuteInfoData& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

RequestTriggerExecuteInfoData::~RequestTriggerExecuteInfoData() = default;

void RequestTriggerExecuteInfoData::formother(const RequestTriggerExecuteInfoData& other)
{
    m_nextStartTime = other.m_nextStartTime;
    m_triggerEndFlag = other.m_triggerEndFlag;
}

void RequestTriggerExecuteInfoData::Write(QDataStream& out)
{
    out << m_nextStartTime << static_cast<qint64>(m_triggerEndFlag);
}

void RequestTriggerExecuteInfoData::Read(QDataStream& in)
{
    qint64 triggerEndFlag = 0;
    in >> m_nextStartTime >> triggerEndFlag;
    m_triggerEndFlag = static_cast<quint64>(triggerEndFlag);
}

QString RequestTriggerExecuteInfoData::getNextStartTime() const { return m_nextStartTime; }
void RequestTriggerExecuteInfoData::setNextStartTime(const QString& nextStartTime) { m_nextStartTime = nextStartTime; }
quint64 RequestTriggerExecuteInfoData::getTriggerEndFlag() const { return m_triggerEndFlag; }
void RequestTriggerExecuteInfoData::setTriggerEndFlag(quint64 triggerEndFlag) { m_triggerEndFlag = triggerEndFlag; }
