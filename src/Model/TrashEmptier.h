#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace quillane
{

class Scheduler;
class WorkQueue;

// One emptying of one trash folder. It removes the folder's items on its work queue, taking
// them in listing order with as many workers as the queue runs at once, each item before its
// record, and reports each outcome on the main thread. The entry that is never emptied
// (isSkippedTrashEntry) is left alone and not counted. Given a set of names, it removes only the
// items of those names that are there, and counts only them.
//
// The object is the emptying's context: what it queued for the main thread is dropped once it is
// gone, and its removals stop at the next item. For its whole life it holds a lock on the trash
// folder, so that no other emptying of the same trash runs meanwhile, in this process or another.
// After an item that failed for a reason of its own, removal waits until resume(), so that the
// user answers one failure at a time; a failure of the whole volume stops it.
class TrashEmptier : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(TrashEmptier)

public:
    struct Outcome {
        enum class Kind { Removed, NeedsPrivilege, Failed };
        Kind kind = Kind::Removed;
        std::filesystem::path location;
        std::string error;
    };

    TrashEmptier(std::filesystem::path trashFolder, Scheduler& mainQueue, WorkQueue& workQueue,
                 std::optional<std::set<std::string>> only = std::nullopt,
                 QObject* parent = nullptr);
    ~TrashEmptier() override;

    const std::filesystem::path& trashFolder() const { return m_trashFolder; }
    // The names it removes, or none when it empties the whole trash.
    const std::optional<std::set<std::string>>& only() const { return m_only; }

    // Before start(): size the trash before its removals and after its tidying, for spaceFreed().
    // The size is read as the panel reads it, so after the panel has shown the trash the first
    // reading walks only what changed since.
    void setMeasuresFreedSpace(bool measures);
    void start();
    void resume();
    // Puts the trash in order once every item is settled: records whose item is gone, and
    // size-cache lines of folders that are gone (see tidyTrash). Ends with tidied().
    void tidy();

Q_SIGNALS:
    // The folder could not be listed, or another emptying holds it (busy); nothing was removed.
    void couldNotStart(const QString& error, bool busy);
    // The entries to account for, before any is removed.
    void started(long long count);
    void outcome(const quillane::TrashEmptier::Outcome& outcome);
    // Every entry was tried.
    void removalsFinished();
    // The volume itself failed (read-only, gone), in the removals or the tidying: nothing more
    // will be tried.
    void volumeFailed(const QString& error);
    // Just before tidied(), when measured: how much less the trash takes up than before.
    void spaceFreed(quint64 bytes);
    void tidied(const QStringList& errors);

private:
    struct Job;
    // Run on the work queue; they reach the emptier only through the main queue.
    static void startWorkers(const std::shared_ptr<Job>& job);
    static void removeFrom(const std::shared_ptr<Job>& job);

    std::filesystem::path m_trashFolder;
    std::optional<std::set<std::string>> m_only;
    WorkQueue& m_workQueue;
    std::shared_ptr<Job> m_job;
};

} // namespace quillane
