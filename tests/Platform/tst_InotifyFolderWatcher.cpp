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
    // Only entries added, removed or moved in or out are news. A folder that goes ends its
    // watch: the listener hears of it once, with whatever changed in it just before, even when
    // the kernel reports both in one read.
    void changesAreReported_data()
    {
        // run beside watched/ (which holds file and sub/file), outside and probe/
        QTest::addColumn<QByteArray>("change");
        QTest::addColumn<int>("calls");
        const auto row = [](const char* tag, const char* change, int calls) {
            QTest::newRow(tag) << QByteArray(change) << calls;
        };
        row("file added", "touch watched/new", 1);
        row("folder added", "mkdir watched/new", 1);
        row("file removed", "rm watched/file", 1);
        row("moved in", "mv outside watched/", 1);
        row("moved out", "mv watched/file outside", 1);
        row("renamed", "mv watched/file watched/b", 1);
        row("file added below", "touch watched/sub/new", 0);
        row("file removed below", "rm watched/sub/file", 0);
        row("file written below", "echo more >>watched/sub/file", 0);
        row("file moved in below", "mv outside watched/sub/", 0);
        row("subfolder touched", "touch watched/sub", 0);
        row("emptied and removed in one go", "touch watched/new; rm -r watched", 1);
        row("removed while empty", "rm -r watched/*; rmdir watched", 1);
        row("moved away", "mv watched elsewhere", 1);
    }

    // A second watch shows when the change has been read: events come in order, so by then
    // the watched folder's call, right or wrong, has been made too.
    void changesAreReported()
    {
        QFETCH(QByteArray, change);
        QFETCH(int, calls);
        QTemporaryDir root;
        const fs::path folder = pathOf(root) / "watched";
        test::writeFile(folder / "file");
        test::writeFile(folder / "sub/file");
        test::writeFile(pathOf(root) / "outside");
        test::makeFolder(pathOf(root) / "probe");
        InotifyFolderWatcher watcher;
        Counted watched(watcher, folder);
        Counted probe(watcher, pathOf(root) / "probe");
        QVERIFY(watched.watch && probe.watch);

        QVERIFY(test::shell(pathOf(root), change + "; touch probe/marker"));
        QTRY_VERIFY(probe.calls > 0);
        QCOMPARE(watched.calls, calls);
        if (calls == 0) {
            test::writeFile(folder / "new");
            QTRY_COMPARE(watched.calls, 1);
        }
    }

    // A watch for one entry hears of that name only, so writes beside it cost nothing; a second
    // watch on the folder hears of everything, and dropping it leaves the first.
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
        QCOMPARE(probe.calls, 2);
        probe.watch.reset();
        QVERIFY(test::shell(share, "rmdir Trash; touch other"));
        QTRY_COMPARE(calls, 2);
        QCOMPARE(probe.calls, 2);
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
