#include "ProcMountTable.h"

#include "Platform/FileSystem.h"

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

// FUSE filesystem types of cloud clients, with the provider each stands for.
constexpr std::pair<std::string_view, std::string_view> cloudTypes[] = {
    {"fuse.dbxfs", "Dropbox"},
    {"fuse.google-drive-ocamlfuse", "GoogleDrive"},
    {"fuse.onedriver", "OneDrive"},
    {"fuse.rclone", "rclone"},
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

// The pieces of text between any of separators, empty ones left out.
std::vector<std::string_view> split(std::string_view text, std::string_view separators)
{
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    while (start < text.size()) {
        const auto end = text.find_first_of(separators, start);
        const auto stop = end == std::string_view::npos ? text.size() : end;
        if (stop > start)
            pieces.push_back(text.substr(start, stop - start));
        start = stop + 1;
    }
    return pieces;
}

bool hasOption(std::string_view options, std::string_view wanted)
{
    return std::ranges::count(split(options, ","), wanted) > 0;
}

// Whether path is folder or lies below it, comparing whole components.
bool isAtOrBelow(const fs::path& path, std::string_view folder)
{
    if (folder == "/")
        return true;
    const std::string& text = path.native();
    return text.starts_with(folder) && (text.size() == folder.size() || text[folder.size()] == '/');
}

// Mount points that fstab marks to be shown (true) or hidden (false) in the sidebar.
std::vector<std::pair<fs::path, bool>> fstabMarks(std::string_view fstab)
{
    std::vector<std::pair<fs::path, bool>> marks;
    for (const std::string_view line : split(fstab, "\n")) {
        const auto fields = split(line, " \t");
        // source mount-point type options [dump [pass]]
        if (fields.size() < 4 || fields[0].starts_with('#'))
            continue;
        fs::path point = decodeOctalEscapes(fields[1]);
        if (point.native().size() > 1 && point.native().ends_with('/'))
            point = point.parent_path();
        if (hasOption(fields[3], "x-gvfs-hide"))
            marks.emplace_back(std::move(point), false);
        else if (hasOption(fields[3], "x-gvfs-show"))
            marks.emplace_back(std::move(point), true);
    }
    return marks;
}

bool isInPlaces(const fs::path& mountPoint, const PlacesRule& rule)
{
    if (mountPoint == "/")
        return false;
    if (isAtOrBelow(mountPoint, "/media") || isAtOrBelow(mountPoint, "/mnt"))
        return mountPoint != "/media" && mountPoint != "/mnt";
    if (!rule.user.empty() && isAtOrBelow(mountPoint, "/run/media/" + rule.user))
        return true;
    return rule.home != "/" && isAtOrBelow(mountPoint, rule.home.native()) &&
           mountPoint != rule.home;
}

} // namespace

ProcMountTable::ProcMountTable(fs::path mountinfo, fs::path home, fs::path fstab, std::string user,
                               std::optional<uid_t> uid)
    : m_mountinfo(std::move(mountinfo)), m_home(std::move(home)), m_fstab(std::move(fstab)),
      m_user(std::move(user)), m_uid(uid)
{
}

std::string ProcMountTable::cloudProvider(std::string_view type)
{
    const auto found =
        std::ranges::find(cloudTypes, type, &std::pair<std::string_view, std::string_view>::first);
    return found == std::end(cloudTypes) ? std::string() : std::string(found->second);
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
    for (const std::string_view line : split(mountinfo, "\n")) {
        const auto fields = split(line, " \t");

        const auto separator = std::ranges::find(fields, std::string_view("-"));
        if (fields.size() < 6 || separator == fields.end() || fields.end() - separator < 3)
            continue;
        MountEntry entry;
        entry.device = std::string(fields[2]);
        entry.root = decodeOctalEscapes(fields[3]);
        entry.mountId = std::strtoull(std::string(fields[0]).c_str(), nullptr, 10);
        entry.mountPoint = decodeOctalEscapes(fields[4]);
        entry.readOnly = hasOption(fields[5], "ro");
        entry.fsType = decodeOctalEscapes(*(separator + 1));
        entry.source = decodeOctalEscapes(*(separator + 2));
        entry.cloudProvider = cloudProvider(entry.fsType);
        entry.local = !isNetworkFilesystemType(entry.fsType) && entry.cloudProvider.empty();
        entries.push_back(std::move(entry));
    }
    return entries;
}

std::vector<MountEntry> ProcMountTable::userVisible(const std::vector<MountEntry>& all,
                                                    const PlacesRule& rule)
{
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

    // The mount that holds the home folder: the one whose point is home or its nearest
    // ancestor.
    const MountEntry* homeMount = nullptr;
    for (const MountEntry& entry : topmost) {
        if (isAtOrBelow(rule.home, entry.mountPoint.native()) &&
            (!homeMount ||
             entry.mountPoint.native().size() > homeMount->mountPoint.native().size()))
            homeMount = &entry;
    }

    const auto marks = fstabMarks(rule.fstab);
    const auto mark = [&](const fs::path& point) -> std::optional<bool> {
        const auto found = std::ranges::find(marks, point, &std::pair<fs::path, bool>::first);
        return found == marks.end() ? std::nullopt : std::optional(found->second);
    };
    std::vector<MountEntry> shown;
    for (const MountEntry& entry : topmost) {
        if (&entry == homeMount) {
            shown.push_back(entry);
            shown.back().holdsHome = true;
            continue;
        }
        if (entry.mountPoint == "/" && rule.rootTrash) {
            shown.push_back(entry);
            continue;
        }
        const auto marked = mark(entry.mountPoint);
        const bool inPlaces =
            isInPlaces(entry.mountPoint, rule) && !isSystemFilesystemType(entry.fsType);
        if (marked.value_or(inPlaces))
            shown.push_back(entry);
    }

    // One entry per filesystem: home's mount, else the one of the whole filesystem, else the
    // first.
    std::vector<MountEntry> visible;
    for (const MountEntry& entry : shown) {
        const auto sameFilesystem = [&](const MountEntry& other) {
            return !entry.device.empty() && other.device == entry.device;
        };
        const auto better = [&](const MountEntry& other) {
            return other.holdsHome || (!entry.holdsHome && other.root == "/" && entry.root != "/");
        };
        const auto kept = std::ranges::find_if(visible, sameFilesystem);
        if (kept == visible.end()) {
            const bool beaten = std::ranges::any_of(shown, [&](const MountEntry& other) {
                return &other != &entry && sameFilesystem(other) && better(other);
            });
            if (!beaten)
                visible.push_back(entry);
        }
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
    PlacesRule rule{m_home, m_user, {}};
    if (m_uid) {
        // The root is a local disk: looking at it cannot hang.
        const std::string uid = std::to_string(*m_uid);
        rule.rootTrash = fileExists(fs::path("/.Trash") / uid) || fileExists("/.Trash-" + uid);
    }
    if (!m_fstab.empty()) {
        std::ifstream fstab(m_fstab, std::ios::binary);
        std::ostringstream fstabText;
        fstabText << fstab.rdbuf();
        rule.fstab = fstabText.str();
    }
    return userVisible(parse(text.str()), rule);
}

} // namespace quillane
