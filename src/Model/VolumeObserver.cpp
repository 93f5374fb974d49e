#include "VolumeObserver.h"

#include "FolderMonitor.h"
#include "Platform/Console.h"
#include "Platform/Constant.h"
#include "Platform/FileSystem.h"
#include "Platform/FolderWatcher.h"
#include "Platform/MountTable.h"
#include "Platform/MountWatcher.h"
#include "Platform/NotificationCenter.h"
#include "Platform/Scheduler.h"
#include "Platform/SoundPlayer.h"
#include "Platform/TrashLocator.h"
#include "Platform/UserDefaults.h"
#include "TrashEmptier.h"

#include <QPointer>
#include <algorithm>
#include <array>
#include <cerrno>

namespace quillane
{

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace
{

constexpr auto publicationDelay = 500ms;
// From the last item accounted for to the sound and the refresh.
constexpr auto completionDelay = 500ms;

// Mount points that are parts of a system rather than places for files.
constexpr std::string_view systemVolumeNames[] = {"VM",         "Preboot",  "Update", "xarts",
                                                  "iSCPreboot", "Hardware", "mnt1"};

bool isDropped(const MountEntry& mount)
{
    const fs::path& path = mount.mountPoint;
    return std::ranges::find(systemVolumeNames, lastPathComponent(path)) !=
               std::end(systemVolumeNames) ||
           pathContains(path, "CoreSimulator") || pathContains(path, "/tmp") ||
           path.native().ends_with("Data/home") || mount.readOnly || !mount.local ||
           pathContains(path, "/.timemachine");
}

// The part of a rebuild that reads the file system; runs on the work queue.
std::vector<Volume> scanVolumes(const Platform& platform, const std::vector<fs::path>& unmounted,
                                bool showDropbox)
{
    std::vector<Volume> volumes;
    for (const fs::path& mountPoint : VolumeObserver::mountedVolumes(platform.mounts)) {
        if (std::ranges::find(unmounted, mountPoint) != unmounted.end())
            continue;
        std::optional<fs::path> trashURL;
        if (auto found = platform.trash.trashFolder(mountPoint))
            trashURL = *found;
        else
            Console::writeLine("Error Getting Trash URL: ", found.error());
        volumes.emplace_back(mountPoint, trashURL);
    }

    const fs::path iCloud = VolumeObserver::iCloudDriveFolder(platform.home);
    if (auto found = platform.trash.trashFolder(iCloud))
        volumes.emplace_back(iCloud, *found);
    else
        Console::writeLine("iCloud Drive trash not found: ", found.error());

    auto providers =
        VolumeObserver::gatherCloudTrash(volumes, showDropbox, platform.home, platform.trash);
    volumes.insert(volumes.end(), std::make_move_iterator(providers.begin()),
                   std::make_move_iterator(providers.end()));
    return volumes;
}

} // namespace

VolumeObserver::VolumeObserver(const Platform& platform, EmptyingServices emptying, QObject* parent)
    : QObject(parent), m_platform(platform), m_emptying(std::move(emptying)),
      m_emptier(std::make_unique<TrashEmptier>(platform.mainQueue, platform.workQueue))
{
    Console::writeLine("Hello from VolumeObserver");
    checkFDA();
    m_platform.defaults.registerDefault(Constant::showDropboxKey, false);
    updateVolumes();
    connect(&m_platform.mountWatcher, &MountWatcher::mounted, this, &VolumeObserver::didMount);
    connect(&m_platform.mountWatcher, &MountWatcher::unmounted, this, &VolumeObserver::didUnmount);
    QPointer<VolumeObserver> self(this);
    m_deletionObserver = NotificationCenter::defaultCenter().addObserver(
        Constant::xpcDeleteName, [self](const Notification& notification) {
            if (self)
                self->xpcDidDelete(notification);
        });
}

VolumeObserver::~VolumeObserver()
{
    NotificationCenter::defaultCenter().removeObserver(m_deletionObserver);
    for (const auto& monitor : m_monitorEvents)
        monitor->stopMonitoring();
}

fs::path VolumeObserver::iCloudDriveFolder(const fs::path& home)
{
    return withoutTrailingSlash(home.native() + "/Library/Mobile Documents/com~apple~CloudDocs/");
}

fs::path VolumeObserver::cloudStorageFolder(const fs::path& home)
{
    return withoutTrailingSlash(home.native() + "/Library/CloudStorage/");
}

void VolumeObserver::checkFDA()
{
    // Listing the user's own trash is the probe. A trash that does not exist yet belongs to a
    // user who never trashed anything; only a refusal means we may not read it.
    const auto listing = listDirectory(m_platform.trash.homeTrashFolder());
    if (!listing && (listing.errorCode() == EACCES || listing.errorCode() == EPERM)) {
        Console::writeLine("fdaGranted Error:", listing.error());
        return;
    }
    m_fdaGranted = true;
    Q_EMIT fdaGrantedChanged();
}

void VolumeObserver::setVolumes(std::vector<Volume> volumes)
{
    m_volumes = std::move(volumes);
    Q_EMIT volumesChanged();
}

void VolumeObserver::updateVolumes()
{
    QPointer<VolumeObserver> self(this);
    m_platform.mainQueue.post([self] {
        if (self)
            self->setVolumes({});
    });

    // What the scan needs from the main thread is read here and handed over as copies.
    m_platform.defaults.synchronize();
    const bool showDropbox = m_platform.defaults.boolValue(Constant::showDropboxKey);
    m_platform.workQueue.async([self, platform = m_platform, unmounted = m_unmounted, showDropbox] {
        auto volumes = scanVolumes(platform, unmounted, showDropbox);
        platform.mainQueue.postAfter(publicationDelay,
                                     [self, volumes = std::move(volumes)]() mutable {
                                         if (!self)
                                             return;
                                         self->setVolumes(std::move(volumes));
                                         self->updateMonitors();
                                         Q_EMIT self->listPublished();
                                     });
    });
}

std::vector<fs::path> VolumeObserver::mountedVolumes(const MountTable& mounts)
{
    std::vector<fs::path> kept;
    for (const MountEntry& mount : mounts.mounts().value_or(std::vector<MountEntry>{})) {
        if (!isDropped(mount))
            kept.push_back(mount.mountPoint);
    }
    return kept;
}

std::vector<Volume> VolumeObserver::gatherCloudTrash(std::vector<Volume> known, bool showDropbox,
                                                     const fs::path& home,
                                                     const TrashLocator& trash)
{
    std::vector<Volume> found;
    const fs::path storage = cloudStorageFolder(home);
    const auto providers = listDirectory(storage);
    if (!providers)
        return found;

    for (const std::string& provider : *providers) {
        if (provider.find(".DS_Store") != std::string::npos)
            continue;
        const fs::path providerFolder = storage / provider;
        const auto entries = listDirectory(providerFolder);
        if (!entries)
            continue;
        for (const std::string& entry : *entries) {
            if (entry.starts_with('.'))
                continue;
            const auto trashFolder = trash.trashFolder(providerFolder / entry);
            if (!trashFolder) {
                Console::writeLine("Cloud Storage trash not found: ", trashFolder.error());
                continue;
            }
            if (pathContains(*trashFolder, "/Dropbox") && !showDropbox)
                break;
            const bool alreadyKnown = std::ranges::any_of(
                known, [&](const Volume& volume) { return volume.trashURL() == *trashFolder; });
            if (alreadyKnown)
                continue;
            Volume record(providerFolder, fileExists(*trashFolder)
                                              ? std::optional<fs::path>(*trashFolder)
                                              : std::nullopt);
            known.push_back(record);
            found.push_back(std::move(record));
            break;
        }
    }
    return found;
}

void VolumeObserver::updateMonitors()
{
    if (!m_fdaGranted)
        return;
    for (const auto& monitor : m_monitorEvents)
        monitor->stopMonitoring();
    m_monitorEvents.clear();

    QPointer<VolumeObserver> self(this);
    for (const Volume& volume : m_volumes) {
        if (volume.volPath() && pathContains(*volume.volPath(), "snapshot"))
            continue;
        if (volume.trashURL()) {
            auto monitor = std::make_shared<FolderMonitor>(volume.trashURL(), m_platform);
            monitor->startMonitoring();
            monitor->folderDidChange = [self] {
                if (self)
                    self->rebuildForChange();
            };
            m_monitorEvents.push_back(std::move(monitor));
        } else if (volume.volPath()) {
            auto monitor = std::make_shared<FolderMonitor>(volume.volPath(), m_platform);
            monitor->startMonitoring();
            monitor->folderDidChange = [self, volume, weak = std::weak_ptr(monitor)] {
                if (self)
                    self->handleVolume(volume, weak.lock());
            };
            m_monitorEvents.push_back(std::move(monitor));
        }
    }
    watchForHomeTrash();
}

void VolumeObserver::watchForHomeTrash()
{
    // A user who never trashed anything has no home trash yet, and the first trashing makes
    // it several folders below any watched one. Until it exists, the deepest folder of its
    // path that does exist is watched, one level at a time.
    m_homeTrashWatch.reset();
    fs::path folder = m_platform.trash.homeTrashFolder();
    if (fileExists(folder))
        return;
    while (folder.has_relative_path() && !fileExists(folder))
        folder = folder.parent_path();
    QPointer<VolumeObserver> self(this);
    m_homeTrashWatch = m_platform.folderWatcher.watch(folder, [self] {
        if (self)
            self->updateVolumes();
    });
}

void VolumeObserver::handleVolume(const Volume&, const std::shared_ptr<FolderMonitor>&)
{
    Console::writeLine("Volume Changes being handled...");
    QPointer<VolumeObserver> self(this);
    m_platform.mainQueue.post([self] {
        if (self)
            self->rebuildForChange();
    });
}

void VolumeObserver::rebuildForChange()
{
    // An emptying changes its trash folder with every item it removes; rebuilding the list
    // for each would take the rows, and the progress bar with them, off the panel. While it
    // removes, changes wait; it rebuilds once when its removals are over.
    if (m_removing) {
        m_changedWhileEmptying = true;
        return;
    }
    updateVolumes();
}

void VolumeObserver::didUnmount(const fs::path& path)
{
    Console::writeLine("Hello from unmounted");
    if (path.empty())
        return;
    Console::writeLine("Unmounted: ", path.native());
    m_unmounted.push_back(withoutTrailingSlash(path));
    updateVolumes();
}

void VolumeObserver::didMount(const fs::path& path)
{
    if (path.empty())
        return;
    Console::writeLine("Mounted: ", path.native());
    std::erase(m_unmounted, withoutTrailingSlash(path));
    updateVolumes();
}

} // namespace quillane

namespace quillane
{

void VolumeObserver::setProgress(double progress)
{
    m_progress = std::clamp(progress, 0.0, 1.0);
    Q_EMIT progressChanged();
}

void VolumeObserver::setActiveVolume(std::optional<Volume> volume)
{
    m_activeVolume = std::move(volume);
    Q_EMIT activeVolumeChanged();
}

void VolumeObserver::emptySelectedTrash(const Volume& volume)
{
    if (!volume.trashURL())
        return;
    QPointer<VolumeObserver> self(this);
    m_removing = true;
    TrashEmptier::Reports reports;
    reports.listingFailed = [self](const std::string&) {
        Console::writeLine("there was a problem");
        if (self)
            self->m_removing = false;
    };
    reports.started = [self, volume](long long count) {
        if (!self)
            return;
        // Each emptying counts from zero, with its skipped entries settled already.
        self->m_itemsToDelete = count;
        self->m_itemsDeleted = 0;
        self->setActiveVolume(volume);
    };
    reports.outcome = [self](const TrashEmptier::Outcome& outcome) {
        if (!self)
            return;
        using Kind = TrashEmptier::Outcome::Kind;
        if (outcome.kind == Kind::Removed) {
            self->handleProgress(outcome.location);
            return;
        }
        Console::writeLine(outcome.error);
        if (outcome.kind == Kind::NeedsPrivilege) {
            if (self->m_emptying.deleteWithPrivilege)
                self->m_emptying.deleteWithPrivilege(outcome.location);
            return;
        }
        if (self->m_emptying.alert)
            self->m_emptying.alert(QStringLiteral("There was a problem deleting the file.\n(") +
                                   QString::fromStdString(outcome.error));
        if (!self)
            return;
        self->handleProgress(outcome.location);
        self->m_emptier->resume();
    };
    reports.finished = [self] {
        if (self)
            self->m_platform.mainQueue.post([self] {
                if (!self)
                    return;
                self->m_removing = false;
                self->setActiveVolume(std::nullopt);
                // The completion rebuilds the list anyway; items still with the helper may
                // hold it back, or never let it come.
                const bool completing = self->m_itemsDeleted >= self->m_itemsToDelete.value_or(0);
                if (std::exchange(self->m_changedWhileEmptying, false) && !completing)
                    self->updateVolumes();
            });
    };
    m_emptier->empty(*volume.trashURL(), std::move(reports));
}

void VolumeObserver::handleProgress(const std::optional<fs::path>& url)
{
    if (!url || !m_itemsToDelete)
        return;
    ++m_itemsDeleted;
    // A report after a completed emptying (nothing left to count) reads as complete.
    setProgress(*m_itemsToDelete > 0
                    ? static_cast<double>(m_itemsDeleted) / static_cast<double>(*m_itemsToDelete)
                    : 1.0);
    if (m_itemsDeleted < *m_itemsToDelete)
        return;
    setProgress(1.0);
    QPointer<VolumeObserver> self(this);
    m_platform.mainQueue.postAfter(completionDelay, [self] {
        if (!self)
            return;
        self->playSound("empty trash.aif");
        self->setProgress(0.0);
        self->m_itemsToDelete = 0;
        self->m_itemsDeleted = 0;
        self->updateVolumes();
        Q_EMIT self->emptyingCompleted();
    });
}

void VolumeObserver::xpcDidDelete(const Notification& notification)
{
    Console::writeLine(notification.name.toStdString());
    const QByteArray location = notification.object.toByteArray();
    if (location.isEmpty())
        return;
    handleProgress(fs::path(location.toStdString()));
}

void VolumeObserver::playSound(const std::string& name)
{
    if (!m_emptying.findResource || !m_emptying.sound)
        return;
    const auto file = m_emptying.findResource(name);
    if (!file)
        qFatal("Unable to find %s in bundle", name.c_str());
    m_emptying.sound->play(*file, [](const std::string& error) { Console::writeLine(error); });
}

} // namespace quillane
