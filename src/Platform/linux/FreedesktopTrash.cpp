#include "FreedesktopTrash.h"

#include "Platform/FileSystem.h"

#include <cerrno>
#include <optional>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace quillane
{

namespace fs = std::filesystem;
using PathResult = Result<fs::path>;

namespace
{

bool isRealDirectory(const fs::path& path, struct stat& info)
{
    return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool isRealDirectory(const fs::path& path)
{
    struct stat info {
    };
    return isRealDirectory(path, info);
}

bool isOwnedRealDirectory(const fs::path& path, uid_t uid)
{
    struct stat info {
    };
    return isRealDirectory(path, info) && info.st_uid == uid;
}

// Why the first of these folders cannot be a trash folder, in words a user can act on; empty
// when each is a real folder (of the owner, where one is given).
std::string whyUnusable(std::initializer_list<fs::path> folders, std::optional<uid_t> owner = {})
{
    for (const fs::path& folder : folders) {
        struct stat info {
        };
        if (lstat(folder.c_str(), &info) != 0)
            return errno == ENOENT ? folder.native() + " does not exist"
                                   : describeErrno(folder.native(), errno);
        if (S_ISLNK(info.st_mode))
            return folder.native() + " is a symbolic link, which is never taken for a trash";
        if (!S_ISDIR(info.st_mode))
            return folder.native() + " is not a folder";
        if (owner && info.st_uid != *owner && folder == *folders.begin())
            return folder.native() + " belongs to another user";
    }
    return {};
}

} // namespace

FreedesktopTrash::FreedesktopTrash(fs::path home, fs::path dataHome, uid_t uid)
    : m_home(std::move(home)), m_dataHome(std::move(dataHome)), m_uid(uid)
{
}

fs::path FreedesktopTrash::homeTrashFolder() const
{
    return m_dataHome / "Trash" / "files";
}

PathResult FreedesktopTrash::trashFolder(const fs::path& location) const
{
    struct stat where {
    }, home{};
    // The location itself, not what a link there points to: a link is trashed where it lies.
    if (lstat(location.c_str(), &where) != 0)
        return PathResult::failure(describeErrno(location.native(), errno));
    if (stat(m_home.c_str(), &home) != 0)
        return PathResult::failure(describeErrno(m_home.native(), errno));

    if (where.st_dev == home.st_dev) {
        const fs::path folder = homeTrashFolder();
        if (isRealDirectory(folder.parent_path()) && isRealDirectory(folder))
            return PathResult::success(folder);
        return PathResult::failure("No trash folder for " + location.native() + ": " +
                                   whyUnusable({folder.parent_path(), folder}));
    }

    const auto topdir = topDirectory(location);
    if (!topdir)
        return PathResult::failure(topdir.error());
    return volumeTrash(*topdir);
}

PathResult FreedesktopTrash::volumeTrash(const fs::path& topdir) const
{
    const std::string uid = std::to_string(m_uid);

    const fs::path shared = topdir / ".Trash";
    struct stat sharedInfo {
    };
    if (isRealDirectory(shared, sharedInfo) && (sharedInfo.st_mode & S_ISVTX)) {
        const fs::path own = shared / uid;
        if (isOwnedRealDirectory(own, m_uid) && isRealDirectory(own / "files"))
            return PathResult::success(own / "files");
    }

    const fs::path own = topdir / (".Trash-" + uid);
    if (isOwnedRealDirectory(own, m_uid) && isRealDirectory(own / "files"))
        return PathResult::success(own / "files");

    struct statvfs volume {
    };
    if (statvfs(topdir.c_str(), &volume) == 0 && (volume.f_flag & ST_RDONLY) && !fileExists(own))
        return PathResult::failure("No trash folder on " + topdir.native() +
                                   ": the volume is mounted read-only");
    std::string why =
        "No trash folder on " + topdir.native() + ": " + whyUnusable({own, own / "files"}, m_uid);
    if (fileExists(shared))
        why += "; " + (shared / uid / "files").native() + " is not usable either";
    return PathResult::failure(why);
}

PathResult FreedesktopTrash::topDirectory(const fs::path& path)
{
    fs::path current = path.lexically_normal();
    if (!current.has_filename() && current != current.root_path())
        current = current.parent_path();
    // Walking up must follow the real folders, not the lexical parents of a path through links.
    if (current != current.root_path()) {
        std::error_code error;
        const fs::path parent = fs::canonical(current.parent_path(), error);
        if (error)
            return PathResult::failure(current.parent_path().native() + ": " + error.message());
        current = parent / current.filename();
    }
    struct stat info {
    };
    if (lstat(current.c_str(), &info) != 0)
        return PathResult::failure(describeErrno(current.native(), errno));
    const dev_t device = info.st_dev;

    while (current != current.root_path()) {
        const fs::path parent = current.parent_path();
        struct stat parentInfo {
        };
        if (stat(parent.c_str(), &parentInfo) != 0)
            return PathResult::failure(describeErrno(parent.native(), errno));
        if (parentInfo.st_dev != device)
            break;
        current = parent;
    }
    return PathResult::success(current);
}

} // namespace quillane
