#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace quillane
{

// A live watch on one folder; watching stops when it is destroyed.
class FolderWatch
{
public:
    virtual ~FolderWatch() = default;
};

// Reports additions, removals and moves of the entries directly inside a folder (not deeper),
// on the main thread. Watches may be asked for and dropped on any thread. A watch never keeps a
// volume from being unmounted. When the folder itself goes (deleted, moved away, its volume
// unmounted), that is reported as its last change.
class FolderWatcher
{
public:
    virtual ~FolderWatcher() = default;

    // Nothing when the folder cannot be watched; the caller then stays idle.
    virtual std::unique_ptr<FolderWatch> watch(const std::filesystem::path& folder,
                                               std::function<void()> onChange) = 0;
    // The same, for the entry of that one name only: changes of other entries are not reported.
    virtual std::unique_ptr<FolderWatch> watchEntry(const std::filesystem::path& folder,
                                                    const std::string& name,
                                                    std::function<void()> onChange) = 0;
};

} // namespace quillane
