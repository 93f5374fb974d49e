#pragma once

#include "Platform/Result.h"

#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace quillane::daemon
{

// Where a requested item lies, if it lies directly inside one of the caller's own trash
// folders: the folder the lookup starts from (the caller's home, or a volume's top directory:
// links above it are the administrator's) and the folders below it, none of which may be a
// link.
struct TrashPlace {
    std::filesystem::path anchor;      // the home folder or the mount point
    std::filesystem::path trashFolder; // relative to the anchor: ".Trash-1000" and the like
    bool sharedTrash = false;          // below a sticky $topdir/.Trash
    std::string itemName;              // the entry inside trashFolder/files
};

// Which of the caller's trash folders the path names an entry of: the home trash
// (home/.local/share/Trash/files/NAME), or a volume's .Trash-$uid/files/NAME or
// .Trash/$uid/files/NAME at one of the mount points. Anything else is refused: a path that
// is not absolute or not plain (".", "..", empty components), one deeper or shallower than
// an entry of a files folder, one at another user's trash. This reads nothing; opening the
// folders safely is the next step.
Result<TrashPlace> findCallerTrash(const std::filesystem::path& item, uid_t uid,
                                   const std::filesystem::path& home,
                                   const std::vector<std::filesystem::path>& mountPoints);

} // namespace quillane::daemon
