#pragma once

#include "Result.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string_view>
#include <sys/stat.h>
#include <sys/types.h>

namespace quillane
{

// An open file descriptor, closed when it goes.
class UniqueFd
{
public:
    UniqueFd() = default;
    // Takes ownership of fd (a negative fd makes an empty UniqueFd).
    static UniqueFd adopt(int fd) { return UniqueFd(fd); }
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    // Gives up ownership: the caller closes what comes back.
    int release() noexcept
    {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }
    void reset(int fd = -1) noexcept;

private:
    explicit UniqueFd(int fd) : m_fd(fd < 0 ? -1 : fd) {}

    int m_fd = -1;
};

// Opens the entry `name` of the open folder `at` (flags as for openat) without following a
// symbolic link or crossing into another mount: a link fails with ELOOP, unless the flags hold
// O_PATH, which opens the link itself; a name with another filesystem mounted on it fails with
// EXDEV before the mounted filesystem is reached.
UniqueFd openEntry(int at, const char* name, int flags);

// Asked about each folder that openBeneath opens, with the folder's own status (from its open
// descriptor, so it is the folder that will be used), its name and its index in the path (0 for
// the first component below the anchor). Returning false refuses the folder.
using FolderCheck =
    std::function<bool(const struct stat& folder, std::string_view component, std::size_t depth)>;

// Opens the folder at `relative` below the open folder `anchorFd`, one component at a time,
// each relative to the folder opened before it and without following symbolic links: a link
// anywhere on the way fails (ELOOP), as does a component that is not a folder (ENOTDIR), and so
// does a component with another filesystem mounted on it (EXDEV), before anything of that
// filesystem is opened or asked about. The path
// must be relative, non-empty and plain: no "." or ".." and no empty component (so no doubled or
// trailing slash), else it fails with EINVAL before opening anything. A folder the check refuses
// fails with EPERM. Every error names the path up to the component at fault.
//
// The folders on the way are opened as bare paths (O_PATH), so they need only be searchable; the
// last one is opened for reading, so the descriptor returned can list the folder and serve as the
// base of openat, unlinkat and removeEntry. Whatever happens to the path afterwards, even during
// the walk, the descriptor stays on the folder that was checked.
Result<UniqueFd> openBeneath(int anchorFd, const std::filesystem::path& relative,
                             const FolderCheck& check = {});

// What a removal done for someone else may remove, and as whom. Both are optional.
struct RemovalRules {
    // Asked in the first pass about the owner of every entry of the tree, the entry itself
    // included; a false answer refuses the whole request (EPERM) before anything goes. The
    // second pass asks again about each folder it enters.
    std::function<bool(uid_t owner)> allowsOwner;
    // Called before each system call that works inside a folder (looking an entry up, listing,
    // removing an entry) with the owner of that folder, and before a folder is opened for
    // reading with the owner of the folder opened, so that the caller can take the file-system
    // identity that call should have.
    std::function<void(uid_t owner)> actFor;
};

// Removes the entry `name` directly inside the open folder `parentFd`, with everything below it.
// Returns true once it is gone, false when there was no such entry to begin with.
//
// - `name` is one component: empty, ".", ".." and names holding "/" or a NUL byte fail with
//   EINVAL, touching nothing.
// - Symbolic links are removed themselves, never followed: not the entry, not anything below it.
// - Nothing on another mount is touched, or even asked about: if the entry, or any entry below
//   it, has another filesystem (or a bind mount of the same one) mounted on it, the request
//   fails with EXDEV naming it; entries are looked up with openat2(RESOLVE_NO_XDEV), so the
//   mounted filesystem is never reached.
// - Everything works relative to open descriptors, whatever the depth of the tree and the bytes
//   of its names, with at most 32 descriptors of its own open at a time: only the deepest folders
//   of the walk stay open, and a folder closed on the way down is opened again from its child
//   through "..", which must lead to the very folder (device and inode) left before (else ESTALE).
// - Permissions are never changed: what the kernel refuses is reported with its errno (EACCES,
//   EPERM, EROFS ...), so that a caller without the rights can hand the entry on.
//
// Removal runs in two passes. The first only looks: it opens every folder of the tree and fails
// on any folder it cannot read, on another mount, or on a refusal it can foresee (a folder not
// writable and searchable by the caller, an immutable or append-only folder, a sticky folder
// holding someone else's entries). Such a request removes nothing at all. The second pass
// removes, depth first: in each folder, the entries that are not folders as they are read, then
// each sub-folder in turn, then the folder itself. It checks every folder it enters again, and
// stops at the first error it meets (a change made meanwhile, an immutable file, a file with
// something mounted on it, a refusal no first pass could foresee): what came before that entry is
// gone, while the entry, the folders holding it, and whatever was not reached yet, remain. As the
// entries of a folder that are not folders go before any of its sub-folders is entered, the
// folders above the one holding the failing entry have lost every entry that is not a folder.
//
// Entries that vanish meanwhile count as removed; a folder that gains entries meanwhile fails
// with ENOTEMPTY. The call blocks; run it off the main thread.
Result<bool> removeEntry(int parentFd, std::string_view name, const RemovalRules& rules = {});

} // namespace quillane
