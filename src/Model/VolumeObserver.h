#pragma once

#include "Platform/Platform.h"
#include "Volume.h"

#include <QObject>
#include <filesystem>
#include <memory>
#include <vector>

namespace quillane
{

class FolderMonitor;
class FolderWatch;
class MountTable;
class TrashLocator;

// The model of the panel: every trash location in display order (mounted volumes in mount
// order, then iCloud Drive, then cloud-storage providers), rebuilt at start-up, on every mount
// and unmount, on every change of a watched folder and after an emptying.
//
// A rebuild clears the published list at once, scans on the work queue, and publishes the new
// list 0.5 s after the scan, on the main thread; then it rebuilds the folder monitors. Every
// published field is assigned on the main thread only.
class VolumeObserver : public QObject
{
    Q_OBJECT
    Q_PROPERTY(std::vector<quillane::Volume> volumes READ volumes NOTIFY volumesChanged)
    Q_PROPERTY(bool fdaGranted READ fdaGranted NOTIFY fdaGrantedChanged)

public:
    explicit VolumeObserver(const Platform& platform, QObject* parent = nullptr);
    ~VolumeObserver() override;

    const std::vector<Volume>& volumes() const { return m_volumes; }
    bool fdaGranted() const { return m_fdaGranted; }
    const std::vector<std::shared_ptr<FolderMonitor>>& monitorEvents() const
    {
        return m_monitorEvents;
    }
    const Platform& platform() const { return m_platform; }

    // Called on the main thread.
    void updateVolumes();
    void updateMonitors();
    void handleVolume(const Volume& volume, const std::shared_ptr<FolderMonitor>& monitor);
    void didMount(const std::filesystem::path& path);
    void didUnmount(const std::filesystem::path& path);

    // The mount table less what never holds a user's trash (system parts, read-only and
    // network volumes, scratch space), in mount order.
    static std::vector<std::filesystem::path> mountedVolumes(const MountTable& mounts);
    // The records of the cloud-storage providers below home/Library/CloudStorage, each
    // with a trash folder none of the known records has. Runs on any thread.
    static std::vector<Volume> gatherCloudTrash(std::vector<Volume> known, bool showDropbox,
                                                const std::filesystem::path& home,
                                                const TrashLocator& trash);
    static std::filesystem::path iCloudDriveFolder(const std::filesystem::path& home);
    static std::filesystem::path cloudStorageFolder(const std::filesystem::path& home);

Q_SIGNALS:
    void volumesChanged();
    void fdaGrantedChanged();
    // A rebuilt list was published and the monitors were rebuilt for it.
    void listPublished();

private:
    void checkFDA();
    void setVolumes(std::vector<Volume> volumes);
    void watchForHomeTrash();

    Platform m_platform;
    std::vector<Volume> m_volumes;
    bool m_fdaGranted = false;
    std::vector<std::filesystem::path> m_unmounted;
    std::vector<std::shared_ptr<FolderMonitor>> m_monitorEvents;
    std::unique_ptr<FolderWatch> m_homeTrashWatch;
};

} // namespace quillane
