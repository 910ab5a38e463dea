#ifndef BACKUPFRAME_SCHEDULER_OPERATIONREGISTRY_H
#define BACKUPFRAME_SCHEDULER_OPERATIONREGISTRY_H

#include "runjob.h"

#include <QMap>
#include <QString>

#include <functional>

// The operations a plan's task can name, looked up by their registered name: each makes
// the job of one run and checks its parameter block before a plan is stored.
class OperationRegistry
{
public:
    struct Operation {
        QString name;
        QString parameterHelp;   // one line: what the parameter block holds
        std::function<bool(const QByteArray& parameter, QString& reason)> validate;
        std::function<RunJob*(const TaskAttribute& task)> create;
    };

    // The registry with the built-in operations: "noop", "fail", "sleep", "copy", "zip",
    // "restore" and "verify".
    static OperationRegistry WithBuiltIns();

    void Register(const Operation& operation);
    bool Contains(const QString& name) const { return m_operations.contains(name); }
    QStringList Names() const { return m_operations.keys(); }
    const Operation* Find(const QString& name) const;
    // False with a reason when the name is unknown or its parameter block is not valid.
    bool Validate(const TaskAttribute& task, QString& reason) const;
    // A new job for the task, or null when its operation is unknown.
    RunJob* Create(const TaskAttribute& task) const;

private:
    QMap<QString, Operation> m_operations;
};

#endif
