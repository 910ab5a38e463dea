#include "runjob.h"

#include "protocol.h"

#include <QDeadlineTimer>
#include <QThread>

RunJob::RunJob(const TaskAttribute& task, QObject* parent)
    : QObject(parent)
    , m_task(task)
{
}

RunJob::~RunJob()
{
    Cancel();
    Wait();
    delete m_thread;
}

void RunJob::Start()
{
    if (m_thread)
        return;
    m_thread = QThread::create([this] {
        QString reason;
        QString solution;
        quint64 outcome = Work(reason, solution);
        if (IsCancelled() && outcome != SchedulerProtocol::Failed)
            outcome = SchedulerProtocol::Cancelled;
        emit finished(outcome, reason, solution);
    });
    m_thread->setObjectName(QStringLiteral("run ") + m_task.getTaskName());
    m_thread->start();
}

void RunJob::Cancel()
{
    QMutexLocker locker(&m_wakeMutex);
    m_cancelled.store(true);
    m_wake.wakeAll();
}

void RunJob::Wait()
{
    if (m_thread)
        m_thread->wait();
}

bool RunJob::Fail(const QString& reason, const QString& solution)
{
    m_failReason = reason;
    m_failSolution = solution;
    return false;
}

quint64 RunJob::Conclude(bool succeeded, const QString& cancelledReason, QString& reason, QString& solution) const
{
    if (succeeded)
        return SchedulerProtocol::Succeeded;
    if (m_failReason.isEmpty() && IsCancelled()) {
        reason = cancelledReason;
        return SchedulerProtocol::Cancelled;
    }
    reason = m_failReason;
    solution = m_failSolution;
    return SchedulerProtocol::Failed;
}

bool RunJob::SleepUnlessCancelled(int ms)
{
    QDeadlineTimer deadline(ms);
    QMutexLocker locker(&m_wakeMutex);
    while (!m_cancelled.load() && !deadline.hasExpired())
        m_wake.wait(&m_wakeMutex, deadline);
    return m_cancelled.load();
}

void RunJob::BeginProgress(quint64 total)
{
    m_progressTotal = total;
    m_progressDone = 0;
    m_lastRatio = 0;
    ReportProgress(0, total);
}

void RunJob::AddProgress(quint64 bytes)
{
    m_progressDone += bytes;
    int total = 0;
    int current = 0;
    if (!CommonTools::CalculateProgress(m_progressTotal, m_progressDone, total, current, m_lastRatio))
        return;
    m_lastRatio = static_cast<float>(current) / static_cast<float>(total);
    ReportProgress(m_progressDone, m_progressTotal);
}
