#include "Model/FolderMonitor.h"
#include "Model/TrashContents.h"
#include "Model/TrashFullness.h"
#include "ModelHarness.h"
#include "TestSupport.h"

#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>
#include <sys/stat.h>
#include <unistd.h>

using namespace quillane;
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

namespace
{

// The mount table, counting its reads: each scan reads it once.
class CountedMounts final : public MountTable
{
public:
    explicit CountedMounts(const MountTable& real) : m_real(real) {}
    std::optional<std::vector<MountEntry>> mounts() const override
    {
        ++reads;
        return m_real.mounts();
    }
    mutable int reads = 0;

private:
    const MountTable& m_real;
};

bool watching(const VolumeObserver& observer, const fs::path& trash)
{
    return std::ranges::any_of(observer.monitorEvents(), [&](const auto& monitor) {
        return monitor->url() == std::optional(trash) && monitor->isMonitoring();
    });
}

// Whether the list is the home's volume alone, with its trash.
bool listsHomeTrash(const test::ModelHarness& model)
{
    const auto& volumes = model.observer->volumes();
    return volumes.size() == 1 && volumes[0].trashURL() == std::optional(model.homeTrash());
}

void loadAll(test::ModelHarness& model, TrashContents& contents)
{
    contents.load();
    model.scheduler.runPending();
}

} // namespace

class TestVolumeObserver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mountedVolumeRules_data()
    {
        QTest::addColumn<QByteArray>("mountPoint");
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<QByteArray>("options");
        QTest::addColumn<bool>("listed");
        const auto row = [](const char* tag, const QByteArray& point, const char* type,
                            const char* options, bool listed) {
            QTest::newRow(tag) << point << QByteArray(type) << QByteArray(options) << listed;
        };
        row("writable volume", "/media/me/USB STICK", "ext4", "rw", true);
        row("vfat stick", "/mnt/CARD", "vfat", "rw,nosuid", true);
        for (const char* name :
             {"VM", "Preboot", "Update", "xarts", "iSCPreboot", "Hardware", "mnt1"})
            row(name, QByteArray("/System/Volumes/") + name, "ext4", "rw", false);
        row("name differs in case", "/media/vm", "ext4", "rw", true);
        row("simulator", "/Library/Developer/CoreSimulator/Volumes/iOS", "ext4", "rw", false);
        row("scratch", "/var/tmp/scratch", "ext4", "rw", false);
        row("data home", "/System/Volumes/Data/home", "ext4", "rw", false);
        row("read-only", "/media/cdrom", "iso9660", "ro", false);
        row("network", "/media/share", "nfs4", "rw", false);
        row("ssh", "/media/remote", "fuse.sshfs", "rw", false);
        row("backup", "/media/.timemachine/disk", "ext4", "rw", false);
    }
    void mountedVolumeRules()
    {
        QFETCH(QByteArray, mountPoint);
        QFETCH(QByteArray, type);
        QFETCH(QByteArray, options);
        QFETCH(bool, listed);
        test::ModelHarness model;
        model.setMounts({{"/", "ext4", "rw"},
                         {mountPoint.toStdString(), type.toStdString(), options.toStdString()}});
        const auto mounted = VolumeObserver::mountedVolumes(model.mounts);
        std::vector<fs::path> expected{"/"};
        if (listed)
            expected.push_back(mountPoint.toStdString());
        QCOMPARE(mounted, expected);
    }

    void listIsTheMountsInKernelOrderEachWatched()
    {
        test::ModelHarness model;
        model.setMounts({{"/", "ext4", "rw"},
                         {"/media/b", "ext4", "rw"},
                         {"/media/snapshot-2024", "ext4", "rw"},
                         {"/media/a", "ext4", "rw"}});
        model.makeHomeTrash();
        test::ConsoleCapture console;
        VolumeObserver& observer = model.start();
        QCOMPARE(console.count("Hello from VolumeObserver"), 1);
        const std::vector<fs::path> expected = {"/", "/media/b", "/media/snapshot-2024",
                                                "/media/a"};
        QCOMPARE(model.listedPaths(), expected);
        // The root holds the home; the other mount points do not exist here.
        QCOMPARE(observer.volumes()[0].trashURL(), std::optional(model.homeTrash()));
        QVERIFY(!observer.volumes()[1].trashURL());
        QCOMPARE(console.count("Error Getting Trash URL: "), 3);
        // No folder of another system's is looked for.
        QCOMPARE(console.count("iCloud Drive trash not found: "), 0);
        QCOMPARE(console.count("Cloud Storage trash not found: "), 0);
        // No monitor for a snapshot; a missing mount point's monitor stays idle.
        QCOMPARE(observer.monitorEvents().size(), std::size_t(3));
        QVERIFY(watching(observer, model.homeTrash()));
        QCOMPARE(observer.monitorEvents()[1]->url(), std::optional<fs::path>("/media/b"));
        QVERIFY(!observer.monitorEvents()[1]->isMonitoring());
        const auto before = observer.monitorEvents()[0];
        observer.updateVolumes();
        model.settle();
        QVERIFY(observer.monitorEvents()[0] != before); // every publication replaces them
        QVERIFY(!before->isMonitoring());
    }

    void homeOnANetworkFilesystemIsListed_data()
    {
        QTest::addColumn<QByteArray>("type");
        for (const auto& [tag, type] :
             {std::pair("NFS", "nfs4"), {"SMB", "cifs"}, {"read-only", "ext4"}})
            QTest::newRow(tag) << QByteArray(type);
    }
    void homeOnANetworkFilesystemIsListed()
    {
        QFETCH(QByteArray, type);
        test::ModelHarness model;
        const std::string options = type == "ext4" ? "ro" : "rw";
        model.setMounts({{"/", "ext4", "rw"}, {model.home.native(), type.toStdString(), options}});
        model.makeHomeTrash();
        const VolumeObserver& observer = model.start();
        QCOMPARE(model.listedPaths(), std::vector<fs::path>{model.home});
        QCOMPARE(observer.volumes()[0].trashURL(), std::optional(model.homeTrash()));
        QCOMPARE(observer.volumes()[0].name(model.labels), std::string("Home"));
    }

    void unmountedPathStaysOutUntilMountedAgain()
    {
        test::ModelHarness model;
        model.setMounts({{"/", "ext4", "rw"}, {"/media/usb", "ext4", "rw"}});
        model.start();
        test::ConsoleCapture console;
        // The table still lists the volume (the event may come first), yet it stays out.
        Q_EMIT model.mountWatcher.unmounted("/media/usb");
        model.settle();
        QCOMPARE(model.listedPaths(), std::vector<fs::path>{"/"});
        const auto lines = console.lines();
        QVERIFY(lines.size() >= 2);
        QCOMPARE(lines[0], std::string("Hello from unmounted"));
        QCOMPARE(lines[1], std::string("Unmounted: /media/usb"));
        model.observer->updateVolumes();
        model.settle();
        QCOMPARE(model.listedPaths(), std::vector<fs::path>{"/"});
        Q_EMIT model.mountWatcher.mounted("/media/usb/");
        model.settle();
        QCOMPARE(model.listedPaths(), (std::vector<fs::path>{"/", "/media/usb"}));
        QCOMPARE(console.count("Mounted: /media/usb/"), 1);
    }

    void cloudMountsAreCloudRows_data()
    {
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<bool>("showDropbox");
        QTest::addColumn<QByteArray>("expected"); // name=picture, or nothing when not listed
        const auto row = [](const char* tag, const char* type, bool show, const char* expected) {
            QTest::newRow(tag) << QByteArray(type) << show << QByteArray(expected);
        };
        row("Google Drive", "fuse.google-drive-ocamlfuse", false, "Cloud=asset:GoogleDrive");
        row("OneDrive", "fuse.onedriver", false, "Cloud=asset:OneDrive");
        row("rclone, which serves many providers", "fuse.rclone", false, "Cloud=file");
        row("Dropbox, hidden by default", "fuse.dbxfs", false, "");
        row("Dropbox, shown when asked", "fuse.dbxfs", true, "Cloud=asset:Dropbox");
        row("other remote filesystem", "fuse.sshfs", false, "");
    }
    void cloudMountsAreCloudRows()
    {
        QFETCH(QByteArray, type);
        QFETCH(bool, showDropbox);
        QFETCH(QByteArray, expected);
        test::ModelHarness model;
        model.makeHomeTrash();
        model.defaults.setBool(u"ShowDropbox"_s, showDropbox);
        model.setMounts({{"/", "ext4", "rw"}, {"/media/me/Cloud", type.toStdString(), "rw"}});
        const VolumeObserver& observer = model.start();
        QByteArrayList rows;
        for (const Volume& volume : observer.volumes()) {
            if (volume.volPath() == fs::path("/"))
                continue;
            QCOMPARE(volume.kind(), Volume::Kind::CloudStorage);
            const Picture picture = volume.image(model.labels);
            rows << QByteArray::fromStdString(volume.name(model.labels)) + '=' +
                        (picture.kind == Picture::Kind::Asset
                             ? "asset:" + QByteArray::fromStdString(picture.name)
                             : QByteArray("file"));
        }
        QCOMPARE(rows.join(' '), expected);
    }

    void refusedTrashMeansNoAccessAndNoMonitors()
    {
        test::ModelHarness model;
        model.plainHome();
        QVERIFY(chmod(model.root.path().toLocal8Bit().constData(), 0755) == 0);
        QVERIFY(chmod(model.homeTrash().c_str(), 0700) == 0); // root's own, closed to others
        const auto refused = [&] {
            test::ConsoleCapture console;
            VolumeObserver& observer = model.start();
            observer.updateMonitors();
            const bool none = !observer.fdaGranted() && observer.monitorEvents().empty();
            return none && console.count("fdaGranted Error:") == 1;
        };
        QCOMPARE(test::runAsUser(test::nobody, [&] { return refused() ? 0 : 1; }), 0);
    }

    // The home may be on a network mount that stops answering: the access check and the
    // watches are left to the work queue, and the main thread only takes their results.
    void accessCheckAndWatchesLeaveTheMainThread()
    {
        test::ModelHarness model;
        model.plainHome();
        test::HeldWorkQueue held;
        model.scanQueue = &held;
        VolumeObserver& observer = model.start();
        QVERIFY(!observer.fdaGranted());
        QVERIFY(held.size() >= 2); // the access check, then the scan
        held.runAll();
        model.settle();
        QVERIFY(observer.fdaGranted());
        QCOMPARE(observer.volumes().size(), std::size_t(1));
        // The scan learnt the name: the row that shows it needs no names of its own.
        const ProcMountTable noMounts(model.home / "none", "/elsewhere");
        QCOMPARE(observer.volumes()[0].name(DiskLabels(model.home / "none", noMounts)),
                 std::string("Home"));
        QCOMPARE(observer.monitorEvents().size(), std::size_t(1));
        QVERIFY(!observer.monitorEvents()[0]->isMonitoring()); // its watch is still queued
        QVERIFY(held.size() >= 1);
        held.runAll();
        model.scheduler.runPending();
        QVERIFY(observer.monitorEvents()[0]->isMonitoring());
        test::writeFile(model.homeTrash() / "new");
        QVERIFY(model.awaitEvent());
    }

    // A change at the top of a trash is one rebuild, and the tray's full or empty trash follows
    // it; a change inside a trashed folder is not the trash's, and the entry a trash never
    // counts is no item.
    void trashChangesRebuildTheListAndItsFullness()
    {
        test::ModelHarness model;
        model.plainHome();
        test::writeFile(model.homeTrash() / ".DS_Store");
        VolumeObserver& observer = model.start();
        TrashFullness fullness(observer);
        QSignalSpy changes(&fullness, &TrashFullness::fullChanged);
        QSignalSpy published(&observer, &VolumeObserver::listPublished);
        model.scheduler.runPending();
        QVERIFY(!fullness.isFull());
        // The publications a change brought, and whether the trash then reads full.
        const auto after = [&](const std::function<void()>& change) {
            published.clear();
            change();
            if (!model.awaitEvent())
                return std::pair(qsizetype(-1), false);
            model.settle();
            model.scheduler.runPending();
            return std::pair(published.count(), fullness.isFull());
        };
        const fs::path trash = model.homeTrash();
        QCOMPARE(after([&] { test::writeFile(trash / "report.pdf"); }),
                 std::pair(qsizetype(1), true));
        QCOMPARE(after([&] { fs::remove(trash / "report.pdf"); }), std::pair(qsizetype(1), false));
        QCOMPARE(after([&] { fs::create_directory(trash / "folder"); }),
                 std::pair(qsizetype(1), true));
        test::writeFile(trash / "folder" / "deep");
        QCOMPARE(after([&] { test::writeFile(trash / "second"); }), std::pair(qsizetype(1), true));
        QCOMPARE(changes.count(), 3);
        QCOMPARE(observer.volumes().size(), std::size_t(1));
    }

    // Readings run off the main thread and may end out of order: an older one that ends last
    // is not shown.
    void fullnessShowsTheNewestReading()
    {
        test::ModelHarness model;
        model.plainHome();
        test::HeldWorkQueue held;
        model.scanQueue = &held;
        VolumeObserver& observer = model.start();
        QTRY_VERIFY_WITH_TIMEOUT((held.runAll(), model.settle(), observer.volumes().size() == 1),
                                 5000);
        held.runAll();
        TrashFullness fullness(observer); // the first reading
        Q_EMIT observer.listPublished();  // and a second
        QCOMPARE(held.size(), std::size_t(2));
        held.runNewest(); // the trash is empty
        test::writeFile(model.homeTrash() / "late");
        held.runAll(); // the first reading, late, sees an item
        model.scheduler.runPending();
        QVERIFY(!fullness.isFull());
    }

    void firstTrashingIsNoticed()
    {
        test::ModelHarness model;
        model.setMounts({{"/", "ext4", "rw"}});
        fs::create_directories(model.home / ".local");
        VolumeObserver& observer = model.start();
        QVERIFY(!observer.volumes()[0].trashURL());
        // A file manager's first trashing makes the whole trash at once.
        test::writeFile(model.homeTrash() / "report.pdf");
        test::writeFile(model.homeTrash().parent_path() / "info" / "report.pdf.trashinfo");
        QTRY_VERIFY_WITH_TIMEOUT((model.settle(), listsHomeTrash(model)), 5000);
        QCOMPARE(observer.volumes()[0].itemCount(), 1);
    }

    // Removing the home trash shows at once; making it again shows one publication later,
    // however soon it comes, and writes beside it in the meantime cost no rebuild.
    void homeTrashRemovedAndMadeAgain_data()
    {
        QTest::addColumn<bool>("beforePublication"); // made again before "gone" is published
        QTest::addColumn<bool>("movedAway");         // else removed
        QTest::newRow("after the list shows it gone") << false << false;
        QTest::newRow("before the list shows it gone") << true << false;
        QTest::newRow("moved away whole, then made again") << false << true;
    }
    void homeTrashRemovedAndMadeAgain()
    {
        QFETCH(bool, beforePublication);
        QFETCH(bool, movedAway);
        test::ModelHarness model;
        model.plainHome();
        VolumeObserver& observer = model.start();
        const fs::path trashFolder = model.homeTrash().parent_path();
        const fs::path share = trashFolder.parent_path();
        QVERIFY(listsHomeTrash(model));
        if (movedAway)
            fs::rename(trashFolder, share / "Trash aside");
        else
            fs::remove_all(trashFolder);
        QVERIFY(model.awaitEvent());
        if (beforePublication) {
            model.scheduler.runPending(); // the scan found no trash; its list is still to come
            model.makeHomeTrash();
        }
        model.settle();
        if (!beforePublication) {
            QVERIFY(!observer.volumes()[0].trashURL());
            // Another program's file beside the trash folder is no news; the probe, on the
            // same folder, shows when its event has been read.
            int probed = 0;
            const auto probe = model.folders.watch(share, [&probed] { ++probed; });
            test::writeFile(share / "recently-used.xbel");
            QTRY_VERIFY(probed > 0);
            QCOMPARE(model.scheduler.pendingCount(), std::size_t(0));
            model.makeHomeTrash();
            QVERIFY(model.awaitEvent());
        }
        model.settle();
        model.settle();
        QVERIFY(listsHomeTrash(model));
        QVERIFY(watching(observer, model.homeTrash()));
        // And it keeps following: the next trashing shows.
        test::writeFile(model.homeTrash() / "again");
        QVERIFY(model.awaitEvent());
        model.settle();
        QCOMPARE(observer.volumes()[0].itemCount(), 1);
    }

    // Each request clears the list at once. Rebuilds asked for within half a second of each
    // other are one: a single publication, half a second after the last request, showing what
    // the last one came for, from at most two scans (the first request's, and one begun after
    // the last).
    void burstOfRebuildsIsOne_data()
    {
        QTest::addColumn<int>("requests");
        QTest::addColumn<int>("spacing"); // milliseconds from one request to the next
        QTest::addColumn<int>("scans");
        QTest::newRow("one") << 1 << 0 << 1;
        QTest::newRow("twenty at once") << 20 << 0 << 2;
        QTest::newRow("ten, 100 ms apart") << 10 << 100 << 2;
        QTest::newRow("five, 499 ms apart") << 5 << 499 << 2;
    }
    void burstOfRebuildsIsOne()
    {
        QFETCH(int, requests);
        QFETCH(int, spacing);
        QFETCH(int, scans);
        test::ModelHarness model;
        model.setMounts({{"/", "ext4", "rw"}, {"/media/usb", "ext4", "rw"}});
        model.makeHomeTrash();
        CountedMounts mounts(model.mounts);
        model.mountTable = &mounts;
        VolumeObserver& observer = model.start();
        QCOMPARE(model.listedPaths(), (std::vector<fs::path>{"/", "/media/usb"}));
        const QUuid firstId = observer.volumes()[0].id();
        QSignalSpy published(&observer, &VolumeObserver::listPublished);
        QSignalSpy changed(&observer, &VolumeObserver::volumesChanged);
        mounts.reads = 0;
        // The last request is the unmount: the list published has to show it.
        for (int request = 1; request <= requests; ++request) {
            if (request < requests)
                observer.updateVolumes();
            else
                Q_EMIT model.mountWatcher.unmounted("/media/usb");
            model.scheduler.advance(std::chrono::milliseconds(request < requests ? spacing : 0));
            QVERIFY(observer.volumes().empty());
        }
        model.scheduler.advance(499ms);
        QCOMPARE(published.count(), 0);
        QVERIFY(observer.volumes().empty());
        model.scheduler.advance(1ms);
        QCOMPARE(published.count(), 1);
        QCOMPARE(model.listedPaths(), std::vector<fs::path>{"/"});
        QVERIFY(observer.volumes()[0].id() != firstId); // every rebuild makes new records
        QCOMPARE(changed.count(), requests + 1);        // cleared at each request, then published
        QCOMPARE(mounts.reads, scans);
        QCOMPARE(observer.monitorEvents().size(), std::size_t(1));
        // The next request after the burst is a rebuild of its own.
        published.clear();
        observer.updateVolumes();
        model.settle();
        QCOMPARE(published.count(), 1);
        QCOMPARE(mounts.reads, scans + 1);
    }

    // A volume that gains a trash is watched there from then on: whether the trash came after
    // the volume's watch began, or between the scan and the watch, which sent no event.
    void volumeGainingATrashIsWatchedAgain_data()
    {
        QTest::addColumn<bool>("beforeTheWatch");
        QTest::newRow("after the watch began") << false;
        QTest::newRow("between the scan and the watch") << true;
    }

    void volumeGainingATrashIsWatchedAgain()
    {
        QFETCH(bool, beforeTheWatch);
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        test::ModelHarness model("/proc/self/mountinfo");
        const fs::path volume = "/mnt/Gaining Volume";
        QVERIFY(test::mountExt4(fs::path(model.root.path().toStdString()) / "image", volume, {},
                                getuid()));
        const auto unmount = qScopeGuard([&] {
            model.observer.reset(); // its watches go before the volume does
            test::unmount(volume);
        });
        test::HeldWorkQueue held(beforeTheWatch);
        model.scanQueue = &held;
        VolumeObserver& observer = model.start();
        held.runAll(); // the scan finds no trash there
        const auto record = [&] {
            const auto found =
                std::ranges::find(observer.volumes(), std::optional(volume), &Volume::volPath);
            return found == observer.volumes().end() ? std::optional<Volume>() : *found;
        };
        test::ConsoleCapture console;
        const fs::path trash = volume / (".Trash-" + std::to_string(getuid())) / "files";
        if (!beforeTheWatch) {
            QVERIFY(record());
            QVERIFY(!record()->trashURL());
        }
        fs::create_directories(trash);
        if (beforeTheWatch) {
            for (int step = 0; step < 4; ++step) { // publish, watch, look again, scan
                model.settle();
                held.runAll();
            }
        } else {
            QTRY_COMPARE_WITH_TIMEOUT(console.count("Volume Changes being handled..."), 1, 5000);
        }
        model.settle();
        QVERIFY(record());
        QCOMPARE(record()->trashURL(), std::optional(trash));
        QVERIFY(watching(observer, trash));
    }

    // The items of one trash come to the main thread a batch at a time: the first rows are
    // there after the first step, before the rest have been read.
    void contentsComeInBatches()
    {
        test::ModelHarness model;
        const int count = static_cast<int>(2 * TrashContents::batchSize + 5);
        const fs::path info = model.homeTrash().parent_path() / "info";
        for (int i = 0; i < count; ++i) {
            const std::string name = "item " + std::to_string(i);
            test::writeFile(model.homeTrash() / name);
            test::writeFile(info / (name + ".trashinfo"),
                            "[Trash Info]\nPath=/home/me/" + name +
                                "\nDeletionDate=2024-03-01T10:20:30\n");
        }
        TrashContents contents(model.homeTrash(), "/", model.platform());
        QSignalSpy inserted(&contents, &QAbstractItemModel::rowsInserted);
        QSignalSpy loaded(&contents, &TrashContents::loaded);
        QSignalSpy sized(&contents, &TrashContents::sized);
        contents.load();
        QCOMPARE(contents.rowCount(), 0); // nothing reaches the model outside the main queue
        while (contents.rowCount() == 0 && model.scheduler.runNext()) {
        }
        QCOMPARE(contents.rowCount(), static_cast<int>(TrashContents::batchSize));
        QVERIFY(!contents.isLoaded());
        model.scheduler.runPending();
        QCOMPARE(inserted.count(), 3);
        QCOMPARE(contents.rowCount(), count);
        QCOMPARE(loaded.count(), 1);
        QCOMPARE(sized.count(), 1);
        const int row = contents.rowOf("item 7");
        QVERIFY(row >= 0);
        QCOMPARE(contents.index(row, TrashContents::OriginalLocation).data().toString(),
                 u"/home/me/item 7"_s);
        QCOMPARE(
            contents.index(row, TrashContents::Deleted).data(TrashContents::SortRole).toDateTime(),
            QDateTime(QDate(2024, 3, 1), QTime(10, 20, 30)));
        QVERIFY(contents.size(row).has_value());
    }

    // Reading a trash's items is queued apart from the scans: a rescan never waits behind it.
    void contentsWaitOnAQueueOfTheirOwn()
    {
        test::ModelHarness model;
        model.plainHome();
        test::writeFile(model.homeTrash() / "item");
        test::HeldWorkQueue contentsWork;
        model.contentsQueue = &contentsWork;
        VolumeObserver& observer = model.start();
        TrashContents contents(model.homeTrash(), "/", model.platform());
        contents.load();
        QCOMPARE(contentsWork.size(), std::size_t(1));
        QSignalSpy published(&observer, &VolumeObserver::listPublished);
        observer.updateVolumes();
        model.settle();
        QCOMPARE(published.count(), 1); // while the items still wait
        contentsWork.runAll();
        model.scheduler.runPending();
        QCOMPARE(contents.rowCount(), 1);
    }

    void contentsShowEveryRecordSafely_data()
    {
        QTest::addColumn<std::string>("name");
        QTest::addColumn<std::string>("origin"); // as its record gives it; no record when empty
        QTest::addColumn<QString>("shownName");
        QTest::addColumn<QString>("shownLocation");
        const auto row = [](const char* tag, const char* name, const char* origin,
                            const QString& shownName, const QString& shownLocation) {
            QTest::newRow(tag) << std::string(name) << std::string(origin) << shownName
                               << shownLocation;
        };
        row("Latin-1 name, no record", "caf\xe9", "", u"caf\uFFFD"_s, u"Unknown"_s);
        row("newline in the name", "two\nlines", "/a/two%0Alines", u"two\\nlines"_s,
            u"/a/two\\nlines"_s);
        row("relative to the volume", "photo.jpg", "Pictures/photo%20one.jpg", u"photo.jpg"_s,
            u"/media/stick/Pictures/photo one.jpg"_s);
    }
    void contentsShowEveryRecordSafely()
    {
        QFETCH(std::string, name);
        QFETCH(std::string, origin);
        QFETCH(QString, shownName);
        QFETCH(QString, shownLocation);
        test::ModelHarness model;
        const fs::path trash = model.home / "stick/.Trash-1000/files";
        test::writeFile(trash / name, std::string(10000, 'x'));
        if (!origin.empty())
            test::writeFile(trash.parent_path() / "info" / (name + ".trashinfo"),
                            "[Trash Info]\nPath=" + origin + "\n");
        TrashContents contents(trash, "/media/stick", model.platform());
        loadAll(model, contents);
        QCOMPARE(contents.rowCount(), 1);
        QCOMPARE(contents.index(0, TrashContents::Name).data().toString(), shownName);
        QCOMPARE(contents.index(0, TrashContents::Name).data(TrashContents::NameBytesRole),
                 QVariant(QByteArray::fromStdString(name)));
        QCOMPARE(contents.index(0, TrashContents::OriginalLocation).data().toString(),
                 shownLocation);
        // Allocated, not apparent: whole blocks, at least the bytes written.
        QVERIFY(contents.size(0).value_or(0) >= 10000);
        QCOMPARE(contents.index(0, TrashContents::Size).data(TrashContents::SortRole).toULongLong(),
                 *contents.size(0));
        fs::remove_all(trash.parent_path()); // names QTemporaryDir cannot remove
    }

    // A change reads the names again and takes out and puts in only the rows that differ: a
    // row the user holds stays where it is.
    void contentsFollowTheTrash()
    {
        test::ModelHarness model;
        for (const char* name : {"a", "b", "c"})
            test::writeFile(model.homeTrash() / name);
        TrashContents contents(model.homeTrash(), "/", model.platform());
        loadAll(model, contents);
        QCOMPARE(contents.rowCount(), 3);
        const QPersistentModelIndex held = contents.index(contents.rowOf("b"), 0);
        QSignalSpy reset(&contents, &QAbstractItemModel::modelReset);
        QSignalSpy refreshed(&contents, &TrashContents::refreshed);
        fs::remove(model.homeTrash() / "a");
        test::writeFile(model.homeTrash() / "d", std::string(5000, 'y'));
        // The watch tells the main thread through its event loop; the reading waits for the
        // changes to settle.
        QVERIFY(model.awaitEvent());
        QTest::qWait(50); // both changes in
        model.scheduler.advance(1s);
        QTRY_VERIFY_WITH_TIMEOUT((model.scheduler.advance(1s), refreshed.count() >= 1), 5000);
        QCOMPARE(contents.rowCount(), 3);
        QCOMPARE(contents.rowOf("a"), -1);
        QVERIFY(contents.rowOf("d") >= 0);
        QVERIFY(contents.size(contents.rowOf("d")).value_or(0) >= 5000);
        QVERIFY(held.isValid());
        QCOMPARE(held.data().toString(), u"b"_s);
        QCOMPARE(reset.count(), 0);
        // The trash going away empties the list and says why.
        fs::remove_all(model.homeTrash().parent_path());
        QTRY_VERIFY_WITH_TIMEOUT((model.scheduler.advance(1s), contents.rowCount() == 0), 5000);
        QVERIFY(!contents.error().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestVolumeObserver)
#include "tst_VolumeObserver.moc"
