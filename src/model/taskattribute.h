#ifndef BACKUPFRAME_TASKATTRIBUTE_H
#define BACKUPFRAME_TASKATTRIBUTE_H

#include "backupframe_global.h"

#include <QByteArray>
#include <QString>

class QDataStream;

// The operation a plan runs: task name, the operation's registered name and its
// opaque parameter block (never looked into here). A plain value record.
class BACKUPFRAME_EXPORT TaskAttribute
{
public:
    TaskAttribute();
    TaskAttribute(const TaskAttribute& other);
    TaskAttribute& operator=(const TaskAttribute& other);
    virtual ~TaskAttribute();

    bool operator==(const TaskAttribute& other) const;
    bool operator!=(const TaskAttribute& other) const;

    QString getTaskName() const;
    void setTaskName(const QString& taskName);
    QString getOperationRegisterName() const;
    void setOperationRegisterName(const QString& operationRegisterName);
    QByteArray getOperationParameter() const;
    void setOperationParameter(const QByteArray& operationParameter);

    // task name, operation register name (QString), operation parameter (QByteArray)
    void Write(QDataStream& out) const;
    void Read(QDataStream& in);

private:
    void formother(const TaskAttribute& other);

    QString m_taskName;
    QString m_operationRegisterName;
    QByteArray m_operationParameter;
};

#endif
