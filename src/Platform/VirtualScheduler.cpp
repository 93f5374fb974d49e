#include "VirtualScheduler.h"

namespace quillane
{

namespace
{

class VirtualRepeatingTimer final : public RepeatingTimer
{
public:
    explicit VirtualRepeatingTimer(std::shared_ptr<bool> alive) : m_alive(std::move(alive)) {}
    ~VirtualRepeatingTimer() override { *m_alive = false; }

private:
    std::shared_ptr<bool> m_alive;
};

} // namespace

void VirtualScheduler::post(Task task)
{
    postAfter(Duration::zero(), std::move(task));
}

void VirtualScheduler::postAfter(Duration delay, Task task)
{
    std::lock_guard lock(m_mutex);
    m_tasks.emplace(Key{m_now + delay, m_sequence++}, std::move(task));
}

std::unique_ptr<RepeatingTimer> VirtualScheduler::repeat(Duration interval, Task task)
{
    auto alive = std::make_shared<bool>(true);
    auto tick = std::make_shared<Task>();
    *tick = [this, interval, alive, task = std::move(task), weakTick = std::weak_ptr<Task>(tick)] {
        if (!*alive)
            return;
        task();
        if (*alive)
            if (auto next = weakTick.lock())
                postAfter(interval, [next] { (*next)(); });
    };
    postAfter(interval, [tick] { (*tick)(); });
    return std::make_unique<VirtualRepeatingTimer>(alive);
}

bool VirtualScheduler::runNext()
{
    Task task;
    {
        std::lock_guard lock(m_mutex);
        auto next = m_tasks.begin();
        if (next == m_tasks.end() || next->first.first > m_now)
            return false;
        task = std::move(next->second);
        m_tasks.erase(next);
    }
    task();
    return true;
}

void VirtualScheduler::advance(Duration by)
{
    Duration target;
    {
        std::lock_guard lock(m_mutex);
        target = m_now + by;
    }
    for (;;) {
        Task task;
        {
            std::lock_guard lock(m_mutex);
            auto next = m_tasks.begin();
            if (next == m_tasks.end() || next->first.first > target) {
                m_now = target;
                return;
            }
            m_now = next->first.first;
            task = std::move(next->second);
            m_tasks.erase(next);
        }
        task();
    }
}

Scheduler::Duration VirtualScheduler::now() const
{
    std::lock_guard lock(m_mutex);
    return m_now;
}

std::size_t VirtualScheduler::pendingCount() const
{
    std::lock_guard lock(m_mutex);
    return m_tasks.size();
}

} // namespace quillane
