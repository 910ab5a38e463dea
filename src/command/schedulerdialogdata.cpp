#include "command/schedulerdialogdata.h"

SchedulerDialogData::SchedulerDialogData()
    : m_triggerType(QLatin1String(""))
    , m_startTime(QLatin1String(""))
    , m_endTime(QLatin1String(""))
    , m_intervalHours(QLatin1String(""))
    , m_durationHours(QLatin1String(""))
    , m_weekDays(QLatin1String(""))
    , m_months(QLatin1String(""))
    , m_monthDays(QLatin1String(""))
    , m_dayLastFlag(QLatin1String(""))
{
}

SchedulerDialogData::SchedulerDialogData(const SchedulerDialogData& other)
{
    formother(other);
}

SchedulerDialogData& SchedulerDialogData::operator=(const SchedulerDialogData& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

SchedulerDialogData::~SchedulerDialogData() = default;

void SchedulerDialogData::formother(const SchedulerDialogData& other)
{
    m_triggerType = other.m_triggerType;
    m_startTime = other.m_startTime;
    m_endTime = other.m_endTime;
    m_intervalHours = other.m_intervalHours;
    m_durationHours = other.m_durationHours;
    m_weekDays = other.m_weekDays;
    m_months = other.m_months;
    m_monthDays = other.m_monthDays;
    m_dayLastFlag = other.m_dayLastFlag;
}

QString SchedulerDialogData::getTriggerType() const { return m_triggerType; }
void SchedulerDialogData::setTriggerType(const QString& triggerType) { m_triggerType = triggerType; }
QString SchedulerDialogData::getStartTime() const { return m_startTime; }
void SchedulerDialogData::setStartTime(const QString& startTime) { m_startTime = startTime; }
QString SchedulerDialogData::getEndTime() const { return m_endTime; }
void SchedulerDialogData::setEndTime(const QString& endTime) { m_endTime = endTime; }
QString SchedulerDialogData::getIntervalHours() const { return m_intervalHours; }
void SchedulerDialogData::setIntervalHours(const QString& intervalHours) { m_intervalHours = intervalHours; }
QString SchedulerDialogData::getDurationHours() const { return m_durationHours; }
void SchedulerDialogData::setDurationHours(const QString& durationHours) { m_durationHours = durationHours; }
QString SchedulerDialogData::getWeekDays() const { return m_weekDays; }
void SchedulerDialogData::setWeekDays(const QString& weekDays) { m_weekDays = weekDays; }
QString SchedulerDialogData::getMonths() const { return m_months; }
void SchedulerDialogData::setMonths(const QString& months) { m_months = months; }
QString SchedulerDialogData::getMonthDays() const { return m_monthDays; }
void SchedulerDialogData::setMonthDays(const QString& monthDays) { m_monthDays = monthDays; }
QString SchedulerDialogData::getDayLastFlag() const { return m_dayLastFlag; }
void SchedulerDialogData::setDayLastFlag(const QString& dayLastFlag) { m_dayLastFlag = dayLastFlag; }
