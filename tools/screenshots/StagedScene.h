#pragma once

#include "Model/VolumeObserver.h"
#include "Platform/MountWatcher.h"
#include "Platform/TrashLocator.h"
#include "Platform/UserDefaults.h"
#include "Platform/VirtualScheduler.h"
#include "Platform/VolumeNames.h"
#include "Platform/linux/InotifyFolderWatcher.h"
#include "Platform/linux/ProcMountTable.h"
#include "Platform/widgets/DesktopWorkspace.h"
#include "Platform/widgets/WidgetAlerts.h"
#include "Platform/widgets/WidgetApplication.h"
#include "Views/ViewServices.h"

#include <QTemporaryDir>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace quillane
{

class HelperLink;
class Updater;

// One trash location of a scene: its name, and how many items of what size its trash holds.
struct StagedLocation {
    std::string name;
    int items;
    std::size_t bytesPerItem;
};

// The three locations of the usual pictures, the computer's own disk first.
std::vector<StagedLocation> threeLocations();
// Twelve locations, more than the panel shows without scrolling.
std::vector<StagedLocation> twelveLocations();

// Each staged location is a folder with its own trash, standing for a volume mounted under
// /media; the first one stands for the computer's own disk and holds the home folder.
class StagedTrash final : public TrashLocator
{
public:
    StagedTrash(std::filesystem::path homeTrash, std::filesystem::path volumes);

    Result<std::filesystem::path> trashFolder(const std::filesystem::path& location) const override;
    std::filesystem::path homeTrashFolder() const override { return m_homeTrash; }

private:
    std::filesystem::path m_homeTrash;
    std::filesystem::path m_volumes; // the folders standing for the volumes, by name
};

// The names of the staged volumes, by mount point.
class StagedNames final : public VolumeNames
{
public:
    std::optional<std::string> volumeName(const std::filesystem::path& path) const override;
    bool holdsHome(const std::filesystem::path& path) const override { return path == "/"; }

    std::map<std::filesystem::path, std::string> names;
};

// Items as desktops trash them into `files`, each with its record as if trashed from below
// `home`: names that are not UTF-8 or hold a line break among them, and one item whose record
// is lost.
void fillTrashWithRecords(const std::filesystem::path& files, const std::filesystem::path& home);

// A whole application's worth of models over staged locations in a folder of its own below
// `folder`, on a virtual clock so that an emptying can be stopped halfway for its picture.
class StagedScene
{
public:
    StagedScene(const QString& folder, const std::vector<StagedLocation>& locations);
    ~StagedScene();
    Q_DISABLE_COPY(StagedScene)

    bool isValid() const { return m_root.isValid() && m_observer; }
    const std::vector<Volume>& volumes() const { return m_observer->volumes(); }
    std::filesystem::path homeTrashFolder() const { return m_trash.homeTrashFolder(); }
    ViewServices services();

    // Runs what the views queued until `done` holds, or for ten seconds at most.
    void runUntil(const std::function<bool()>& done);
    // Starts emptying the named location and stops when about that share of it is done.
    void emptyPartly(const std::string& name, double share);

private:
    QTemporaryDir m_root;
    std::filesystem::path m_home;
    VirtualScheduler m_scheduler;
    InlineWorkQueue m_work;
    StagedTrash m_trash;
    ProcMountTable m_mounts;
    MountWatcher m_mountWatcher;
    InotifyFolderWatcher m_folders;
    SettingsUserDefaults m_defaults;
    StagedNames m_names;
    WidgetAlerts m_alerts;
    DesktopWorkspace m_workspace;
    WidgetApplication m_application;
    std::unique_ptr<VolumeObserver> m_observer;
    std::unique_ptr<HelperLink> m_helper;
    std::unique_ptr<Updater> m_updater;
};

} // namespace quillane
