#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace quillane::bench
{

// What the generator put into a trash's files/ folder.
struct TrashTree {
    std::filesystem::path files;
    std::uint64_t regularFiles = 0;
    std::uint64_t folders = 0; // below files/
    std::uint64_t links = 0;
    std::uint64_t oddNames = 0;
    // With TrashTreeOptions::trashInfo: the items at the top of files/, and the records written
    // into info/ for them (one each, but for names too long to take the record's suffix).
    std::uint64_t topItems = 0;
    std::uint64_t trashInfos = 0;
    // The space the folders (files/ included) and the links take themselves. du counts it;
    // allocatedSizeOfDirectory() counts regular files only.
    std::uint64_t ownBytesOfFoldersAndLinks = 0;
};

struct TrashTreeOptions {
    std::filesystem::path root;    // the trash folder to make; the tree goes into root/files
    std::filesystem::path bigFile; // outside the tree; some links point at it or at its folder
    std::uint64_t fileCount = 0;
    std::uint64_t layout = 1;
    // Whether info/ gets a .trashinfo record for each item at the top of files/, as a trash
    // that a file manager filled has; otherwise it stays empty.
    bool trashInfo = false;
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

// A .trashinfo record of an item trashed from `originalPath` at `deletionDate`
// ("2024-05-01T12:00:00"), its path percent-encoded as the format says.
std::string trashInfoText(const std::filesystem::path& originalPath, std::string_view deletionDate);

// The path with bytes that are not printable ASCII written as \xNN, for messages.
std::string printablePath(const std::filesystem::path& path);

// The kind of file system holding `path`, such as "ext4", for the reports.
std::string fileSystemName(const std::filesystem::path& path);

// A folder of our own, made fresh inside `parent` and removed with everything in it at the end.
// Throws std::runtime_error when it cannot be made.
class ScratchFolder
{
public:
    explicit ScratchFolder(const std::filesystem::path& parent);
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder();

    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

} // namespace quillane::bench
