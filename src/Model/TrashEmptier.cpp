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
#include <optional>
#include <set>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace quillane
{

namespace fs = std::filesystem;

struct TrashEmptier::Job {
    Job(Scheduler& queue, WorkQueue& workers, TrashEmptier* emptier, fs::path folder,
        std::optional<std::set<std::string>> onlyNames)
        : mainQueue(queue), workQueue(workers), owner(emptier), context(emptier),
          trashFolder(std::move(folder)), only(std::move(onlyNames))
    {
    }

    // Queues a report for the emptier; it is dropped if the emptier is gone by then.
    template <class Report> void report(Report report)
    {
        mainQueue.post(context, [this, report = std::move(report)] { report(*owner); });
    }

    Scheduler& mainQueue;
    WorkQueue& workQueue;
    TrashEmptier* const owner;
    const QPointer<const QObject> context; // the owner's guard, made on the main thread
    const fs::path trashFolder;
    const std::optional<std::set<std::string>> only;
    std::vector<std::string> names;
    std::set<std::string> recordsBefore;
    // The workers share the list: each takes the next item until none is left, the emptier is
    // gone (cancelled), an item failed (held, until resume()) or the volume did (stopped).
    std::atomic<std::size_t> next = 0;
    std::atomic<int> working = 0;
    std::atomic<bool> cancelled = false;
    std::atomic<bool> held = false;
    std::atomic<bool> stopped = false;
    std::atomic<bool> finished = false;
    UniqueFd files; // locked for the emptying's life
    UniqueFd trash; // the folder holding files/, info/ and directorysizes
    UniqueFd info;
    bool measuresFreedSpace = false;
    std::optional<std::uint64_t> sizeBefore; // when measured, and it could be
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
    if (fstatvfs(trashFolder, &volume) != 0 || (volume.f_flag & ST_RDONLY) != 0)
        return true;
    // An I/O error is one item's bad block, unless the trash folder itself can no longer be
    // read.
    if (error != EIO)
        return false;
    const int again = openat(trashFolder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (again < 0)
        return true;
    char entries[4096];
    const bool unreadable = syscall(SYS_getdents64, again, entries, sizeof entries) < 0;
    close(again);
    return unreadable;
}

} // namespace

TrashEmptier::TrashEmptier(fs::path trashFolder, Scheduler& mainQueue, WorkQueue& workQueue,
                           std::optional<std::set<std::string>> only, QObject* parent)
    : QObject(parent), m_trashFolder(std::move(trashFolder)), m_only(std::move(only)),
      m_workQueue(workQueue),
      m_job(std::make_shared<Job>(mainQueue, workQueue, this, m_trashFolder, m_only))
{
}

TrashEmptier::~TrashEmptier()
{
    m_job->cancelled = true;
}

void TrashEmptier::setMeasuresFreedSpace(bool measures)
{
    m_job->measuresFreedSpace = measures;
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
                    TrashEmptier::tr("another emptying of this trash is under way"), true);
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
        // Names asked for that are gone by now are nothing to account for.
        std::ranges::copy_if(
            *listing, std::back_inserter(job->names), [&only = job->only](const std::string& name) {
                return !isSkippedTrashEntry(name) && (!only || only->contains(name));
            });
        job->trash =
            UniqueFd::adopt(openat(job->files.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (job->trash) {
            job->info = UniqueFd::adopt(
                openat(job->trash.get(), "info", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            job->recordsBefore = listRecords(job->trash.get());
        }
        if (job->measuresFreedSpace) {
            if (const auto size = allocatedSizeOfTrash(job->trashFolder))
                job->sizeBefore = *size;
        }
        const auto count = static_cast<long long>(job->names.size());
        job->report([count](TrashEmptier& emptier) { Q_EMIT emptier.started(count); });
        startWorkers(job);
    });
}

void TrashEmptier::resume()
{
    if (m_job->held.exchange(false))
        m_workQueue.async([job = m_job] { startWorkers(job); });
}

void TrashEmptier::startWorkers(const std::shared_ptr<Job>& job)
{
    // Each worker counts itself in before any can count itself out, so the last one out is the
    // last of them all.
    const int workers = std::max(1, job->workQueue.concurrency());
    job->working += workers;
    for (int i = 1; i < workers; ++i)
        job->workQueue.async([job] { removeFrom(job); });
    removeFrom(job);
}

void TrashEmptier::tidy()
{
    m_workQueue.async([job = m_job] {
        QStringList errors;
        if (job->trash) {
            for (const std::string& error : tidyTrash(job->trash.get(), job->recordsBefore))
                errors << QString::fromStdString(printable(error));
        }
        // A volume that turned read-only after the last item is the volume's fault like any
        // other, and said once.
        if (!errors.isEmpty() && concernsTheVolume(job->trash.get(), 0)) {
            job->report([error = errors.first()](TrashEmptier& emptier) {
                Q_EMIT emptier.volumeFailed(error);
            });
            return;
        }
        std::optional<std::uint64_t> freed;
        if (job->sizeBefore) {
            if (const auto after = allocatedSizeOfTrash(job->trashFolder))
                freed = *job->sizeBefore - std::min(*after, *job->sizeBefore);
        }
        job->report([errors, freed](TrashEmptier& emptier) {
            if (freed)
                Q_EMIT emptier.spaceFreed(*freed);
            Q_EMIT emptier.tidied(errors);
        });
    });
}

void TrashEmptier::removeFrom(const std::shared_ptr<Job>& job)
{
    using Kind = Outcome::Kind;
    while (!job->cancelled && !job->held && !job->stopped) {
        const std::size_t index = job->next++;
        if (index >= job->names.size())
            break;
        const std::string& name = job->names[index];
        Outcome outcome{Kind::Removed, job->trashFolder / name, {}};
        const TrashedItemRemoval removal =
            removeTrashedItem(job->files.get(), job->info.get(), name);
        const int error = !removal.item ? removal.item.errorCode() : removal.recordErrorCode;
        const std::string& message = !removal.item ? removal.item.error() : removal.recordError;
        if (error != 0 && concernsTheVolume(job->files.get(), error)) {
            if (!job->stopped.exchange(true))
                job->report([message = QString::fromStdString(printable(message))](
                                TrashEmptier& emptier) { Q_EMIT emptier.volumeFailed(message); });
            break;
        }
        if (!removal.item)
            outcome.kind = error == EACCES || error == EPERM ? Kind::NeedsPrivilege : Kind::Failed;
        else if (error != 0)
            outcome.kind = Kind::Failed; // the item went, its record did not
        outcome.error = printable(message);
        // A failure holds every worker, so that the user answers one at a time.
        if (outcome.kind == Kind::Failed)
            job->held = true;
        job->report([outcome](TrashEmptier& emptier) { Q_EMIT emptier.outcome(outcome); });
    }
    const bool last = --job->working == 0;
    if (last && job->next >= job->names.size() && !job->held && !job->stopped && !job->cancelled &&
        !job->finished.exchange(true))
        job->report([](TrashEmptier& emptier) { Q_EMIT emptier.removalsFinished(); });
}

} // namespace quillane
