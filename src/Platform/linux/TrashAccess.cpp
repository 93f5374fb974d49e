#include "Platform/TrashAccess.h"

#include "Platform/FileSystem.h"

#include <cerrno>
#include <sys/stat.h>

namespace quillane
{

std::optional<TrashAccessProblem> findTrashAccessProblem(const std::filesystem::path& trashFiles,
                                                         uid_t user)
{
    const std::filesystem::path trash = trashFiles.parent_path();
    for (const std::filesystem::path& folder : {trash, trashFiles, trash / "info"}) {
        struct stat status {
        };
        if (::lstat(folder.c_str(), &status) != 0)
            continue; // not made yet: the first trashing makes it
        const mode_t mode = status.st_mode & 07777;
        if (status.st_uid != user)
            return TrashAccessProblem{TrashAccessProblem::Kind::Owner, trash, folder, status.st_uid,
                                      mode};
        if (S_ISDIR(status.st_mode) && (mode & S_IRWXU) != S_IRWXU)
            return TrashAccessProblem{TrashAccessProblem::Kind::Mode, trash, folder, status.st_uid,
                                      mode};
    }
    const auto listing = readFirstEntry(trashFiles); // one entry tells, however large the trash
    if (listing || listing.errorCode() == ENOENT)
        return std::nullopt;
    return TrashAccessProblem{
        TrashAccessProblem::Kind::Other, trash, trashFiles, user, 0, listing.errorCode()};
}

} // namespace quillane
