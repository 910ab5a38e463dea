#include "operationrunner.h"

#include <QTimer>

namespace {
const QString kNoop = QStringLiteral("noop");
const QString kFail = QStringLiteral("fail");
const QString kSleep = QStringLiteral("sleep");
constexpr int kDefaultSleepMs = 1000;
}

OperationRunner::OperationRunner(QObject* parent)
    : ClientCommunManager(parent)
{
}

bool OperationRunner::IsRegistered(const QString& operation)
{
    return operation == kNoop || operation == kFail || operation == kSleep;
}

bool OperationRunner::QueueRun(const QString& planUuid)
{
    CommCommand* command = CommandBuilder::BuilderCommand(ExecuteOperationType);
    if (!command)
        return false;
    command->setPlanUuid(planUuid);
    command->getObjectCommunAttribute().setProtocolType(CommunAttribute::LocalProtocol);
    if (RequestCommunCommand(command))
        return true;   // the queue owns it now
    CommandBuilder::DestroyCommand(command);
    return false;
}

bool OperationRunner::IsWaiting(const QString& planUuid) const
{
    return m_waiting.contains(planUuid);
}

bool OperationRunner::Cancel(const QString& planUuid)
{
    QTimer* timer = m_waiting.take(planUuid);
    if (!timer)
        return false;
    timer->stop();
    timer->deleteLater();
    emit runFinished(planUuid, Cancelled, QStringLiteral("The run was cancelled by the user."));
    return true;
}

void OperationRunner::SetConnectAttribute(const CommunAttribute&)
{
    // Runs never leave the process: there is no endpoint to remember.
}

void OperationRunner::DealRequestCommand(CommCommand* command)
{
    if (command && command->getCommandType() == ExecuteOperationType)
        emit runDequeued(command->getPlanUuid());
}

void OperationRunner::Start(const QString& planUuid, const TaskAttribute& task)
{
    const QString operation = task.getOperationRegisterName();
    if (operation == kNoop) {
        emit runFinished(planUuid, Succeeded, QString());
    } else if (operation == kFail) {
        const QString reason = QString::fromUtf8(task.getOperationParameter());
        emit runFinished(planUuid, Failed,
                         reason.isEmpty() ? QStringLiteral("The operation was asked to fail.") : reason);
    } else if (operation == kSleep) {
        bool ok = false;
        const int ms = QString::fromUtf8(task.getOperationParameter()).toInt(&ok);
        auto* timer = new QTimer(this);
        timer->setSingleShot(true);
        connect(timer, &QTimer::timeout, this, [this, planUuid, timer] {
            if (m_waiting.value(planUuid) != timer)
                return;
            m_waiting.remove(planUuid);
            timer->deleteLater();
            emit runFinished(planUuid, Succeeded, QString());
        });
        m_waiting.insert(planUuid, timer);
        timer->start(ok && ms >= 0 ? ms : kDefaultSleepMs);
    } else {
        emit runFinished(planUuid, Failed,
                         QStringLiteral("No operation is registered as '%1'.").arg(operation));
    }
}
