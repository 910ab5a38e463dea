#ifndef BACKUPFRAME_SCHEDULERDIALOGDATA_H
#define BACKUPFRAME_SCHEDULERDIALOGDATA_H

#include "backupframe_global.h"

#include <QString>

// The agent's schedule dialog as text, the way the user typed it: interval and
// duration in hours, day lists as text. RequestNewOperationData converts it.
class BACKUPFRAME_EXPORT SchedulerDialogData
{
public:
    SchedulerDialogData();
    SchedulerDialogData(const SchedulerDialogData& other);
    SchedulerDialogData& operator=(const SchedulerDialogData& other);
    virtual ~SchedulerDialogData();

    QString getTriggerType() const;
    void setTriggerType(const QString& triggerType);
    QString getStartTime() const;
    void setStartTime(const QString& startTime);
    QString getEndTime() const;
    void setEndTime(const QString& endTime);
    QString getIntervalHours() const;
    void setIntervalHours(const QString& intervalHours);
    QString getDurationHours() const;
    void setDurationHours(const QString& durationHours);
    QString getWeekDays() const;
    void setWeekDays(const QString& weekDays);
    QString getMonths() const;
    void setMonths(const QString& months);
    QString getMonthDays() const;
    void setMonthDays(const QString& monthDays);
    QString getDayLastFlag() const;
    void setDayLastFlag(const QString& dayLastFlag);

private:
    void formother(const SchedulerDialogData& other);

    QString m_triggerType;
    QString m_startTime;
    QString m_endTime;
    QString m_intervalHours;
    QString m_durationHours;
    QString m_weekDays;
    QString m_months;
    QString m_monthDays;
    QString m_dayLastFlag;
};

#endif
