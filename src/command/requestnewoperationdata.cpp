#include "command/requestnewoperationdata.h"

#include "command/schedulerdialogdata.h"
#include "common/timetext.h"

#include <QDataStream>
#include <QDateTime>

namespace {
constexpr quint64 kSecondsPerHour = 3600;

quint64 toNumber(const QString& text)
{
    return text.toUInt(nullptr, 10);
}
}

RequestNewOperationData::RequestNewOperationData()
    : m_createTime(QDateTime::currentDateTime().toString(TimeText::Format()))
    , m_backupNowLater(0)
{
}

RequestNewOperationData::RequestNewOperationData(const RequestNewOperationData& other)
    : CommandObj(other)
{
    formother(other);
}

RequestNewOperationData& RequestNewOperationData::operator=(const RequestNewOperationData& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

RequestNewOperationData::~RequestNewOperationData() = default;

void RequestNewOperationData::formother(const RequestNewOperationData& other)
{
    m_createTime = other.m_createTime;
    m_taskAttribute = other.m_taskAttribute;
    m_triggerAttribute = other.m_triggerAttribute;
    m_backupNowLater = other.m_backupNowLater;
}

void RequestNewOperationData::GetDialogTrigger(const SchedulerDialogData& dialog)
{
    m_triggerAttribute.setTriggerType(toNumber(dialog.getTriggerType()));
    m_triggerAttribute.setStartTime(dialog.getStartTime());
    m_triggerAttribute.setEndTime(dialog.getEndTime());
    m_triggerAttribute.setInterval(toNumber(dialog.getIntervalHours()) * kSecondsPerHour);
    m_triggerAttribute.setDuration(toNumber(dialog.getDurationHours()) * kSecondsPerHour);
    m_triggerAttribute.setWeekDays(dialog.getWeekDays());
    m_triggerAttribute.setWhichMoths(dialog.getMonths());
    m_triggerAttribute.setMonthDays(dialog.getMonthDays());
    m_triggerAttribute.setDayLastFlag(toNumber(dialog.getDayLastFlag()));
}

void RequestNewOperationData::Write(QDataStream& out)
{
    out << m_createTime;
    m_taskAttribute.Write(out);
    m_triggerAttribute.Write(out);
    out << static_cast<qint64>(m_backupNowLater);
}

void RequestNewOperationData::Read(QDataStream& in)
{
    qint64 backupNowLater = 0;
    in >> m_createTime;
    m_taskAttribute.Read(in);
    m_triggerAttribute.Read(in);
    in >> backupNowLater;
    m_backupNowLater = static_cast<quint64>(backupNowLater);
}

QString RequestNewOperationData::getCreateTime() const { return m_createTime; }
void RequestNewOperationData::setCreateTime(QString createTime) { m_createTime = createTime; }
TaskAttribute RequestNewOperationData::getTaskAttribute() const { return m_taskAttribute; }
TaskAttribute& RequestNewOperationData::getObjectTaskAttribute() { return m_taskAttribute; }
void RequestNewOperationData::setTaskAttribute(const TaskAttribute& taskAttribute) { m_taskAttribute = taskAttribute; }
TriggerAttribute RequestNewOperationData::getTriggerAttribute() const { return m_triggerAttribute; }
TriggerAttribute& RequestNewOperationData::getObjectTriggerAttribute() { return m_triggerAttribute; }
void RequestNewOperationData::setTriggerAttribute(const TriggerAttribute& triggerAttribute) { m_triggerAttribute = triggerAttribute; }
quint64 RequestNewOperationData::getBackupNowLater() const { return m_backupNowLater; }
void RequestNewOperationData::setBackupNowLater(quint64 backupNowLater) { m_backupNowLater = backupNowLater; }
