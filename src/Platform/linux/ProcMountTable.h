#pragma once

#include "Platform/MountTable.h"

#include <string_view>
#include <sys/types.h>

namespace quillane
{

// Where a user's places are mounted, as a desktop file manager's sidebar shows them.
struct PlacesRule {
    std::filesystem::path home; // the user's home folder
    std::string user;           // the login name, for /run/media/<user>
    std::string fstab;          // the text of /etc/fstab, for its x-gvfs-show and x-gvfs-hide
    bool rootTrash = false;     // the root filesystem has a trash of the user's
};

// The mount table of /proc/self/mountinfo, less what a desktop file manager leaves out of its
// sidebar. A mount is kept when it is:
// - the mount of the filesystem that holds the home folder, whatever its type (local, NFS,
//   SMB, FUSE); it is marked holdsHome;
// - below /media, /run/media/<user>, /mnt or the home folder, and not of a pseudo filesystem
//   type (proc, tmpfs, overlay, squashfs, the desktop's own gvfs mount, ...);
// - marked x-gvfs-show in fstab;
// - the root filesystem, when it has a trash of the user's (/.Trash/<uid> or /.Trash-<uid>).
// fstab's x-gvfs-hide hides any but the home's mount. Everything else (the root filesystem
// unless it holds home, /var, /srv, /opt, /boot/efi, /.snapshots, subvolumes and datasets the
// system mounts, /run/user/<uid>/gvfs) is left out.
//
// Mounts of one filesystem (a bind mount, a btrfs subvolume beside another) lead to one trash,
// so they make one entry: home's own mount, else the one that mounts the whole filesystem,
// else the first. A mount point mounted over is judged by its topmost mount, in the place
// where it first appears. The kernel's order is kept.
class ProcMountTable final : public MountTable
{
public:
    // fstab may be empty: then no mount is shown or hidden by it. Without a uid, the root's
    // trash folders are not looked for.
    ProcMountTable(std::filesystem::path mountinfo, std::filesystem::path home,
                   std::filesystem::path fstab = {}, std::string user = {},
                   std::optional<uid_t> uid = std::nullopt);

    std::optional<std::vector<MountEntry>> mounts() const override;

    // Every line of a mountinfo text, unfiltered, in order.
    static std::vector<MountEntry> parse(std::string_view mountinfo);
    // The rule above, applied to a parsed table.
    static std::vector<MountEntry> userVisible(const std::vector<MountEntry>& all,
                                               const PlacesRule& rule);
    static bool isSystemFilesystemType(std::string_view type);
    static bool isNetworkFilesystemType(std::string_view type);
    // The provider a cloud client's FUSE mount stands for, by its filesystem type: a provider
    // name such as "GoogleDrive" when the type tells it, the client's name when it serves
    // several; empty when the type is no cloud client's.
    static std::string cloudProvider(std::string_view type);

private:
    std::filesystem::path m_mountinfo;
    std::filesystem::path m_home;
    std::filesystem::path m_fstab;
    std::string m_user;
    std::optional<uid_t> m_uid;
};

} // namespace quillane
