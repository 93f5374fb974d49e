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

} // namespace

class TestInotifyFolderWatcher : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void entryChangesAreReported_data()
    {
        QTest::addColumn<QByteArray>("before"); // commands run beside watched/ and outside/
        QTest::addColumn<QByteArray>("change");
        const auto row = [](const char* tag, const char* before, const char* change) {
            QTest::newRow(tag) << QByteArray(before) << QByteArray(change);
        };
        row("file added", "true", "touch watched/new");
        row("folder added", "true", "mkdir watched/new");
        row("file removed", "touch watched/file", "rm watched/file");
        row("moved in", "touch outside/file", "mv outside/file watched/");
        row("moved out", "touch watched/file", "mv watched/file outside/");
        row("renamed", "touch watched/a", "mv watched/a watched/b");
    }

    void entryChangesAreReported()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, change);
        QTemporaryDir root;
        const fs::path folder = root.path().toStdString();
        QVERIFY(test::shell(folder, "mkdir watched outside; " + before));
        InotifyFolderWatcher watcher;
        Counted watched(watcher, folder / "watched");
        QVERIFY(watched.watch);
        QVERIFY(test::shell(folder, change));
        QTRY_VERIFY(watched.calls > 0);
    }

    void subfolderChangesAreNotReported_data()
    {
        QTest::addColumn<QByteArray>("change"); // run in the watched folder, beside sub/
        QTest::newRow("file added") << QByteArray("touch sub/new");
        QTest::newRow("file removed") << QByteArray("rm sub/file");
        QTest::newRow("file written") << QByteArray("echo more >>sub/file");
        QTest::newRow("file moved in") << QByteArray("mv ../outside sub/");
        QTest::newRow("subfolder touched") << QByteArray("touch sub");
    }

    // A second watch, on the subfolder, shows when the change has been read: by then a wrong
    // call for the watched folder would have been made too.
    void subfolderChangesAreNotReported()
    {
        QFETCH(QByteArray, change);
        QTemporaryDir root;
        const fs::path folder = fs::path(root.path().toStdString()) / "watched";
        test::writeFile(folder / "sub/file");
        test::writeFile(fs::path(root.path().toStdString()) / "outside");
        InotifyFolderWatcher watcher;
        Counted watched(watcher, folder);
        Counted probe(watcher, folder / "sub");
        QVERIFY(watched.watch && probe.watch);

        QVERIFY(test::shell(folder, change + "; touch sub/marker"));
        QTRY_VERIFY(probe.calls > 0);
        QCOMPARE(watched.calls, 0);
        test::writeFile(folder / "new");
        QTRY_COMPARE(watched.calls, 1);
    }

    void twoWatchesOnOneFolder()
    {
        QTemporaryDir root;
        const fs::path folder = root.path().toStdString();
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
        const fs::path folder = root.path().toStdString();
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
        Counted probe(watcher, other.path().toStdString());
        test::writeFile(fs::path(other.path().toStdString()) / "x");
        QTRY_VERIFY(probe.calls > 0);
        top.watch.reset();
        inner.watch.reset();
    }

    // The watch limit is lowered in a child process's own user namespace, where the kernel
    // keeps a limit of its own; the machine's limit stays as it is.
    void watchLimitIsReportedOnce()
    {
        QTemporaryDir root;
        const fs::path folder = root.path().toStdString();
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
                return "expected one line, got " + std::to_string(lines.size()) + ": " +
                       (lines.empty() ? std::string() : lines.front());
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
        const fs::path busy = fs::path(root.path().toStdString()) / "busy";
        const fs::path quiet = fs::path(root.path().toStdString()) / "quiet";
        test::makeFolder(busy);
        test::makeFolder(quiet);
        InotifyFolderWatcher watcher;
        Counted busyWatch(watcher, busy);
        Counted quietWatch(watcher, quiet);
        QVERIFY(busyWatch.watch && quietWatch.watch);

        // The event loop does not run here, so the queue fills up.
        const fs::path file = busy / "f";
        for (int i = 0; i < limit / 2 + 1; ++i) {
            close(open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
            unlink(file.c_str());
        }
        test::writeFile(quiet / "new");
        QTRY_VERIFY(busyWatch.calls > 0);
        // The whole queue is read in one go, so the quiet folder's news came with the busy one's.
        QTRY_VERIFY_WITH_TIMEOUT(quietWatch.calls > 0, 1000);
    }
};

QTEST_GUILESS_MAIN(TestInotifyFolderWatcher)
#include "tst_InotifyFolderWatcher.moc"
