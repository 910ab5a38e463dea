#include "model/journalattribute.h"

#include <QDataStream>

JournalAttribute::JournalAttribute()
    : m_journalUuid(QLatin1String(""))
    , m_planUuid(QLatin1String(""))
    , m_planName(QLatin1String(""))
    , m_taskName(QLatin1String(""))
    , m_startTime(QLatin1String(""))
    , m_endTime(QLatin1String(""))
    , m_createTime(QLatin1String(""))
    , m_timeConsuming(0)
    , m_result(QLatin1String(""))
    , m_errorReason(QLatin1String(""))
    , m_solution(QLatin1String(""))
    , m_commandActionFlag(0)
    , m_executionState(QLatin1String(""))
{
}

JournalAttribute::JournalAttribute(const JournalAttribute& other)
{
    formother(other);
}

JournalAttribute& JournalAttribute::operator=(const JournalAttribute& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

JournalAttribute::~JournalAttribute() = default;

void JournalAttribute::formother(const JournalAttribute& other)
{
    m_journalUuid = other.m_journalUuid;
    m_planUuid = other.m_planUuid;
    m_planName = other.m_planName;
    m_taskName = other.m_taskName;
    m_startTime = other.m_startTime;
    m_endTime = other.m_endTime;
    m_createTime = other.m_createTime;
    m_timeConsuming = other.m_timeConsuming;
    m_result = other.m_result;
    m_errorReason = other.m_errorReason;
    m_solution = other.m_solution;
    m_commandActionFlag = other.m_commandActionFlag;
    m_executionState = other.m_executionState;
}

bool JournalAttribute::operator==(const JournalAttribute& other) const
{
    if (m_journalUuid != other.m_journalUuid)
        return false;
    if (m_planUuid != other.m_planUuid)
        return false;
    if (m_planName != other.m_planName)
        return false;
    if (m_taskName != other.m_taskName)
        return false;
    if (m_startTime != other.m_startTime)
        return false;
    if (m_endTime != other.m_endTime)
        return false;
    if (m_createTime != other.m_createTime)
        return false;
    if (m_timeConsuming != other.m_timeConsuming)
        return false;
    if (m_result != other.m_result)
        return false;
    if (m_errorReason != other.m_errorReason)
        return false;
    if (m_solution != other.m_solution)
        return false;
    if (m_commandActionFlag != other.m_commandActionFlag)
        return false;
    return m_executionState == other.m_executionState;
}

bool JournalAttribute::operator!=(const JournalAttribute& other) const
{
    return !(*this == other);
}

QString JournalAttribute::getJournalUuid() const { return m_journalUuid; }
void JournalAttribute::setJournalUuid(const QString& journalUuid) { m_journalUuid = journalUuid; }
QString JournalAttribute::getPlanUuid() const { return m_planUuid; }
void JournalAttribute::setPlanUuid(const QString& planUuid) { m_planUuid = planUuid; }
QString JournalAttribute::getPlanName() const { return m_planName; }
void JournalAttribute::setPlanName(const QString& planName) { m_planName = planName; }
QString JournalAttribute::getTaskName() const { return m_taskName; }
void JournalAttribute::setTaskName(const QString& taskName) { m_taskName = taskName; }
QString JournalAttribute::getStartTime() const { return m_startTime; }
void JournalAttribute::setStartTime(const QString& startTime) { m_startTime = startTime; }
QString JournalAttribute::getEndTime() const { return m_endTime; }
void JournalAttribute::setEndTime(const QString& endTime) { m_endTime = endTime; }
QString JournalAttribute::getCreateTime() const { return m_createTime; }
void JournalAttribute::setCreateTime(const QString& createTime) { m_createTime = createTime; }
quint64 JournalAttribute::getTimeConsuming() const { return m_timeConsuming; }
void JournalAttribute::setTimeConsuming(quint64 timeConsuming) { m_timeConsuming = timeConsuming; }
QString JournalAttribute::getResult() const { return m_result; }
void JournalAttribute::setResult(const QString& result) { m_result = result; }
QString JournalAttribute::getErrorReason() const { return m_errorReason; }
void JournalAttribute::setErrorReason(const QString& errorReason) { m_errorReason = errorReason; }
QString JournalAttribute::getSolution() const { return m_solution; }
void JournalAttribute::setSolution(const QString& solution) { m_solution = solution; }
quint64 JournalAttribute::getCommandActionFlag() const { return m_commandActionFlag; }
void JournalAttribute::setCommandActionFlag(quint64 commandActionFlag) { m_commandActionFlag = commandActionFlag; }
QString JournalAttribute::getExecutionState() const { return m_executionState; }
void JournalAttribute::setExecutionState(const QString& executionState) { m_executionState = executionState; }

void JournalAttribute::Write(QDataStream& out) const
{
    out << m_journalUuid << m_planUuid << m_planName << m_taskName << m_startTime << m_endTime
        << m_createTime << static_cast<qint64>(m_timeConsuming) << m_result << m_errorReason
        << m_solution << static_cast<qint64>(m_commandActionFlag) << m_executionState;
}

void JournalAttribute::Read(QDataStream& in)
{
    qint64 timeConsuming = 0;
    qint64 commandActionFlag = 0;
    in >> m_journalUuid >> m_planUuid >> m_planName >> m_taskName >> m_startTime >> m_endTime
       >> m_createTime >> timeConsuming >> m_result >> m_errorReason >> m_solution
       >> commandActionFlag >> m_executionState;
    m_timeConsuming = static_cast<quint64>(timeConsuming);
    m_commandActionFlag = static_cast<quint64>(commandActionFlag);
}
