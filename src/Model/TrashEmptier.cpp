#include "TrashEmptier.h"

#include "Platform/FileSystem.h"
#include "Platform/SafeRemoval.h"
#include "Platform/Scheduler.h"

#include <QPointer>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
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
    std::size_t next = 0;
    UniqueFd files; // locked for the emptying's life
    UniqueFd trash; // the folder holding files/, info/ and directorysizes
    UniqueFd info;
};

namespace
{

std::string percentDecode(const std::string& text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() &&
            std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string readAll(int folder, const char* name)
{
    const int fd = openat(folder, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return {};
    std::string text;
    char buffer[8192];
    ssize_t length;
    while ((length = read(fd, buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<std::size_t>(length));
    close(fd);
    return text;
}

// Drops the size cache's lines of removed folders ("SIZE MTIME NAME", the name
// percent-encoded), so that no other program sees a ghost. Written aside, then renamed over.
void forgetSizes(int trash, const std::set<std::string>& removed)
{
    if (trash < 0 || removed.empty())
        return;
    const std::string text = readAll(trash, "directorysizes");
    if (text.empty())
        return;
    std::string kept;
    bool changed = false;
    std::size_t start = 0;
    while (start < text.size()) {
        const auto end = std::min(text.find('\n', start), text.size());
        const std::string line = text.substr(start, end - start);
        start = end + 1;
        const auto nameStart = line.find(' ', line.find(' ') + 1);
        if (nameStart != std::string::npos &&
            removed.contains(percentDecode(line.substr(nameStart + 1)))) {
            changed = true;
            continue;
        }
        if (!line.empty())
            kept += line + '\n';
    }
    if (!changed)
        return;
    const std::string temporary = "directorysizes.quillane";
    const int fd = openat(trash, temporary.c_str(),
                          O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return;
    const bool written = write(fd, kept.data(), kept.size()) == static_cast<ssize_t>(kept.size());
    close(fd);
    if (!written || renameat(trash, temporary.c_str(), trash, "directorysizes") != 0)
        unlinkat(trash, temporary.c_str(), 0);
}

} // namespace

TrashEmptier::TrashEmptier(fs::path trashFolder, Scheduler& mainQueue, WorkQueue& workQueue,
                           QObject* parent)
    : QObject(parent), m_trashFolder(std::move(trashFolder)), m_mainQueue(mainQueue),
      m_workQueue(workQueue), m_job(std::make_shared<Job>(mainQueue, this, m_trashFolder))
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
            const QString error = QString::fromStdString(
                listing ? describeErrno(job->trashFolder.native(), errno) : listing.error());
            job->report(
                [error](TrashEmptier& emptier) { Q_EMIT emptier.couldNotStart(error, false); });
            return;
        }
        // Skipped names are settled before anything goes, so none can hold up the end.
        std::ranges::copy_if(*listing, std::back_inserter(job->names),
                             [](const std::string& name) { return !isSkippedTrashEntry(name); });
        job->trash =
            UniqueFd::adopt(openat(job->files.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (job->trash)
            job->info = UniqueFd::adopt(
                openat(job->trash.get(), "info", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
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

void TrashEmptier::removeFrom(const std::shared_ptr<Job>& job)
{
    std::set<std::string> removed;
    while (job->next < job->names.size() && !job->cancelled) {
        const std::string& name = job->names[job->next++];
        Outcome outcome{Outcome::Kind::Removed, job->trashFolder / name, {}};
        const auto result = removeEntry(job->files.get(), name);
        if (result) {
            removed.insert(name);
            // The record goes only after the item: a failed removal keeps both.
            if (job->info)
                unlinkat(job->info.get(), (name + ".trashinfo").c_str(), 0);
        } else {
            outcome.kind = result.errorCode() == EACCES || result.errorCode() == EPERM
                               ? Outcome::Kind::NeedsPrivilege
                               : Outcome::Kind::Failed;
            outcome.error = result.error();
        }
        const bool hold = outcome.kind == Outcome::Kind::Failed;
        job->report([job, outcome, hold](TrashEmptier& emptier) {
            job->held = hold; // set before the report, which may resume at once
            Q_EMIT emptier.outcome(outcome);
        });
        if (hold) {
            forgetSizes(job->trash.get(), removed);
            return;
        }
    }
    forgetSizes(job->trash.get(), removed);
    if (!job->cancelled)
        job->report([](TrashEmptier& emptier) { Q_EMIT emptier.removalsFinished(); });
}

} // namespace quillane
