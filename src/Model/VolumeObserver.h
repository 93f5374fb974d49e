#pragma once

#include "Platform/Platform.h"
#include "TrashEmptier.h"
#include "Volume.h"

#include <QObject>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace quillane
{

class FolderMonitor;
class FolderWatch;
class SoundPlayer;
class MountTable;
class RepeatingTimer;
class TrashLocator;

// The sound that marks a completed emptying: a player and the file it plays.
struct CompletionSound {
    SoundPlayer& player;
    std::filesystem::path file;
};

// What an emptying does beyond removing: the completion sound (none when not given), and whether
// its result tells how much space it gave back. That sizes the trash before and after: the
// panel's sizes make that quick, a trash never sized is walked in full.
struct EmptyingServices {
    std::optional<CompletionSound> sound;
    bool measureFreedSpace = false;
};

// How long the observer lets what it found settle before it shows it: the panel waits half a
// second after a scan before it publishes the list, and after an emptying's last item before
// its completion step; the command line shows both at once.
struct ObserverPace {
    std::chrono::milliseconds publication{500};
    std::chrono::milliseconds completion{500};

    static constexpr ObserverPace immediate()
    {
        return {std::chrono::milliseconds(0), std::chrono::milliseconds(0)};
    }
};

// How one emptying ended, told once per emptying.
struct EmptyingResult {
    enum class Ending {
        Completed,       // every item was accounted for; the completion step has run
        NothingToRemove, // the trash held nothing to empty
        NotStarted,      // the trash could not be listed, or another emptying holds it
        Stopped,         // the volume failed or went away midway; what is left stays
    };
    Volume volume;
    // How many items were chosen for removal; none when the whole trash was emptied.
    std::optional<std::size_t> chosenItems;
    Ending ending = Ending::Completed;
    QString error; // why it did not start, or stopped
    bool busy = false;
    bool helperStoppedAnswering = false; // items stayed because the daemon went silent
    // The items the helper daemon did not remove, each with its reason.
    std::vector<std::pair<std::filesystem::path, QString>> refused;
    // What could not be put in order afterwards (a record whose item is gone, the size cache).
    QStringList problems;
    // How much less the trash takes up on its volume than before, once it was tidied; known
    // when measureFreedSpace asked for it and the trash could be sized.
    std::optional<std::uint64_t> freedBytes;
};

// The model of the panel: every trash location in display order (mounted volumes, cloud
// folders among them, in mount order), rebuilt at start-up, on every mount
// and unmount, on every change of a watched folder and after an emptying.
//
// A rebuild clears the published list at once, scans on the work queue, and publishes the new
// list on the main thread once 0.5 s (the pace's publication delay) have passed since it was
// asked for; then it rebuilds the folder monitors. Rebuilds asked for within that delay of
// each other are one: the list is published 0.5 s after the last, from a scan begun after it;
// a scan that a newer request made out of date stops, and its list is not published. Every
// published field is assigned on the main thread only.
class VolumeObserver : public QObject
{
    Q_OBJECT
    Q_PROPERTY(std::vector<quillane::Volume> volumes READ volumes NOTIFY volumesChanged)
    // Whether this user may read their own home trash (the probe was not refused).
    Q_PROPERTY(bool fdaGranted READ fdaGranted NOTIFY fdaGrantedChanged)
    Q_PROPERTY(
        std::optional<quillane::Volume> activeVolume READ activeVolume NOTIFY activeVolumeChanged)
    Q_PROPERTY(double progress READ progress NOTIFY progressChanged)
    // From the request to empty a trash until that emptying has ended (its removals, its items
    // with the helper, its completion step). Emptyings run one at a time.
    Q_PROPERTY(bool emptying READ isEmptying NOTIFY emptyingChanged)

public:
    explicit VolumeObserver(const Platform& platform, EmptyingServices emptying = {},
                            ObserverPace pace = {}, QObject* parent = nullptr);
    ~VolumeObserver() override;

    const std::vector<Volume>& volumes() const { return m_volumes; }
    bool fdaGranted() const { return m_fdaGranted; }
    const std::vector<std::shared_ptr<FolderMonitor>>& monitorEvents() const
    {
        return m_monitorEvents;
    }
    const Platform& platform() const { return m_platform; }

    const std::optional<Volume>& activeVolume() const { return m_activeVolume; }
    double progress() const { return m_progress; }
    std::optional<long long> itemsToDelete() const { return m_itemsToDelete; }
    long long itemsDeleted() const { return m_itemsDeleted; }
    bool isEmptying() const { return m_emptier != nullptr; }

    // Called on the main thread. A trash asked for while another is being emptied waits its
    // turn. Given names, only the items of those names are removed, in the same way.
    void emptySelectedTrash(const Volume& volume,
                            std::optional<std::set<std::string>> only = std::nullopt);
    void handleProgress(const std::optional<std::filesystem::path>& url);
    // The helper removed an item that itemNeedsHelper handed it.
    void xpcDidDelete(const std::filesystem::path& item);
    // The helper did not remove an item: it counts as settled, and stays.
    void xpcDidFail(const std::filesystem::path& item, const QString& reason);
    // The daemon left the bus with items of the emptying still unanswered: they are sent again
    // once if the bus can start it again, else they count as settled, and stay. Items the
    // daemon leaves unanswered for helperDeadline count as settled the same way.
    void helperLeft(bool restartable);
    static constexpr std::chrono::seconds helperDeadline{30};
    void updateVolumes();
    void updateMonitors();
    void handleVolume(const Volume& volume, const std::shared_ptr<FolderMonitor>& monitor);
    void didMount(const std::filesystem::path& path);
    void didUnmount(const std::filesystem::path& path);

    // The mount table less what never holds a user's trash (system parts, read-only and
    // network volumes other than the home's and cloud folders, scratch space), in mount order.
    static std::vector<std::filesystem::path> mountedVolumes(const MountTable& mounts);

Q_SIGNALS:
    void volumesChanged();
    void fdaGrantedChanged();
    void activeVolumeChanged();
    void progressChanged();
    // A rebuilt list was published and the monitors were rebuilt for it.
    void listPublished();
    // An emptying accounted for all its items; its completion step has run.
    void emptyingCompleted();
    void emptyingChanged();
    // Every emptying ends with this, once, whatever became of it.
    void emptyingFinished(const quillane::EmptyingResult& result);
    // An item of the emptying that this user may not remove, for the privileged helper; its
    // outcome comes back through xpcDidDelete() or xpcDidFail(). Unanswered, it stays.
    void itemNeedsHelper(const std::filesystem::path& item);
    // An item could not be removed. The emptying goes on once the receivers have returned, so a
    // receiver that shows the message and waits for the user has them answer one at a time.
    void removalFailed(const QString& message);

private:
    void checkFDA();
    void rebuildForChange();
    void startScan();
    void publishIfReady();
    void setVolumes(std::vector<Volume> volumes);
    void watchForHomeTrash();
    void lookForTrashesMadeSinceTheScan(std::vector<std::filesystem::path> volumes);
    void setProgress(double progress);
    void setActiveVolume(std::optional<Volume> volume);
    void startEmptying(const Volume& volume, std::optional<std::set<std::string>> only);
    void handleOutcome(const TrashEmptier::Outcome& outcome);
    void removalsFinished();
    void completeEmptying();
    void stopEmptying(const QString& error);
    void finishEmptying(EmptyingResult::Ending ending);
    void handOver(const std::filesystem::path& item);
    void settleWithHelper(const std::filesystem::path& item);
    void helperStoppedAnswering();

    Platform m_platform;
    std::vector<Volume> m_volumes;
    bool m_fdaGranted = false;
    std::vector<std::filesystem::path> m_unmounted;
    std::vector<std::shared_ptr<FolderMonitor>> m_monitorEvents;
    std::vector<std::shared_ptr<FolderWatch>> m_homeTrashWatches;
    std::uint64_t m_homeTrashWaits = 0; // the number of the newest wait for the home trash
    bool m_rebuiltForHomeTrash = false; // since the last list that showed the home trash
    // The number of the newest rebuild; its scan reads it to know it has been replaced.
    std::shared_ptr<std::atomic<std::uint64_t>> m_scanGeneration =
        std::make_shared<std::atomic<std::uint64_t>>(0);
    // The rebuild under way: the number of its newest request, whether that request's delay is
    // over, whether a scan runs, what the last scan found while it is still up to date, and
    // whether a request came after it began.
    std::uint64_t m_rebuildRequests = 0;
    bool m_rebuildDue = false;
    bool m_scanning = false;
    std::optional<std::vector<Volume>> m_scanned;
    bool m_rescanNeeded = false;
    EmptyingServices m_emptying;
    ObserverPace m_pace;
    // The emptying under way, the context of all its queued steps; null when none is.
    TrashEmptier* m_emptier = nullptr;
    EmptyingResult m_result; // of the emptying under way, as far as it is known
    // Each with the names to remove, or none for all.
    std::vector<std::pair<Volume, std::optional<std::set<std::string>>>> m_waitingToEmpty;
    // Items of the emptying with the helper, each with whether it was sent a second time; and
    // the deadline for its next answer, restarted by every hand-over and every answer.
    std::map<std::filesystem::path, bool> m_withHelper;
    std::unique_ptr<RepeatingTimer> m_helperDeadline;
    std::optional<long long> m_itemsToDelete;
    long long m_itemsDeleted = 0;
    std::optional<Volume> m_activeVolume;
    // From the request to empty until its removals are over: a change the trash folders report
    // meanwhile waits (m_changedWhileEmptying).
    bool m_removing = false;
    bool m_changedWhileEmptying = false;
    double m_progress = 0;
};

} // namespace quillane
