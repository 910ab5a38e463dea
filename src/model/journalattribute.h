#ifndef BACKUPFRAME_JOURNALATTRIBUTE_H
#define BACKUPFRAME_JOURNALATTRIBUTE_H

#include "backupframe_global.h"

#include <QString>

class QDataStream;

// The journal of one run of a plan: which plan and task ran, when, how long, with
// what result and, on failure, why. A plain value record (a row of "tb_Journals").
class BACKUPFRAME_EXPORT JournalAttribute
{
public:
    JournalAttribute();
    JournalAttribute(const JournalAttribute& other);
    JournalAttribute& operator=(const JournalAttribute& other);
    virtual ~JournalAttribute();

    bool operator==(const JournalAttribute& other) const;
    bool operator!=(const JournalAttribute& other) const;

    QString getJournalUuid() const;
    void setJournalUuid(const QString& journalUuid);
    QString getPlanUuid() const;
    void setPlanUuid(const QString& planUuid);
    QString getPlanName() const;
    void setPlanName(const QString& planName);
    QString getTaskName() const;
    void setTaskName(const QString& taskName);
    QString getStartTime() const;
    void setStartTime(const QString& startTime);
    QString getEndTime() const;
    void setEndTime(const QString& endTime);
    QString getCreateTime() const;
    void setCreateTime(const QString& createTime);
    quint64 getTimeConsuming() const;
    void setTimeConsuming(quint64 timeConsuming);
    QString getResult() const;
    void setResult(const QString& result);
    QString getErrorReason() const;
    void setErrorReason(const QString& errorReason);
    QString getSolution() const;
    void setSolution(const QString& solution);
    quint64 getCommandActionFlag() const;
    void setCommandActionFlag(quint64 commandActionFlag);
    QString getExecutionState() const;
    void setExecutionState(const QString& executionState);

    // The thirteen fields in declared order, numbers as qint64.
    void Write(QDataStream& out) const;
    void Read(QDataStream& in);

private:
    void formother(const JournalAttribute& other);

    QString m_journalUuid;
    QString m_planUuid;
    QString m_planName;
    QString m_taskName;
    QString m_startTime;
    QString m_endTime;
    QString m_createTime;
    quint64 m_timeConsuming;
    QString m_result;
    QString m_errorReason;
    QString m_solution;
    quint64 m_commandActionFlag;
    QString m_executionState;
};

#endif
