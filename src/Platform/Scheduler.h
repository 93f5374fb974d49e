#pragma once

#include <QObject>
#include <QPointer>
#include <chrono>
#include <functional>
#include <memory>

namespace quillane
{

// A repeating timer; it stops when this handle is destroyed.
class RepeatingTimer
{
public:
    virtual ~RepeatingTimer() = default;
};

// The main queue. Every delay and timer of the model goes through it, so tests can run
// minutes of model time in milliseconds (VirtualScheduler).
class Scheduler
{
public:
    using Task = std::function<void()>;
    using Duration = std::chrono::milliseconds;
    // An object whose tasks are dropped once it is gone. Taken on the main thread, it may be
    // copied to any thread.
    using Context = QPointer<const QObject>;

    virtual ~Scheduler() = default;

    // Runs the task on the main thread soon. May be called from any thread.
    virtual void post(Task task) = 0;
    // Runs the task on the main thread once the delay has passed. May be called from any thread.
    virtual void postAfter(Duration delay, Task task) = 0;
    // As post() and postAfter(), but the task is dropped if `context` is gone by the time it is
    // due, as QTimer::singleShot does with its context.
    void post(Context context, Task task) { post(guarded(std::move(context), std::move(task))); }
    void postAfter(Duration delay, Context context, Task task)
    {
        postAfter(delay, guarded(std::move(context), std::move(task)));
    }
    // Runs the task on the main thread every interval until the handle is destroyed.
    // Called on the main thread.
    virtual std::unique_ptr<RepeatingTimer> repeat(Duration interval, Task task) = 0;

    // The task, run only while the context is there: for callbacks that arrive on the main
    // thread by other ways than this queue.
    static Task guarded(Context context, Task task)
    {
        return [context = std::move(context), task = std::move(task)] {
            if (context)
                task();
        };
    }
};

// Where long work (walking a tree, listing a large folder) runs, off the main thread. Tasks run
// in the order they were queued, one at a time unless the queue says it runs more at once.
class WorkQueue
{
public:
    using Task = std::function<void()>;

    virtual ~WorkQueue() = default;
    virtual void async(Task task) = 0;
    // How many tasks may run at once.
    virtual int concurrency() const { return 1; }
};

} // namespace quillane
