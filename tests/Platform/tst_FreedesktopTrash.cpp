#include "Platform/SafeRemoval.h"
#include "Platform/TrashItems.h"
#include "Platform/linux/FreedesktopTrash.h"
#include "PlatformTestSupport.h"

#include <QTest>
#include <fcntl.h>
#include <optional>
#include <sys/mount.h>
#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace quillane;

namespace
{

const QByteArray uid = QByteArray::number(getuid());

QByteArray bytes(const fs::path& path)
{
    return QByteArray::fromStdString(path.native());
}

// Every path below root with its mode and owner: a lookup must change none of it.
QByteArrayList treeOf(const fs::path& root)
{
    QByteArrayList tree;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        struct stat info {
        };
        lstat(entry.path().c_str(), &info);
        tree << bytes(entry.path()) + ' ' + QByteArray::number(info.st_mode, 8) + ' ' +
                    QByteArray::number(info.st_uid);
    }
    std::ranges::sort(tree);
    return tree;
}

// A scratch folder that goes with everything in it when the test ends, whatever the bytes of
// the names in it (Qt sees names only as text, and cannot remove those that are not).
struct ScratchFolder {
    QTemporaryDir dir;
    const fs::path path = dir.path().toStdString();
    ~ScratchFolder()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
};

UniqueFd openFolder(const fs::path& path)
{
    return UniqueFd::adopt(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

mode_t modeOf(const fs::path& path)
{
    struct stat info {
    };
    return lstat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

// A trash holding the file or folder `name` with its record and a directorysizes line, beside
// the line of another folder.
void trashItem(const fs::path& trash, const std::string& name, bool folder)
{
    test::writeFile(folder ? trash / "files" / name / "inner.txt" : trash / "files" / name,
                    "payload");
    chmod((trash / "files" / name).c_str(), folder ? 0750 : 0640);
    test::writeFile(trash / "info" / (name + ".trashinfo"), "[Trash Info]\nPath=/x\n");
    test::writeFile(trash / "directorysizes",
                    "4096 1700000000 " + percentEncoded(name) + "\n4096 1700000000 other\n");
}

} // namespace

class TestFreedesktopTrash : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void trashFolder_data()
    {
        QTest::addColumn<bool>("onVolume");     // else the home folder and the data home
        QTest::addColumn<QByteArray>("layout"); // run in the data home, or at the volume's top
        QTest::addColumn<QByteArray>("location");
        // The trash below $top (the data home or the volume's top), or "!" and why there is none.
        QTest::addColumn<QByteArray>("expected");
        const auto volume = [](const char* tag, const char* layout, const char* location,
                               const char* expected) {
            QTest::newRow(tag) << true << QByteArray(layout) << QByteArray(location)
                               << QByteArray(expected).replace("$uid", uid);
        };
        // A location on the home folder's filesystem uses the trash in the data home, which need
        // not lie in the home folder.
        const auto home = [](const char* tag, const char* layout, const char* expected) {
            QTest::newRow(tag) << false << QByteArray(layout) << QByteArray("Documents/note.txt")
                               << QByteArray(expected);
        };
        home("trash exists", "mkdir -p Trash/files", "Trash/files");
        home("no trash", "true", "!$top/Trash does not exist");
        home("trash without files folder", "mkdir -p Trash/info",
             "!$top/Trash/files does not exist");
        home("files is a link", "mkdir -p Trash elsewhere; ln -s ../elsewhere Trash/files",
             "!$top/Trash/files is a symbolic link");
        home("the trash is a link", "mkdir -p elsewhere/files; ln -s elsewhere Trash",
             "!$top/Trash is a symbolic link");
        home("files is a plain file", "mkdir -p Trash; touch Trash/files",
             "!$top/Trash/files is not a folder");
        // Any other location uses the trash at the top of its volume.
        volume("own trash", "mkdir -p .Trash-$uid/files", "", ".Trash-$uid/files");
        volume("deep inside the volume", "mkdir -p .Trash-$uid/files", "a/b/c/file.txt",
               ".Trash-$uid/files");
        volume("shared trash with sticky bit wins",
               "mkdir -p .Trash-$uid/files .Trash/$uid/files; chmod 1777 .Trash", "a/file.txt",
               ".Trash/$uid/files");
        volume("shared trash without sticky bit ignored",
               "mkdir -p .Trash-$uid/files .Trash/$uid/files; chmod 0777 .Trash", "",
               ".Trash-$uid/files");
        volume("shared trash that is a link ignored",
               "mkdir -p .Trash-$uid/files real/$uid/files; chmod 1777 real; ln -s real .Trash", "",
               ".Trash-$uid/files");
        volume("shared trash of another user ignored",
               "mkdir -p .Trash-$uid/files .Trash/$uid/files; chmod 1777 .Trash; "
               "chown 65534 .Trash/$uid",
               "", ".Trash-$uid/files");
        volume("own trash that is a link refused", "mkdir -p real/files; ln -s real .Trash-$uid",
               "a/file.txt", "!$top/.Trash-$uid is a symbolic link");
        volume("own trash of another user refused",
               "mkdir -p .Trash-$uid/files; chown 65534 .Trash-$uid", "",
               "!$top/.Trash-$uid belongs to another user");
        volume("own trash with files as a link refused",
               "mkdir -p .Trash-$uid real; ln -s ../real .Trash-$uid/files", "",
               "!$top/.Trash-$uid/files is a symbolic link");
        volume("no trash", "true", "a/file.txt", "!$top/.Trash-$uid does not exist");
        volume("no trash on a read-only volume", "mount -o remount,ro \"$PWD\"", "a/file.txt",
               "!the volume is mounted read-only");
    }

    // A lookup finds the trash, or says why there is none, and changes nothing.
    void trashFolder()
    {
        QFETCH(bool, onVolume);
        QFETCH(QByteArray, layout);
        QFETCH(QByteArray, location);
        QFETCH(QByteArray, expected);
        if (onVolume && !test::canMount())
            QSKIP("needs root in a private mount namespace");
        QTemporaryDir root;
        const fs::path home = fs::path(root.path().toStdString()) / "home";
        const fs::path data = fs::path(root.path().toStdString()) / "data";
        std::optional<test::ScratchVolume> volume;
        if (onVolume)
            volume.emplace("/mnt/Trash Volume");
        QVERIFY(!onVolume || volume->isMounted());
        const fs::path top = onVolume ? volume->path() : data;
        const fs::path place = (onVolume ? top : home) / location.toStdString();
        test::makeFolder(home);
        test::makeFolder(data);
        if (!location.isEmpty())
            test::writeFile(place);
        QVERIFY(test::shell(top, layout));
        const FreedesktopTrash trash(home, data, getuid());
        QCOMPARE(bytes(trash.homeTrashFolder()), bytes(data / "Trash/files"));

        const fs::path watched = onVolume ? top : fs::path(root.path().toStdString());
        const auto before = treeOf(watched);
        const auto result = trash.trashFolder(place);
        QCOMPARE(treeOf(watched), before);
        if (expected.startsWith('!')) {
            QVERIFY2(!result.ok(), result.ok() ? result->c_str() : "");
            const QByteArray why = expected.mid(1).replace("$top", bytes(top));
            QVERIFY2(QByteArray::fromStdString(result.error()).contains(why),
                     result.error().c_str());
        } else {
            QVERIFY2(result.ok(), result.error().c_str());
            QCOMPARE(bytes(result.value()), bytes(top / expected.toStdString()));
        }
    }

    void readTrashRecord_data()
    {
        QTest::addColumn<QByteArray>("record"); // its bytes, or "<missing>", "<link>", "<fifo>"
        QTest::addColumn<QByteArray>("top");    // the top folder of the volume
        QTest::addColumn<QByteArray>("path");   // the original path read; empty for none
        QTest::addColumn<QString>("date");      // the deletion date read; empty for none
        const QByteArray dated = "DeletionDate=2024-03-05T14:07:09\n";
        const QString when = QStringLiteral("2024-03-05T14:07:09");
        const auto row = [](const char* tag, const QByteArray& record, const char* top,
                            const char* path, const QString& date) {
            QTest::newRow(tag) << record << QByteArray(top) << QByteArray(path) << date;
        };
        const QByteArray group = "[Trash Info]\n";
        row("absolute", group + "Path=/home/ada/report%20final.pdf\n" + dated, "",
            "/home/ada/report final.pdf", when);
        row("relative, below the volume top", group + "Path=Photos/2024//one.jpg\n" + dated,
            "/mnt/USB Stick", "/mnt/USB Stick/Photos/2024/one.jpg", when);
        row("bytes that are not UTF-8", group + "Path=/home/ada/caf%E9%20%FF.txt\n", "",
            "/home/ada/caf\xe9 \xff.txt", {});
        row("spaces around the equals sign, CRLF",
            "[Trash Info]\r\nPath = /a/b\r\nDeletionDate = 2024-03-05T14:07:09\r\n", "", "/a/b",
            when);
        row("comments and other groups",
            "# by hand\n[Desktop Entry]\nPath=/wrong\n[Trash Info]\nPath=/right\nPath=/later\n" +
                dated,
            "", "/right", when);
        row("compact date", group + "Path=/a\nDeletionDate=20040831T22:32:08\n", "", "/a",
            QStringLiteral("2004-08-31T22:32:08"));
        row("date of no known form", group + "Path=/a\nDeletionDate=2024-03-05 14:07\n", "", "/a",
            {});
        row("no group", "Path=/a\n" + dated, "", "", {});
        row("no Path", group + dated, "", "", when);
        row("bad escape", group + "Path=/a%zzb\n", "", "", {});
        row("escaped NUL", group + "Path=/a%00b\n", "", "", {});
        row("raw NUL", group + QByteArray("Path=/a\0b\n", 10), "", "", {});
        row("a way out of the volume", group + "Path=Photos/../../etc/passwd\n", "/mnt/USB Stick",
            "", {});
        row("relative without a volume top", group + "Path=Photos/one.jpg\n", "", "", {});
        row("huge", group + "Path=/a\n" + QByteArray(70000, '#'), "", "", {});
        row("missing", "<missing>", "", "", {});
        row("a link to a record", "<link>", "", "", {});
        row("a fifo", "<fifo>", "", "", {});
    }

    // A record is read as every trash writes it, and anything else reads as no record at all.
    void readTrashRecord()
    {
        QFETCH(QByteArray, record);
        QFETCH(QByteArray, top);
        QFETCH(QByteArray, path);
        QFETCH(QString, date);
        const ScratchFolder root;
        const fs::path trash = root.path / "Trash";
        const std::string name = "item\xff name";
        test::writeFile(trash / "files" / name);
        test::makeFolder(trash / "info");
        const fs::path file = trash / "info" / (name + ".trashinfo");
        if (record == "<link>") {
            test::writeFile(trash / "elsewhere", "[Trash Info]\nPath=/a\n");
            fs::create_symlink("../elsewhere", file);
        } else if (record == "<fifo>") {
            QCOMPARE(mkfifo(file.c_str(), 0600), 0);
        } else if (record != "<missing>") {
            test::writeFile(file, record.toStdString());
        }
        const UniqueFd trashFd = openFolder(trash);

        const TrashRecord read = quillane::readTrashRecord(trashFd.get(), name, top.toStdString());
        QCOMPARE(bytes(read.name), bytes(name));
        QCOMPARE(read.originalPath ? bytes(*read.originalPath) : QByteArray(), path);
        QCOMPARE(read.deletionDate.toString(QStringLiteral("yyyy-MM-dd'T'hh:mm:ss")), date);
        if (read.deletionDate.isValid())
            QCOMPARE(read.deletionDate.timeSpec(), Qt::LocalTime);
    }

    // Every item comes, in batches of the size asked for, until the receiver has had enough.
    void listTrashRecordsInBatches()
    {
        const ScratchFolder root;
        const fs::path trash = root.path / "Trash";
        const UniqueFd none = openFolder(trash.parent_path());
        QVERIFY(listTrashRecords(none.get(), "/", 2, [](auto&&) {
                    return true;
                }).starts_with("files: "));

        std::set<std::string> names = {"a", "b", "c\xff", "d"};
        for (const std::string& name : names)
            trashItem(trash, name, name == "d");
        test::writeFile(trash / "files/e"); // no record
        names.insert("e");
        test::writeFile(trash / "files/.DS_Store");
        const UniqueFd trashFd = openFolder(trash);
        std::vector<std::size_t> sizes;
        std::set<std::string> listed;
        std::set<std::string> withoutRecord;
        const auto take = [&](std::vector<TrashRecord>&& batch) {
            sizes.push_back(batch.size());
            for (const TrashRecord& record : batch) {
                listed.insert(record.name);
                if (!record.originalPath)
                    withoutRecord.insert(record.name);
            }
            return true;
        };
        QCOMPARE(listTrashRecords(trashFd.get(), "/", 2, take), std::string());
        QCOMPARE(sizes, (std::vector<std::size_t>{2, 2, 1}));
        QCOMPARE(listed, names);
        QCOMPARE(withoutRecord, std::set<std::string>{"e"});

        sizes.clear();
        QCOMPARE(listTrashRecords(trashFd.get(), "/", 2,
                                  [&](auto&& batch) {
                                      sizes.push_back(batch.size());
                                      return false;
                                  }),
                 std::string());
        QCOMPARE(sizes, (std::vector<std::size_t>{2}));
    }

    void restoreTrashedItem_data()
    {
        QTest::addColumn<QByteArray>("item");   // in files/, a folder when it ends in "/"
        QTest::addColumn<QByteArray>("layout"); // run in the scratch root beforehand
        QTest::addColumn<QByteArray>("destination");
        QTest::addColumn<int>("collision");
        QTest::addColumn<QByteArray>("expected"); // where it went, or "!" and why it did not
        const auto row = [](const char* tag, const QByteArray& item, const QByteArray& layout,
                            const QByteArray& destination, RestoreCollision collision,
                            const QByteArray& expected) {
            QTest::newRow(tag) << item << layout << destination << static_cast<int>(collision)
                               << expected;
        };
        using enum RestoreCollision;
        row("back where it was", "report.pdf", "", "home/report.pdf", Report, "home/report.pdf");
        row("a folder", "Photos/", "", "home/Photos", Report, "home/Photos");
        row("no record, to a place picked", "report.pdf", "rm Trash/info/report.pdf.trashinfo",
            "home/picked.pdf", Report, "home/picked.pdf");
        row("missing folders made", "report.pdf", "", "home/new/deeper/report.pdf", Report,
            "home/new/deeper/report.pdf");
        row("a folder on the way is a link", "report.pdf", "mkdir real; ln -s ../real home/linked",
            "home/linked/report.pdf", Report, "home/linked/report.pdf");
        row("not UTF-8", "caf\xe9 \xff.txt", "", "home/caf\xe9 \xff-2.txt", Report,
            "home/caf\xe9 \xff-2.txt");
        row("taken, report", "report.pdf", "echo mine > home/report.pdf", "home/report.pdf", Report,
            "!NameTaken");
        row("taken, skip", "report.pdf", "echo mine > home/report.pdf", "home/report.pdf", Skip,
            "!Skipped");
        row("taken by a dangling link", "report.pdf", "ln -s nowhere home/report.pdf",
            "home/report.pdf", Report, "!NameTaken");
        row("taken, keep both", "report.pdf",
            "echo mine > home/report.pdf; ln -s nowhere 'home/report (2).pdf'", "home/report.pdf",
            KeepBoth, "home/report (3).pdf");
        row("taken folder, keep both", "my.photos/", "mkdir home/my.photos", "home/my.photos",
            KeepBoth, "home/my.photos (2)");
        row("taken hidden file, keep both", ".profile", "touch home/.profile", "home/.profile",
            KeepBoth, "home/.profile (2)");
        const QByteArray longName = QString(125, QChar(0xfc)).toUtf8() + ".pdf"; // 254 bytes
        row("taken long name, keep both", "long.pdf", "echo mine > 'home/" + longName + "'",
            "home/" + longName, KeepBoth,
            "home/" + QString(123, QChar(0xfc)).toUtf8() + " (2).pdf");
        row("gone from the trash", "", "", "home/report.pdf", Report,
            "!report.pdf: No such file or directory");
        row("a file on the way", "report.pdf", "touch home/file", "home/file/report.pdf", Report,
            "!home/file: Not a directory");
        row("a dangling link on the way", "report.pdf", "ln -s ../nowhere home/l",
            "home/l/report.pdf", Report, "!home/l: Not a directory");
    }

    // An item goes back by a rename, then its record and directorysizes line go; a restore that
    // does not happen changes nothing at all.
    void restoreTrashedItem()
    {
        QFETCH(QByteArray, item);
        QFETCH(QByteArray, layout);
        QFETCH(QByteArray, destination);
        QFETCH(int, collision);
        QFETCH(QByteArray, expected);
        const mode_t oldMask = umask(022);
        const auto restoreMask = qScopeGuard([&] { umask(oldMask); });
        const ScratchFolder scratch;
        const fs::path& root = scratch.path;
        const fs::path trash = root / "Trash";
        const bool folder = item.endsWith('/');
        const std::string name =
            item.isEmpty() ? "report.pdf" : item.chopped(folder ? 1 : 0).toStdString();
        test::makeFolder(root / "home");
        test::makeFolder(trash / "files");
        test::makeFolder(trash / "info");
        if (!item.isEmpty())
            trashItem(trash, name, folder);
        QVERIFY(test::shell(root, layout));
        const auto before = treeOf(root);
        const UniqueFd trashFd = openFolder(trash);

        const RestoreResult result =
            quillane::restoreTrashedItem(trashFd.get(), name, root / destination.toStdString(),
                                         static_cast<RestoreCollision>(collision));
        if (expected.startsWith('!')) {
            QCOMPARE(treeOf(root), before);
            const QByteArray why = expected.mid(1);
            if (why == "NameTaken" || why == "Skipped") {
                QCOMPARE(result.status, why == "Skipped" ? RestoreResult::Status::Skipped
                                                         : RestoreResult::Status::NameTaken);
                QCOMPARE(result.error, std::string());
            } else {
                QCOMPARE(result.status, RestoreResult::Status::Failed);
                QVERIFY2(QByteArray::fromStdString(result.error).contains(why),
                         result.error.c_str());
            }
            return;
        }
        QCOMPARE(result.status, RestoreResult::Status::Restored);
        QCOMPARE(result.error, std::string());
        QCOMPARE(bytes(result.restoredAs), bytes(root / expected.toStdString()));
        const fs::path back = result.restoredAs;
        QCOMPARE(test::readFile(folder ? back / "inner.txt" : back), std::string("payload"));
        QCOMPARE(modeOf(back), mode_t(folder ? 0750 : 0640));
        QVERIFY(!fs::exists(fs::symlink_status(trash / "files" / name)));
        QVERIFY(fs::is_empty(trash / "info"));
        QCOMPARE(test::readFile(trash / "directorysizes"), std::string("4096 1700000000 other\n"));
        // Folders made on the way have the mode the user's umask gives, as any of theirs.
        for (const auto& entry : fs::recursive_directory_iterator(root / "home"))
            if (entry.is_directory() && !entry.is_symlink() && entry.path() != back)
                QCOMPARE(modeOf(entry.path()), mode_t(0755));
    }

    // An item never leaves its volume.
    void restoreOnAVolume()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        test::ScratchVolume volume("/mnt/Trash Volume");
        QVERIFY(volume.isMounted());
        const fs::path trash = volume.path() / (".Trash-" + std::to_string(getuid()));
        trashItem(trash, "two.jpg", false);
        const UniqueFd trashFd = openFolder(trash);

        // Elsewhere the item cannot go by a rename: nothing is made on the way there. On the
        // same volume seen through another mount, the folders made are taken away again.
        QTemporaryDir elsewhere;
        const fs::path other = elsewhere.path().toStdString();
        const fs::path bound = "/mnt/bound";
        test::makeFolder(bound);
        QCOMPARE(mount(volume.path().c_str(), bound.c_str(), nullptr, MS_BIND, nullptr), 0);
        const auto unbind = qScopeGuard([&] { umount(bound.c_str()); });
        for (const fs::path& destination : {other / "new/two.jpg", bound / "new/deeper/two.jpg"}) {
            const auto before = treeOf(volume.path());
            const auto result = quillane::restoreTrashedItem(trashFd.get(), "two.jpg", destination,
                                                             RestoreCollision::Report);
            QCOMPARE(result.status, RestoreResult::Status::Failed);
            QVERIFY2(result.error.find("another volume") != std::string::npos,
                     result.error.c_str());
            QCOMPARE(treeOf(volume.path()), before);
            QVERIFY(fs::is_empty(other));
        }
    }
};

QTEST_GUILESS_MAIN(TestFreedesktopTrash)
#include "tst_FreedesktopTrash.moc"
