#include "operationregistry.h"

#include "copyjob.h"
#include "protocol.h"
#include "restorejob.h"
#include "verifyjob.h"
#include "zipjob.h"

namespace {

constexpr int kDefaultSleepMs = 1000;
constexpr int kMaxSleepMs = 24 * 3600 * 1000;

// Succeeds at once.
class NoopJob : public RunJob
{
public:
    using RunJob::RunJob;

protected:
    quint64 Work(QString&, QString&) override { return SchedulerProtocol::Succeeded; }
};

// Fails at once; its parameter is the reason.
class FailJob : public RunJob
{
public:
    using RunJob::RunJob;

protected:
    quint64 Work(QString& reason, QString&) override
    {
        reason = QString::fromUtf8(m_task.getOperationParameter());
        if (reason.isEmpty())
            reason = QStringLiteral("The operation was asked to fail.");
        return SchedulerProtocol::Failed;
    }
};

bool sleepMs(const QByteArray& parameter, int& ms)
{
    if (parameter.trimmed().isEmpty()) {
        ms = kDefaultSleepMs;
        return true;
    }
    bool ok = false;
    ms = parameter.trimmed().toInt(&ok);
    return ok && ms >= 0 && ms <= kMaxSleepMs;
}

// Waits its parameter in milliseconds, reporting progress every tenth; cancel ends it at once.
class SleepJob : public RunJob
{
public:
    using RunJob::RunJob;

protected:
    quint64 Work(QString&, QString&) override
    {
        // No progress: it moves no bytes, and progress counts bytes.
        int ms = kDefaultSleepMs;
        sleepMs(m_task.getOperationParameter(), ms);
        return SleepUnlessCancelled(ms) ? SchedulerProtocol::Cancelled : SchedulerProtocol::Succeeded;
    }
};

template <typename Job>
std::function<RunJob*(const TaskAttribute&)> maker()
{
    return [](const TaskAttribute& task) { return new Job(task); };
}

bool anyParameter(const QByteArray&, QString&)
{
    return true;
}

} // namespace

OperationRegistry OperationRegistry::WithBuiltIns()
{
    OperationRegistry registry;
    registry.Register({QStringLiteral("noop"), QStringLiteral("none; succeeds at once"), anyParameter,
                       maker<NoopJob>()});
    registry.Register({QStringLiteral("fail"), QStringLiteral("the error reason; fails at once"), anyParameter,
                       maker<FailJob>()});
    registry.Register({QStringLiteral("sleep"),
                       QStringLiteral("milliseconds to wait, 0 to 86400000 (default 1000); can be cancelled"),
                       [](const QByteArray& parameter, QString& reason) {
                           int ms = 0;
                           if (sleepMs(parameter, ms))
                               return true;
                           reason = QStringLiteral("'sleep' wants a number of milliseconds from 0 to 86400000.");
                           return false;
                       },
                       maker<SleepJob>()});
    registry.Register({QStringLiteral("copy"), CopySettings::ParameterHelp(),
                       [](const QByteArray& parameter, QString& reason) {
                           CopySettings settings;
                           return CopySettings::Parse(parameter, settings, reason);
                       },
                       maker<CopyJob>()});
    registry.Register({QStringLiteral("zip"), ZipSettings::ParameterHelp(),
                       [](const QByteArray& parameter, QString& reason) {
                           ZipSettings settings;
                           return ZipSettings::Parse(parameter, settings, reason);
                       },
                       maker<ZipJob>()});
    registry.Register({QStringLiteral("restore"), RestoreSettings::ParameterHelp(),
                       [](const QByteArray& parameter, QString& reason) {
                           RestoreSettings settings;
                           return RestoreSettings::Parse(parameter, settings, reason);
                       },
                       maker<RestoreJob>()});
    registry.Register({QStringLiteral("verify"), VerifySettings::ParameterHelp(),
                       [](const QByteArray& parameter, QString& reason) {
                           VerifySettings settings;
                           return VerifySettings::Parse(parameter, settings, reason);
                       },
                       maker<VerifyJob>()});
    return registry;
}

void OperationRegistry::Register(const Operation& operation)
{
    m_operations.insert(operation.name, operation);
}

const OperationRegistry::Operation* OperationRegistry::Find(const QString& name) const
{
    const auto it = m_operations.constFind(name);
    return it == m_operations.constEnd() ? nullptr : &it.value();
}

bool OperationRegistry::Validate(const TaskAttribute& task, QString& reason) const
{
    const Operation* operation = Find(task.getOperationRegisterName());
    if (!operation) {
        reason = QStringLiteral("No operation is registered as '%1'; known: %2.")
                     .arg(task.getOperationRegisterName(), Names().join(QStringLiteral(", ")));
        return false;
    }
    return operation->validate(task.getOperationParameter(), reason);
}

RunJob* OperationRegistry::Create(const TaskAttribute& task) const
{
    const Operation* operation = Find(task.getOperationRegisterName());
    return operation ? operation->create(task) : nullptr;
}
