#pragma once

#include "CallerTrash.h"
#include "Platform/MountTable.h"
#include "Platform/Result.h"
#include "Platform/SafeRemoval.h"

#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>

namespace quillane::daemon
{

// The user a request is served for, as the bus and the password database tell.
struct Caller {
    uid_t uid = 0;
    gid_t gid = 0;
};

// Where an item of a caller's trash lies, and the mount that holds its trash folder.
struct ItemPlace {
    TrashPlace trash;
    MountEntry mount;
};

// The user's home folder, from the password database.
std::optional<std::filesystem::path> homeOf(uid_t uid);

// Opens the folder that a trash lookup starts from (a home folder or a mount point; links above
// it are the administrator's) as a bare path, and checks the mount it really lies on: a local
// filesystem that no user can make hang, and, for a mount point, that very mount.
Result<UniqueFd> openAnchor(const std::filesystem::path& anchor,
                            const std::filesystem::path& mountinfo);

// The caller's trash the path is an entry of, on a local filesystem that no user can make
// hang (no network filesystem, no FUSE, no automounter), whether it lies in the home folder or
// on a volume; or why it is none. Reads the password database and the mount table only.
Result<ItemPlace> placeOfItem(const std::filesystem::path& item, uid_t uid,
                              const std::filesystem::path& mountinfo);

// Removes an item of the caller's trash and then its record, as the caller: root's power goes
// only to entries that root owns, and an item holding an entry of any other user is refused
// before anything goes. An item that is not there is an error, and its record stays. Returns
// empty when removed, else why not. Blocks; meant for a worker thread, whose file-system
// identity it changes while it runs.
std::string removeTrashItem(const std::filesystem::path& item, const Caller& caller,
                            const std::filesystem::path& mountinfo);

} // namespace quillane::daemon
