#include "Platform/FileSystem.h"
#include "Platform/SafeRemoval.h"
#include "PlatformTestSupport.h"

#include <QScopeGuard>
#include <QTest>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace quillane;

namespace
{

UniqueFd openFolder(const fs::path& path)
{
    return UniqueFd::adopt(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Every entry below a folder, links not followed, with what it holds (a file's bytes, a link's
// target): equal snapshots mean nothing was removed or changed.
QByteArrayList snapshot(const fs::path& folder)
{
    QByteArrayList entries;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        QByteArray line =
            QByteArray::fromStdString(entry.path().native().substr(folder.native().size() + 1));
        if (entry.is_symlink()) {
            line += " -> " + QByteArray::fromStdString(fs::read_symlink(entry.path()).native());
        } else if (entry.is_regular_file()) {
            std::ostringstream bytes;
            bytes << std::ifstream(entry.path(), std::ios::binary).rdbuf();
            line += " = " + QByteArray::fromStdString(bytes.str());
        }
        entries << line;
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

ino_t inodeOf(const fs::path& path)
{
    struct stat info {
    };
    return lstat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

// What removeEntry said, as one line the child can pass back: empty when it removed the entry.
std::string outcome(const Result<bool>& removed)
{
    if (removed.ok())
        return removed.value() ? std::string() : "reported nothing there";
    return std::to_string(removed.errorCode()) + ' ' + removed.error();
}

} // namespace

class TestSafeRemoval : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void removesTheEntryAndNothingElse_data()
    {
        QTest::addColumn<QByteArray>("item");
        QTest::addColumn<QByteArray>("layout"); // run in the trash; ../outside is beside it
        const auto row = [](const char* tag, const QByteArray& item, const QByteArray& layout) {
            QTest::newRow(tag) << item << layout;
        };
        // An item named $n holding a folder and files of the same name.
        const QByteArray nested = "); mkdir -p \"./$n/$n/$n\"; echo x >\"./$n/$n/$n/$n\"; "
                                  "echo y >\"./$n/$n/f\"";
        row("names not utf-8", "caf\xe9\xff", "n=$(printf 'caf\\351\\377'" + nested);
        row("names with a newline", "two\nlines", "n=$(printf 'two\\nlines'" + nested);
        row("names with a leading dash", "-rf", "n=$(printf %s -rf" + nested);
        row("names of 255 bytes", QByteArray(255, 'n'), "n=$(printf %0255d 0 | tr 0 n" + nested);
        row("folders, files, a pipe", "item",
            "mkdir -p item/a/b/c item/d; echo x >item/a/f; echo y >item/a/b/c/g; "
            ": >item/d/empty; mkfifo item/pipe");
        row("the item is a link to a folder outside", "item",
            "mkdir ../outside/folder; echo x >../outside/folder/kept; ln -s ../outside/folder "
            "item");
        row("the item is a link to a file outside", "item",
            "echo x >../outside/kept; ln -s ../outside/kept item");
        row("links inside the item", "item",
            "mkdir -p item/sub ../outside/folder; echo x >../outside/folder/kept; "
            "echo y >../outside/file; ln -s ../../../outside/folder item/sub/folder; "
            "ln -s ../../outside/file item/file; ln -s \"$PWD/../outside\" item/abs; "
            "ln -s missing item/dangling; ln ../outside/file item/sub/hard");
    }

    // Links are removed as links; whatever they lead to, and the neighbours, stay as they were.
    void removesTheEntryAndNothingElse()
    {
        QFETCH(QByteArray, item);
        QFETCH(QByteArray, layout);
        QTemporaryDir root;
        const fs::path trash = fs::path(root.path().toStdString()) / "trash";
        const fs::path outside = fs::path(root.path().toStdString()) / "outside";
        test::makeFolder(outside);
        test::writeFile(trash / "beside", "kept");
        QVERIFY(test::shell(trash, layout));
        const QByteArrayList before = snapshot(outside);

        const UniqueFd folder = openFolder(trash);
        QCOMPARE(outcome(removeEntry(folder.get(), item.toStdString())), std::string());
        QCOMPARE(snapshot(trash), QByteArrayList{"beside = kept"});
        QCOMPARE(snapshot(outside), before);
        QCOMPARE(outcome(removeEntry(folder.get(), item.toStdString())), "reported nothing there");
    }

    // Deeper than any path the kernel takes, with too few descriptors for one per level.
    void removesADeepTreeWithFewDescriptors()
    {
        QTemporaryDir root;
        const fs::path trash = root.path().toStdString();
        const auto cleanUp = qScopeGuard([&] {
            test::run(QStringLiteral("rm"), {QStringLiteral("-rf"), root.path()});
        });
        const std::string name(40, 'd');
        constexpr int depth = 150;
        QVERIFY(depth * (name.size() + 1) > PATH_MAX);
        test::writeFile(trash / "beside");
        {
            UniqueFd folder = openFolder(trash);
            for (int level = 0; level < depth; ++level) {
                QVERIFY(mkdirat(folder.get(), name.c_str(), 0700) == 0);
                folder = UniqueFd::adopt(
                    openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
                QVERIFY(folder);
                QVERIFY(UniqueFd::adopt(openat(folder.get(), "f", O_CREAT | O_WRONLY, 0600)));
            }
        }

        const std::string result = test::inChild(getuid(), [&] {
            const int lowest = open("/dev/null", O_RDONLY);
            close(lowest);
            const rlimit few{rlim_t(lowest + 40), rlim_t(lowest + 40)};
            if (setrlimit(RLIMIT_NOFILE, &few) != 0)
                return std::string("cannot lower the descriptor limit");
            return outcome(removeEntry(openFolder(trash).get(), name));
        });
        QVERIFY2(result.empty(), result.substr(0, 400).c_str());
        QCOMPARE(listDirectory(trash).value(), std::vector<std::string>{"beside"});
    }

    void refusesWhatIsNotOneName_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::newRow("path") << QByteArray("a/b");
        QTest::newRow("trailing slash") << QByteArray("a/");
        QTest::newRow("dot dot") << QByteArray("..");
        QTest::newRow("dot") << QByteArray(".");
        QTest::newRow("empty") << QByteArray("");
        QTest::newRow("NUL inside") << QByteArray("a\0b", 3);
    }

    void refusesWhatIsNotOneName()
    {
        QFETCH(QByteArray, name);
        QTemporaryDir root;
        const fs::path base = root.path().toStdString();
        QVERIFY(test::shell(base, "mkdir -p parent/a; echo x >parent/a/b; echo y >sibling"));
        const QByteArrayList before = snapshot(base);

        QCOMPARE(removeEntry(openFolder(base / "parent").get(), name.toStdString()).errorCode(),
                 EINVAL);
        QCOMPARE(snapshot(base), before);
    }

    void openBeneath_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<int>("code");
        QTest::addColumn<QByteArray>("named"); // what the error names
        const auto row = [](const char* tag, const char* path, int code, const char* named) {
            QTest::newRow(tag) << QByteArray(path) << code << QByteArray(named);
        };
        row("plain", "a/b/c", 0, "");
        row("link first", "link/b", ELOOP, "link:");
        row("link between", "a/blink/c", ELOOP, "a/blink:");
        row("link last", "a/blink", ELOOP, "a/blink:");
        row("a file", "a/file", ENOTDIR, "a/file:");
        row("missing", "a/none", ENOENT, "a/none:");
        row("dot dot", "a/../a", EINVAL, "\"..\"");
        row("dot", "a/./b", EINVAL, "\".\"");
        row("empty component", "a//b", EINVAL, "\"\"");
        row("trailing slash", "a/b/", EINVAL, "\"\"");
        row("empty", "", EINVAL, "empty");
        row("absolute", "/a/b", EINVAL, "/a/b:");
    }

    // A path is walked one real folder at a time, or not at all.
    void openBeneath()
    {
        QFETCH(QByteArray, path);
        QFETCH(int, code);
        QFETCH(QByteArray, named);
        QTemporaryDir root;
        const fs::path base = root.path().toStdString();
        QVERIFY(test::shell(base, "mkdir -p a/b/c; ln -s a link; ln -s b a/blink; : >a/file"));

        const auto opened = quillane::openBeneath(openFolder(base).get(), path.toStdString());
        QCOMPARE(opened.errorCode(), code);
        if (code != 0) {
            QVERIFY2(QByteArray::fromStdString(opened.error()).contains(named),
                     opened.error().c_str());
            return;
        }
        struct stat got {
        };
        QVERIFY(fstat(opened->get(), &got) == 0);
        QCOMPARE(got.st_ino, inodeOf(base / "a/b/c"));
        DIR* listing = fdopendir(dup(opened->get())); // opened for reading: it can be listed
        QVERIFY(listing);
        closedir(listing);
    }

    // The check sees each folder as opened, in order, and its refusal ends the walk.
    void openBeneathAsksTheCheck()
    {
        QTemporaryDir root;
        const fs::path base = root.path().toStdString();
        test::makeFolder(base / "a/b/c");
        const auto line = [](std::string_view component, std::size_t depth, ino_t inode) {
            return QByteArray::fromStdString(std::string(component) + ' ' + std::to_string(depth) +
                                             ' ' + std::to_string(inode));
        };
        const QByteArrayList expected = {line("a", 0, inodeOf(base / "a")),
                                         line("b", 1, inodeOf(base / "a/b")),
                                         line("c", 2, inodeOf(base / "a/b/c"))};
        QByteArrayList seen;
        std::string refused;
        const FolderCheck check = [&](const struct stat& folder, std::string_view component,
                                      std::size_t depth) {
            seen << line(component, depth, folder.st_ino);
            return component != refused;
        };
        const UniqueFd anchor = openFolder(base);
        QVERIFY(quillane::openBeneath(anchor.get(), "a/b/c", check).ok());
        QCOMPARE(seen, expected);

        seen.clear();
        refused = "b";
        const auto opened = quillane::openBeneath(anchor.get(), "a/b/c", check);
        QCOMPARE(opened.errorCode(), EPERM);
        QVERIFY2(opened.error().starts_with("a/b:"), opened.error().c_str());
        QCOMPARE(seen, expected.mid(0, 2));
    }

    // A folder swapped for a link once checked: the descriptor still holds the folder checked.
    void openBeneathKeepsTheFolderItChecked()
    {
        QTemporaryDir root;
        const fs::path base = root.path().toStdString();
        QVERIFY(
            test::shell(base, "mkdir -p a/b decoy/b; echo a >a/b/victim; echo d >decoy/b/victim"));
        const auto swap = [&](const struct stat&, std::string_view component, std::size_t) {
            if (component == "a") {
                fs::rename(base / "a", base / "moved");
                fs::create_directory_symlink("decoy", base / "a");
            }
            return true;
        };
        const auto opened = quillane::openBeneath(openFolder(base).get(), "a/b", swap);
        QVERIFY2(opened.ok(), opened.error().c_str());
        QCOMPARE(outcome(removeEntry(opened->get(), "victim")), std::string());
        QVERIFY(!fileExists(base / "moved/b/victim"));
        QVERIFY(fileExists(base / "decoy/b/victim"));
    }

    void otherMountInsideRemovesNothing_data()
    {
        QTest::addColumn<QByteArray>("layout"); // run in the trash; ../outside is beside it
        QTest::addColumn<QByteArray>("mountPoint");
        const auto row = [](const char* tag, const QByteArray& at, const QByteArray& mount) {
            QTest::newRow(tag) << "mkdir -p item/sub " + at +
                                      "; echo x >item/x; echo s >item/sub/s; " + mount + ' ' + at +
                                      "; echo m >" + at + "/inside"
                               << at;
        };
        row("tmpfs", "item/sub/mnt", "mount -t tmpfs scratch");
        row("ext4 on a loop device", "item/sub/disk",
            "truncate -s 8M ../../disk.img; mkfs.ext4 -q -F ../../disk.img; "
            "mount -o loop ../../disk.img");
        row("bind mount of a folder of the same filesystem", "item/sub/view",
            "mkdir ../outside/data; echo o >../outside/data/kept; mount --bind ../outside/data");
        row("the item itself", "item", "mount -t tmpfs scratch");
        row("far below the item", "item/sub" + QByteArray("/d").repeated(40) + "/mnt",
            "mount -t tmpfs scratch");
    }

    // A request that would reach into another mount fails before removing anything.
    void otherMountInsideRemovesNothing()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        QFETCH(QByteArray, layout);
        QFETCH(QByteArray, mountPoint);
        const fs::path base = "/mnt/removal/case";
        const fs::path trash = base / "trash";
        test::makeFolder(base / "outside");
        test::writeFile(trash / "beside");
        const auto cleanUp = qScopeGuard([&] {
            test::unmount(trash / mountPoint.toStdString());
            fs::remove_all(base.parent_path());
        });
        QVERIFY(test::shell(trash, layout));
        const QByteArrayList before = snapshot(base);

        const auto removed = removeEntry(openFolder(trash).get(), "item");
        QCOMPARE(removed.errorCode(), EXDEV);
        QVERIFY2(removed.error().starts_with(mountPoint.toStdString() + ":"),
                 removed.error().c_str());
        QCOMPARE(snapshot(base), before);
    }

    void refusals_data()
    {
        QTest::addColumn<uint>("user");
        QTest::addColumn<QByteArray>("layout"); // run as root in the trash
        QTest::addColumn<int>("code");
        QTest::addColumn<QByteArray>("failing");
        QTest::addColumn<QByteArrayList>("remaining"); // empty: nothing removed
        const auto row = [](const char* tag, uid_t user, const QByteArray& layout, int code,
                            const char* failing, const QByteArrayList& remaining = {}) {
            QTest::newRow(tag) << uint(user) << layout << code << QByteArray(failing) << remaining;
        };
        const QByteArray items =
            "mkdir -p item/sub item/inner; echo a >item/a; echo s >item/sub/s; "
            "echo i >item/inner/i; ";
        const QByteArray own = items + "chown -R 65534 .; ";
        row("root's read-only folder inside", test::nobody, own + "chown 0 item/inner", EACCES,
            "item/inner");
        row("root's unreadable folder inside", test::nobody,
            own + "chown 0 item/inner; chmod 0700 item/inner", EACCES, "item/inner");
        row("sticky folder holding root's file", test::nobody,
            own + "echo r >item/inner/roots; chown 0 item/inner item/inner/roots; "
                  "chmod 1777 item/inner",
            EPERM, "item/inner/roots");
        row("trash not writable", test::nobody, items + "chown -R 65534 item", EACCES, "item");
        // Code 0: removed. What the user owns, the user may open up, as chmod u+w would.
        row("the user's own read-only folders", test::nobody,
            own + "chmod 0555 item/inner item/sub item", 0, "", {"beside = x"});
        row("the user's own read-only folder inside root's", test::nobody,
            items + "chown 65534 item/inner item/inner/i; chmod 0555 item/inner", EACCES, "item");
        row("immutable folder", 0, items + "chattr +i item/inner", EPERM, "item/inner");
        row("append-only folder", 0, items + "chattr +a item/inner", EPERM, "item/inner");
        // Not foreseen: the files of each folder on the way are gone, the rest stays.
        row("immutable file", 0,
            "mkdir -p item/sub/deeper; echo a >item/a; echo c >item/sub/c; "
            "echo h >item/sub/deeper/held; chattr +i item/sub/deeper/held",
            EPERM, "item/sub/deeper/held",
            {"beside = x", "item", "item/sub", "item/sub/deeper", "item/sub/deeper/held = h\n"});
    }

    // A refusal seen in the first pass removes nothing; one met while removing stops there.
    void refusals()
    {
        if (getuid() != 0)
            QSKIP("needs root, to act as another user and to set attributes");
        QFETCH(uint, user);
        QFETCH(QByteArray, layout);
        QFETCH(int, code);
        QFETCH(QByteArray, failing);
        QFETCH(QByteArrayList, remaining);
        QTemporaryDir root;
        QVERIFY(chmod(root.path().toLocal8Bit().constData(), 0755) == 0);
        const fs::path trash = fs::path(root.path().toStdString()) / "trash";
        test::writeFile(trash / "beside");
        if (layout.contains("chattr") &&
            !test::shell(trash, "chattr +i beside && chattr -i beside"))
            QSKIP("the file system here has no immutable attribute");
        const auto cleanUp = qScopeGuard([&] {
            if (layout.contains("chattr"))
                test::shell(trash, "chattr -R -ia item");
        });
        QVERIFY(test::shell(trash, layout));
        const QByteArrayList before = snapshot(trash);

        const std::string result = test::inChild(
            user, [&] { return outcome(removeEntry(openFolder(trash).get(), "item")); });
        QCOMPARE(result, code == 0 ? std::string()
                                   : std::to_string(code) + ' ' +
                                         describeErrno(failing.toStdString(), code));
        QCOMPARE(snapshot(trash), remaining.isEmpty() ? before : remaining);
    }
};

QTEST_GUILESS_MAIN(TestSafeRemoval)
#include "tst_SafeRemoval.moc"
