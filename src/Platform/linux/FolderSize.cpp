#include "DirHandle.h"
#include "Platform/FileSystem.h"
#include "Platform/SafeRemoval.h"
#include "Platform/TrashItems.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace quillane
{

namespace
{

namespace fs = std::filesystem;

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Folders one walker holds open at once. Deeper folders are reached again through ".." on the
// way back up, so depth costs memory for names, never descriptors.
constexpr std::size_t keptOpen = 16;
// Big enough to read most folders in one call.
constexpr std::size_t listingBuffer = 256 * 1024;

struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const Identity&) const = default;
};

// 0, or the errno of the failure.
int identify(int fd, const char* name, int flags, Identity& identity)
{
    struct statx info {
    };
    if (statx(fd, name, flags | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_INO, &info) != 0)
        return errno;
    identity = {makedev(info.stx_dev_major, info.stx_dev_minor), info.stx_ino};
    return 0;
}

// A folder being walked: what it holds that is still to be entered, and its descriptor while
// it is among the deepest few.
struct Level {
    std::string name; // relative to the level above; the whole path for the first
    Identity identity;
    bool skipped = false; // its path is left out of sizes (isUnsizedTrashPath)
    UniqueFd fd;
    std::vector<std::string> folders;
    std::size_t next = 0;
};

// One walker's share of a tree: the folders it is given, each walked depth first.
class Walker
{
public:
    Walker(dev_t device, std::atomic<bool>& stop) : m_device(device), m_stop(stop) {}

    // What was counted since the last call.
    std::uint64_t takeTotal() { return std::exchange(m_total, 0); }
    const std::string& error() const { return m_error; }

    // Sizes the folder open at `fd` and everything below it.
    bool walk(UniqueFd fd, const std::string& path, bool skipped)
    {
        Level top;
        top.name = path;
        top.skipped = skipped;
        top.fd = std::move(fd);
        if (const int error = identify(top.fd.get(), "", AT_EMPTY_PATH, top.identity))
            return fail(path, error);
        m_levels.clear();
        m_levels.push_back(std::move(top));
        if (!read(m_levels.back()))
            return false;
        while (!m_levels.empty()) {
            if (m_stop.load(std::memory_order_relaxed))
                return false;
            Level& current = m_levels.back();
            if (current.next < current.folders.size()) {
                if (!enter(current.folders[current.next++]))
                    return false;
            } else if (!leave()) {
                return false;
            }
        }
        return true;
    }

    // Counts the files directly in the folder open at `fd` and gives the names of its folders.
    bool list(UniqueFd fd, const std::string& path, std::vector<std::string>& folders)
    {
        Level level;
        level.name = path;
        level.skipped = isUnsizedTrashPath(path);
        level.fd = std::move(fd);
        m_levels.clear();
        m_levels.push_back(std::move(level));
        const bool read = this->read(m_levels.back());
        folders = std::move(m_levels.back().folders);
        m_levels.clear();
        return read;
    }

    bool fail(const std::string& path, int error)
    {
        m_error = describeErrno(path, error);
        m_stop = true;
        return false;
    }

private:
    bool enter(const std::string& name)
    {
        Level& parent = m_levels.back();
        UniqueFd child = UniqueFd::adopt(openat(parent.fd.get(), name.c_str(), folderFlags));
        if (!child)
            return fail(pathOf(name), errno);
        Level level;
        level.name = name;
        level.skipped = parent.skipped || isUnsizedTrashPath(name);
        level.fd = std::move(child);
        if (const int error = identify(level.fd.get(), "", AT_EMPTY_PATH, level.identity))
            return fail(pathOf(name), error);
        if (level.identity.device != m_device)
            return true; // another filesystem mounted inside the trash: not ours to count
        if (m_levels.size() >= keptOpen)
            m_levels[m_levels.size() - keptOpen].fd.reset();
        m_levels.push_back(std::move(level));
        return read(m_levels.back());
    }

    bool leave()
    {
        Level done = std::move(m_levels.back());
        m_levels.pop_back();
        if (m_levels.empty() || m_levels.back().fd)
            return true;
        // The folder above was closed to keep the count of descriptors down: reopen it through
        // "..", and make sure it is still the one that was left.
        Level& parent = m_levels.back();
        UniqueFd reopened = UniqueFd::adopt(openat(done.fd.get(), "..", folderFlags));
        Identity identity;
        if (!reopened)
            return fail(pathOf({}), errno);
        if (const int error = identify(reopened.get(), "", AT_EMPTY_PATH, identity))
            return fail(pathOf({}), error);
        if (!(identity == parent.identity))
            return fail(pathOf({}), ENOENT); // moved away while it was walked
        parent.fd = std::move(reopened);
        return true;
    }

    // Lists the folder: files are counted at once, folders kept for later.
    bool read(Level& level)
    {
        if (!m_buffer)
            m_buffer = std::make_unique<char[]>(listingBuffer);
        for (;;) {
            const long got = syscall(SYS_getdents64, level.fd.get(), m_buffer.get(), listingBuffer);
            if (got < 0)
                return fail(pathOf({}), errno);
            if (got == 0)
                return true;
            for (long offset = 0; offset < got;) {
                const auto* entry = reinterpret_cast<const dirent64*>(m_buffer.get() + offset);
                offset += entry->d_reclen;
                if (isDotOrDotDot(entry->d_name))
                    continue;
                if (!take(level, entry->d_name, entry->d_type))
                    return false;
            }
        }
    }

    bool take(Level& level, const char* name, unsigned char type)
    {
        const bool skipped = level.skipped || isUnsizedTrashPath(name);
        if (type == DT_DIR) {
            level.folders.emplace_back(name);
            return true;
        }
        if (type != DT_REG && type != DT_UNKNOWN)
            return true; // links, devices, sockets and pipes take no space worth counting
        if (type == DT_REG && skipped)
            return true;
        struct statx info {
        };
        if (statx(level.fd.get(), name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                  STATX_TYPE | STATX_BLOCKS, &info) != 0)
            return fail(pathOf(name), errno);
        if (S_ISDIR(info.stx_mode))
            level.folders.emplace_back(name);
        else if (S_ISREG(info.stx_mode) && !skipped)
            m_total += info.stx_blocks * 512;
        return true;
    }

    // The path of the current folder, or of an entry in it, for a message.
    std::string pathOf(std::string_view entry) const
    {
        std::string path;
        for (const Level& level : m_levels) {
            if (!path.empty() && path.back() != '/')
                path += '/';
            path += level.name;
        }
        if (!entry.empty()) {
            if (path.empty() || path.back() != '/')
                path += '/';
            path += entry;
        }
        return path;
    }

    const dev_t m_device;
    std::atomic<bool>& m_stop;
    std::vector<Level> m_levels;
    std::unique_ptr<char[]> m_buffer;
    std::uint64_t m_total = 0;
    std::string m_error;
};

// Opens a folder below the top by its relative path, one name at a time, following no link.
// Invalid, with errno set, when that fails.
UniqueFd openBelow(int topFd, const std::string& relative)
{
    UniqueFd current;
    std::size_t start = 0;
    while (start <= relative.size()) {
        const std::size_t end = std::min(relative.find('/', start), relative.size());
        const std::string name = relative.substr(start, end - start);
        UniqueFd next =
            UniqueFd::adopt(openat(current ? current.get() : topFd, name.c_str(), folderFlags));
        if (!next)
            return next;
        current = std::move(next);
        start = end + 1;
    }
    return current;
}

// Whether the folder open at `fd` is on the given filesystem; errno set when it cannot be told.
bool onDevice(int fd, dev_t device, int& error)
{
    Identity identity;
    error = identify(fd, "", AT_EMPTY_PATH, identity);
    return error == 0 && identity.device == device;
}

using SizeResult = Result<std::uint64_t>;

// The sizes of some folders directly inside the folder open at `topFd`, each with everything
// below it, in the order of `names`. The folders are shared among the walkers, which take the
// next one as they finish the last; when there are fewer folders than walkers, the next level
// is shared instead, so that one large folder is still walked by all of them.
Result<std::vector<std::uint64_t>> sizesOfFolders(int topFd, const fs::path& top, dev_t device,
                                                  const std::vector<std::string>& names)
{
    using SizesResult = Result<std::vector<std::uint64_t>>;
    struct Share {
        std::string path; // relative to the top
        std::size_t folder;
    };
    std::vector<Share> shares;
    for (std::size_t i = 0; i < names.size(); ++i)
        shares.push_back({names[i], i});
    std::vector<std::atomic<std::uint64_t>> totals(names.size());
    std::atomic<bool> stop = false;
    const auto workers =
        static_cast<std::size_t>(std::max(2U, std::thread::hardware_concurrency()));

    // Opens a share, or tells that it is on another filesystem (not ours to count).
    const auto open = [&](const Share& share, UniqueFd& fd) {
        fd = openBelow(topFd, share.path);
        int error = fd ? 0 : errno;
        const bool ours = fd && onDevice(fd.get(), device, error);
        return error != 0 ? error : ours ? 0 : EXDEV;
    };
    if (shares.size() < workers) {
        Walker lister(device, stop);
        std::vector<Share> deeper;
        for (const Share& share : shares) {
            const std::string path = (top / share.path).native();
            UniqueFd fd;
            if (const int error = open(share, fd); error == EXDEV)
                continue;
            else if (error != 0)
                return SizesResult::failure(describeErrno(path, error));
            std::vector<std::string> below;
            if (!lister.list(std::move(fd), path, below))
                return SizesResult::failure(lister.error());
            totals[share.folder] += lister.takeTotal();
            for (const std::string& name : below)
                deeper.push_back({share.path + '/' + name, share.folder});
        }
        shares = std::move(deeper);
    }

    std::atomic<std::size_t> next = 0;
    std::vector<Walker> walkers;
    walkers.reserve(workers);
    for (std::size_t i = 0; i < workers; ++i)
        walkers.emplace_back(device, stop);
    const auto work = [&](Walker& walker) {
        for (std::size_t index = next++; index < shares.size() && !stop; index = next++) {
            const Share& share = shares[index];
            const std::string path = (top / share.path).native();
            UniqueFd fd;
            if (const int error = open(share, fd); error == EXDEV) {
                continue;
            } else if (error != 0) {
                walker.fail(path, error);
                return;
            }
            if (!walker.walk(std::move(fd), path, isUnsizedTrashPath(path)))
                return;
            totals[share.folder] += walker.takeTotal();
        }
    };
    {
        std::vector<std::jthread> threads;
        const std::size_t extra = std::min(workers, shares.size());
        for (std::size_t i = 1; i < extra; ++i)
            threads.emplace_back(work, std::ref(walkers[i]));
        work(walkers[0]);
    }
    for (const Walker& walker : walkers)
        if (!walker.error().empty())
            return SizesResult::failure(walker.error());
    std::vector<std::uint64_t> sizes;
    for (const auto& total : totals)
        sizes.push_back(total);
    return SizesResult::success(std::move(sizes));
}

// What is known of the folders of a trash: each one's size, for as long as it is unchanged.
struct FolderKey {
    dev_t device;
    ino_t inode;
    auto operator<=>(const FolderKey&) const = default;
};
struct KnownSize {
    std::int64_t changedSeconds;
    std::uint32_t changedNanoseconds;
    std::uint64_t size;
};
using KnownSizes = std::map<FolderKey, KnownSize>;

// The directorysizes lines this program wrote, kept in the user's cache folder, so that a line
// another program wrote (which may count otherwise) is never taken for one of ours. Each line
// of the file is a trash folder, percent-encoded, and the line written there. Losing it costs
// a walk, nothing more.
class WrittenSizes
{
public:
    WrittenSizes() : m_file(cacheFile())
    {
        std::ifstream in(m_file);
        for (std::string line; std::getline(in, line);) {
            const auto space = line.find(' ');
            if (space != std::string::npos)
                m_lines[percentDecoded(line.substr(0, space))].insert(line.substr(space + 1));
        }
    }

    bool wrote(const std::string& trash, const std::string& name, const DirectorySize& size) const
    {
        const auto lines = m_lines.find(trash);
        return lines != m_lines.end() && lines->second.contains(directorySizeLine(name, size));
    }

    // Notes the lines written to a trash, forgetting those of folders no longer in it.
    void add(const std::string& trash, const std::map<std::string, DirectorySize>& lines,
             const std::vector<std::string>& present)
    {
        std::set<std::string>& kept = m_lines[trash];
        const std::set<std::string> there(present.begin(), present.end());
        std::erase_if(kept, [&](const std::string& line) {
            const auto parsed = parseDirectorySizeLine(line);
            return !parsed || !there.contains(parsed->first) || lines.contains(parsed->first);
        });
        for (const auto& [name, size] : lines)
            kept.insert(directorySizeLine(name, size));
        save();
    }

private:
    static fs::path cacheFile()
    {
        const char* cache = std::getenv("XDG_CACHE_HOME");
        const char* home = std::getenv("HOME");
        if (cache && *cache == '/')
            return fs::path(cache) / "quillane/directorysizes";
        return home && *home ? fs::path(home) / ".cache/quillane/directorysizes" : fs::path();
    }

    void save() const
    {
        if (m_file.empty())
            return;
        std::error_code error;
        fs::create_directories(m_file.parent_path(), error);
        const fs::path aside = m_file.native() + ".new";
        {
            std::ofstream out(aside, std::ios::trunc);
            for (const auto& [trash, lines] : m_lines)
                for (const std::string& line : lines)
                    out << percentEncoded(trash) << ' ' << line << '\n';
            if (!out.flush())
                return;
        }
        fs::rename(aside, m_file, error);
    }

    fs::path m_file;
    std::map<std::string, std::set<std::string>> m_lines;
};

// Opens the folder a walk starts from, links followed; 0 or the errno of the failure.
int openTop(const fs::path& folder, UniqueFd& top, Identity& identity)
{
    top = UniqueFd::adopt(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!top)
        return errno;
    return identify(top.get(), "", AT_EMPTY_PATH, identity);
}

} // namespace

Result<std::uint64_t> allocatedSizeOfDirectory(const std::filesystem::path& folder)
{
    UniqueFd top;
    Identity topIdentity;
    if (const int error = openTop(folder, top, topIdentity))
        return SizeResult::failure(describeErrno(folder.native(), error));

    // The top level is read here; its files count at once.
    std::atomic<bool> stop = false;
    Walker lister(topIdentity.device, stop);
    std::vector<std::string> folders;
    UniqueFd listing = UniqueFd::adopt(dup(top.get()));
    if (!listing)
        return SizeResult::failure(describeErrno(folder.native(), errno));
    if (!lister.list(std::move(listing), folder.native(), folders))
        return SizeResult::failure(lister.error());
    const auto sizes = sizesOfFolders(top.get(), folder, topIdentity.device, folders);
    if (!sizes)
        return SizeResult::failure(sizes.error());
    std::uint64_t total = lister.takeTotal();
    for (const std::uint64_t size : *sizes)
        total += size;
    return SizeResult::success(total);
}

Result<std::uint64_t> allocatedSizeOfTrash(const std::filesystem::path& trashFolder)
{
    static std::mutex mutex;
    static std::map<std::string, KnownSizes> known; // by trash folder

    UniqueFd top;
    Identity topIdentity;
    if (const int error = openTop(trashFolder, top, topIdentity))
        return SizeResult::failure(describeErrno(trashFolder.native(), error));
    if (isUnsizedTrashPath(trashFolder.native()))
        return SizeResult::success(0);
    const auto names = listDirectory(trashFolder);
    if (!names)
        return SizeResult::failure(names.error());

    KnownSizes before;
    {
        const std::lock_guard lock(mutex);
        before = known[trashFolder.native()];
    }
    KnownSizes now;
    std::uint64_t total = 0;
    std::vector<std::string> changed;
    std::vector<std::pair<FolderKey, KnownSize>> changedKeys;
    for (const std::string& name : *names) {
        if (isUnsizedTrashPath(name))
            continue;
        struct statx info {
        };
        if (statx(top.get(), name.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                  STATX_TYPE | STATX_INO | STATX_CTIME | STATX_BLOCKS, &info) != 0) {
            if (errno == ENOENT)
                continue; // gone since the listing, as if it had gone before
            return SizeResult::failure(describeErrno((trashFolder / name).native(), errno));
        }
        if (S_ISREG(info.stx_mode))
            total += info.stx_blocks * 512;
        if (!S_ISDIR(info.stx_mode))
            continue;
        const FolderKey key{makedev(info.stx_dev_major, info.stx_dev_minor), info.stx_ino};
        const KnownSize seen{info.stx_ctime.tv_sec, info.stx_ctime.tv_nsec, 0};
        if (key.device != topIdentity.device)
            continue; // another filesystem mounted inside the trash
        if (const auto it = before.find(key);
            it != before.end() && it->second.changedSeconds == seen.changedSeconds &&
            it->second.changedNanoseconds == seen.changedNanoseconds) {
            total += it->second.size;
            now.insert(*it);
        } else {
            changed.push_back(name);
            changedKeys.emplace_back(key, seen);
        }
    }

    // A folder this process has not sized yet may have been sized by an earlier run, which
    // left its figure in directorysizes; the record's time tells that the line is still true.
    static WrittenSizes written; // guarded by the mutex, as `known` is
    const std::string trash = trashFolder.native();
    const UniqueFd trashFd = UniqueFd::adopt(open(trashFolder.parent_path().c_str(), folderFlags));
    const auto onDisk = changed.empty() || !trashFd ? std::map<std::string, DirectorySize>()
                                                    : readDirectorySizes(trashFd.get());
    std::vector<std::string> toWalk;
    std::vector<std::pair<FolderKey, KnownSize>> toWalkKeys;
    std::vector<std::optional<std::int64_t>> toWalkTimes;
    for (std::size_t i = 0; i < changed.size(); ++i) {
        const std::optional<std::int64_t> time =
            trashFd ? recordTime(trashFd.get(), changed[i]) : std::nullopt;
        const auto line = onDisk.find(changed[i]);
        const bool ours = [&] {
            const std::lock_guard lock(mutex);
            return line != onDisk.end() && written.wrote(trash, changed[i], line->second);
        }();
        if (time && ours && line->second.recordTime == *time) {
            total += line->second.size;
            changedKeys[i].second.size = line->second.size;
            now.insert(changedKeys[i]);
            continue;
        }
        toWalk.push_back(changed[i]);
        toWalkKeys.push_back(changedKeys[i]);
        toWalkTimes.push_back(time);
    }

    const auto sizes = sizesOfFolders(top.get(), trashFolder, topIdentity.device, toWalk);
    if (!sizes)
        return SizeResult::failure(sizes.error());
    std::map<std::string, DirectorySize> lines;
    for (std::size_t i = 0; i < toWalk.size(); ++i) {
        total += (*sizes)[i];
        toWalkKeys[i].second.size = (*sizes)[i];
        now.insert(toWalkKeys[i]);
        if (toWalkTimes[i])
            lines[toWalk[i]] = {(*sizes)[i], *toWalkTimes[i]};
    }
    // What was sized is left for the next run and for other programs. A trash that cannot be
    // written to (a read-only volume) simply keeps its file.
    const std::lock_guard lock(mutex);
    if (!lines.empty() && trashFd && writeDirectorySizes(trashFd.get(), lines).empty())
        written.add(trash, lines, *names);
    // Only the folders there now are kept, so what is known never outgrows the trash.
    known[trash] = std::move(now);
    return SizeResult::success(total);
}

Result<std::uint64_t> allocatedSizeOfEntry(const std::filesystem::path& entry)
{
    struct statx info {
    };
    if (statx(AT_FDCWD, entry.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
              STATX_TYPE | STATX_BLOCKS, &info) != 0)
        return SizeResult::failure(describeErrno(entry.native(), errno), errno);
    if (isUnsizedTrashPath(entry.filename().native()))
        return SizeResult::success(0);
    if (S_ISDIR(info.stx_mode))
        return allocatedSizeOfDirectory(entry);
    return SizeResult::success(S_ISREG(info.stx_mode) ? info.stx_blocks * 512 : 0);
}

} // namespace quillane
