#include "TrashRepair.h"

#include "ActingIdentity.h"
#include "Platform/FileSystem.h"
#include "Platform/SafeRemoval.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

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

// Moves every entry of one folder into another, as root: a rename keeps each entry as it is,
// its owner included, and follows nothing. The first failure is kept.
void moveEntries(int from, int to, const std::string& path, std::string& problem)
{
    const int listFd = fcntl(from, F_DUPFD_CLOEXEC, 0);
    DIR* listing = listFd < 0 ? nullptr : fdopendir(listFd);
    if (!listing) {
        if (listFd >= 0)
            close(listFd);
        if (problem.empty())
            problem = describeErrno(path, errno);
        return;
    }
    std::vector<std::string> names;
    while (const dirent* entry = readdir(listing)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    closedir(listing);
    for (const std::string& name : names)
        if (renameat(from, name.c_str(), to, name.c_str()) != 0 && problem.empty())
            problem = describeErrno(path + "/" + name, errno);
}

} // namespace

std::string checkHomeTrash(uid_t uid, const fs::path& mountinfo)
{
    const auto trash = openHomeTrash(uid, mountinfo);
    return trash ? std::string() : trash.error();
}

std::string repairHomeTrash(const Caller& caller, const fs::path& mountinfo)
{
    // Looked up again: the home may have changed while polkit asked.
    const auto trash = openHomeTrash(caller.uid, mountinfo);
    if (!trash)
        return trash.error();
    const std::string top =
        homeOf(caller.uid).value_or(fs::path()).native() + "/" + homeTrash.native();
    const UniqueFd share = openEntry(trash->get(), "..", O_RDONLY | O_DIRECTORY);
    struct stat shareInfo {
    };
    if (!share || fstat(share.get(), &shareInfo) != 0)
        return describeErrno(top + "/..", errno);
    if (shareInfo.st_uid != caller.uid)
        return fs::path(top).parent_path().native() + ": not the caller's either";

    // A new trash is made by the user, so that its folders are theirs without any change of
    // owner, and everything moves into it; the old one is then swapped out and removed. What
    // was moved keeps its owner: the user can list it and remove what lies in their folders,
    // and what root owns goes through this daemon as any other item of theirs.
    constexpr const char* fresh = "Trash.quillane-repair";
    {
        ActingIdentity user(caller.uid, caller.gid);
        user.actFor(caller.uid);
        if (!user.isValid() || mkdirat(share.get(), fresh, 0700) != 0)
            return describeErrno(top + ": a new trash", errno);
        const UniqueFd made = openEntry(share.get(), fresh, O_RDONLY | O_DIRECTORY);
        for (const char* part : {"files", "info"})
            if (!made || mkdirat(made.get(), part, 0700) != 0)
                return describeErrno(top + ": a new trash", errno);
    }
    std::string problem;
    const UniqueFd made = openEntry(share.get(), fresh, O_RDONLY | O_DIRECTORY);
    for (const char* part : {"files", "info"}) {
        const UniqueFd from = openEntry(trash->get(), part, O_RDONLY | O_DIRECTORY);
        const UniqueFd to = openEntry(made.get(), part, O_RDONLY | O_DIRECTORY);
        if (from && to)
            moveEntries(from.get(), to.get(), top + "/" + part, problem);
        else if ((!from && errno != ENOENT) && problem.empty())
            problem = describeErrno(top + "/" + part, errno);
    }
    // The size cache moves with the rest, renamed as root like every entry above: a rename
    // neither opens nor writes the file, so its bytes and its owner stay the user's.
    if (const std::string sizes = "directorysizes";
        renameat(trash->get(), sizes.c_str(), made.get(), sizes.c_str()) != 0 && errno != ENOENT &&
        problem.empty())
        problem = describeErrno(top + "/" + sizes, errno);
    if (!problem.empty())
        return problem; // the old trash stays in use; what moved is in the new one
    if (renameat2(share.get(), fresh, share.get(), "Trash", RENAME_EXCHANGE) != 0)
        return describeErrno(top, errno);
    // The old trash, now under the new one's name, holds nothing of the user's any more.
    for (const char* part : {"files", "info"})
        unlinkat(trash->get(), part, AT_REMOVEDIR);
    if (unlinkat(share.get(), fresh, AT_REMOVEDIR) != 0)
        return describeErrno(top + ": the old trash, left as " + fresh, errno);
    return {};
}

} // namespace quillane::daemon
