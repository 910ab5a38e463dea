#include "model/triggerattribute.h"

#include <QDataStream>

TriggerAttribute::TriggerAttribute()
    : m_triggerName(QLatin1String(""))
    , m_triggerType(0)
    , m_startTime(QLatin1String(""))
    , m_endTime(QLatin1String(""))
    , m_interval(0)
    , m_duration(0)
    , m_weekDays(QLatin1String(""))
    , m_whichMoths(QLatin1String(""))
    , m_monthDays(QLatin1String(""))
    , m_dayLastFlag(0)
    , m_triggerEndFlag(0)
{
}

TriggerAttribute::TriggerAttribute(const TriggerAttribute& other)
{
    formother(other);
}

TriggerAttribute& TriggerAttribute::operator=(const TriggerAttribute& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

TriggerAttribute::~TriggerAttribute() = default;

void TriggerAttribute::formother(const TriggerAttribute& other)
{
    m_triggerName = other.m_triggerName;
    m_triggerType = other.m_triggerType;
    m_startTime = other.m_startTime;
    m_endTime = other.m_endTime;
    m_interval = other.m_interval;
    m_duration = other.m_duration;
    m_weekDays = other.m_weekDays;
    m_whichMoths = other.m_whichMoths;
    m_monthDays = other.m_monthDays;
    m_dayLastFlag = other.m_dayLastFlag;
    m_triggerEndFlag = other.m_triggerEndFlag;
}

bool TriggerAttribute::operator==(const TriggerAttribute& other) const
{
    if (m_triggerName != other.m_triggerName)
        return false;
    if (m_triggerType != other.m_triggerType)
        return false;
    if (m_startTime != other.m_startTime)
        return false;
    if (m_endTime != other.m_endTime)
        return false;
    if (m_interval != other.m_interval)
        return false;
    if (m_duration != other.m_duration)
        return false;
    if (m_weekDays != other.m_weekDays)
        return false;
    if (m_whichMoths != other.m_whichMoths)
        return false;
    if (m_monthDays != other.m_monthDays)
        return false;
    if (m_dayLastFlag != other.m_dayLastFlag)
        return false;
    return m_triggerEndFlag == other.m_triggerEndFlag;
}

bool TriggerAttribute::operator!=(const TriggerAttribute& other) const
{
    return !(*this == other);
}

QString TriggerAttribute::getTriggerName() const { return m_triggerName; }
void TriggerAttribute::setTriggerName(QString triggerName) { m_triggerName = triggerName; }
quint64 TriggerAttribute::getTriggerType() const { return m_triggerType; }
void TriggerAttribute::setTriggerType(quint64 triggerType) { m_triggerType = triggerType; }
QString TriggerAttribute::getStartTime() const { return m_startTime; }
void TriggerAttribute::setStartTime(QString startTime) { m_startTime = startTime; }
QString TriggerAttribute::getEndTime() const { return m_endTime; }
void TriggerAttribute::setEndTime(QString endTime) { m_endTime = endTime; }
quint64 TriggerAttribute::getInterval() const { return m_interval; }
void TriggerAttribute::setInterval(quint64 interval) { m_interval = interval; }
quint64 TriggerAttribute::getDuration() const { return m_duration; }
void TriggerAttribute::setDuration(quint64 duration) { m_duration = duration; }
QString TriggerAttribute::getWeekDays() const { return m_weekDays; }
void TriggerAttribute::setWeekDays(QString weekDays) { m_weekDays = weekDays; }
QString TriggerAttribute::getWhichMoths() const { return m_whichMoths; }
void TriggerAttribute::setWhichMoths(QString whichMoths) { m_whichMoths = whichMoths; }
QString TriggerAttribute::getMonthDays() const { return m_monthDays; }
void TriggerAttribute::setMonthDays(QString monthDays) { m_monthDays = monthDays; }
quint64 TriggerAttribute::getDayLastFlag() const { return m_dayLastFlag; }
void TriggerAttribute::setDayLastFlag(quint64 dayLastFlag) { m_dayLastFlag = dayLastFlag; }
quint64 TriggerAttribute::getTriggerEndFlag() const { return m_triggerEndFlag; }
void TriggerAttribute::setTriggerEndFlag(quint64 triggerEndFlag) { m_triggerEndFlag = triggerEndFlag; }

void TriggerAttribute::Write(QDataStream& out) const
{
    out << m_triggerName << static_cast<qint64>(m_triggerType) << m_startTime << m_endTime
        << static_cast<qint64>(m_interval) << static_cast<qint64>(m_duration)
        << m_weekDays << m_whichMoths << m_monthDays
        << static_cast<qint64>(m_dayLastFlag) << static_cast<qint64>(m_triggerEndFlag);
}

void TriggerAttribute::Read(QDataStream& in)
{
    qint64 triggerType = 0;
    qint64 interval = 0;
    qint64 duration = 0;
    qint64 dayLastFlag = 0;
    qint64 triggerEndFlag = 0;
    in >> m_triggerName >> triggerType >> m_startTime >> m_endTime >> interval >> duration
       >> m_weekDays >> m_whichMoths >> m_monthDays >> dayLastFlag >> triggerEndFlag;
    m_triggerType = static_cast<quint64>(triggerType);
    m_interval = static_cast<quint64>(interval);
    m_duration = static_cast<quint64>(duration);
    m_dayLastFlag = static_cast<quint64>(dayLastFlag);
    m_triggerEndFlag = static_cast<quint64>(triggerEndFlag);
}
