#ifndef BACKUPFRAME_SCHEDULER_RUNJOB_H
#define BACKUPFRAME_SCHEDULER_RUNJOB_H

#include "filefailure.h"

#include <backupframe.h>

#include <QMutex>
#include <QObject>
#include <QString>
#include <QWaitCondition>

#include <atomic>

class QThread;

// One run of a registered operation. The object lives on the main thread; Work runs on a
// thread of the job's own and reports through signals that reach the main thread queued.
// Cancel may be called from any thread; deleting the job cancels it and waits for Work.
class RunJob : public QObject
{
    Q_OBJECT

public:
    explicit RunJob(const TaskAttribute& task, QObject* parent = nullptr);
    ~RunJob() override;

    void Start();
    // Asks Work to stop; the job still ends through finished (as cancelled).
    void Cancel();
    bool IsCancelled() const { return m_cancelled.load(); }
    // Blocks until Work has returned (at once when it never started).
    void Wait();

signals:
    void progress(quint64 done, quint64 total);
    // Emitted once, from the job's thread, after Work returned. outcome is a RunOutcome;
    // solution is what a user can do about a failure, empty when the job has no advice of its own.
    void finished(quint64 outcome, const QString& reason, const QString& solution);

protected:
    // The operation itself, on the job's thread: returns a RunOutcome, with a reason when it
    // failed and, when it knows one, a solution the user can act on.
    virtual quint64 Work(QString& reason, QString& solution) = 0;
    void ReportProgress(quint64 done, quint64 total) { emit progress(done, total); }
    // Sleeps up to ms milliseconds, waking at once on Cancel; true when cancelled.
    bool SleepUnlessCancelled(int ms);
    // Records why the run failed and what a user can do; returns false, to end a chain of steps.
    bool Fail(const QString& reason, const QString& solution);
    bool Fail(const FileFailure& failure) { return Fail(failure.reason, failure.solution); }
    // The outcome of steps that returned `succeeded`: Succeeded; Failed with what Fail recorded;
    // or, when they stopped on a cancel without failing, Cancelled with cancelledReason.
    quint64 Conclude(bool succeeded, const QString& cancelledReason, QString& reason, QString& solution) const;

    const TaskAttribute m_task;
    QString m_planName;   // the plan's name when the run started (for names a user reads)

public:
    void SetPlanName(const QString& name) { m_planName = name; }

    // Byte progress of one phase of Work, for the job and the helpers it runs on its thread:
    // BeginProgress reports 0 of total, AddProgress reports as often as CommonTools::CalculateProgress
    // finds worth it, EndProgress reports the whole.
    void BeginProgress(quint64 total);
    void AddProgress(quint64 bytes);
    void EndProgress() { ReportProgress(m_progressTotal, m_progressTotal); }
    quint64 ProgressDone() const { return m_progressDone; }
    quint64 ProgressTotal() const { return m_progressTotal; }

private:
    QThread* m_thread = nullptr;
    std::atomic<bool> m_cancelled{false};
    QString m_failReason;
    QString m_failSolution;
    QMutex m_wakeMutex;
    QWaitCondition m_wake;
    quint64 m_progressTotal = 0;
    quint64 m_progressDone = 0;
    float m_lastRatio = 0;
};

#endif
