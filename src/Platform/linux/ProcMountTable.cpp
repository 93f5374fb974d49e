#include "ProcMountTable.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace quillane
{

namespace fs = std::filesystem;

namespace
{

// Filesystems that hold no user files: the kernel's own views, memory and container layers,
// automounter placeholders and the desktop's own virtual mounts.
constexpr std::string_view systemTypes[] = {
    "anon_inodefs",
    "autofs",
    "binfmt_misc",
    "bpf",
    "cgroup",
    "cgroup2",
    "configfs",
    "debugfs",
    "devfs",
    "devpts",
    "devtmpfs",
    "efivarfs",
    "fuse.gvfsd-fuse",
    "fuse.portal",
    "fuse.snapfuse",
    "fusectl",
    "hugetlbfs",
    "mqueue",
    "nfsd",
    "nsfs",
    "overlay",
    "proc",
    "pstore",
    "ramfs",
    "rootfs",
    "rpc_pipefs",
    "securityfs",
    "selinuxfs",
    "squashfs",
    "sysfs",
    "tmpfs",
    "tracefs",
    "zram",
};

// Filesystems whose files live on another machine.
constexpr std::string_view networkTypes[] = {
    "9p",          "afs",       "ceph",       "cifs",      "davfs",          "fuse.davfs2",
    "fuse.rclone", "fuse.s3fs", "fuse.sshfs", "glusterfs", "fuse.glusterfs", "lustre",
    "ncpfs",       "nfs",       "nfs4",       "smb3",      "smbfs",          "sshfs",
};

// Mountinfo writes space, tab, newline and backslash in paths as \ooo octal escapes.
std::string decodeOctalEscapes(std::string_view field)
{
    std::string out;
    out.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size()) {
            const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
            if (isOctal(field[i + 1]) && isOctal(field[i + 2]) && isOctal(field[i + 3])) {
                out += static_cast<char>(((field[i + 1] - '0') << 6) | ((field[i + 2] - '0') << 3) |
                                         (field[i + 3] - '0'));
                i += 3;
                continue;
            }
        }
        out += field[i];
    }
    return out;
}

std::vector<std::string_view> splitFields(std::string_view line)
{
    std::vector<std::string_view> fields;
    std::size_t start = 0;
    while (start < line.size()) {
        const auto end = line.find(' ', start);
        const auto stop = end == std::string_view::npos ? line.size() : end;
        if (stop > start)
            fields.push_back(line.substr(start, stop - start));
        start = stop + 1;
    }
    return fields;
}

bool hasOption(std::string_view options, std::string_view wanted)
{
    std::size_t start = 0;
    while (start <= options.size()) {
        const auto end = options.find(',', start);
        const auto stop = end == std::string_view::npos ? options.size() : end;
        if (options.substr(start, stop - start) == wanted)
            return true;
        start = stop + 1;
    }
    return false;
}

// Whether path is folder or lies below it, comparing whole components.
bool isAtOrBelow(const fs::path& path, std::string_view folder)
{
    if (folder == "/")
        return true;
    const std::string& text = path.native();
    return text.starts_with(folder) && (text.size() == folder.size() || text[folder.size()] == '/');
}

bool isSystemMountPoint(const fs::path& mountPoint)
{
    if (isAtOrBelow(mountPoint, "/run"))
        return !isAtOrBelow(mountPoint, "/run/media");
    return std::ranges::any_of(std::array{"/proc", "/sys", "/dev", "/boot", "/snap"},
                               [&](const char* folder) { return isAtOrBelow(mountPoint, folder); });
}

} // namespace

ProcMountTable::ProcMountTable(fs::path mountinfo, fs::path home)
    : m_mountinfo(std::move(mountinfo)), m_home(std::move(home))
{
}

bool ProcMountTable::isSystemFilesystemType(std::string_view type)
{
    return std::ranges::find(systemTypes, type) != std::end(systemTypes);
}

bool ProcMountTable::isNetworkFilesystemType(std::string_view type)
{
    return std::ranges::find(networkTypes, type) != std::end(networkTypes);
}

std::vector<MountEntry> ProcMountTable::parse(std::string_view mountinfo)
{
    // id parent major:minor root mount-point options [optional fields...] - type source super
    std::vector<MountEntry> entries;
    std::size_t start = 0;
    while (start < mountinfo.size()) {
        const auto end = mountinfo.find('\n', start);
        const auto stop = end == std::string_view::npos ? mountinfo.size() : end;
        const auto fields = splitFields(mountinfo.substr(start, stop - start));
        start = stop + 1;

        const auto separator = std::ranges::find(fields, std::string_view("-"));
        if (fields.size() < 6 || separator == fields.end() || fields.end() - separator < 3)
            continue;
        MountEntry entry;
        entry.mountId = std::strtoull(std::string(fields[0]).c_str(), nullptr, 10);
        entry.mountPoint = decodeOctalEscapes(fields[4]);
        entry.readOnly = hasOption(fields[5], "ro");
        entry.fsType = decodeOctalEscapes(*(separator + 1));
        entry.source = decodeOctalEscapes(*(separator + 2));
        entry.local = !isNetworkFilesystemType(entry.fsType);
        entries.push_back(std::move(entry));
    }
    return entries;
}

std::vector<MountEntry> ProcMountTable::userVisible(const std::vector<MountEntry>& all,
                                                    const fs::path& home)
{
    // The mount that holds the home folder: the last (topmost) one whose point is home or an
    // ancestor of it, the longest such point winning.
    fs::path homeMount;
    for (const MountEntry& entry : all) {
        if (isAtOrBelow(home, entry.mountPoint.native()) &&
            entry.mountPoint.native().size() >= homeMount.native().size())
            homeMount = entry.mountPoint;
    }

    // A folder mounted over shows the topmost mount, so that one is judged, in the place
    // where the folder first appears.
    std::vector<MountEntry> topmost;
    for (const MountEntry& entry : all) {
        const auto same = std::ranges::find(topmost, entry.mountPoint, &MountEntry::mountPoint);
        if (same != topmost.end())
            *same = entry;
        else
            topmost.push_back(entry);
    }

    std::vector<MountEntry> visible;
    for (const MountEntry& entry : topmost) {
        const bool alwaysKept = entry.mountPoint == "/" || entry.mountPoint == homeMount;
        if (alwaysKept ||
            !(isSystemFilesystemType(entry.fsType) || isSystemMountPoint(entry.mountPoint)))
            visible.push_back(entry);
    }
    return visible;
}

std::optional<std::vector<MountEntry>> ProcMountTable::mounts() const
{
    std::ifstream file(m_mountinfo, std::ios::binary);
    if (!file)
        return std::nullopt;
    std::ostringstream text;
    text << file.rdbuf();
    return userVisible(parse(text.str()), m_home);
}

} // namespace quillane
