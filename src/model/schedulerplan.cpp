#include "model/schedulerplan.h"

#include "command/requestnewoperationdata.h"
#include "common/timetext.h"

#include <QDataStream>
#include <QDateTime>

SchedulerPlan::SchedulerPlan()
    : m_planUuid(QLatin1String(""))
    , m_planName(QLatin1String(""))
    , m_triggerFlag(0)
{
    resetRunState();
}

SchedulerPlan::SchedulerPlan(const SchedulerPlan& other)
    : CommandObj(other)
{
    formother(other);
}

SchedulerPlan::SchedulerPlan(const RequestNewOperationData& data)
    : SchedulerPlan()
{
    SetOperationData(data);
}

SchedulerPlan& SchedulerPlan::operator=(const SchedulerPlan& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

SchedulerPlan::~SchedulerPlan() = default;

void SchedulerPlan::formother(const SchedulerPlan& other)
{
    m_planUuid = other.m_planUuid;
    m_planName = other.m_planName;
    m_triggerFlag = other.m_triggerFlag;
    m_schemeAttribute = other.m_schemeAttribute;
    m_taskAttribute = other.m_taskAttribute;
    m_triggerAttribute = other.m_triggerAttribute;
    m_startFlag = other.m_startFlag;
    m_startTime = other.m_startTime;
    m_endFlag = other.m_endFlag;
    m_endTime = other.m_endTime;
    m_nextStartTime = other.m_nextStartTime;
    m_commandActionFlag = other.m_commandActionFlag;
    m_errorMessage = other.m_errorMessage;
    m_wasError = other.m_wasError;
    m_bytesProcessed = other.m_bytesProcessed;
    m_totalBytesToCopy = other.m_totalBytesToCopy;
    m_wasCancelled = other.m_wasCancelled;
    m_resultCode = other.m_resultCode;
    m_isRunning = other.m_isRunning;
}

void SchedulerPlan::resetRunState()
{
    m_startFlag = 0;
    m_startTime = QLatin1String("");
    m_endFlag = 0;
    m_endTime = QLatin1String("");
    m_nextStartTime = QLatin1String("");
    m_commandActionFlag = 0;
    m_errorMessage = QLatin1String("");
    m_wasError = false;
    m_bytesProcessed = 0;
    m_totalBytesToCopy = 0;
    m_wasCancelled = false;
    m_resultCode = 0;
    m_isRunning = false;
}

void SchedulerPlan::SetOperationData(const RequestNewOperationData& data)
{
    m_planUuid = QLatin1String("");
    m_planName = QLatin1String("");
    m_triggerFlag = 0;
    // Only the creation time comes from the request; status and execut state stay.
    m_schemeAttribute.setCreateTime(data.getCreateTime());
    m_taskAttribute = data.getTaskAttribute();
    m_triggerAttribute = data.getTriggerAttribute();
    resetRunState();
}

bool SchedulerPlan::operator==(const SchedulerPlan& other) const
{
    if (m_planUuid != other.m_planUuid)
        return false;
    if (m_planName != other.m_planName)
        return false;
    if (m_triggerFlag != other.m_triggerFlag)
        return false;
    if (m_schemeAttribute != other.m_schemeAttribute)
        return false;
    if (m_taskAttribute != other.m_taskAttribute)
        return false;
    if (m_triggerAttribute != other.m_triggerAttribute)
        return false;
    if (m_startFlag != other.m_startFlag)
        return false;
    if (m_startTime != other.m_startTime)
        return false;
    if (m_endFlag != other.m_endFlag)
        return false;
    if (m_endTime != other.m_endTime)
        return false;
    if (m_nextStartTime != other.m_nextStartTime)
        return false;
    if (m_commandActionFlag != other.m_commandActionFlag)
        return false;
    if (m_errorMessage != other.m_errorMessage)
        return false;
    if (m_wasError != other.m_wasError)
        return false;
    if (m_bytesProcessed != other.m_bytesProcessed)
        return false;
    if (m_totalBytesToCopy != other.m_totalBytesToCopy)
        return false;
    if (m_wasCancelled != other.m_wasCancelled)
        return false;
    if (m_resultCode != other.m_resultCode)
        return false;
    return m_isRunning == other.m_isRunning;
}

bool SchedulerPlan::operator!=(const SchedulerPlan& other) const
{
    return !(*this == other);
}

bool SchedulerPlan::operator<(const SchedulerPlan& other) const
{
    const QDateTime mine = QDateTime::fromString(m_schemeAttribute.getCreateTime(), TimeText::Format());
    const QDateTime theirs = QDateTime::fromString(other.m_schemeAttribute.getCreateTime(), TimeText::Format());
    return mine < theirs;
}

void SchedulerPlan::Write(QDataStream& out)
{
    out << m_planUuid << m_planName << static_cast<qint64>(m_triggerFlag);
    m_schemeAttribute.Write(out);
    m_taskAttribute.Write(out);
    m_triggerAttribute.Write(out);
    out << static_cast<qint64>(m_startFlag) << m_startTime
        << static_cast<qint64>(m_endFlag) << m_endTime << m_nextStartTime
        << static_cast<qint64>(m_commandActionFlag) << m_errorMessage << m_wasError
        << static_cast<qint64>(m_bytesProcessed) << static_cast<qint64>(m_totalBytesToCopy)
        << m_wasCancelled << static_cast<qint64>(m_resultCode) << m_isRunning;
}

void SchedulerPlan::Read(QDataStream& in)
{
    qint64 triggerFlag = 0;
    qint64 startFlag = 0;
    qint64 endFlag = 0;
    qint64 commandActionFlag = 0;
    qint64 bytesProcessed = 0;
    qint64 totalBytesToCopy = 0;
    qint64 resultCode = 0;
    in >> m_planUuid >> m_planName >> triggerFlag;
    m_schemeAttribute.Read(in);
    m_taskAttribute.Read(in);
    m_triggerAttribute.Read(in);
    in >> startFlag >> m_startTime >> endFlag >> m_endTime >> m_nextStartTime
       >> commandActionFlag >> m_errorMessage >> m_wasError >> bytesProcessed
       >> totalBytesToCopy >> m_wasCancelled >> resultCode >> m_isRunning;
    m_triggerFlag = static_cast<quint64>(triggerFlag);
    m_startFlag = static_cast<quint64>(startFlag);
    m_endFlag = static_cast<quint64>(endFlag);
    m_commandActionFlag = static_cast<quint64>(commandActionFlag);
    m_bytesProcessed = static_cast<quint64>(bytesProcessed);
    m_totalBytesToCopy = static_cast<quint64>(totalBytesToCopy);
    m_resultCode = static_cast<quint64>(resultCode);
}

QString SchedulerPlan::getPlanUuid() const { return m_planUuid; }
void SchedulerPlan::setPlanUuid(const QString& planUuid) { m_planUuid = planUuid; }
QString SchedulerPlan::getPlanName() const { return m_planName; }
void SchedulerPlan::setPlanName(const QString& planName) { m_planName = planName; }
quint64 SchedulerPlan::getTriggerFlag() const { return m_triggerFlag; }
void SchedulerPlan::setTriggerFlag(quint64 triggerFlag) { m_triggerFlag = triggerFlag; }
SchemeAttribute SchedulerPlan::getSchemeAttribute() const { return m_schemeAttribute; }
SchemeAttribute& SchedulerPlan::getObjectSchemeAttribute() { return m_schemeAttribute; }
void SchedulerPlan::setSchemeAttribute(const SchemeAttribute& schemeAttribute) { m_schemeAttribute = schemeAttribute; }
TaskAttribute SchedulerPlan::getTaskAttribute() const { return m_taskAttribute; }
TaskAttribute& SchedulerPlan::getObjectTaskAttribute() { return m_taskAttribute; }
void SchedulerPlan::setTaskAttribute(const TaskAttribute& taskAttribute) { m_taskAttribute = taskAttribute; }
TriggerAttribute SchedulerPlan::getTriggerAttribute() const { return m_triggerAttribute; }
TriggerAttribute& SchedulerPlan::getObjectTriggerAttribute() { return m_triggerAttribute; }
void SchedulerPlan::setTriggerAttribute(const TriggerAttribute& triggerAttribute) { m_triggerAttribute = triggerAttribute; }
quint64 SchedulerPlan::getStartFlag() const { return m_startFlag; }
void SchedulerPlan::setStartFlag(quint64 startFlag) { m_startFlag = startFlag; }
QString SchedulerPlan::getStartTime() const { return m_startTime; }
void SchedulerPlan::setStartTime(const QString& startTime) { m_startTime = startTime; }
quint64 SchedulerPlan::getEndFlag() const { return m_endFlag; }
void SchedulerPlan::setEndFlag(quint64 endFlag) { m_endFlag = endFlag; }
QString SchedulerPlan::getEndTime() const { return m_endTime; }
void SchedulerPlan::setEndTime(const QString& endTime) { m_endTime = endTime; }
QString SchedulerPlan::getNextStartTime() const { return m_nextStartTime; }
void SchedulerPlan::setNextStartTime(const QString& nextStartTime) { m_nextStartTime = nextStartTime; }
quint64 SchedulerPlan::getCommandActionFlag() const { return m_commandActionFlag; }
void SchedulerPlan::setCommandActionFlag(quint64 commandActionFlag) { m_commandActionFlag = commandActionFlag; }
QString SchedulerPlan::getErrorMessage() const { return m_errorMessage; }
void SchedulerPlan::setErrorMessage(const QString& errorMessage) { m_errorMessage = errorMessage; }
bool SchedulerPlan::getWasError() const { return m_wasError; }
void SchedulerPlan::setWasError(bool wasError) { m_wasError = wasError; }
quint64 SchedulerPlan::getBytesProcessed() const { return m_bytesProcessed; }
void SchedulerPlan::setBytesProcessed(quint64 bytesProcessed) { m_bytesProcessed = bytesProcessed; }
quint64 SchedulerPlan::getTotalBytesToCopy() const { return m_totalBytesToCopy; }
void SchedulerPlan::setTotalBytesToCopy(quint64 totalBytesToCopy) { m_totalBytesToCopy = totalBytesToCopy; }
bool SchedulerPlan::getWasCancelled() const { return m_wasCancelled; }
void SchedulerPlan::setWasCancelled(bool wasCancelled) { m_wasCancelled = wasCancelled; }
quint64 SchedulerPlan::getResultCode() const { return m_resultCode; }
void SchedulerPlan::setResultCode(quint64 resultCode) { m_resultCode = resultCode; }
bool SchedulerPlan::getIsRunning() const { return m_isRunning; }
void SchedulerPlan::setIsRunning(bool isRunning) { m_isRunning = isRunning; }
