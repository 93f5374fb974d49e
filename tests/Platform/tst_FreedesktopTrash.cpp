#include "Platform/linux/FreedesktopTrash.h"
#include "PlatformTestSupport.h"

#include <QTest>
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

} // namespace

class TestFreedesktopTrash : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void homeTrash_data()
    {
        QTest::addColumn<QByteArray>("layout");  // run in the data home
        QTest::addColumn<QByteArray>("refusal"); // empty: the trash is found
        QTest::newRow("trash exists") << QByteArray("mkdir -p Trash/files") << QByteArray();
        QTest::newRow("no trash") << QByteArray("true") << QByteArray("Trash does not exist");
        QTest::newRow("trash without files folder")
            << QByteArray("mkdir -p Trash/info") << QByteArray("Trash/files does not exist");
        QTest::newRow("files is a link")
            << QByteArray("mkdir -p Trash elsewhere; ln -s ../elsewhere Trash/files")
            << QByteArray("Trash/files is a symbolic link");
        QTest::newRow("the trash is a link")
            << QByteArray("mkdir -p elsewhere/files; ln -s elsewhere Trash")
            << QByteArray("Trash is a symbolic link");
        QTest::newRow("files is a plain file") << QByteArray("mkdir -p Trash; touch Trash/files")
                                               << QByteArray("Trash/files is not a folder");
    }

    // A location on the home folder's filesystem uses the trash in the data home, which need
    // not lie in the home folder.
    void homeTrash()
    {
        QFETCH(QByteArray, layout);
        QFETCH(QByteArray, refusal);
        const bool found = refusal.isEmpty();
        QTemporaryDir root;
        const fs::path home = fs::path(root.path().toStdString()) / "home";
        const fs::path data = fs::path(root.path().toStdString()) / "data";
        test::writeFile(home / "Documents/note.txt");
        test::makeFolder(data);
        QVERIFY(test::shell(data, layout));
        const FreedesktopTrash trash(home, data, getuid());
        QCOMPARE(bytes(trash.homeTrashFolder()), bytes(data / "Trash/files"));

        const auto before = treeOf(root.path().toStdString());
        const auto result = trash.trashFolder(home / "Documents/note.txt");
        QCOMPARE(treeOf(root.path().toStdString()), before);
        QCOMPARE(result.ok(), found);
        if (found)
            QCOMPARE(bytes(result.value()), bytes(data / "Trash/files"));
        else
            QVERIFY2(result.error().find((data / refusal.toStdString()).native()) !=
                         std::string::npos,
                     result.error().c_str());
    }

    void volumeTrash_data()
    {
        QTest::addColumn<QByteArray>("layout"); // run at the top of the volume
        QTest::addColumn<QByteArray>("location");
        QTest::addColumn<QByteArray>("expected"); // the trash, or "!" and why there is none
        const auto row = [](const char* tag, const char* layout, const char* location,
                            const char* expected) {
            QTest::newRow(tag) << QByteArray(layout) << QByteArray(location)
                               << QByteArray(expected).replace("$uid", uid);
        };
        row("own trash", "mkdir -p .Trash-$uid/files", "", ".Trash-$uid/files");
        row("deep inside the volume", "mkdir -p .Trash-$uid/files", "a/b/c/file.txt",
            ".Trash-$uid/files");
        row("shared trash with sticky bit wins",
            "mkdir -p .Trash-$uid/files .Trash/$uid/files; chmod 1777 .Trash", "a/file.txt",
            ".Trash/$uid/files");
        row("shared trash without sticky bit ignored",
            "mkdir -p .Trash-$uid/files .Trash/$uid/files; chmod 0777 .Trash", "",
            ".Trash-$uid/files");
        row("shared trash that is a link ignored",
            "mkdir -p .Trash-$uid/files real/$uid/files; chmod 1777 real; ln -s real .Trash", "",
            ".Trash-$uid/files");
        row("shared trash of another user ignored",
            "mkdir -p .Trash-$uid/files .Trash/$uid/files; chmod 1777 .Trash; "
            "chown 65534 .Trash/$uid",
            "", ".Trash-$uid/files");
        row("own trash that is a link refused", "mkdir -p real/files; ln -s real .Trash-$uid",
            "a/file.txt", "!.Trash-$uid is a symbolic link");
        row("own trash of another user refused",
            "mkdir -p .Trash-$uid/files; chown 65534 .Trash-$uid", "",
            "!.Trash-$uid belongs to another user");
        row("own trash with files as a link refused",
            "mkdir -p .Trash-$uid real; ln -s ../real .Trash-$uid/files", "",
            "!.Trash-$uid/files is a symbolic link");
        row("no trash", "true", "a/file.txt", "!.Trash-$uid does not exist");
        row("no trash on a read-only volume", "mount -o remount,ro \"$PWD\"", "a/file.txt",
            "!the volume is mounted read-only");
    }

    // Any other location uses the trash at the top of its volume.
    void volumeTrash()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        QFETCH(QByteArray, layout);
        QFETCH(QByteArray, location);
        QFETCH(QByteArray, expected);
        test::ScratchVolume volume("/mnt/Trash Volume");
        QVERIFY(volume.isMounted());
        const fs::path top = volume.path();
        if (!location.isEmpty())
            test::writeFile(top / location.toStdString());
        QVERIFY(test::shell(top, layout));
        QTemporaryDir home;
        const FreedesktopTrash trash(home.path().toStdString(), home.path().toStdString(),
                                     getuid());

        const auto before = treeOf(top);
        const auto result = trash.trashFolder(top / location.toStdString());
        QCOMPARE(treeOf(top), before);
        if (expected.startsWith('!')) {
            QVERIFY2(!result.ok(), result.ok() ? result->c_str() : "");
            // The error says what was looked for and what is wrong with it.
            const std::string why = expected.mid(1).toStdString();
            QVERIFY2(result.error().find(why.starts_with(".") ? (top / why).native() : why) !=
                         std::string::npos,
                     result.error().c_str());
        } else {
            QVERIFY2(result.ok(), result.error().c_str());
            QCOMPARE(bytes(result.value()), bytes(top / expected.toStdString()));
        }
    }
};

QTEST_GUILESS_MAIN(TestFreedesktopTrash)
#include "tst_FreedesktopTrash.moc"
