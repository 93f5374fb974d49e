#pragma once

#include "Platform/MountTable.h"
#include "Platform/VolumeNames.h"

namespace quillane
{

// Filesystem labels as udev publishes them: /dev/disk/by-label holds one link per labelled
// filesystem, named after the label (with \xNN escapes), pointing at its block device. A
// mount point's label is the name of the link that points at the device it was mounted from.
class DiskLabels final : public VolumeNames
{
public:
    DiskLabels(std::filesystem::path byLabelFolder, const MountTable& mounts);

    std::optional<std::string> volumeName(const std::filesystem::path& path) const override;

    static std::string decodeLabel(std::string_view linkName);

private:
    std::filesystem::path m_byLabel;
    const MountTable& m_mounts;
};

} // namespace quillane
