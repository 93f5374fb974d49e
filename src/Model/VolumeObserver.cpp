#include "VolumeObserver.h"

#include "FolderMonitor.h"
#include "Platform/Console.h"
#include "Platform/Constant.h"
#include "Platform/FileSystem.h"
#include "Platform/FolderWatcher.h"
#include "Platform/MountTable.h"
#include "Platform/MountWatcher.h"
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

// Mount points that are parts of a system rather than places for files.
constexpr std::string_view systemVolumeNames[] = {"VM",         "Preboot",  "Update", "xarts",
                                                  "iSCPreboot", "Hardware", "mnt1"};

bool isDropped(const MountEntry& mount)
{
    // The home's filesystem holds the home trash wherever it comes from, and a cloud client's
    // mount is a place of the user's although its files live elsewhere.
    if (mount.holdsHome)
        return false;
    const fs::path& path = mount.mountPoint;
    return std::ranges::find(systemVolumeNames, lastPathComponent(path)) !=
               std::end(systemVolumeNames) ||
           pathContains(path, "CoreSimulator") || pathContains(path, "/tmp") ||
           path.native().ends_with("Data/home") || mount.readOnly ||
           (!mount.local && mount.cloudProvider.empty()) || pathContains(path, "/.timemachine");
}

// The mount table less what never holds a user's trash, in mount order.
std::vector<MountEntry> keptMounts(const MountTable& mounts)
{
    std::vector<MountEntry> kept;
    for (MountEntry& mount : mounts.mounts().value_or(std::vector<MountEntry>{})) {
        if (!isDropped(mount))
            kept.push_back(std::move(mount));
    }
    return kept;
}

// The part of a rebuild that reads the file system; runs on the work queue. Linux has no
// iCloud Drive folder and no CloudStorage folder: cloud clients either keep their folders in
// the home folder, which shares the home trash, or mount them, which makes them rows here.
// A scan that a newer rebuild replaced stops at the next location and gives nothing.
std::optional<std::vector<Volume>> scanVolumes(const Platform& platform,
                                               const std::vector<fs::path>& unmounted,
                                               bool showDropbox,
                                               const std::function<bool()>& replaced)
{
    std::vector<Volume> volumes;
    for (const MountEntry& mount : keptMounts(platform.mounts)) {
        if (replaced())
            return std::nullopt;
        if (std::ranges::find(unmounted, mount.mountPoint) != unmounted.end())
            continue;
        if (mount.cloudProvider == "Dropbox" && !showDropbox)
            continue;
        std::optional<fs::path> trashURL;
        if (auto found = platform.trash.trashFolder(mount.mountPoint))
            trashURL = *found;
        else
            Console::writeLine("Error Getting Trash URL: ", found.error());
        volumes.emplace_back(mount.mountPoint, trashURL, 0, mount.cloudProvider);
        volumes.back().learnName(platform.volumeNames);
    }
    return volumes;
}

} // namespace

VolumeObserver::VolumeObserver(const Platform& platform, EmptyingServices emptying,
                               ObserverPace pace, QObject* parent)
    : QObject(parent), m_platform(platform), m_emptying(std::move(emptying)), m_pace(pace)
{
    Console::writeLine("Hello from VolumeObserver");
    checkFDA();
    m_platform.defaults.registerDefault(Constant::showDropboxKey, false);
    updateVolumes();
    connect(&m_platform.mountWatcher, &MountWatcher::mounted, this, &VolumeObserver::didMount);
    connect(&m_platform.mountWatcher, &MountWatcher::unmounted, this, &VolumeObserver::didUnmount);
}

VolumeObserver::~VolumeObserver()
{
    for (const auto& monitor : m_monitorEvents)
        monitor->stopMonitoring();
}

void VolumeObserver::checkFDA()
{
    // Opening the user's own trash and reading one entry is the probe, on the work queue, as
    // the home may be on a network that does not answer. A trash that does not exist yet
    // belongs to a user who never trashed anything; only a refusal means we may not read it.
    // The scans come after it on the same queue, so the first list is published after it.
    m_platform.workQueue.async([this, context = Scheduler::Context(this),
                                trash = m_platform.trash.homeTrashFolder(),
                                &mainQueue = m_platform.mainQueue] {
        const auto read = readFirstEntry(trash);
        const bool refused = !read && (read.errorCode() == EACCES || read.errorCode() == EPERM);
        mainQueue.post(context, [this, refused, error = read.error()] {
            if (refused) {
                Console::writeLine("fdaGranted Error:", error);
                return;
            }
            m_fdaGranted = true;
            Q_EMIT fdaGrantedChanged();
        });
    });
}

void VolumeObserver::setVolumes(std::vector<Volume> volumes)
{
    m_volumes = std::move(volumes);
    Q_EMIT volumesChanged();
}

void VolumeObserver::updateVolumes()
{
    m_platform.mainQueue.post(this, [this] { setVolumes({}); });

    // The list is published once the newest request has waited its delay, from a scan begun
    // after it. A burst of requests within the delay is one rebuild: the first one's scan, and
    // one more when the burst is over if anything came after that scan began.
    const std::uint64_t request = ++m_rebuildRequests;
    m_rebuildDue = false;
    m_platform.mainQueue.postAfter(m_pace.publication, this, [this, request] {
        if (request != m_rebuildRequests)
            return;
        m_rebuildDue = true;
        publishIfReady();
    });
    if (m_scanning || m_scanned || m_rescanNeeded) {
        ++*m_scanGeneration; // what it finds or found is out of date; a running scan stops
        m_scanned.reset();
        m_rescanNeeded = true;
        return;
    }
    startScan();
}

void VolumeObserver::startScan()
{
    // What the scan needs from the main thread is read here and handed over as copies.
    m_platform.defaults.synchronize();
    const bool showDropbox = m_platform.defaults.boolValue(Constant::showDropboxKey);
    const std::uint64_t generation = ++*m_scanGeneration;
    const auto replaced = [latest = m_scanGeneration, generation] {
        return latest->load() != generation;
    };
    m_scanning = true;
    m_rescanNeeded = false;
    m_platform.workQueue.async([this, context = Scheduler::Context(this), platform = m_platform,
                                unmounted = m_unmounted, showDropbox, replaced] {
        auto volumes = scanVolumes(platform, unmounted, showDropbox, replaced);
        platform.mainQueue.post(context, [this, replaced, volumes = std::move(volumes)]() mutable {
            m_scanning = false;
            if (volumes && !replaced())
                m_scanned = std::move(volumes);
            publishIfReady();
        });
    });
}

void VolumeObserver::publishIfReady()
{
    if (!m_rebuildDue || m_scanning)
        return;
    if (!m_scanned) {
        if (m_rescanNeeded)
            startScan();
        return;
    }
    setVolumes(std::move(*m_scanned));
    m_scanned.reset();
    updateMonitors();
    Q_EMIT listPublished();
}

std::vector<fs::path> VolumeObserver::mountedVolumes(const MountTable& mounts)
{
    std::vector<fs::path> kept;
    for (const MountEntry& mount : keptMounts(mounts))
        kept.push_back(mount.mountPoint);
    return kept;
}

void VolumeObserver::updateMonitors()
{
    if (!m_fdaGranted)
        return;
    for (const auto& monitor : m_monitorEvents)
        monitor->stopMonitoring();
    m_monitorEvents.clear();

    // The monitors are stopped with the observer, and report nothing after that.
    std::vector<fs::path> withoutTrash;
    for (const Volume& volume : m_volumes) {
        if (volume.volPath() && pathContains(*volume.volPath(), "snapshot"))
            continue;
        if (volume.trashURL()) {
            auto monitor = std::make_shared<FolderMonitor>(volume.trashURL(), m_platform);
            monitor->startMonitoring();
            monitor->folderDidChange = [this] { rebuildForChange(); };
            m_monitorEvents.push_back(std::move(monitor));
        } else if (volume.volPath()) {
            auto monitor = std::make_shared<FolderMonitor>(volume.volPath(), m_platform);
            monitor->startMonitoring();
            monitor->folderDidChange = [this, volume, weak = std::weak_ptr(monitor)] {
                handleVolume(volume, weak.lock());
            };
            m_monitorEvents.push_back(std::move(monitor));
            withoutTrash.push_back(*volume.volPath());
        }
    }
    watchForHomeTrash();
    lookForTrashesMadeSinceTheScan(std::move(withoutTrash));
}

void VolumeObserver::lookForTrashesMadeSinceTheScan(std::vector<fs::path> volumes)
{
    // A trash made on a volume between the scan and the start of its watch (a stick mounted
    // and written to at once) sent no event to anyone: look once more, now that the watch is
    // there.
    if (volumes.empty())
        return;
    m_platform.workQueue.async([this, context = Scheduler::Context(this),
                                volumes = std::move(volumes), &trash = m_platform.trash,
                                &mainQueue = m_platform.mainQueue] {
        if (std::ranges::any_of(
                volumes, [&](const fs::path& volume) { return trash.trashFolder(volume).ok(); }))
            mainQueue.post(context, [this] { rebuildForChange(); });
    });
}

void VolumeObserver::watchForHomeTrash()
{
    // A user who never trashed anything has no home trash yet, and the first trashing makes
    // it several folders below any watched one; a user may also remove it. While the list
    // has no home trash, the deepest folder of its path that exists is watched for the next
    // folder of that path, and for nothing else there (other programs write beside it).
    // The folders are looked at on the work queue: the home may be on a network mount.
    m_homeTrashWatches.clear();
    const std::uint64_t wait = ++m_homeTrashWaits;
    const fs::path trash = m_platform.trash.homeTrashFolder();
    const bool listed = std::ranges::any_of(
        m_volumes, [&](const Volume& volume) { return volume.trashURL() == trash; });
    // A watch made for an observer that is gone meanwhile may report before it is dropped.
    const Scheduler::Context context(this);
    const Scheduler::Task rebuild = Scheduler::guarded(context, [this] { rebuildForChange(); });
    if (listed) {
        // Listed: the folders that lead to it are watched for its path's names, so that a
        // trash moved away or removed whole is noticed like one emptied.
        m_rebuiltForHomeTrash = false;
        m_platform.workQueue.async([this, context, rebuild, wait, trash,
                                    &watcher = m_platform.folderWatcher,
                                    &mainQueue = m_platform.mainQueue] {
            const fs::path trashFolder = trash.parent_path(); // holds files/ and info/
            std::vector<std::shared_ptr<FolderWatch>> watches = {
                watcher.watchEntry(trashFolder.parent_path(), trashFolder.filename().native(),
                                   rebuild),
                watcher.watchEntry(trashFolder, trash.filename().native(), rebuild)};
            mainQueue.post(context, [this, wait, watches = std::move(watches)] {
                if (wait == m_homeTrashWaits)
                    m_homeTrashWatches = watches;
            });
        });
        return;
    }
    m_platform.workQueue.async([this, context, rebuild, wait, trash,
                                &watcher = m_platform.folderWatcher,
                                &mainQueue = m_platform.mainQueue] {
        fs::path folder = trash;
        while (folder.has_relative_path() && !fileExists(folder))
            folder = folder.parent_path();
        const bool appeared = folder == trash;
        if (appeared) // there, but not listed: should it be replaced, that is the change
            folder = trash.parent_path();
        const fs::path next =
            *std::next(trash.begin(), std::distance(folder.begin(), folder.end()));
        std::shared_ptr<FolderWatch> watch = watcher.watchEntry(folder, next.native(), rebuild);
        mainQueue.post(context, [this, wait, appeared, watch = std::move(watch)] {
            if (wait != m_homeTrashWaits)
                return;
            // It came after the scan, when no watch was there to tell: the list has to show
            // it. Once only, in case it is there but unusable (a link).
            if (appeared && !std::exchange(m_rebuiltForHomeTrash, true)) {
                updateVolumes();
                return;
            }
            m_homeTrashWatches = {watch};
        });
    });
}

void VolumeObserver::handleVolume(const Volume&, const std::shared_ptr<FolderMonitor>&)
{
    Console::writeLine("Volume Changes being handled...");
    m_platform.mainQueue.post(this, [this] { rebuildForChange(); });
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
    if (m_emptier && m_result.volume.volPath() == m_unmounted.back())
        stopEmptying(VolumeObserver::tr("%1 was unmounted while its trash was being "
                                        "emptied")
                         .arg(QString::fromStdString(printable(path.native()))));
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

void VolumeObserver::emptySelectedTrash(const Volume& volume,
                                        std::optional<std::set<std::string>> only)
{
    if (!volume.trashURL())
        return;
    if (!m_emptier) {
        startEmptying(volume, std::move(only));
        return;
    }
    // A trash being emptied whole has nothing more to give; any other request waits, one per
    // trash: the names asked for meanwhile are joined, and a whole emptying takes them all in.
    if (m_emptier->trashFolder() == *volume.trashURL() && !m_emptier->only())
        return;
    const auto waiting = std::ranges::find_if(m_waitingToEmpty, [&](const auto& request) {
        return request.first.trashURL() == volume.trashURL();
    });
    if (waiting == m_waitingToEmpty.end()) {
        m_waitingToEmpty.emplace_back(volume, std::move(only));
        return;
    }
    if (!only || !waiting->second)
        waiting->second.reset();
    else
        waiting->second->merge(*only);
}

void VolumeObserver::startEmptying(const Volume& volume, std::optional<std::set<std::string>> only)
{
    // Each emptying counts from zero; its steps are queued with the emptier as their context,
    // so none outlives it or reaches the emptying after it. Removals have a queue of their own,
    // so that the list keeps following mounts and changes meanwhile.
    m_result = EmptyingResult();
    m_result.volume = volume;
    if (only)
        m_result.chosenItems = only->size();
    m_emptier = new TrashEmptier(*volume.trashURL(), m_platform.mainQueue, m_platform.removalQueue,
                                 std::move(only), this);
    m_emptier->setMeasuresFreedSpace(m_emptying.measureFreedSpace);
    m_removing = true;
    connect(m_emptier, &TrashEmptier::couldNotStart, this, [this](const QString& error, bool busy) {
        if (!busy) // the trash could not be listed
            Console::writeLine("there was a problem");
        m_result.error = error;
        m_result.busy = busy;
        finishEmptying(EmptyingResult::Ending::NotStarted);
    });
    connect(m_emptier, &TrashEmptier::started, this, [this](long long count) {
        m_itemsToDelete = count;
        m_itemsDeleted = 0;
        setActiveVolume(m_result.volume);
    });
    connect(m_emptier, &TrashEmptier::outcome, this, &VolumeObserver::handleOutcome);
    connect(m_emptier, &TrashEmptier::removalsFinished, this,
            [this] { m_platform.mainQueue.post(m_emptier, [this] { removalsFinished(); }); });
    connect(m_emptier, &TrashEmptier::volumeFailed, this, &VolumeObserver::stopEmptying);
    connect(m_emptier, &TrashEmptier::spaceFreed, this,
            [this](quint64 bytes) { m_result.freedBytes = bytes; });
    connect(m_emptier, &TrashEmptier::tidied, this, [this](const QStringList& errors) {
        m_result.problems << errors;
        for (const QString& error : errors)
            Console::writeLine(error.toStdString());
        const bool completed = m_itemsToDelete.value_or(0) > 0;
        if (completed) {
            updateVolumes();
            Q_EMIT emptyingCompleted();
        }
        finishEmptying(completed ? EmptyingResult::Ending::Completed
                                 : EmptyingResult::Ending::NothingToRemove);
    });
    Q_EMIT emptyingChanged();
    m_emptier->start();
}

void VolumeObserver::handleOutcome(const TrashEmptier::Outcome& outcome)
{
    using Kind = TrashEmptier::Outcome::Kind;
    if (outcome.kind == Kind::Removed) {
        handleProgress(outcome.location);
        return;
    }
    Console::writeLine(outcome.error);
    if (outcome.kind == Kind::NeedsPrivilege) {
        handOver(outcome.location);
        return;
    }
    // A receiver may turn the main loop while it shows the message: the emptier is asked for
    // again afterwards rather than held across it.
    const QPointer<TrashEmptier> emptier = m_emptier;
    Q_EMIT removalFailed(VolumeObserver::tr("There was a problem deleting the file.\n(%1)")
                             .arg(QString::fromStdString(outcome.error)));
    if (!emptier || emptier != m_emptier)
        return;
    handleProgress(outcome.location);
    emptier->resume();
}

void VolumeObserver::removalsFinished()
{
    m_removing = false;
    setActiveVolume(std::nullopt);
    const long long toDelete = m_itemsToDelete.value_or(0);
    if (toDelete == 0) {
        m_emptier->tidy(); // records without items may still be there
        return;
    }
    // The completion rebuilds the list anyway; items still with the helper hold it back.
    if (std::exchange(m_changedWhileEmptying, false) && m_itemsDeleted < toDelete)
        updateVolumes();
}

void VolumeObserver::handleProgress(const std::optional<fs::path>& url)
{
    // Only the emptying under way counts, and only until its last item is in.
    if (!url || !m_itemsToDelete || !m_emptier || m_itemsDeleted >= *m_itemsToDelete)
        return;
    ++m_itemsDeleted;
    setProgress(static_cast<double>(m_itemsDeleted) / static_cast<double>(*m_itemsToDelete));
    if (m_itemsDeleted < *m_itemsToDelete)
        return;
    setProgress(1.0);
    // From the last item accounted for to the sound and the refresh.
    m_platform.mainQueue.postAfter(m_pace.completion, m_emptier, [this] { completeEmptying(); });
}

void VolumeObserver::completeEmptying()
{
    if (m_emptying.sound)
        m_emptying.sound->player.play(m_emptying.sound->file,
                                      [](const std::string& error) { Console::writeLine(error); });
    setProgress(0.0);
    m_itemsDeleted = 0;
    m_emptier->tidy(); // then the list is rebuilt, and the emptying ends
}

void VolumeObserver::stopEmptying(const QString& error)
{
    // Nothing more can be removed there: the emptying ends at once, with one message (its
    // result's) and no sound, and the list shows what is left.
    m_result.error = error;
    setActiveVolume(std::nullopt);
    setProgress(0.0);
    m_itemsToDelete = 0;
    m_itemsDeleted = 0;
    updateVolumes();
    finishEmptying(EmptyingResult::Ending::Stopped);
}

void VolumeObserver::handOver(const fs::path& item)
{
    m_withHelper.try_emplace(item, false);
    m_helperDeadline =
        m_platform.mainQueue.repeat(helperDeadline, [this] { helperStoppedAnswering(); });
    Q_EMIT itemNeedsHelper(item);
}

void VolumeObserver::settleWithHelper(const fs::path& item)
{
    m_withHelper.erase(item);
    if (m_withHelper.empty())
        m_helperDeadline.reset();
    else // an answer shows the daemon at work: the others get the time again
        m_helperDeadline =
            m_platform.mainQueue.repeat(helperDeadline, [this] { helperStoppedAnswering(); });
}

void VolumeObserver::helperLeft(bool restartable)
{
    if (m_withHelper.empty())
        return;
    if (!restartable) {
        helperStoppedAnswering();
        return;
    }
    // The bus starts a new daemon for the first of them; each is sent once more, at most.
    for (auto& [item, sentAgain] : m_withHelper) {
        if (!std::exchange(sentAgain, true))
            Q_EMIT itemNeedsHelper(item);
    }
    m_helperDeadline =
        m_platform.mainQueue.repeat(helperDeadline, [this] { helperStoppedAnswering(); });
}

void VolumeObserver::helperStoppedAnswering()
{
    m_helperDeadline.reset();
    const auto unanswered = std::exchange(m_withHelper, {});
    if (unanswered.empty())
        return;
    m_result.helperStoppedAnswering = true;
    for (const auto& [item, sentAgain] : unanswered) {
        m_result.refused.emplace_back(item,
                                      VolumeObserver::tr("the helper daemon stopped answering"));
        handleProgress(item);
    }
}

void VolumeObserver::finishEmptying(EmptyingResult::Ending ending)
{
    m_removing = false;
    m_withHelper.clear();
    m_helperDeadline.reset();
    m_itemsToDelete = 0;
    delete std::exchange(m_emptier, nullptr); // and with it whatever it still had queued
    EmptyingResult result = std::exchange(m_result, EmptyingResult());
    result.ending = ending;
    Q_EMIT emptyingChanged();
    Q_EMIT emptyingFinished(result);
    if (!m_waitingToEmpty.empty() && !m_emptier) {
        auto [next, only] = std::move(m_waitingToEmpty.front());
        m_waitingToEmpty.erase(m_waitingToEmpty.begin());
        startEmptying(next, std::move(only));
    }
}

void VolumeObserver::xpcDidDelete(const fs::path& item)
{
    Console::writeLine("xpcDidDelete");
    if (!m_withHelper.contains(item)) // not of the emptying under way
        return;
    settleWithHelper(item);
    handleProgress(item);
}

void VolumeObserver::xpcDidFail(const fs::path& item, const QString& reason)
{
    if (!m_withHelper.contains(item))
        return;
    settleWithHelper(item);
    m_result.refused.emplace_back(item, QString::fromStdString(printable(reason.toStdString())));
    handleProgress(item);
}

} // namespace quillane
