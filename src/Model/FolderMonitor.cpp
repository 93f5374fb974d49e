#include "FolderMonitor.h"

#include "Platform/FileSystem.h"
#include "Platform/FolderWatcher.h"
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
    if (m_watch || !m_url || !isWatchable(*m_url))
        return;
    // The callback is looked up at each event, so the owner may replace it at any time.
    m_watch = m_platform.folderWatcher.watch(*m_url, [this] {
        if (folderDidChange)
            folderDidChange();
    });
}

void FolderMonitor::stopMonitoring()
{
    m_watch.reset();
}

} // namespace quillane
