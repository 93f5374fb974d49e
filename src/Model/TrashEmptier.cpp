#include "TrashEmptier.h"

#include "Platform/FileSystem.h"
#include "Platform/SafeRemoval.h"
#include "Platform/Scheduler.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace quillane
{

namespace fs = std::filesystem;

struct TrashEmptier::Job {
    Job(Scheduler& queue, std::shared_ptr<std::shared_ptr<Job>> slot, fs::path folder,
        Reports wanted)
        : mainQueue(queue), waiting(std::move(slot)), trashFolder(std::move(folder)),
          reports(std::move(wanted))
    {
    }

    Scheduler& mainQueue;
    std::shared_ptr<std::shared_ptr<Job>> waiting;
    fs::path trashFolder;
    Reports reports;
    std::vector<std::string> names;
    std::size_t next = 0;
    UniqueFd files;
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

TrashEmptier::TrashEmptier(Scheduler& mainQueue, WorkQueue& workQueue)
    : m_mainQueue(mainQueue), m_workQueue(workQueue)
{
}

TrashEmptier::~TrashEmptier() = default;

bool TrashEmptier::isSkipped(const std::string& name)
{
    return name.find(".DS_Store") != std::string::npos;
}

void TrashEmptier::empty(const fs::path& trashFolder, Reports reports)
{
    auto job = std::make_shared<Job>(m_mainQueue, m_waiting, trashFolder, std::move(reports));
    m_workQueue.async([job] {
        const auto listing = listDirectory(job->trashFolder);
        job->files = UniqueFd::adopt(
            open(job->trashFolder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!listing || !job->files) {
            const std::string error =
                listing ? describeErrno(job->trashFolder.native(), errno) : listing.error();
            job->mainQueue.post([job, error] { job->reports.listingFailed(error); });
            return;
        }
        // Skipped names are settled before anything goes, so none can hold up the end.
        std::ranges::copy_if(*listing, std::back_inserter(job->names),
                             [](const std::string& name) { return !isSkipped(name); });
        job->trash =
            UniqueFd::adopt(openat(job->files.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (job->trash)
            job->info = UniqueFd::adopt(
                openat(job->trash.get(), "info", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        const auto count = static_cast<long long>(job->names.size());
        job->mainQueue.post([job, count] { job->reports.started(count); });
        removeFrom(job);
    });
}

void TrashEmptier::resume()
{
    if (auto job = std::exchange(*m_waiting, nullptr))
        m_workQueue.async([job] { removeFrom(job); });
}

void TrashEmptier::removeFrom(const std::shared_ptr<Job>& job)
{
    std::set<std::string> removed;
    while (job->next < job->names.size()) {
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
        job->mainQueue.post([job, outcome, hold] {
            if (hold)
                *job->waiting = job; // set before the report, which may resume at once
            job->reports.outcome(outcome);
        });
        if (hold) {
            forgetSizes(job->trash.get(), removed);
            return;
        }
    }
    forgetSizes(job->trash.get(), removed);
    job->mainQueue.post([job] { job->reports.finished(); });
}

} // namespace quillane
