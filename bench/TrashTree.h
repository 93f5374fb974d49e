#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace quillane::bench
{

// What the generator put into a trash's files/ folder.
struct TrashTree {
    std::filesystem::path files;
    std::uint64_t regularFiles = 0;
    std::uint64_t folders = 0; // below files/
    std::uint64_t links = 0;
    std::uint64_t oddNames = 0;
    // The space the folders (files/ included) and the links take themselves. du counts it;
    // allocatedSizeOfDirectory() counts regular files only.
    std::uint64_t ownBytesOfFoldersAndLinks = 0;
};

struct TrashTreeOptions {
    std::filesystem::path root;    // the trash folder to make; the tree goes into root/files
    std::filesystem::path bigFile; // outside the tree; some links point at it or at its folder
    std::uint64_t fileCount = 0;
    std::uint64_t layout = 1;
    std::function<bool()> interrupted; // asked before each new entry
};

// Thrown by makeTrashTree() when options.interrupted() says so.
struct Interrupted {
};

// Lays out a trash's files/ folder the way people fill one: single trashed files beside trashed
// folders of any depth, small files of varied sizes, links that dangle or point outside the tree,
// and names that are not text. The same layout number gives the same tree. Throws
// std::runtime_error when the file system refuses something.
TrashTree makeTrashTree(const TrashTreeOptions& options);

// A file of `bytes` really allocated bytes, so that a walk that followed a link to it would show
// in its total.
void makeBigFile(const std::filesystem::path& path, std::uint64_t bytes);

// The path with bytes that are not printable ASCII written as \xNN, for messages.
std::string printablePath(const std::filesystem::path& path);

} // namespace quillane::bench
