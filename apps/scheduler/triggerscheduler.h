#ifndef BACKUPFRAME_SCHEDULER_TRIGGERSCHEDULER_H
#define BACKUPFRAME_SCHEDULER_TRIGGERSCHEDULER_H

#include <QDateTime>
#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QString>
#include <QTimer>

#include <set>
#include <utility>

// Where the service reads the time. Tests give a clock that runs faster than the wall.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual QDateTime Now() const { return QDateTime::currentDateTime(); }
    // Real milliseconds until the clock shows `instant` (negative when it already passed).
    virtual qint64 RealMsecsUntil(const QDateTime& instant) const { return Now().msecsTo(instant); }
};

// A clock that starts at `origin` and runs `speed` times faster than real time.
class ScaledClock : public Clock
{
public:
    ScaledClock(const QDateTime& origin, double speed);
    QDateTime Now() const override;
    qint64 RealMsecsUntil(const QDateTime& instant) const override;

private:
    QDateTime m_origin;
    double m_speed;
    QElapsedTimer m_elapsed;
};

// Keeps each plan's next fire instant and emits `due` when it comes, from one single-shot
// timer armed for the earliest. The timer never waits longer than a minute, so a changed
// wall clock or a resumed machine is noticed within one. Main thread.
class TriggerScheduler : public QObject
{
    Q_OBJECT

public:
    explicit TriggerScheduler(const Clock& clock, QObject* parent = nullptr);

    // Sets when the plan fires next; an invalid instant removes it.
    void Schedule(const QString& planUuid, const QDateTime& next);
    void Remove(const QString& planUuid) { Schedule(planUuid, QDateTime()); }
    QDateTime NextFire(const QString& planUuid) const;
    int Count() const { return m_next.size(); }
    const Clock& GetClock() const { return m_clock; }

signals:
    // The plan's instant came; it is no longer scheduled until Schedule is called again.
    void due(const QString& planUuid, const QDateTime& instant);

private slots:
    void onTimeout();

private:
    void Arm();

    const Clock& m_clock;
    std::set<std::pair<qint64, QString>> m_queue;   // (msecs since epoch, plan uuid)
    QHash<QString, qint64> m_next;
    QTimer m_timer;
};

#endif
