#pragma once

#include "Platform/MountTable.h"
#include "Platform/VolumeNames.h"

#include <cstdint>
#include <functional>

namespace quillane
{

// Volume names as the desktop gives them, for the mounts of a mount table:
// - the label udisks reports for the mounted device, when a label source is given and
//   answers (see UDisksLabels);
// - else the label udev publishes: /dev/disk/by-label holds one link per labelled filesystem,
//   named after the label (with \xNN escapes), pointing at its block device;
// - else the label in the filesystem itself, where the device may be read (a machine without
//   udev, where the administrator runs it);
// - else, for a block device, its size as file managers round it: "16 GB Volume".
// The home's mount is the table's holdsHome entry.
class DiskLabels final : public VolumeNames
{
public:
    // The label of a device by its number, or nothing when the source does not know it.
    using LabelSource = std::function<std::optional<std::string>(dev_t device)>;

    DiskLabels(std::filesystem::path byLabelFolder, const MountTable& mounts,
               std::filesystem::path sysBlockFolder = "/sys/dev/block", LabelSource labels = {});

    std::optional<std::string> volumeName(const std::filesystem::path& path) const override;
    bool holdsHome(const std::filesystem::path& path) const override;

    static std::string decodeLabel(std::string_view linkName);
    // "16 GB Volume": decimal units, one decimal below 10, whole numbers above.
    static std::string sizeName(std::uint64_t bytes);

private:
    std::optional<MountEntry> mountAt(const std::filesystem::path& path) const;
    std::optional<std::string> udevLabel(const MountEntry& mount) const;
    static std::optional<std::string> superblockLabel(const MountEntry& mount);
    std::optional<std::uint64_t> deviceSize(const MountEntry& mount) const;

    std::filesystem::path m_byLabel;
    const MountTable& m_mounts;
    std::filesystem::path m_sysBlock;
    LabelSource m_labels;
};

} // namespace quillane
