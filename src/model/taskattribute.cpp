#include "model/taskattribute.h"

#include <QDataStream>

TaskAttribute::TaskAttribute()
    : m_taskName(QLatin1String(""))
    , m_operationRegisterName(QLatin1String(""))
{
    // A cleared parameter block is a null array: it travels as the null marker.
    m_operationParameter.clear();
}

TaskAttribute::TaskAttribute(const TaskAttribute& other)
{
    formother(other);
}

TaskAttribute& TaskAttribute::operator=(const TaskAttribute& other)
{
    if (this != &other)
        formother(other);
    return *this;
}

TaskAttribute::~TaskAttribute() = default;

void TaskAttribute::formother(const TaskAttribute& other)
{
    m_taskName = other.m_taskName;
    m_operationRegisterName = other.m_operationRegisterName;
    m_operationParameter = other.m_operationParameter;
}

bool TaskAttribute::operator==(const TaskAttribute& other) const
{
    if (m_taskName != other.m_taskName)
        return false;
    if (m_operationRegisterName != other.m_operationRegisterName)
        return false;
    return m_operationParameter == other.m_operationParameter;
}

bool TaskAttribute::operator!=(const TaskAttribute& other) const
{
    return !(*this == other);
}

QString TaskAttribute::getTaskName() const { return m_taskName; }
void TaskAttribute::setTaskName(const QString& taskName) { m_taskName = taskName; }
QString TaskAttribute::getOperationRegisterName() const { return m_operationRegisterName; }
void TaskAttribute::setOperationRegisterName(const QString& operationRegisterName) { m_operationRegisterName = operationRegisterName; }
QByteArray TaskAttribute::getOperationParameter() const { return m_operationParameter; }
void TaskAttribute::setOperationParameter(const QByteArray& operationParameter) { m_operationParameter = operationParameter; }

void TaskAttribute::Write(QDataStream& out) const
{
    out << m_taskName << m_operationRegisterName << m_operationParameter;
}

void TaskAttribute::Read(QDataStream& in)
{
    in >> m_taskName >> m_operationRegisterName >> m_operationParameter;
}
