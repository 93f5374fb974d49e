#pragma once

#include "Platform/TrashLocator.h"

#include <sys/types.h>

namespace quillane
{

// The trash folders of the freedesktop.org Trash specification, as desktop file managers find
// them:
// - a location on the same filesystem as the home folder (same device number) uses the home
//   trash, $XDG_DATA_HOME/Trash;
// - any other location uses the trash at the top directory of its filesystem:
//   $topdir/.Trash/$uid when $topdir/.Trash is a real directory with the sticky bit and the
//   $uid folder is a real directory owned by the user, else $topdir/.Trash-$uid, which must
//   be a real directory owned by the user too.
// The trash folder returned is that trash's files/ folder, which must be a real directory.
class FreedesktopTrash final : public TrashLocator
{
public:
    // home and dataHome as the user's environment gives them ($HOME, $XDG_DATA_HOME or its
    // default home/.local/share).
    FreedesktopTrash(std::filesystem::path home, std::filesystem::path dataHome, uid_t uid);

    Result<std::filesystem::path> trashFolder(const std::filesystem::path& location) const override;
    std::filesystem::path homeTrashFolder() const override;

    // The top directory of the filesystem that holds the path: the last folder, walking up,
    // that is still on the same device.
    static Result<std::filesystem::path> topDirectory(const std::filesystem::path& path);

private:
    Result<std::filesystem::path> volumeTrash(const std::filesystem::path& topdir) const;

    std::filesystem::path m_home;
    std::filesystem::path m_dataHome;
    uid_t m_uid;
};

} // namespace quillane
