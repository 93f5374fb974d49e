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

// The one entry of a trash folder that is neither counted nor emptied: the folder-view file
// ".DS_Store", by that exact name. Counting and emptying both ask here, so a trash whose count
// says it holds items can always be emptied of them.
inline bool isSkippedTrashEntry(std::string_view name)
{
    return name == ".DS_Store";
}

// Whether anything (a link included, dangling or not) exists at the path.
bool fileExists(const std::filesystem::path& path);

// Whether the path is the top directory of a mounted filesystem.
bool isMountPoint(const std::filesystem::path& path);

// The space allocated on disk for the regular files below a folder, at any depth. Symbolic
// links are counted as nothing and never followed; other mounted filesystems are not entered.
// Any entry whose path contains ".DS_Store" adds nothing. The first folder that cannot be read
// fails the whole walk with its error: a partial total would be a wrong answer.
Result<std::uint64_t> allocatedSizeOfDirectory(const std::filesystem::path& folder);

// The last component of a path as a URL names it: "/" for the root folder.
std::string lastPathComponent(const std::filesystem::path& path);

// The path with no trailing slash ("/" stays "/"): how the model spells folder locations, so
// that a mount path and the same folder written as a directory compare equal.
std::filesystem::path withoutTrailingSlash(const std::filesystem::path& path);

// Whether a path (as bytes) contains the given text.
bool pathContains(const std::filesystem::path& path, std::string_view text);

} // namespace quillane
