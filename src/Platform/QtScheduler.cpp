#include "QtScheduler.h"

#include <QThread>
#include <QTimer>
#include <algorithm>

namespace quillane
{

namespace
{

class QtRepeatingTimer final : public RepeatingTimer
{
public:
    QtRepeatingTimer(Scheduler::Duration interval, Scheduler::Task task) : m_timer(new QTimer)
    {
        m_timer->setInterval(interval);
        QObject::connect(m_timer, &QTimer::timeout, std::move(task));
        m_timer->start();
    }
    // A tick may drop its own timer: the timer and its task go once the tick is over.
    ~QtRepeatingTimer() override
    {
        m_timer->stop();
        m_timer->deleteLater();
    }

private:
    QTimer* m_timer;
};

} // namespace

QtScheduler::QtScheduler() = default;
QtScheduler::~QtScheduler() = default;

void QtScheduler::post(Task task)
{
    QMetaObject::invokeMethod(&m_context, std::move(task), Qt::QueuedConnection);
}

void QtScheduler::postAfter(Duration delay, Task task)
{
    // A timer belongs to the thread that starts it, so a delay asked for elsewhere starts on the
    // main thread.
    if (QThread::currentThread() != m_context.thread()) {
        post(
            [this, delay, task = std::move(task)]() mutable { postAfter(delay, std::move(task)); });
        return;
    }
    QTimer::singleShot(delay, &m_context, std::move(task));
}

std::unique_ptr<RepeatingTimer> QtScheduler::repeat(Duration interval, Task task)
{
    return std::make_unique<QtRepeatingTimer>(interval, std::move(task));
}

ThreadWorkQueue::ThreadWorkQueue(int threads)
{
    m_pool.setMaxThreadCount(std::max(1, threads));
}

ThreadWorkQueue::~ThreadWorkQueue()
{
    m_pool.waitForDone();
}

void ThreadWorkQueue::async(Task task)
{
    m_pool.start(std::move(task));
}

} // namespace quillane
