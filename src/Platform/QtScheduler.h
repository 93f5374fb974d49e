#pragma once

#include "Scheduler.h"

#include <QObject>
#include <QThreadPool>

namespace quillane
{

// The main queue of a running Qt application: tasks run in the event loop of the thread that
// made the scheduler.
class QtScheduler final : public Scheduler
{
public:
    QtScheduler();
    ~QtScheduler() override;

    using Scheduler::post;
    using Scheduler::postAfter;
    void post(Task task) override;
    void postAfter(Duration delay, Task task) override;
    std::unique_ptr<RepeatingTimer> repeat(Duration interval, Task task) override;

private:
    QObject m_context;
};

// A queue on background threads of its own: serial with one thread (the default), else up to
// `threads` tasks at once.
class ThreadWorkQueue final : public WorkQueue
{
public:
    explicit ThreadWorkQueue(int threads = 1);
    ~ThreadWorkQueue() override; // waits for queued work

    void async(Task task) override;
    int concurrency() const override { return m_pool.maxThreadCount(); }

private:
    QThreadPool m_pool;
};

} // namespace quillane
