#include "MainThreadStallMeter.h"

#include <algorithm>

namespace quillane
{

MainThreadStallMeter::MainThreadStallMeter(std::chrono::milliseconds interval)
    : m_interval(interval)
{
    // A coarse timer may fire up to 5% late on purpose, which would read as a stall.
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(m_interval);
    QObject::connect(&m_timer, &QTimer::timeout, [this] { tick(); });
}

void MainThreadStallMeter::start()
{
    m_clock.start();
    m_lastTick = 0;
    m_longest = 0;
    m_timer.start();
}

void MainThreadStallMeter::tick()
{
    const qint64 now = m_clock.nsecsElapsed();
    const qint64 expected = std::chrono::nanoseconds(m_interval).count();
    m_longest = std::max(m_longest, now - m_lastTick - expected);
    m_lastTick = now;
}

std::chrono::nanoseconds MainThreadStallMeter::longestStall() const
{
    if (!m_clock.isValid())
        return {};
    const qint64 sinceLastTick =
        m_clock.nsecsElapsed() - m_lastTick - std::chrono::nanoseconds(m_interval).count();
    return std::chrono::nanoseconds(std::max({m_longest, sinceLastTick, qint64(0)}));
}

QString MainThreadStallMeter::report() const
{
    const double milliseconds = std::chrono::duration<double, std::milli>(longestStall()).count();
    return QStringLiteral("longest main-thread stall: %1 ms").arg(milliseconds, 0, 'f', 1);
}

} // namespace quillane
