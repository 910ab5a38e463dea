#include "command/schedulerplandata.h"

#include <QDataStream>

SchedulerPlanData::SchedulerPlanData() = default;

SchedulerPlanData::SchedulerPlanData(const SchedulerPlanData& other)
    : CommandObj(other)
{
    formother(other);
}

SchedulerPlanData& SchedulerPlanData::operator=(const SchedulerPlanData& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

SchedulerPlanData::~SchedulerPlanData() = default;

void SchedulerPlanData::formother(const SchedulerPlanData& other)
{
    m_schedulerPlan = other.m_schedulerPlan;
}

void SchedulerPlanData::Write(QDataStream& out)
{
    m_schedulerPlan.Write(out);
}

void SchedulerPlanData::Read(QDataStream& in)
{
    m_schedulerPlan.Read(in);
}

SchedulerPlan& SchedulerPlanData::getRfrnSchedulerPlan() { return m_schedulerPlan; }
void SchedulerPlanData::setSchedulerPlan(const SchedulerPlan& schedulerPlan) { m_schedulerPlan = schedulerPlan; }
