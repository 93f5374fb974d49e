#include "TrashEmptier.h"

#include "Platform/FileSystem.h"
#include "Platform/SafeRemoval.h"
#include "Platform/Scheduler.h"
#include "Platform/TrashItems.h"

#include <QPointer>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <set>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

namespace quillane
{

namespace fs = std::filesystem;

struct TrashEmptier::Job {
    Job(Scheduler& queue, TrashEmptier* emptier, fs::path folder)
        : mainQueue(queue), owner(emptier), context(emptier), trashFolder(std::move(folder))
    {
    }

    // Queues a report for the emptier; it is dropped if the emptier is gone by then.
    template <class Report> void report(Report report)
    {
        mainQueue.post(context, [this, report = std::move(report)] { report(*owner); });
    }

    Scheduler& mainQueue;
    TrashEmptier* const owner;
    const QPointer<const QObject> context; // the owner's guard, made on the main thread
    const fs::path trashFolder;
    std::atomic<bool> cancelled = false;
    bool held = false; // stopped at a failure until resume(); main thread only
    std::vector<std::string> names;
    std::set<std::string> recordsBefore;
    std::size_t next = 0;
    UniqueFd files; // locked for the emptying's life
    UniqueFd trash; // the folder holding files/, info/ and directorysizes
    UniqueFd info;
};

namespace
{

// Whether a failure is the volume's rather than the item's: then every other item would fail the
// same way, and the emptying stops instead of reporting each.
bool concernsTheVolume(int trashFolder, int error)
{
    if (error == EROFS || error == ENODEV || error == ENXIO || error == ENOTCONN ||
        error == ESHUTDOWN)
        return true;
    struct statvfs volume {
    };
    return fstatvfs(trashFolder, &volume) != 0 || (volume.f_flag & ST_RDONLY) != 0;
}

} // namespace

TrashEmptier::TrashEmptier(fs::path trashFolder, Scheduler& mainQueue, WorkQueue& workQueue,
                           QObject* parent)
    : QObject(parent), m_trashFolder(std::move(trashFolder)), m_workQueue(workQueue),
      m_job(std::make_shared<Job>(mainQueue, this, m_trashFolder))
{
}

TrashEmptier::~TrashEmptier()
{
    m_job->cancelled = true;
}

void TrashEmptier::start()
{
    m_workQueue.async([job = m_job] {
        job->files = UniqueFd::adopt(
            open(job->trashFolder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        // One emptying of a trash at a time, whichever program of ours runs it. A filesystem
        // that cannot lock folders (some network ones) goes without.
        if (job->files && flock(job->files.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            job->report([](TrashEmptier& emptier) {
                Q_EMIT emptier.couldNotStart(
                    QStringLiteral("another emptying of this trash is under way"), true);
            });
            return;
        }
        const auto listing = listDirectory(job->trashFolder);
        if (!listing || !job->files) {
            const QString error = QString::fromStdString(printable(
                listing ? describeErrno(job->trashFolder.native(), errno) : listing.error()));
            job->report(
                [error](TrashEmptier& emptier) { Q_EMIT emptier.couldNotStart(error, false); });
            return;
        }
        // Skipped names are settled before anything goes, so none can hold up the end.
        std::ranges::copy_if(*listing, std::back_inserter(job->names),
                             [](const std::string& name) { return !isSkippedTrashEntry(name); });
        job->trash =
            UniqueFd::adopt(openat(job->files.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (job->trash) {
            job->info = UniqueFd::adopt(
                openat(job->trash.get(), "info", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            job->recordsBefore = listRecords(job->trash.get());
        }
        const auto count = static_cast<long long>(job->names.size());
        job->report([count](TrashEmptier& emptier) { Q_EMIT emptier.started(count); });
        removeFrom(job);
    });
}

void TrashEmptier::resume()
{
    if (std::exchange(m_job->held, false))
        m_workQueue.async([job = m_job] { removeFrom(job); });
}

void TrashEmptier::tidy()
{
    m_workQueue.async([job = m_job] {
        QStringList errors;
        if (job->trash) {
            for (const std::string& error : tidyTrash(job->trash.get(), job->recordsBefore))
                errors << QString::fromStdString(printable(error));
        }
        job->report([errors](TrashEmptier& emptier) { Q_EMIT emptier.tidied(errors); });
    });
}

void TrashEmptier::removeFrom(const std::shared_ptr<Job>& job)
{
    using Kind = Outcome::Kind;
    while (job->next < job->names.size() && !job->cancelled) {
        const std::string& name = job->names[job->next++];
        Outcome outcome{Kind::Removed, job->trashFolder / name, {}};
        const TrashedItemRemoval removal =
            removeTrashedItem(job->files.get(), job->info.get(), name);
        const int error = !removal.item ? removal.item.errorCode() : removal.recordErrorCode;
        const std::string& message = !removal.item ? removal.item.error() : removal.recordError;
        if (error != 0 && concernsTheVolume(job->files.get(), error)) {
            job->report([message = QString::fromStdString(printable(message))](
                            TrashEmptier& emptier) { Q_EMIT emptier.volumeFailed(message); });
            return;
        }
        if (!removal.item)
            outcome.kind = error == EACCES || error == EPERM ? Kind::NeedsPrivilege : Kind::Failed;
        else if (error != 0)
            outcome.kind = Kind::Failed; // the item went, its record did not
        outcome.error = printable(message);
        const bool hold = outcome.kind == Kind::Failed;
        job->report([job, outcome, hold](TrashEmptier& emptier) {
            job->held = hold; // set before the report, which may resume at once
            Q_EMIT emptier.outcome(outcome);
        });
        if (hold)
            return;
    }
    if (!job->cancelled)
        job->report([](TrashEmptier& emptier) { Q_EMIT emptier.removalsFinished(); });
}

} // namespace quillane
