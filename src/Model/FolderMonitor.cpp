#include "FolderMonitor.h"

#include "Platform/FileSystem.h"
#include "Platform/FolderWatcher.h"
#include "Platform/Scheduler.h"
#include "Platform/TrashLocator.h"
#include "VolumeObserver.h"

#include <algorithm>

namespace quillane
{

FolderMonitor::FolderMonitor(std::optional<std::filesystem::path> url, const Platform& platform)
    : m_url(std::move(url)), m_platform(platform)
{
}

FolderMonitor::~FolderMonitor() = default;

bool FolderMonitor::isWatchable(const std::filesystem::path& folder) const
{
    // A trash folder: a volume's .Trash-$uid/files or .Trash/$uid/files, or the home trash.
    if (pathContains(folder, ".Trash") || folder == m_platform.trash.homeTrashFolder())
        return true;
    const auto mounted = VolumeObserver::mountedVolumes(m_platform.mounts);
    return std::ranges::find(mounted, folder) != mounted.end();
}

void FolderMonitor::startMonitoring()
{
    if (m_watch || m_starting || !m_url || !isWatchable(*m_url))
        return;
    // The watch is added on the work queue: on a network or FUSE mount that no longer answers,
    // the kernel call would hang the main thread. It is taken on the main thread, unless the
    // monitor was stopped or has gone meanwhile.
    m_starting = true;
    const std::weak_ptr<bool> alive = m_alive;
    m_platform.workQueue.async([this, alive, folder = *m_url, &watcher = m_platform.folderWatcher,
                                &mainQueue = m_platform.mainQueue] {
        // The callback is looked up at each event, so the owner may replace it at any time.
        std::shared_ptr<FolderWatch> watch = watcher.watch(folder, [this, alive] {
            if (alive.lock() && folderDidChange)
                folderDidChange();
        });
        mainQueue.post([this, alive, watch = std::move(watch)] {
            if (!alive.lock() || !std::exchange(m_starting, false))
                return;
            m_watch = watch;
        });
    });
}

void FolderMonitor::stopMonitoring()
{
    m_starting = false;
    m_watch.reset();
}

} // namespace quillane
