#include "DiskLabels.h"

#include "Platform/FileSystem.h"

#include <algorithm>
#include <sys/stat.h>

namespace quillane
{

namespace fs = std::filesystem;

DiskLabels::DiskLabels(fs::path byLabelFolder, const MountTable& mounts)
    : m_byLabel(std::move(byLabelFolder)), m_mounts(mounts)
{
}

std::string DiskLabels::decodeLabel(std::string_view linkName)
{
    std::string label;
    const auto hex = [](char c) -> int {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        return -1;
    };
    for (std::size_t i = 0; i < linkName.size(); ++i) {
        if (linkName[i] == '\\' && i + 3 < linkName.size() && linkName[i + 1] == 'x' &&
            hex(linkName[i + 2]) >= 0 && hex(linkName[i + 3]) >= 0) {
            label += static_cast<char>(hex(linkName[i + 2]) * 16 + hex(linkName[i + 3]));
            i += 3;
        } else {
            label += linkName[i];
        }
    }
    return label;
}

std::optional<std::string> DiskLabels::volumeName(const fs::path& path) const
{
    const auto mounts = m_mounts.mounts();
    if (!mounts)
        return std::nullopt;
    fs::path wanted =
        path.native().size() > 1 && path.native().back() == '/' ? path.parent_path() : path;
    const auto mount = std::ranges::find(*mounts, wanted, &MountEntry::mountPoint);
    if (mount == mounts->end())
        return std::nullopt;

    struct stat device {
    };
    if (stat(mount->source.c_str(), &device) != 0 || !S_ISBLK(device.st_mode))
        return std::nullopt;
    const auto links = listDirectory(m_byLabel);
    if (!links)
        return std::nullopt;
    for (const std::string& link : *links) {
        struct stat target {
        };
        if (stat((m_byLabel / link).c_str(), &target) == 0 && S_ISBLK(target.st_mode) &&
            target.st_rdev == device.st_rdev)
            return decodeLabel(link);
    }
    return std::nullopt;
}

} // namespace quillane
