#ifndef BACKUPFRAME_TRIGGERATTRIBUTE_H
#define BACKUPFRAME_TRIGGERATTRIBUTE_H

#include "backupframe_global.h"

#include <QString>

class QDataStream;

// When a plan fires: schedule kind, start and end, repetition in seconds and the
// day lists as text (CommonTools::ListToString form). A plain value record.
class BACKUPFRAME_EXPORT TriggerAttribute
{
public:
    TriggerAttribute();
    TriggerAttribute(const TriggerAttribute& other);
    TriggerAttribute& operator=(const TriggerAttribute& other);
    virtual ~TriggerAttribute();

    bool operator==(const TriggerAttribute& other) const;
    bool operator!=(const TriggerAttribute& other) const;

    QString getTriggerName() const;
    void setTriggerName(QString triggerName);
    quint64 getTriggerType() const;
    void setTriggerType(quint64 triggerType);
    QString getStartTime() const;
    void setStartTime(QString startTime);
    QString getEndTime() const;
    void setEndTime(QString endTime);
    quint64 getInterval() const;
    void setInterval(quint64 interval);
    quint64 getDuration() const;
    void setDuration(quint64 duration);
    QString getWeekDays() const;
    void setWeekDays(QString weekDays);
    QString getWhichMoths() const;
    void setWhichMoths(QString whichMoths);
    QString getMonthDays() const;
    void setMonthDays(QString monthDays);
    quint64 getDayLastFlag() const;
    void setDayLastFlag(quint64 dayLastFlag);
    quint64 getTriggerEndFlag() const;
    void setTriggerEndFlag(quint64 triggerEndFlag);

    // The eleven fields in declared order, numbers as qint64.
    void Write(QDataStream& out) const;
    void Read(QDataStream& in);

private:
    void formother(const TriggerAttribute& other);

    QString m_triggerName;
    quint64 m_triggerType;
    QString m_startTime;
    QString m_endTime;
    quint64 m_interval;
    quint64 m_duration;
    QString m_weekDays;
    QString m_whichMoths;
    QString m_monthDays;
    quint64 m_dayLastFlag;
    quint64 m_triggerEndFlag;
};

#endif
