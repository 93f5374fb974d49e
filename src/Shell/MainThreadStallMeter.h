#pragma once

#include <QElapsedTimer>
#include <QString>
#include <QTimer>
#include <chrono>

namespace quillane
{

// Measures how long the main thread's event loop goes without turning: a timer that should fire
// every few milliseconds notes the longest wait beyond its interval. Made only when a run asks
// for the figure (the benchmarks do); nothing else depends on it.
class MainThreadStallMeter
{
public:
    explicit MainThreadStallMeter(
        std::chrono::milliseconds interval = std::chrono::milliseconds(2));
    MainThreadStallMeter(const MainThreadStallMeter&) = delete;
    MainThreadStallMeter& operator=(const MainThreadStallMeter&) = delete;

    // Call on the main thread, before its event loop runs.
    void start();
    // The longest stall so far, the one still going on included.
    std::chrono::nanoseconds longestStall() const;
    // "longest main-thread stall: 12.3 ms"
    QString report() const;

private:
    void tick();

    std::chrono::milliseconds m_interval;
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_lastTick = 0; // nanoseconds on m_clock
    qint64 m_longest = 0;
};

} // namespace quillane
