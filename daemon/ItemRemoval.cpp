#include "ItemRemoval.h"

#include "ActingIdentity.h"
#include "Platform/FileSystem.h"
#include "Platform/SafeRemoval.h"
#include "Platform/TrashItems.h"
#include "Platform/linux/ProcMountTable.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <pwd.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace quillane::daemon
{

namespace fs = std::filesystem;

namespace
{

std::vector<MountEntry> mountTable(const fs::path& mountinfo)
{
    std::ifstream file(mountinfo, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return ProcMountTable::parse(text.str());
}

bool isAtOrBelow(const fs::path& path, const fs::path& folder)
{
    const std::string& text = path.native();
    const std::string& prefix = folder.native();
    return prefix == "/" || text == prefix ||
           (text.starts_with(prefix) && text.size() > prefix.size() && text[prefix.size()] == '/');
}

// The mount that the folder lies on as the kernel resolves it: the deepest mount point at or
// above it, and of several mounted there, the last (topmost).
std::optional<MountEntry> mountHolding(const fs::path& folder, const std::vector<MountEntry>& all)
{
    std::optional<MountEntry> holding;
    for (const MountEntry& mount : all) {
        if (isAtOrBelow(folder, mount.mountPoint) &&
            (!holding || mount.mountPoint.native().size() >= holding->mountPoint.native().size()))
            holding = mount;
    }
    return holding;
}

// A filesystem whose files live elsewhere (a network share, a user's own FUSE server, the
// automounter) is no place for root to remove things: it could hang the daemon or hide what
// it touches.
bool isPlainLocal(const MountEntry& mount)
{
    return mount.local && !mount.fsType.starts_with("fuse") && mount.fsType != "autofs";
}

// The mount an open descriptor lies on, read without asking its filesystem anything new.
std::optional<std::uint64_t> mountIdOf(int fd)
{
    struct statx info {
    };
    if (statx(fd, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_MNT_ID, &info) != 0 ||
        !(info.stx_mask & STATX_MNT_ID))
        return std::nullopt;
    return info.stx_mnt_id;
}

// Folders of the caller's part of a trash: real folders (the walk never follows a link) that
// the caller owns; a shared .Trash must carry the sticky bit instead, as it is root's.
FolderCheck callerOwns(uid_t uid, bool sharedTrash)
{
    return [uid, sharedTrash](const struct stat& folder, std::string_view component, std::size_t) {
        if (sharedTrash && component == ".Trash")
            return (folder.st_mode & S_ISVTX) != 0;
        return folder.st_uid == uid;
    };
}

} // namespace

std::optional<fs::path> homeOf(uid_t uid)
{
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || !found ||
        !found->pw_dir)
        return std::nullopt;
    return withoutTrailingSlash(fs::path(found->pw_dir));
}

Result<UniqueFd> openAnchor(const fs::path& anchor, const fs::path& mountinfo)
{
    using FdResult = Result<UniqueFd>;
    // Opened as a bare path, which asks its filesystem nothing; the mount it turns out to lie on
    // must be plain local too (whatever links led there, or was mounted since), and an anchor
    // that is a mount point by its path must be that mount's top.
    const auto mounts = mountTable(mountinfo);
    const auto byPath = mountHolding(anchor, mounts);
    if (!byPath || !isPlainLocal(*byPath))
        return FdResult::failure(anchor.native() + ": not a local volume", EXDEV);
    UniqueFd opened = UniqueFd::adopt(open(anchor.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!opened)
        return FdResult::failure(describeErrno(anchor.native(), errno), errno);
    const auto mountId = mountIdOf(opened.get());
    const auto mount = std::ranges::find_if(mounts, [&mountId](const MountEntry& entry) {
        return mountId && entry.mountId == *mountId;
    });
    if (mount == mounts.end() || !isPlainLocal(*mount) ||
        (byPath->mountPoint == anchor && mount->mountPoint != anchor))
        return FdResult::failure(anchor.native() + ": another filesystem is mounted here", EXDEV);
    return FdResult::success(std::move(opened));
}

Result<ItemPlace> placeOfItem(const fs::path& item, uid_t uid, const fs::path& mountinfo)
{
    using PlaceResult = Result<ItemPlace>;
    const auto home = homeOf(uid);
    const auto mounts = mountTable(mountinfo);
    std::vector<fs::path> points;
    for (const MountEntry& mount : mounts)
        points.push_back(mount.mountPoint);
    const auto place = findCallerTrash(item, uid, home.value_or(fs::path()), points);
    if (!place)
        return PlaceResult::failure(place.error(), place.errorCode());
    const auto mount = mountHolding(place->anchor, mounts);
    if (!mount)
        return PlaceResult::failure(place->anchor.native() + ": on no mounted filesystem");
    if (!isPlainLocal(*mount))
        return PlaceResult::failure(place->anchor.native() + ": not a local volume");
    return PlaceResult::success({*place, *mount});
}

std::string removeTrashItem(const fs::path& item, const Caller& caller, const fs::path& mountinfo)
{
    // Looked up again: the mounts may have changed while the request waited.
    const auto place = placeOfItem(item, caller.uid, mountinfo);
    if (!place)
        return place.error();
    const TrashPlace& trash = place->trash;

    ActingIdentity identity(caller.uid, caller.gid);
    if (!identity.isValid())
        return "cannot act as user " + std::to_string(caller.uid);

    // Above the anchor, links are the administrator's; from it on, nothing is followed and no
    // other mount is entered.
    const auto anchor = openAnchor(trash.anchor, mountinfo);
    if (!anchor)
        return anchor.error();
    const FolderCheck check = callerOwns(caller.uid, trash.sharedTrash);
    const auto trashFolder = openBeneath(anchor->get(), trash.trashFolder, check);
    if (!trashFolder)
        return trashFolder.error();
    const auto files = openBeneath(trashFolder->get(), "files", check);
    if (!files)
        return files.error();
    const auto info = openBeneath(trashFolder->get(), "info", check);

    RemovalRules rules;
    rules.allowsOwner = [&identity, &caller](uid_t owner) {
        return identity.isValid() && (owner == caller.uid || owner == 0);
    };
    rules.actFor = [&identity](uid_t owner) { identity.actFor(owner); };
    const TrashedItemRemoval removal =
        removeTrashedItem(files->get(), info ? info->get() : -1, trash.itemName, rules);
    if (!removal.item)
        return removal.item.error();
    if (!*removal.item)
        return item.native() + ": no such item in the trash";
    return removal.recordError;
}

} // namespace quillane::daemon
