#include "Platform/linux/InotifyFolderWatcher.h"
#include "PlatformTestSupport.h"

#include <QTest>
#include <fcntl.h>
#include <fstream>
#include <sched.h>

namespace fs = std::filesystem;
using namespace quillane;

namespace
{

// A watch that counts its calls.
struct Counted {
    int calls = 0;
    std::unique_ptr<FolderWatch> watch;

    Counted(FolderWatcher& watcher, const fs::path& folder)
        : watch(watcher.watch(folder, [this] { ++calls; }))
    {
    }
};

fs::path pathOf(const QTemporaryDir& dir)
{
    return dir.path().toStdString();
}

} // namespace

class TestInotifyFolderWatcher : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void onlyEntryChangesAreReported_data()
    {
        QTest::addColumn<QByteArray>("change"); // beside watched/ (holding file, sub/file), outside
        QTest::addColumn<bool>("reported");
        const auto row = [](const char* tag, const char* change, bool reported) {
            QTest::newRow(tag) << QByteArray(change) << reported;
        };
        row("file added", "touch watched/new", true);
        row("folder added", "mkdir watched/new", true);
        row("file removed", "rm watched/file", true);
        row("moved in", "mv outside watched/", true);
        row("moved out", "mv watched/file outside", true);
        row("renamed", "mv watched/file watched/b", true);
        row("file added below", "touch watched/sub/new", false);
        row("file removed below", "rm watched/sub/file", false);
        row("file written below", "echo more >>watched/sub/file", false);
        row("file moved in below", "mv outside watched/sub/", false);
        row("subfolder touched", "touch watched/sub", false);
    }

    // A second watch, on the subfolder, shows when the change has been read: events come in
    // order, so by then the watched folder's call, right or wrong, has been made too.
    void onlyEntryChangesAreReported()
    {
        QFETCH(QByteArray, change);
        QFETCH(bool, reported);
        QTemporaryDir root;
        const fs::path folder = pathOf(root) / "watched";
        test::writeFile(folder / "file");
        test::writeFile(folder / "sub/file");
        test::writeFile(pathOf(root) / "outside");
        InotifyFolderWatcher watcher;
        Counted watched(watcher, folder);
        Counted probe(watcher, folder / "sub");
        QVERIFY(watched.watch && probe.watch);

        QVERIFY(test::shell(folder.parent_path(), change + "; touch watched/sub/marker"));
        QTRY_VERIFY(probe.calls > 0);
        QCOMPARE(watched.calls > 0, reported);
        if (!reported) {
            test::writeFile(folder / "new");
            QTRY_COMPARE(watched.calls, 1);
        }
    }

    // A folder that goes ends its watch: the listener hears of it once, with whatever changed
    // in it just before, even when the kernel reports both in one read.
    void folderThatGoesIsALastChange_data()
    {
        QTest::addColumn<QByteArray>("change");
        QTest::newRow("emptied and removed in one go")
            << QByteArray("touch watched/new; rm -r watched");
        QTest::newRow("removed while empty") << QByteArray("rm watched/file; rmdir watched");
        QTest::newRow("moved away") << QByteArray("mv watched elsewhere");
    }

    void folderThatGoesIsALastChange()
    {
        QFETCH(QByteArray, change);
        QTemporaryDir root;
        const fs::path folder = pathOf(root) / "watched";
        test::writeFile(folder / "file");
        test::makeFolder(pathOf(root) / "probe");
        InotifyFolderWatcher watcher;
        Counted watched(watcher, folder);
        Counted probe(watcher, pathOf(root) / "probe");
        QVERIFY(watched.watch && probe.watch);

        QVERIFY(test::shell(pathOf(root), change + "; touch probe/marker"));
        QTRY_VERIFY(probe.calls > 0);
        QCOMPARE(watched.calls, 1);
    }

    // A watch for one entry hears of that name only, so writes beside it cost nothing.
    void entryWatchHearsOfItsNameOnly()
    {
        QTemporaryDir root;
        const fs::path share = pathOf(root);
        InotifyFolderWatcher watcher;
        int calls = 0;
        const auto watch = watcher.watchEntry(share, "Trash", [&calls] { ++calls; });
        Counted probe(watcher, share);
        QVERIFY(watch && probe.watch);

        QVERIFY(test::shell(share, "touch recently-used.xbel.X1; mv recently-used.xbel.X1 "
                                   "recently-used.xbel; mkdir Trashy"));
        QTRY_VERIFY(probe.calls > 0);
        QCOMPARE(calls, 0);
        QVERIFY(test::shell(share, "mkdir Trash"));
        QTRY_COMPARE(calls, 1);
        QVERIFY(test::shell(share, "rmdir Trash; touch other"));
        QTRY_COMPARE(calls, 2);
    }

    void twoWatchesOnOneFolder()
    {
        QTemporaryDir root;
        const fs::path folder = pathOf(root);
        InotifyFolderWatcher watcher;
        Counted first(watcher, folder);
        Counted second(watcher, folder);
        QVERIFY(first.watch && second.watch);
        test::writeFile(folder / "a");
        QTRY_VERIFY(first.calls == 1 && second.calls == 1);

        first.watch.reset();
        test::writeFile(folder / "b");
        QTRY_COMPARE(second.calls, 2);
        QCOMPARE(first.calls, 1);
    }

    // A folder that cannot be watched (missing, or a file) is no news: the caller stays idle.
    void unwatchableFolderGivesNothing()
    {
        QTemporaryDir root;
        const fs::path folder = pathOf(root);
        test::writeFile(folder / "file");
        test::ConsoleCapture console;
        InotifyFolderWatcher watcher;
        QVERIFY(!watcher.watch(folder / "missing", [] {}));
        QVERIFY(!watcher.watch(folder / "file", [] {}));
        QCOMPARE(console.lines(), std::vector<std::string>{});
    }

    void watchDoesNotHoldTheVolume()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        test::ScratchVolume volume("/mnt/watched");
        QVERIFY(volume.isMounted());
        test::makeFolder(volume.path() / "trash");
        InotifyFolderWatcher watcher;
        Counted top(watcher, volume.path());
        Counted inner(watcher, volume.path() / "trash");
        QVERIFY(top.watch && inner.watch);
        QVERIFY(volume.unmount());

        // Let the watcher read what the unmount left in its queue, then drop the dead watches.
        QTemporaryDir other;
        Counted probe(watcher, pathOf(other));
        test::writeFile(pathOf(other) / "x");
        QTRY_VERIFY(probe.calls > 0);
        top.watch.reset();
        inner.watch.reset();
    }

    // The watch limit is lowered in a child process's own user namespace, where the kernel
    // keeps a limit of its own; the machine's limit stays as it is.
    void watchLimitIsReportedOnce()
    {
        QTemporaryDir root;
        const fs::path folder = pathOf(root);
        const std::string outcome = test::inChild(getuid(), [&]() -> std::string {
            if (unshare(CLONE_NEWUSER) != 0)
                return "skip: no user namespace";
            if (!(std::ofstream("/proc/sys/user/max_inotify_watches") << "0" << std::flush))
                return "skip: the namespace's watch limit cannot be set";
            test::ConsoleCapture console;
            InotifyFolderWatcher watcher;
            if (watcher.watch(folder, [] {}) || watcher.watch(folder / "..", [] {}))
                return "a watch was given beyond the limit";
            const auto lines = console.lines();
            if (lines.size() != 1 || console.count("Folder Monitor Error: ") != 1)
                return "expected one line, got " + std::to_string(lines.size());
            return {};
        });
        if (outcome.starts_with("skip: "))
            QSKIP(outcome.c_str());
        QVERIFY2(outcome.empty(), outcome.c_str());
    }

    // When more events arrive than the kernel queues, it drops the rest and says so; a folder
    // whose own event was dropped must still hear of its change.
    void changeIsReportedAfterQueueOverflow()
    {
        int limit = 0;
        std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
        if (limit <= 0 || limit > 200000)
            QSKIP("the inotify queue limit is unknown or too large to fill");
        QTemporaryDir root;
        const fs::path busy = pathOf(root) / "busy", quiet = pathOf(root) / "quiet";
        test::makeFolder(busy);
        test::makeFolder(quiet);
        InotifyFolderWatcher watcher;
        Counted busyWatch(watcher, busy);
        Counted quietWatch(watcher, quiet);
        QVERIFY(busyWatch.watch && quietWatch.watch);

        const fs::path file = busy / "f"; // the event loop does not run: the queue fills up
        for (int i = 0; i < limit / 2 + 1; ++i) {
            close(open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
            unlink(file.c_str());
        }
        test::writeFile(quiet / "new");
        QTRY_VERIFY(busyWatch.calls > 0);
        QTRY_VERIFY_WITH_TIMEOUT(quietWatch.calls > 0, 1000);
    }
};

QTEST_GUILESS_MAIN(TestInotifyFolderWatcher)
#include "tst_InotifyFolderWatcher.moc"
