#ifndef BACKUPFRAME_REQUESTNEWOPERATIONDATA_H
#define BACKUPFRAME_REQUESTNEWOPERATIONDATA_H

#include "backupframe_global.h"
#include "command/commandobj.h"
#include "model/taskattribute.h"
#include "model/triggerattribute.h"

#include <QString>

class SchedulerDialogData;

// Payload of "NewOperation": the task and trigger the user set up, when, and
// whether to run now or later. A SchedulerPlan is built from it.
class BACKUPFRAME_EXPORT RequestNewOperationData : public CommandObj
{
public:
    // The create time is the local time of construction, "yyyy-MM-dd hh:mm:ss".
    RequestNewOperationData();
    RequestNewOperationData(const RequestNewOperationData& other);
    RequestNewOperationData& operator=(const RequestNewOperationData& other);
    ~RequestNewOperationData() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    // Fills the trigger from the dialog's texts; hours become seconds and a text
    // that is no number becomes 0.
    void GetDialogTrigger(const SchedulerDialogData& dialog);

    QString getCreateTime() const;
    void setCreateTime(QString createTime);
    TaskAttribute getTaskAttribute() const;
    TaskAttribute& getObjectTaskAttribute();
    void setTaskAttribute(const TaskAttribute& taskAttribute);
    TriggerAttribute getTriggerAttribute() const;
    TriggerAttribute& getObjectTriggerAttribute();
    void setTriggerAttribute(const TriggerAttribute& triggerAttribute);
    quint64 getBackupNowLater() const;
    void setBackupNowLater(quint64 backupNowLater);

private:
    void formother(const RequestNewOperationData& other);

    QString m_createTime;
    TaskAttribute m_taskAttribute;
    TriggerAttribute m_triggerAttribute;
    quint64 m_backupNowLater;
};

#endif
