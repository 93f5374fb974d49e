#pragma once

#include "Platform/MountTable.h"

#include <string_view>

namespace quillane
{

// The mount table of /proc/self/mountinfo, with what no user thinks of as a volume left out:
// - kernel and other pseudo filesystems, by type (proc, sysfs, tmpfs, overlay, cgroup, ...);
// - system-internal mount points: /proc, /sys, /dev, /run (but /run/media, where desktops
//   mount removable media, is kept), /boot and /snap, and everything below them.
// The root filesystem and the one that holds the home folder are always kept, whatever their
// type. A mount point mounted over twice is listed once, where it first appears, with the
// topmost mount's details.
class ProcMountTable final : public MountTable
{
public:
    ProcMountTable(std::filesystem::path mountinfo, std::filesystem::path home);

    std::optional<std::vector<MountEntry>> mounts() const override;

    // Every line of a mountinfo text, unfiltered, in order.
    static std::vector<MountEntry> parse(std::string_view mountinfo);
    // The rule above, applied to a parsed table.
    static std::vector<MountEntry> userVisible(const std::vector<MountEntry>& all,
                                               const std::filesystem::path& home);
    static bool isSystemFilesystemType(std::string_view type);
    static bool isNetworkFilesystemType(std::string_view type);

private:
    std::filesystem::path m_mountinfo;
    std::filesystem::path m_home;
};

} // namespace quillane
