#pragma once

#include "Result.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quillane
{

// Plain file-system reads. Paths are bytes; names come back as the bytes the kernel gave.

// The names of the entries directly inside a folder, hidden ones included ("." and ".."
// left out), in the order the file system gives them.
Result<std::vector<std::string>> listDirectory(const std::filesystem::path& folder);

// Opens a folder and reads its first entry: whether it may be read, without listing it all.
// Fails with the errno of the open or the read.
Result<bool> readFirstEntry(const std::filesystem::path& folder);

// Whether anything (a link included, dangling or not) exists at the path.
bool fileExists(const std::filesystem::path& path);

// Whether the path is the top directory of a mounted filesystem.
bool isMountPoint(const std::filesystem::path& path);

// The space allocated on disk for the regular files below a folder, at any depth. Symbolic
// links are counted as nothing and never followed; other mounted filesystems are not entered.
// A path that isUnsizedTrashPath (TrashItems.h) leaves out adds nothing. The first folder that
// cannot be read fails the whole walk with its error: a partial total would be a wrong answer.
Result<std::uint64_t> allocatedSizeOfDirectory(const std::filesystem::path& folder);

// allocatedSizeOfDirectory for a trash folder, walking only the items that are new or changed
// since the last call for that folder. Each trashed folder's size is kept in memory by its
// device, inode and change time, which moves whenever an entry is added to it or removed from
// it; what changes deeper inside a trashed folder goes unseen until then, as nothing but the
// trash's own emptying changes trashed items.
Result<std::uint64_t> allocatedSizeOfTrash(const std::filesystem::path& trashFolder);

// The space allocated for one entry as the walks count it: a regular file's blocks, a folder's
// walk, nothing for a link or anything else. The entry itself is never followed.
Result<std::uint64_t> allocatedSizeOfEntry(const std::filesystem::path& entry);

// The last component of a path as a URL names it: "/" for the root folder.
std::string lastPathComponent(const std::filesystem::path& path);

// The path with no trailing slash ("/" stays "/"): how the model spells folder locations, so
// that a mount path and the same folder written as a directory compare equal.
std::filesystem::path withoutTrailingSlash(const std::filesystem::path& path);

// A name or path as a message may show it: every control byte as \xNN and a newline as \n, so
// that a file name can neither split a line nor send a terminal its escape sequences. Other
// bytes stay as they are, so text that is printable already stays the same.
std::string printable(std::string_view bytes);

// Whether a path (as bytes) contains the given text.
bool pathContains(const std::filesystem::path& path, std::string_view text);

} // namespace quillane
