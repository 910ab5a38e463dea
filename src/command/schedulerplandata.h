#ifndef BACKUPFRAME_SCHEDULERPLANDATA_H
#define BACKUPFRAME_SCHEDULERPLANDATA_H

#include "backupframe_global.h"
#include "command/commandobj.h"
#include "model/schedulerplan.h"

// Payload of a single plan, held by value.
class BACKUPFRAME_EXPORT SchedulerPlanData : public CommandObj
{
public:
    SchedulerPlanData();
    SchedulerPlanData(const SchedulerPlanData& other);
    SchedulerPlanData& operator=(const SchedulerPlanData& other);
    ~SchedulerPlanData() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    SchedulerPlan& getRfrnSchedulerPlan();
    void setSchedulerPlan(const SchedulerPlan& schedulerPlan);

private:
    void formother(const SchedulerPlanData& other);

    SchedulerPlan m_schedulerPlan;
};

#endif
