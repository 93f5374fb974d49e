#pragma once

#include "Platform/Platform.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace quillane
{

class FolderWatch;

// Watches one folder for entries added, removed or moved directly inside it, and calls
// folderDidChange on the main thread. Only trash folders and mounted volumes' top folders are
// watched; a monitor for anything else stays idle, and so does one whose folder cannot be
// watched.
class FolderMonitor
{
public:
    FolderMonitor(std::optional<std::filesystem::path> url, const Platform& platform);
    ~FolderMonitor();
    FolderMonitor(const FolderMonitor&) = delete;
    FolderMonitor& operator=(const FolderMonitor&) = delete;

    void startMonitoring();
    void stopMonitoring();
    // Once its watch has been added, which happens off the main thread.
    bool isMonitoring() const { return m_watch != nullptr; }

    const std::optional<std::filesystem::path>& url() const { return m_url; }
    std::function<void()> folderDidChange;

    // Monitors are equal when they watch the same folder.
    friend bool operator==(const FolderMonitor& a, const FolderMonitor& b)
    {
        return a.m_url == b.m_url;
    }

private:
    bool isWatchable(const std::filesystem::path& folder) const;

    std::optional<std::filesystem::path> m_url;
    Platform m_platform;
    std::shared_ptr<FolderWatch> m_watch;
    bool m_starting = false; // its watch is being added on the work queue
    // Tells the work queue and the watch whether the monitor still exists.
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};

} // namespace quillane
