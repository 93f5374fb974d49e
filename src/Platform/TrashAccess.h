#pragma once

#include <filesystem>
#include <optional>
#include <sys/types.h>

namespace quillane
{

// Why a user cannot list their own trash, read from the trash's folders themselves.
struct TrashAccessProblem {
    enum class Kind {
        Owner, // a folder belongs to someone else (a file manager run with sudo leaves root's)
        Mode,  // the user's own folder, with permissions that keep the user out
        Other, // the folders look right, and listing is refused all the same (a confinement
               // profile, a file system that says no)
    };
    Kind kind;
    std::filesystem::path trash;  // the trash folder, holding files and info
    std::filesystem::path folder; // the first folder at fault: the trash, its files or its info
    uid_t owner = 0;
    mode_t mode = 0; // permission bits
    int error = 0;   // errno of the listing, for Other
};

// Looks at `<trash>`, `<trash>/files` and `<trash>/info` (trashFiles is `<trash>/files`) without
// following links, and then reads the first entry of trashFiles. None when the user may list it, or
// when the trash does not exist yet.
std::optional<TrashAccessProblem> findTrashAccessProblem(const std::filesystem::path& trashFiles,
                                                         uid_t user);

} // namespace quillane
