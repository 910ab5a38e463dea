#include "triggerscheduler.h"

#include <QtMath>

namespace {
constexpr qint64 kLongestWaitMs = 60 * 1000;
}

ScaledClock::ScaledClock(const QDateTime& origin, double speed)
    : m_origin(origin)
    , m_speed(speed > 0 ? speed : 1)
{
    m_elapsed.start();
}

QDateTime ScaledClock::Now() const
{
    return m_origin.addMSecs(static_cast<qint64>(m_elapsed.elapsed() * m_speed));
}

qint64 ScaledClock::RealMsecsUntil(const QDateTime& instant) const
{
    return static_cast<qint64>(qCeil(Now().msecsTo(instant) / m_speed));
}

TriggerScheduler::TriggerScheduler(const Clock& clock, QObject* parent)
    : QObject(parent)
    , m_clock(clock)
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &TriggerScheduler::onTimeout);
}

void TriggerScheduler::Schedule(const QString& planUuid, const QDateTime& next)
{
    const auto frontBefore = m_queue.empty() ? std::pair<qint64, QString>() : *m_queue.begin();
    const auto old = m_next.constFind(planUuid);
    if (old != m_next.constEnd()) {
        m_queue.erase({old.value(), planUuid});
        m_next.erase(old);
    }
    if (next.isValid()) {
        const qint64 at = next.toMSecsSinceEpoch();
        m_next.insert(planUuid, at);
        m_queue.insert({at, planUuid});
    }
    // Re-arming costs a timer registration: only when the earliest instant changed.
    if (m_queue.empty() || *m_queue.begin() != frontBefore || !m_timer.isActive())
        Arm();
}

QDateTime TriggerScheduler::NextFire(const QString& planUuid) const
{
    const auto it = m_next.constFind(planUuid);
    return it == m_next.constEnd() ? QDateTime() : QDateTime::fromMSecsSinceEpoch(it.value());
}

void TriggerScheduler::Arm()
{
    if (m_queue.empty()) {
        m_timer.stop();
        return;
    }
    const QDateTime first = QDateTime::fromMSecsSinceEpoch(m_queue.begin()->first);
    m_timer.start(static_cast<int>(qBound<qint64>(0, m_clock.RealMsecsUntil(first), kLongestWaitMs)));
}

void TriggerScheduler::onTimeout()
{
    const qint64 now = m_clock.Now().toMSecsSinceEpoch();
    QList<std::pair<qint64, QString>> dueNow;
    while (!m_queue.empty() && m_queue.begin()->first <= now) {
        dueNow.append(*m_queue.begin());
        m_next.remove(m_queue.begin()->second);
        m_queue.erase(m_queue.begin());
    }
    // Receivers schedule the next instants (re-arming each time); the last Arm settles it.
    for (const auto& entry : dueNow)
        emit due(entry.second, QDateTime::fromMSecsSinceEpoch(entry.first));
    Arm();
}
