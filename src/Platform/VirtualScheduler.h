#pragma once

#include "Scheduler.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

namespace quillane
{

// A main queue on a virtual clock: nothing runs until advance() is called on the main thread,
// which runs every task that falls due, in time order (posting order for equal times).
// Tasks may be posted from any thread.
class VirtualScheduler final : public Scheduler
{
public:
    using Scheduler::post;
    using Scheduler::postAfter;
    void post(Task task) override;
    void postAfter(Duration delay, Task task) override;
    std::unique_ptr<RepeatingTimer> repeat(Duration interval, Task task) override;

    // Moves the clock forward, running what falls due on the way.
    void advance(Duration by);
    // Runs what is due now, including what those tasks post for now.
    void runPending() { advance(Duration::zero()); }
    // Runs the first task that is due now, if there is one: a step at a time through work that
    // runPending() would do at once.
    bool runNext();
    Duration now() const;
    std::size_t pendingCount() const;

private:
    using Key = std::pair<Duration, std::uint64_t>;

    mutable std::mutex m_mutex;
    Duration m_now{0};
    std::uint64_t m_sequence = 0;
    std::map<Key, Task> m_tasks;
};

// Runs each task at once, on the caller's thread. Tests use it with VirtualScheduler so that
// a rebuild's work is done by the time it is asked for.
class InlineWorkQueue final : public WorkQueue
{
public:
    void async(Task task) override { task(); }
};

} // namespace quillane
