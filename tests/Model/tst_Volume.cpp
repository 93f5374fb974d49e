#include "Model/Volume.h"
#include "Platform/linux/DiskLabels.h"
#include "Platform/linux/ProcMountTable.h"
#include "TestSupport.h"

#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>
#include <unistd.h>

using namespace quillane;
using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

Q_DECLARE_METATYPE(quillane::Picture)
Q_DECLARE_METATYPE(std::optional<std::filesystem::path>)

class TestVolume : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_root = m_dir.path().toStdString();
    }

    void derivedReads_data()
    {
        QTest::addColumn<std::optional<fs::path>>("volPath");
        QTest::addColumn<QString>("name");
        QTest::addColumn<Picture>("image");
        QTest::newRow("no location")
            << std::optional<fs::path>() << QString() << Picture::symbol("externaldrive");
        // Folder names that meant something elsewhere name a volume like any other.
        QTest::newRow("a stick named like a cloud folder")
            << std::optional<fs::path>("/media/Mobile Documents") << u"Mobile Documents"_s
            << Picture::fileIcon("/media/Mobile Documents");
        QTest::newRow("unlabelled volume")
            << std::optional<fs::path>("/media/usb") << u"usb"_s << Picture::fileIcon("/media/usb");
    }
    void derivedReads()
    {
        QFETCH(std::optional<fs::path>, volPath);
        QFETCH(QString, name);
        QFETCH(Picture, image);
        ProcMountTable noMounts(m_root / "no-mountinfo", "/home/me");
        DiskLabels labels(m_root / "no-labels", noMounts);
        const Volume volume(volPath);
        QCOMPARE(QString::fromStdString(volume.name(labels)), name);
        QCOMPARE(volume.image(labels), image);
    }

    void recordsAreEqualOnlyToThemselves()
    {
        const Volume a("/media/usb", "/media/usb/.Trash-1000/files");
        const Volume b("/media/usb", "/media/usb/.Trash-1000/files");
        const Volume copy = a;
        QVERIFY(a != b);
        QVERIFY(a == copy);
    }

    void countAndSize_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<int>("itemCount");
        QTest::addColumn<bool>("sized");
        QTest::newRow("empty") << QStringList() << 0 << false;
        QTest::newRow("only .DS_Store") << QStringList{u".DS_Store"_s} << 0 << false;
        QTest::newRow(".DS_Store and two items")
            << QStringList{u".DS_Store"_s, u"a"_s, u"folder/b"_s} << 2 << true;
        QTest::newRow("hidden entries count") << QStringList{u".hidden"_s} << 1 << true;
        QTest::newRow(".DS_Store anywhere in a path adds no size")
            << QStringList{u"old.DS_Store/big"_s} << 1 << false;
    }
    void countAndSize()
    {
        QFETCH(QStringList, files);
        QFETCH(int, itemCount);
        QFETCH(bool, sized);
        // Named by number: a data tag may hold ".DS_Store", which would void every size.
        const fs::path trash = m_root / ("trash" + std::to_string(++m_trashes));
        fs::create_directories(trash);
        for (const QString& file : files)
            test::writeFile(trash / file.toStdString(), std::string(20000, 'x'));
        test::ConsoleCapture console;
        const Volume volume("/media/usb", trash);
        QCOMPARE(volume.itemCount(), itemCount);
        QCOMPARE(volume.calculatedSize().result() > 0, sized);
        QCOMPARE(console.lines().size(), std::size_t(0));
    }

    void noTrashFolderReadsZeroQuietly()
    {
        test::ConsoleCapture console;
        const Volume volume("/media/usb", std::nullopt);
        QCOMPARE(volume.itemCount(), 0);
        QCOMPARE(volume.calculatedSize().result(), std::uint64_t(0));
        QVERIFY(console.lines().empty());
    }

    void unreadableTrashReadsZeroWithOneLine()
    {
        const fs::path trash = m_root / "locked";
        test::writeFile(trash / "item", std::string(20000, 'x'));
        test::writeFile(trash / "sub" / "inner", std::string(20000, 'x'));
        QVERIFY(chmod(m_root.c_str(), 0755) == 0);
        QVERIFY(chown(trash.c_str(), test::nobody, test::nobody) == 0);
        QVERIFY(chmod((trash / "sub").c_str(), 0700) == 0); // root's, closed to others
        const auto readsAsNobody = [&] {
            test::ConsoleCapture console;
            const Volume volume("/media/usb", trash);
            const bool read = volume.allocatedSize() == 0 && volume.itemCount() == 2;
            return read && console.count("Size Error: ") == 1 && console.lines().size() == 1;
        };
        QCOMPARE(test::runAsUser(test::nobody, [&] { return readsAsNobody() ? 0 : 1; }), 0);
    }

    void missingTrashFolderCountsZeroWithOneLine()
    {
        test::ConsoleCapture console;
        const Volume volume("/media/usb", m_root / "gone");
        QCOMPARE(volume.itemCount(), 0);
        QCOMPARE(console.count("Counting Error: "), 1);
    }

private:
    QTemporaryDir m_dir;
    fs::path m_root;
    int m_trashes = 0;
};

QTEST_GUILESS_MAIN(TestVolume)
#include "tst_Volume.moc"
