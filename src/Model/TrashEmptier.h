#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace quillane
{

class Scheduler;
class WorkQueue;

// Removes the entries of one trash folder on the work queue, one after another in listing
// order, each with its info record and its line of the trash's size cache, and reports each
// outcome on the main queue. Entries whose name holds ".DS_Store" are left alone and not
// counted. After an entry that failed for a reason other than permission, removal waits until
// the owner calls resume(), so that the user answers one failure at a time.
class TrashEmptier
{
public:
    struct Outcome {
        enum class Kind { Removed, NeedsPrivilege, Failed };
        Kind kind = Kind::Removed;
        std::filesystem::path location;
        std::string error;
    };
    struct Reports {
        std::function<void(const std::string& error)> listingFailed;
        std::function<void(long long count)> started; // entries to account for
        std::function<void(const Outcome&)> outcome;
        std::function<void()> finished; // every entry was tried
    };

    TrashEmptier(Scheduler& mainQueue, WorkQueue& workQueue);
    ~TrashEmptier();

    void empty(const std::filesystem::path& trashFolder, Reports reports);
    void resume();

    static bool isSkipped(const std::string& name);

private:
    struct Job;
    // Runs on the work queue; touches nothing of the emptier itself, which may be gone by
    // the time queued work runs.
    static void removeFrom(const std::shared_ptr<Job>& job);

    Scheduler& m_mainQueue;
    WorkQueue& m_workQueue;
    // The job stopped at a failure, until resume(); shared with the job's own steps.
    std::shared_ptr<std::shared_ptr<Job>> m_waiting = std::make_shared<std::shared_ptr<Job>>();
};

} // namespace quillane
