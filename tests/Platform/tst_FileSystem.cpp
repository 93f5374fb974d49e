#include "Platform/FileSystem.h"
#include "PlatformTestSupport.h"

#include <QScopeGuard>
#include <QTest>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace quillane;

namespace
{

// The space allocated to the files, as the kernel reports it.
std::uint64_t allocated(const fs::path& folder, const QByteArrayList& files)
{
    std::uint64_t total = 0;
    for (const QByteArray& file : files) {
        struct stat info {
        };
        if (lstat((folder / file.toStdString()).c_str(), &info) == 0 && S_ISREG(info.st_mode))
            total += std::uint64_t(info.st_blocks) * 512;
    }
    return total;
}

} // namespace

class TestFileSystem : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sizesAreLeftForTheNextRun_data()
    {
        QTest::addColumn<QByteArray>("change"); // run in the trash folder between two runs
        QTest::addColumn<bool>("walkedAgain");
        QTest::newRow("nothing") << QByteArray("true") << false;
        QTest::newRow("the line rewritten by another program")
            << QByteArray("t=$(stat -c %Y info/photos.trashinfo); "
                          "echo \"123 $t photos\" >directorysizes")
            << true;
        QTest::newRow("the record changed since")
            << QByteArray("touch -d '2001-01-01' info/photos.trashinfo") << true;
        QTest::newRow("our note of what we wrote lost") << QByteArray("rm -r ../cache") << true;
    }

    // A folder sized by one run is not walked by the next while its line in directorysizes is
    // one we wrote and its record has not changed; other programs read the line too. Each run is
    // a process of its own, and this case comes first, before this process has sized a trash.
    void sizesAreLeftForTheNextRun()
    {
        QFETCH(QByteArray, change);
        QFETCH(bool, walkedAgain);
        QTemporaryDir root;
        const fs::path trash = fs::path(root.path().toStdString()) / "Trash";
        test::writeFile(trash / "files/photos/one.jpg", std::string(50000, 'p'));
        test::writeFile(trash / "info/photos.trashinfo", "[Trash Info]\nPath=/photos\n");
        const auto run = [&] {
            return test::inChild(getuid(), [&] {
                setenv("XDG_CACHE_HOME", (root.path() + QStringLiteral("/cache")).toLocal8Bit(), 1);
                const auto size = allocatedSizeOfTrash(trash / "files");
                return size.ok() ? std::to_string(size.value()) : size.error();
            });
        };
        const std::string first = run();
        QCOMPARE(first, std::to_string(allocated(trash / "files", {"photos/one.jpg"})));
        const std::string line = test::readFile(trash / "directorysizes");
        QVERIFY2(line.starts_with(first + ' ') && line.ends_with(" photos\n"), line.c_str());

        // Deep inside the folder, where only a walk sees it.
        test::writeFile(trash / "files/photos/more/two.jpg", std::string(90000, 'q'));
        QVERIFY(test::shell(trash, change));
        QCOMPARE(run(), walkedAgain
                            ? std::to_string(allocated(trash / "files",
                                                       {"photos/one.jpg", "photos/more/two.jpg"}))
                            : first);
    }

    void allocatedSize_data()
    {
        QTest::addColumn<QByteArray>("layout"); // run in the tree; ../outside is beside it
        QTest::addColumn<QByteArrayList>("counted");
        // Run once the tree was sized, and what the trash's size counts after it.
        QTest::addColumn<QByteArray>("change");
        QTest::addColumn<QByteArrayList>("countedAfter");
        const auto row = [](const char* tag, const char* layout, const QByteArrayList& counted,
                            const char* change = "true", const QByteArrayList& after = {"-"}) {
            QTest::newRow(tag) << QByteArray(layout) << counted << QByteArray(change)
                               << (after == QByteArrayList{"-"} ? counted : after);
        };
        row("files at several depths",
            "mkdir -p b/d/e; fill a 1; fill b/c 5000; fill b/d/e/f 70000; : >empty",
            {"a", "b/c", "b/d/e/f", "empty"});
        row("sparse file counts its blocks, not its length",
            "fill sparse 4096; truncate -s 1G sparse", {"sparse"});
        row("link to a big file outside",
            "fill ../outside/big 1000000; ln -s ../outside/big link; fill kept 9000", {"kept"});
        row("link to a folder outside",
            "mkdir -p ../outside/folder sub; fill ../outside/folder/big 1000000; "
            "ln -s ../../outside/folder sub/link; fill sub/kept 9000",
            {"sub/kept"});
        row("dangling link and a pipe", "ln -s missing dangling; mkfifo pipe; fill kept 9000",
            {"kept"});
        row(".DS_Store at any depth adds nothing",
            "mkdir -p a/b c/.DS_Store d; for f in .DS_Store a/b/.DS_Store c/.DS_Store/inside "
            "d/copy.DS_Store.bak; do fill $f 9000; done; fill a/b/kept 9000",
            {"a/b/kept"});
        QByteArrayList odd = {"caf\xe9-\xff\xfe", "two\nlines", "-rf", QByteArray(255, 'n')};
        for (QByteArray& name : odd)
            name += '/' + name;
        row("names not UTF-8, with a newline, a leading dash, of 255 bytes",
            "for n in \"$(printf 'caf\\351-\\377\\376')\" \"$(printf 'two\\nlines')\" -rf "
            "$(printf %0255d 0 | tr 0 n); do mkdir -- \"$n\"; fill \"$n/$n\" 10000; done",
            odd);
        // The trash's size walks what changed since the last time, and only that.
        const char* trash = "fill file 5000; fill item/top 9000; fill item/inner/deep 70000";
        const QByteArrayList before = {"file", "item/top", "item/inner/deep"};
        row("an item added", trash, before, "fill new/f 9000", before + QByteArrayList{"new/f"});
        row("an item removed", trash, before, "rm -r item", {"file"});
        row("an entry added at an item's top", trash, before, "fill item/more 9000",
            before + QByteArrayList{"item/more"});
        row("an item replaced under its name", trash, before,
            "rm -r item; mkdir item; fill item/new 9000", {"file", "item/new"});
        // Nothing but emptying changes what is inside a trashed item, so its top stands for it.
        row("a change deep inside an item is not walked again", trash, before,
            "fill item/inner/more 9000", before);
    }

    // The total is the space allocated to the regular files of the tree and nothing else.
    void allocatedSize()
    {
        QFETCH(QByteArray, layout);
        QFETCH(QByteArrayList, counted);
        QFETCH(QByteArray, change);
        QFETCH(QByteArrayList, countedAfter);
        const QByteArray fill =
            "fill() { mkdir -p -- \"$(dirname -- \"$1\")\"; head -c $2 /dev/zero >\"$1\"; }; ";
        QTemporaryDir root;
        const fs::path tree = fs::path(root.path().toStdString()) / "tree";
        test::makeFolder(tree);
        test::makeFolder(fs::path(root.path().toStdString()) / "outside");
        // QTemporaryDir removes by QString, which cannot spell every byte name.
        const auto removeFirst = qScopeGuard([&] { fs::remove_all(tree); });
        QVERIFY(test::shell(tree, fill + layout));

        const auto size = allocatedSizeOfDirectory(tree);
        QVERIFY2(size.ok(), size.error().c_str());
        QCOMPARE(size.value(), allocated(tree, counted));
        const auto first = allocatedSizeOfTrash(tree);
        QVERIFY2(first.ok(), first.error().c_str());
        QCOMPARE(first.value(), size.value());
        QVERIFY(test::shell(tree, fill + change));
        const auto after = allocatedSizeOfTrash(tree); // from what it knows
        QVERIFY2(after.ok(), after.error().c_str());
        QCOMPARE(after.value(), allocated(tree, countedAfter));
    }

    void unreadableFolderFailsTheWalk_data()
    {
        QTest::addColumn<QByteArray>("mode");
        QTest::newRow("cannot be read") << QByteArray("0300");
        QTest::newRow("cannot be searched") << QByteArray("0600");
    }

    // Run as an unprivileged user: a total that left a folder out would be a wrong answer.
    void unreadableFolderFailsTheWalk()
    {
        if (getuid() != 0)
            QSKIP("needs root, to act as another user");
        QFETCH(QByteArray, mode);
        QTemporaryDir root;
        QVERIFY(chmod(root.path().toLocal8Bit().constData(), 0755) == 0);
        const fs::path tree = root.path().toStdString();
        QVERIFY(test::shell(tree, "mkdir -p a b/locked c; for f in a/kept b/locked/hidden c/kept; "
                                  "do echo data >$f; done; chown -R 65534 .; chmod " +
                                      mode + " b/locked"));

        const std::string outcome = test::inChild(test::nobody, [&]() -> std::string {
            const auto size = allocatedSizeOfDirectory(tree);
            if (size.ok())
                return "walk succeeded with " + std::to_string(size.value());
            if (size.error().find((tree / "b/locked").native()) == std::string::npos)
                return "error does not name the folder: " + size.error();
            return {};
        });
        QVERIFY2(outcome.empty(), outcome.c_str());
    }

    // However deep the tree, a walk holds few descriptors open.
    void deepTreeWithFewDescriptors()
    {
        QTemporaryDir root;
        const fs::path tree = fs::path(root.path().toStdString()) / "tree";
        test::writeFile(tree / ".keep", "x");
        const auto removeFirst = qScopeGuard([&] {
            test::run(QStringLiteral("rm"),
                      {QStringLiteral("-rf"), QString::fromStdString(tree.native())});
        });
        int parent = open(tree.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (int level = 0; level < 4096 && parent >= 0; ++level) {
            QVERIFY(mkdirat(parent, "d", 0755) == 0);
            const int child = openat(parent, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            close(parent);
            parent = child;
        }
        const int file = openat(parent, "bottom", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        QVERIFY(file >= 0 && write(file, "x", 1) == 1);
        close(file);
        close(parent);

        const std::string outcome = test::inChild(getuid(), [&]() -> std::string {
            const rlimit limit{256, 256};
            setrlimit(RLIMIT_NOFILE, &limit);
            const auto size = allocatedSizeOfDirectory(tree);
            const auto trash = allocatedSizeOfTrash(tree);
            if (!size.ok() || !trash.ok())
                return size.ok() ? trash.error() : size.error();
            return std::to_string(size.value()) + ' ' + std::to_string(trash.value());
        });
        const std::string both = std::to_string(2 * allocated(tree, {".keep"}));
        QCOMPARE(outcome, both + ' ' + both);
    }

    void mountedFilesystemIsNotEntered()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        const fs::path tree = "/mnt/sized";
        test::writeFile(tree / "kept", std::string(10000, 'q'));
        test::ScratchVolume volume(tree / "inner");
        QVERIFY(volume.isMounted());
        test::writeFile(volume.path() / "big", std::string(1 << 20, 'q'));

        const auto inner = allocatedSizeOfDirectory(volume.path());
        QVERIFY2(inner.ok(), inner.error().c_str());
        QVERIFY(inner.value() >= 1 << 20);
        const auto size = allocatedSizeOfDirectory(tree);
        QVERIFY2(size.ok(), size.error().c_str());
        QCOMPARE(size.value(), allocated(tree, {"kept"}));
    }
};

QTEST_GUILESS_MAIN(TestFileSystem)
#include "tst_FileSystem.moc"
