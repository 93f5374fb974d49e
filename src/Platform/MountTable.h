#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillane
{

// One mounted filesystem that a user would recognise as a place with files.
struct MountEntry {
    std::filesystem::path mountPoint; // no trailing slash, "/" for the root
    std::string fsType;
    std::string source;
    std::string device;         // the filesystem's "major:minor", the same for all its mounts
    std::filesystem::path root; // the folder of that filesystem mounted here, "/" for all of it
    bool readOnly = false;
    bool local = true;
    bool holdsHome = false;    // the filesystem of the user's home folder, mounted there
    std::string cloudProvider; // the cloud client behind a FUSE mount, empty for other mounts
    std::uint64_t mountId = 0; // the kernel's id of the mount, as statx(STATX_MNT_ID) gives it

    friend bool operator==(const MountEntry&, const MountEntry&) = default;
};

// The mounted filesystems, in the kernel's order.
class MountTable
{
public:
    virtual ~MountTable() = default;
    // Nothing when the table cannot be read.
    virtual std::optional<std::vector<MountEntry>> mounts() const = 0;
};

} // namespace quillane
