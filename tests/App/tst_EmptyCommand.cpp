#include "DaemonTestSupport.h"
#include "TestSupport.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>
#include <unistd.h>

using namespace quillane;
namespace fs = std::filesystem;

namespace
{

QStringList tree(const fs::path& folder)
{
    QStringList entries;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        entries << QString::fromLocal8Bit(entry.path().c_str());
    entries.sort();
    return entries;
}

} // namespace

// A user's trash on a USB-like volume, emptied from the command line: the ordinary items by
// the user's own rights, a folder of root's by the real daemon after the real polkitd agrees.
class TestEmptyCommand : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptiesAVolumeTrashWithTheDaemonsHelp()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        QTemporaryDir dir;
        const fs::path root = dir.path().toStdString();
        QVERIFY(chmod(root.c_str(), 0755) == 0);
        test::SystemBus bus;
        QVERIFY(bus.isUp());
        test::TestUser user(QString::fromStdString((root / "home").native()));
        QVERIFY(user.isValid());
        test::PolkitAuthority polkit(bus, {{user.name(), true}});
        QVERIFY2(polkit.isRunning(), qPrintable(polkit.error()));
        test::ChildProcess daemon;
        QVERIFY(test::startDaemon(daemon, bus, QStringLiteral(QUILLANE_DAEMON)));

        const fs::path stick = "/mnt/quillane stick";
        QVERIFY(test::mountExt4(root / "stick.img", stick));
        const fs::path trash = stick / (".Trash-" + std::to_string(user.uid()));
        for (const char* name : {"photo.jpg", "notes", "caf\xe9.txt", "system folder"}) {
            test::writeFile(trash / "files" / name / "content", "x");
            test::writeFile(trash / "info" / (std::string(name) + ".trashinfo"), "[Trash Info]\n");
        }
        test::writeFile(stick / "Documents" / "keep", "keep");
        for (const auto& entry : fs::recursive_directory_iterator(trash))
            lchown(entry.path().c_str(), user.uid(), user.gid());
        lchown(trash.c_str(), user.uid(), user.gid());
        // What the user cannot remove: a folder of root's, closed to others.
        const fs::path system = trash / "files" / "system folder";
        lchown(system.c_str(), 0, 0);
        lchown((system / "content").c_str(), 0, 0);
        chmod(system.c_str(), 0555);
        const QStringList outside = tree(stick / "Documents");

        QProcess quillane;
        user.start(quillane, QStringLiteral(QUILLANE_EXECUTABLE),
                   {QStringLiteral("empty"), QString::fromStdString(stick.native()),
                    QStringLiteral("--yes")});
        QVERIFY(quillane.waitForFinished(60000));
        const QByteArray errors = quillane.readAllStandardError();
        QVERIFY2(quillane.exitCode() == 0, errors.constData());

        QVERIFY(fs::is_empty(trash / "files"));
        QVERIFY(fs::is_empty(trash / "info"));
        QCOMPARE(tree(stick / "Documents"), outside);
        daemon.kill();
        daemon.waitForFinished();
        QVERIFY(test::unmount(stick));
    }
};

QTEST_GUILESS_MAIN(TestEmptyCommand)
#include "tst_EmptyCommand.moc"
