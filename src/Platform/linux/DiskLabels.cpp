#include "DiskLabels.h"

#include "Platform/FileSystem.h"

#include <algorithm>
#include <array>
#include <blkid/blkid.h>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

namespace quillane
{

namespace fs = std::filesystem;

DiskLabels::DiskLabels(fs::path byLabelFolder, const MountTable& mounts, fs::path sysBlockFolder,
                       LabelSource labels)
    : m_byLabel(std::move(byLabelFolder)), m_mounts(mounts), m_sysBlock(std::move(sysBlockFolder)),
      m_labels(std::move(labels))
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

std::string DiskLabels::sizeName(std::uint64_t bytes)
{
    constexpr std::array<const char*, 6> units = {"bytes", "kB", "MB", "GB", "TB", "PB"};
    double value = static_cast<double>(bytes);
    std::size_t unit = 0;
    // The unit is chosen on the rounded value, so that 999.6 GB shows as 1.0 TB.
    while (unit + 1 < units.size() && std::round(value) >= 1000) {
        value /= 1000;
        ++unit;
    }
    char text[32];
    if (unit > 0 && std::round(value * 10) / 10 < 10)
        std::snprintf(text, sizeof text, "%.1f %s Volume", value, units[unit]);
    else
        std::snprintf(text, sizeof text, "%.0f %s Volume", value, units[unit]);
    return text;
}

std::optional<MountEntry> DiskLabels::mountAt(const fs::path& path) const
{
    const auto mounts = m_mounts.mounts();
    if (!mounts)
        return std::nullopt;
    const fs::path wanted = withoutTrailingSlash(path);
    const auto mount = std::ranges::find(*mounts, wanted, &MountEntry::mountPoint);
    if (mount == mounts->end())
        return std::nullopt;
    return *mount;
}

bool DiskLabels::holdsHome(const fs::path& path) const
{
    const auto mount = mountAt(path);
    return mount && mount->holdsHome;
}

namespace
{

// The block device a mount was made from, when its source is one.
std::optional<dev_t> blockDevice(const MountEntry& mount)
{
    struct stat device {
    };
    if (stat(mount.source.c_str(), &device) != 0 || !S_ISBLK(device.st_mode))
        return std::nullopt;
    return device.st_rdev;
}

} // namespace

std::optional<std::string> DiskLabels::udevLabel(const MountEntry& mount) const
{
    const auto device = blockDevice(mount);
    if (!device)
        return std::nullopt;
    const auto links = listDirectory(m_byLabel);
    if (!links)
        return std::nullopt;
    for (const std::string& link : *links) {
        struct stat target {
        };
        if (stat((m_byLabel / link).c_str(), &target) == 0 && S_ISBLK(target.st_mode) &&
            target.st_rdev == *device)
            return decodeLabel(link);
    }
    return std::nullopt;
}

std::optional<std::string> DiskLabels::superblockLabel(const MountEntry& mount)
{
    if (!blockDevice(mount))
        return std::nullopt;
    // Only where the device may be read: root, or a member of its group.
    const blkid_probe probe = blkid_new_probe_from_filename(mount.source.c_str());
    if (!probe)
        return std::nullopt;
    std::optional<std::string> label;
    blkid_probe_enable_superblocks(probe, 1);
    blkid_probe_set_superblocks_flags(probe, BLKID_SUBLKS_LABEL);
    const char* value = nullptr;
    if (blkid_do_safeprobe(probe) == 0 &&
        blkid_probe_lookup_value(probe, "LABEL", &value, nullptr) == 0 && value)
        label = value;
    blkid_free_probe(probe);
    return label;
}

std::optional<std::uint64_t> DiskLabels::deviceSize(const MountEntry& mount) const
{
    const auto device = blockDevice(mount);
    if (!device)
        return std::nullopt;
    // The size in 512-byte sectors, whatever the device's own sector size.
    std::ifstream file(m_sysBlock /
                       (std::to_string(major(*device)) + ':' + std::to_string(minor(*device))) /
                       "size");
    std::uint64_t sectors = 0;
    if (!(file >> sectors) || sectors == 0)
        return std::nullopt;
    return sectors * 512;
}

std::optional<std::string> DiskLabels::volumeName(const fs::path& path) const
{
    const auto mount = mountAt(path);
    if (!mount)
        return std::nullopt;
    if (m_labels) {
        if (const auto device = blockDevice(*mount)) {
            if (auto label = m_labels(*device); label && !label->empty())
                return label;
        }
    }
    if (auto label = udevLabel(*mount); label && !label->empty())
        return label;
    if (auto label = superblockLabel(*mount); label && !label->empty())
        return label;
    if (const auto size = deviceSize(*mount))
        return sizeName(*size);
    // The root of a filesystem with no block device of its own (ZFS, an overlay) would be
    // named "/": its size says more.
    struct statvfs root {
    };
    if (mount->mountPoint == "/" && statvfs("/", &root) == 0 && root.f_blocks > 0)
        return sizeName(static_cast<std::uint64_t>(root.f_blocks) * root.f_frsize);
    return std::nullopt;
}

} // namespace quillane
