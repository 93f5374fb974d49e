#include "TrashRepair.h"

#include "Platform/FileSystem.h"
#include "Platform/SafeRemoval.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillane::daemon
{

namespace fs = std::filesystem;

namespace
{

const fs::path homeTrash = ".local/share/Trash";

Result<UniqueFd> openHomeTrash(uid_t uid, const fs::path& mountinfo)
{
    using FdResult = Result<UniqueFd>;
    const auto home = homeOf(uid);
    if (!home || !home->is_absolute())
        return FdResult::failure("user " + std::to_string(uid) +
                                 " has no home folder in the password database");
    const auto anchor = openAnchor(*home, mountinfo);
    if (!anchor)
        return FdResult::failure(anchor.error(), anchor.errorCode());
    struct stat info {
    };
    if (fstat(anchor->get(), &info) != 0)
        return FdResult::failure(describeErrno(home->native(), errno), errno);
    if (info.st_uid != uid)
        return FdResult::failure(home->native() + ": the home folder is not the caller's", EPERM);
    // .local and share may be root's too, after the same mistake; anyone else's are not for the
    // caller to have their trash below.
    const FolderCheck check = [uid](const struct stat& folder, std::string_view,
                                    std::size_t depth) {
        return depth == 2 || folder.st_uid == uid || folder.st_uid == 0;
    };
    auto trash = openBeneath(anchor->get(), homeTrash, check);
    if (!trash)
        return FdResult::failure(home->native() + "/" + trash.error(), trash.errorCode());
    return trash;
}

// Gives a tree back to its user, one folder at a time from open descriptors.
class Repair
{
public:
    explicit Repair(const Caller& caller) : m_caller(caller) {}

    // Gives the open folder back, then everything in it; path is for messages.
    void folder(UniqueFd fd, const std::string& path)
    {
        if (!fd)
            return note(path, errno);
        give(fd.get(), path);
        DIR* listing = fdopendir(fd.get());
        if (!listing) {
            note(path, errno);
            return;
        }
        fd.release(); // the listing owns it now
        const int at = dirfd(listing);
        errno = 0;
        while (const dirent* entry = readdir(listing)) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..")
                continue;
            this->entry(at, name, path + "/" + name);
            errno = 0;
        }
        if (errno != 0)
            note(path, errno);
        closedir(listing);
    }

    const std::string& problem() const { return m_problem; }

private:
    void entry(int at, const std::string& name, const std::string& path)
    {
        UniqueFd folderFd = openEntry(at, name.c_str(), O_RDONLY | O_DIRECTORY);
        if (folderFd) {
            folder(std::move(folderFd), path);
            return;
        }
        if (errno != ENOTDIR && errno != ELOOP) {
            note(path, errno);
            return;
        }
        // Not a folder: the entry itself, a link included, and never what a link names.
        const UniqueFd fd = openEntry(at, name.c_str(), O_PATH);
        struct stat info {
        };
        if (!fd || fstat(fd.get(), &info) != 0) {
            note(path, errno);
            return;
        }
        if (S_ISDIR(info.st_mode)) // became a folder since: left for another try
            return note(path, EAGAIN);
        if (S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode))
            return noteText(path + ": a device file, left as it is");
        if (!S_ISLNK(info.st_mode) && info.st_nlink > 1 && info.st_uid != m_caller.uid)
            return noteText(path + ": has other hard links, left as it is");
        give(fd.get(), path);
    }

    void give(int fd, const std::string& path)
    {
        if (fchownat(fd, "", m_caller.uid, m_caller.gid, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW) != 0)
            note(path, errno);
    }

    void note(const std::string& path, int error) { noteText(describeErrno(path, error)); }
    void noteText(const std::string& text)
    {
        if (m_problem.empty())
            m_problem = text;
    }

    Caller m_caller;
    std::string m_problem;
};

} // namespace

std::string checkHomeTrash(uid_t uid, const fs::path& mountinfo)
{
    const auto trash = openHomeTrash(uid, mountinfo);
    return trash ? std::string() : trash.error();
}

std::string repairHomeTrash(const Caller& caller, const fs::path& mountinfo)
{
    // Looked up again: the home may have changed while polkit asked.
    auto trash = openHomeTrash(caller.uid, mountinfo);
    if (!trash)
        return trash.error();
    const std::string top =
        homeOf(caller.uid).value_or(fs::path()).native() + "/" + homeTrash.native();

    // The owner needs to list and change its trash and the two folders the trash is made of.
    std::string modeProblem;
    const auto addOwnerRights = [&modeProblem](int fd, const std::string& path) {
        struct stat info {
        };
        if ((fstat(fd, &info) != 0 || fchmod(fd, (info.st_mode & 07777) | S_IRWXU) != 0) &&
            modeProblem.empty())
            modeProblem = describeErrno(path, errno);
    };
    addOwnerRights(trash->get(), top);
    for (const char* part : {"files", "info"}) {
        const UniqueFd fd = openEntry(trash->get(), part, O_RDONLY | O_DIRECTORY);
        if (fd)
            addOwnerRights(fd.get(), top + "/" + part);
        else if (errno != ENOENT && modeProblem.empty())
            modeProblem = describeErrno(top + "/" + part, errno);
    }

    Repair repair(caller);
    repair.folder(UniqueFd::adopt(fcntl(trash->get(), F_DUPFD_CLOEXEC, 0)), top);
    return !repair.problem().empty() ? repair.problem() : modeProblem;
}

} // namespace quillane::daemon
