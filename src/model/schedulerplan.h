#ifndef BACKUPFRAME_SCHEDULERPLAN_H
#define BACKUPFRAME_SCHEDULERPLAN_H

#include "backupframe_global.h"
#include "command/commandobj.h"
#include "model/schemeattribute.h"
#include "model/taskattribute.h"
#include "model/triggerattribute.h"

#include <QString>

class RequestNewOperationData;

// One backup plan as the scheduler keeps it: identity, scheme, task and trigger
// records (held by value) and the state of its current or last run.
class BACKUPFRAME_EXPORT SchedulerPlan : public CommandObj
{
public:
    SchedulerPlan();
    SchedulerPlan(const SchedulerPlan& other);
    SchedulerPlan(const RequestNewOperationData& data);
    SchedulerPlan& operator=(const SchedulerPlan& other);
    ~SchedulerPlan() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    bool operator==(const SchedulerPlan& other) const;
    bool operator!=(const SchedulerPlan& other) const;
    // Earlier creation time first ("yyyy-MM-dd hh:mm:ss"); no tie-break.
    bool operator<(const SchedulerPlan& other) const;

    // Turns a new-plan request into a fresh plan: empty uuid and name (the storing
    // side assigns them), the request's create time, task and trigger, no run state.
    void SetOperationData(const RequestNewOperationData& data);

    QString getPlanUuid() const;
    void setPlanUuid(const QString& planUuid);
    QString getPlanName() const;
    void setPlanName(const QString& planName);
    quint64 getTriggerFlag() const;
    void setTriggerFlag(quint64 triggerFlag);
    SchemeAttribute getSchemeAttribute() const;
    SchemeAttribute& getObjectSchemeAttribute();
    void setSchemeAttribute(const SchemeAttribute& schemeAttribute);
    TaskAttribute getTaskAttribute() const;
    TaskAttribute& getObjectTaskAttribute();
    void setTaskAttribute(const TaskAttribute& taskAttribute);
    TriggerAttribute getTriggerAttribute() const;
    TriggerAttribute& getObjectTriggerAttribute();
    void setTriggerAttribute(const TriggerAttribute& triggerAttribute);
    quint64 getStartFlag() const;
    void setStartFlag(quint64 startFlag);
    QString getStartTime() const;
    void setStartTime(const QString& startTime);
    quint64 getEndFlag() const;
    void setEndFlag(quint64 endFlag);
    QString getEndTime() const;
    void setEndTime(const QString& endTime);
    QString getNextStartTime() const;
    void setNextStartTime(const QString& nextStartTime);
    quint64 getCommandActionFlag() const;
    void setCommandActionFlag(quint64 commandActionFlag);
    QString getErrorMessage() const;
    void setErrorMessage(const QString& errorMessage);
    bool getWasError() const;
    void setWasError(bool wasError);
    quint64 getBytesProcessed() const;
    void setBytesProcessed(quint64 bytesProcessed);
    quint64 getTotalBytesToCopy() const;
    void setTotalBytesToCopy(quint64 totalBytesToCopy);
    bool getWasCancelled() const;
    void setWasCancelled(bool wasCancelled);
    quint64 getResultCode() const;
    void setResultCode(quint64 resultCode);
    bool getIsRunning() const;
    void setIsRunning(bool isRunning);

private:
    void formother(const SchedulerPlan& other);
    void resetRunState();

    QString m_planUuid;
    QString m_planName;
    quint64 m_triggerFlag;
    SchemeAttribute m_schemeAttribute;
    TaskAttribute m_taskAttribute;
    TriggerAttribute m_triggerAttribute;
    quint64 m_startFlag;
    QString m_startTime;
    quint64 m_endFlag;
    QString m_endTime;
    QString m_nextStartTime;
    quint64 m_commandActionFlag;
    QString m_errorMessage;
    bool m_wasError;
    quint64 m_bytesProcessed;
    quint64 m_totalBytesToCopy;
    bool m_wasCancelled;
    quint64 m_resultCode;
    bool m_isRunning;
};

#endif
