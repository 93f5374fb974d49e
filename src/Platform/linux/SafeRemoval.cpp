#include "Platform/SafeRemoval.h"

#include "DirHandle.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace quillane
{

void UniqueFd::reset(int fd) noexcept
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = fd < 0 ? -1 : fd;
}

namespace
{

using RemovalResult = Result<bool>;

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Folders of a tree held open at once; with the item's own descriptor and the one being listed,
// a removal holds at most 32 descriptors whatever the depth.
constexpr std::size_t keptOpen = 30;

// One component of a path: no separator, no NUL (which would cut the name short on its way to
// the kernel), and not a way up or a way to stay.
bool isPlainName(std::string_view name)
{
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

// Opens `name` in the open folder `at` without following a link or crossing into another
// mount: a name with a filesystem mounted on it fails with EXDEV before the mounted
// filesystem is reached, so a hung or hostile one never holds up the caller.
int openHere(int at, const char* name, int flags)
{
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_NOFOLLOW | O_CLOEXEC);
    how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS;
    return static_cast<int>(syscall(SYS_openat2, at, name, &how, sizeof how));
}

// The status of the entry `name` of the open folder `at`, itself and not what a link names or
// what is mounted on it; 0, or the errno of the failure (EXDEV: something is mounted on it).
int statHere(int at, const char* name, struct stat& info)
{
    const UniqueFd entry = UniqueFd::adopt(openHere(at, name, O_PATH));
    if (!entry || fstat(entry.get(), &info) != 0)
        return errno;
    return 0;
}

// What the removal needs to know of a folder, read from its open descriptor.
struct FolderStatus {
    dev_t device = 0;
    ino_t inode = 0;
    std::uint64_t mountId = 0; // 0 when the kernel does not tell
    uid_t owner = 0;
    mode_t mode = 0;
    std::uint64_t attributes = 0; // the STATX_ATTR_ flags the kernel reports as set

    bool sameFolder(const FolderStatus& other) const
    {
        return device == other.device && inode == other.inode;
    }
    // The device alone misses a bind mount of another folder of the same filesystem; the mount
    // id tells it.
    bool sameMount(const FolderStatus& other) const
    {
        return device == other.device &&
               (mountId == 0 || other.mountId == 0 || mountId == other.mountId);
    }
    bool locked() const { return (attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0; }
};

// 0, or the errno of the failure.
int readStatus(int fd, FolderStatus& status)
{
    struct statx info {
    };
    if (statx(fd, "", AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
              STATX_BASIC_STATS | STATX_MNT_ID, &info) != 0)
        return errno;
    status.device = makedev(info.stx_dev_major, info.stx_dev_minor);
    status.inode = info.stx_ino;
    status.mountId = (info.stx_mask & STATX_MNT_ID) ? info.stx_mnt_id : 0;
    status.owner = info.stx_uid;
    status.mode = info.stx_mode;
    status.attributes = info.stx_attributes & info.stx_attributes_mask;
    return 0;
}

// The refusal the kernel is bound to give when entries of the folder are removed by this
// process, or 0 when none can be told in advance.
int foreseenRefusal(int fd, const FolderStatus& folder)
{
    if (folder.locked())
        return EPERM;
    if (faccessat(fd, "", W_OK | X_OK, AT_EMPTY_PATH | AT_EACCESS) != 0) {
        const int error = errno;
        // EINVAL: a kernel without faccessat2, which cannot be asked about a descriptor.
        if (error == EACCES || error == EPERM || error == EROFS)
            return error;
    }
    return 0;
}

// The identity the kernel checks file access against: the effective one, or the one the
// daemon took for its caller. setfsuid with an invalid id changes nothing and tells it.
uid_t actingUser()
{
    return static_cast<uid_t>(setfsuid(static_cast<uid_t>(-1)));
}

// A folder of the acting user's own that only its mode keeps from changing: its owner may give
// itself the right, as `chmod u+rwx` would, and does so just before removing what it holds.
bool ownerMayOpenUp(const FolderStatus& folder)
{
    return !folder.locked() && folder.owner == actingUser() && (folder.mode & S_IRWXU) != S_IRWXU;
}

// In a sticky folder only the owner of an entry or of the folder may remove the entry.
bool stickyRefuses(const FolderStatus& folder, uid_t entryOwner)
{
    const uid_t self = geteuid();
    return (folder.mode & S_ISVTX) && self != 0 && folder.owner != self && entryOwner != self;
}

// The failure of the call that just failed, for the entry at path.
template <class T> Result<T> lastError(const std::string& path)
{
    const int error = errno;
    return Result<T>::failure(describeErrno(path, error), error);
}

RemovalResult otherMount(const std::string& path)
{
    return RemovalResult::failure(path + ": another filesystem is mounted here", EXDEV);
}

RemovalResult ownedByAnother(const std::string& path)
{
    return RemovalResult::failure(path + ": owned by another user", EPERM);
}

enum class Pass { look, remove };

// A folder of the tree being walked.
struct Frame {
    std::string name;
    UniqueFd fd; // closed while the folder lies too far above the one being worked on
    FolderStatus status;
    std::vector<std::string> folders; // its sub-folders still to visit
};

// Walks the tree below one folder, depth first with an explicit stack, and in the removal pass
// removes everything below it (the folder itself is the caller's). Only the deepest folders are
// held open; a folder closed on the way down is opened again from its child through "..", and
// must be the very folder it was.
class TreeWalk
{
public:
    TreeWalk(Pass pass, const RemovalRules& rules) : m_pass(pass), m_rules(rules) {}

    RemovalResult run(std::string name, UniqueFd fd, const FolderStatus& status)
    {
        m_stack.push_back({std::move(name), std::move(fd), status, {}});
        if (auto listed = list(); !listed)
            return listed;
        for (;;) {
            Frame& current = m_stack.back();
            if (!current.folders.empty()) {
                const std::string child = std::move(current.folders.back());
                current.folders.pop_back();
                if (auto entered = enter(child); !entered)
                    return entered;
            } else if (m_stack.size() == 1) {
                return RemovalResult::success(true);
            } else if (auto left = leave(); !left) {
                return left;
            }
        }
    }

    // Opens the folder `name` of the open folder `at` for reading: looked up as the owner of
    // `at` would, read as its own owner would. 0, or the errno of the failure (EPERM: an owner
    // the rules refuse).
    int openFolder(int at, uid_t atOwner, const char* name, UniqueFd& fd,
                   FolderStatus& status) const
    {
        actFor(atOwner);
        const UniqueFd path = UniqueFd::adopt(openHere(at, name, O_PATH | O_DIRECTORY));
        if (!path)
            return errno;
        if (const int error = readStatus(path.get(), status))
            return error;
        if (!allows(status.owner))
            return EPERM;
        actFor(status.owner);
        fd = UniqueFd::adopt(openat(path.get(), ".", folderFlags));
        return fd ? 0 : errno;
    }

private:
    std::string pathOf(std::string_view entry = {}) const
    {
        std::string path;
        for (const Frame& frame : m_stack) {
            if (!path.empty())
                path += '/';
            path += frame.name;
        }
        if (!entry.empty())
            (path += '/') += entry;
        return path;
    }

    RemovalResult failure(std::string_view entry, int error) const
    {
        if (error == EXDEV)
            return otherMount(pathOf(entry));
        return RemovalResult::failure(describeErrno(pathOf(entry), error), error);
    }

    void actFor(uid_t owner) const
    {
        if (m_rules.actFor)
            m_rules.actFor(owner);
    }

    bool allows(uid_t owner) const { return !m_rules.allowsOwner || m_rules.allowsOwner(owner); }

    // Reads the deepest folder: notes its sub-folders and, in the removal pass, removes
    // everything else as it comes.
    RemovalResult list()
    {
        Frame& frame = m_stack.back();
        // A duplicate shares its reading position with the folder's descriptor, which an
        // earlier pass may have read to the end: start again from the beginning.
        const int listFd = fcntl(frame.fd.get(), F_DUPFD_CLOEXEC, 0);
        if (listFd < 0)
            return failure({}, errno);
        DirHandle dir(fdopendir(listFd));
        if (!dir) {
            const int error = errno;
            close(listFd);
            return failure({}, error);
        }
        rewinddir(dir.get());
        if (m_pass == Pass::remove) {
            actFor(frame.status.owner);
            if (ownerMayOpenUp(frame.status) &&
                fchmod(frame.fd.get(), (frame.status.mode & 07777) | S_IRWXU) == 0)
                frame.status.mode |= S_IRWXU;
        }
        // In a sticky folder that is not ours, every entry must be ours.
        const bool ownEntriesOnly = m_pass == Pass::look && (frame.status.mode & S_ISVTX) &&
                                    geteuid() != 0 && frame.status.owner != geteuid();
        const bool checkOwners = m_pass == Pass::look && m_rules.allowsOwner;
        bool empty = true;
        for (;;) {
            errno = 0;
            const dirent* entry = readdir(dir.get());
            if (!entry) {
                if (errno != 0)
                    return failure({}, errno);
                break;
            }
            if (isDotOrDotDot(entry->d_name))
                continue;
            empty = false;
            bool folder = entry->d_type == DT_DIR;
            if (entry->d_type == DT_UNKNOWN || ownEntriesOnly || checkOwners) {
                struct stat info {
                };
                actFor(frame.status.owner);
                if (const int error = statHere(frame.fd.get(), entry->d_name, info)) {
                    if (error == ENOENT)
                        continue;
                    return failure(entry->d_name, error);
                }
                if (ownEntriesOnly && stickyRefuses(frame.status, info.st_uid))
                    return failure(entry->d_name, EPERM);
                if (!allows(info.st_uid))
                    return ownedByAnother(pathOf(entry->d_name));
                folder = S_ISDIR(info.st_mode);
            }
            if (folder) {
                frame.folders.emplace_back(entry->d_name);
            } else if (m_pass == Pass::remove) {
                actFor(frame.status.owner);
                if (unlinkat(frame.fd.get(), entry->d_name, 0) != 0 && errno != ENOENT)
                    return failure(entry->d_name, errno);
            }
        }
        if (m_pass == Pass::look && !empty) {
            actFor(frame.status.owner);
            if (const int error = foreseenRefusal(frame.fd.get(), frame.status);
                error != 0 && !(error == EACCES && ownerMayOpenUp(frame.status)))
                return failure({}, error);
        }
        return RemovalResult::success(true);
    }

    RemovalResult enter(const std::string& name)
    {
        const Frame& parent = m_stack.back();
        UniqueFd fd;
        FolderStatus status;
        if (const int error =
                openFolder(parent.fd.get(), parent.status.owner, name.c_str(), fd, status)) {
            if (error == ENOENT)
                return RemovalResult::success(true); // gone meanwhile
            if (error == EPERM && !allows(status.owner))
                return ownedByAnother(pathOf(name));
            return failure(name, error);
        }
        if (!status.sameMount(parent.status))
            return otherMount(pathOf(name));
        m_stack.push_back({name, std::move(fd), status, {}});
        if (m_stack.size() - m_firstOpen > keptOpen)
            m_stack[m_firstOpen++].fd.reset();
        return list();
    }

    RemovalResult leave()
    {
        const Frame child = std::move(m_stack.back());
        m_stack.pop_back();
        Frame& parent = m_stack.back();
        if (!parent.fd) {
            UniqueFd fd;
            FolderStatus status;
            if (const int error = openFolder(child.fd.get(), child.status.owner, "..", fd, status))
                return failure({}, error);
            if (!status.sameFolder(parent.status) || !status.sameMount(parent.status))
                return RemovalResult::failure(pathOf(child.name) + ": moved during the removal",
                                              ESTALE);
            parent.fd = std::move(fd);
            m_firstOpen = m_stack.size() - 1;
        }
        if (m_pass == Pass::remove) {
            actFor(parent.status.owner);
            if (unlinkat(parent.fd.get(), child.name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT)
                return failure(child.name, errno);
        }
        return RemovalResult::success(true);
    }

    Pass m_pass;
    const RemovalRules& m_rules;
    std::vector<Frame> m_stack;
    std::size_t m_firstOpen = 0; // the frames from here on hold their descriptors
};

std::string joined(const std::vector<std::string_view>& components, std::size_t count)
{
    std::string path;
    for (std::size_t i = 0; i < count; ++i) {
        if (i > 0)
            path += '/';
        path += components[i];
    }
    return path;
}

} // namespace

UniqueFd openEntry(int at, const char* name, int flags)
{
    return UniqueFd::adopt(openHere(at, name, flags));
}

Result<UniqueFd> openBeneath(int anchorFd, const std::filesystem::path& relative,
                             const FolderCheck& check)
{
    using FdResult = Result<UniqueFd>;
    const std::string& text = relative.native();
    if (text.empty())
        return FdResult::failure("empty path: no folder to open", EINVAL);
    if (text.front() == '/')
        return FdResult::failure(text + ": not a relative path", EINVAL);

    std::vector<std::string_view> components;
    for (std::size_t start = 0;;) {
        const std::size_t end = text.find('/', start);
        components.push_back(std::string_view(text).substr(start, end - start));
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    for (std::size_t i = 0; i < components.size(); ++i) {
        if (!isPlainName(components[i]))
            return FdResult::failure(text + ": component " + std::to_string(i + 1) + " (\"" +
                                         std::string(components[i]) +
                                         "\") is not a plain folder name",
                                     EINVAL);
    }

    // Each folder is opened relative to the one before, as a path only until the last: so a
    // folder on the way needs no more than search permission.
    UniqueFd current;
    for (std::size_t i = 0; i < components.size(); ++i) {
        const std::string name(components[i]);
        const std::string path = joined(components, i + 1);
        const int at = current ? current.get() : anchorFd;
        const int access = i + 1 == components.size() ? O_RDONLY : O_PATH;
        UniqueFd next = UniqueFd::adopt(openHere(at, name.c_str(), access | O_DIRECTORY));
        if (!next) {
            const int error = errno;
            struct stat info {
            };
            if ((error == ENOTDIR || error == ELOOP) && statHere(at, name.c_str(), info) == 0 &&
                S_ISLNK(info.st_mode))
                return FdResult::failure(path + ": a symbolic link", ELOOP);
            if (error == EXDEV)
                return FdResult::failure(path + ": another filesystem is mounted here", EXDEV);
            return FdResult::failure(describeErrno(path, error), error);
        }
        struct stat info {
        };
        if (fstat(next.get(), &info) != 0)
            return lastError<UniqueFd>(path);
        if (check && !check(info, components[i], i))
            return FdResult::failure(path + ": refused (owner or mode not as required)", EPERM);
        current = std::move(next);
    }
    return FdResult::success(std::move(current));
}

Result<bool> removeEntry(int parentFd, std::string_view name, const RemovalRules& rules)
{
    const std::string entry(name);
    if (!isPlainName(name))
        return RemovalResult::failure("\"" + entry + "\": not the name of one entry", EINVAL);

    FolderStatus parent;
    if (const int error = readStatus(parentFd, parent))
        return RemovalResult::failure(describeErrno("folder holding " + entry, error), error);
    const auto actFor = [&rules](uid_t owner) {
        if (rules.actFor)
            rules.actFor(owner);
    };
    struct stat info {
    };
    actFor(parent.owner);
    if (const int error = statHere(parentFd, entry.c_str(), info)) {
        if (error == ENOENT)
            return RemovalResult::success(false);
        if (error == EXDEV)
            return otherMount(entry);
        return RemovalResult::failure(describeErrno(entry, error), error);
    }
    if (rules.allowsOwner && !rules.allowsOwner(info.st_uid))
        return ownedByAnother(entry);
    int refusal = foreseenRefusal(parentFd, parent);
    if (refusal == 0 && stickyRefuses(parent, info.st_uid))
        refusal = EPERM;
    if (refusal != 0)
        return RemovalResult::failure(describeErrno(entry, refusal), refusal);

    if (!S_ISDIR(info.st_mode)) {
        // Should it have become a folder meanwhile, unlinkat refuses it (EISDIR).
        if (unlinkat(parentFd, entry.c_str(), 0) != 0)
            return errno == ENOENT ? RemovalResult::success(false) : lastError<bool>(entry);
        return RemovalResult::success(true);
    }

    UniqueFd top;
    FolderStatus status;
    if (const int error = TreeWalk(Pass::look, rules)
                              .openFolder(parentFd, parent.owner, entry.c_str(), top, status)) {
        if (error == ENOENT)
            return RemovalResult::success(false);
        if (error == EXDEV)
            return otherMount(entry);
        if (error == EPERM && rules.allowsOwner && !rules.allowsOwner(status.owner))
            return ownedByAnother(entry);
        return RemovalResult::failure(describeErrno(entry, error), error);
    }
    if (!status.sameMount(parent))
        return otherMount(entry);

    // First look at the whole tree, then remove: a request that can be seen to fail removes
    // nothing. Both passes work on this very folder.
    for (const Pass pass : {Pass::look, Pass::remove}) {
        const int fd = fcntl(top.get(), F_DUPFD_CLOEXEC, 0);
        if (fd < 0)
            return lastError<bool>(entry);
        if (auto walked = TreeWalk(pass, rules).run(entry, UniqueFd::adopt(fd), status); !walked)
            return walked;
    }
    actFor(parent.owner);
    if (unlinkat(parentFd, entry.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT)
        return lastError<bool>(entry);
    return RemovalResult::success(true);
}

} // namespace quillane
