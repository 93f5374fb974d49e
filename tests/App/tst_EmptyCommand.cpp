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
    void emptiesAVolumeTrashWithTheDaemonsHelp_data()
    {
        QTest::addColumn<bool>("approved");
        QTest::newRow("the administrator approves") << true;
        // What the daemon refuses stays, is named, and ends the run with its own status.
        QTest::newRow("the administrator refuses") << false;
    }

    void emptiesAVolumeTrashWithTheDaemonsHelp()
    {
        QFETCH(bool, approved);
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        QTemporaryDir dir;
        const fs::path root = dir.path().toStdString();
        QVERIFY(chmod(root.c_str(), 0755) == 0);
        test::SystemBus bus;
        QVERIFY(bus.isUp());
        test::TestUser user(QString::fromStdString((root / "home").native()));
        QVERIFY(user.isValid());
        test::PolkitAuthority polkit(bus, {{user.name(), approved}});
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
        QVERIFY2(quillane.exitCode() == (approved ? 0 : 4), errors.constData());

        const QStringList left{QString::fromStdString((trash / "files/system folder").native()),
                               QString::fromStdString((system / "content").native())};
        QCOMPARE(tree(trash / "files"), approved ? QStringList() : left);
        QCOMPARE(fs::is_empty(trash / "info"), approved);
        QCOMPARE(errors.contains("system folder stayed: "), !approved);
        QCOMPARE(tree(stick / "Documents"), outside);
        daemon.kill();
        daemon.waitForFinished();
        QVERIFY(test::unmount(stick));
    }

    void endsOnEveryTrash_data()
    {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<bool>("heldElsewhere");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("says");
        QTest::addColumn<QStringList>("left");
        const QString nothing = QStringLiteral("holds nothing to remove");
        const QString dsStore = QStringLiteral(".DS_Store");
        QTest::newRow("empty") << QStringList{} << false << 0 << nothing << QStringList{};
        QTest::newRow("only the skipped name")
            << QStringList{dsStore} << false << 0 << nothing << QStringList{dsStore};
        QTest::newRow("look-alikes are items")
            << QStringList{QStringLiteral("._.DS_Store"), QStringLiteral("old.DS_Store"), dsStore}
            << false << 0 << QString() << QStringList{dsStore};
        QTest::newRow("being emptied elsewhere")
            << QStringList{QStringLiteral("a")} << true << 1
            << QStringLiteral("another emptying of this trash is under way")
            << QStringList{QStringLiteral("a")};
    }

    // quillane empty always comes to an end, and says how when it removed nothing.
    void endsOnEveryTrash()
    {
        QFETCH(QStringList, names);
        QFETCH(bool, heldElsewhere);
        QFETCH(int, exitCode);
        QFETCH(QString, says);
        QFETCH(QStringList, left);
        QTemporaryDir home;
        const fs::path files = fs::path(home.path().toStdString()) / ".local/share/Trash/files";
        fs::create_directories(files);
        for (const QString& name : names)
            test::writeFile(files / name.toStdString(), "x");
        QProcess holder;
        if (heldElsewhere) {
            holder.start(QStringLiteral("flock"),
                         {QString::fromStdString(files.native()), QStringLiteral("-c"),
                          QStringLiteral("echo locked; sleep 30")});
            QVERIFY(holder.waitForReadyRead(5000));
        }

        QProcess quillane;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HOME"), home.path());
        environment.remove(QStringLiteral("XDG_DATA_HOME"));
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"),
                           home.path() + QStringLiteral("/.config"));
        quillane.setProcessEnvironment(environment);
        quillane.start(QStringLiteral(QUILLANE_EXECUTABLE),
                       {QStringLiteral("empty"), QString::fromStdString(files.native()),
                        QStringLiteral("--yes")});
        QVERIFY(quillane.waitForFinished(20000));
        holder.kill();
        holder.waitForFinished();
        const QString errors = QString::fromLocal8Bit(quillane.readAllStandardError());
        QVERIFY2(quillane.exitCode() == exitCode, qPrintable(errors));
        QVERIFY2(errors.contains(says), qPrintable(errors));
        QStringList entries;
        for (const auto& entry : fs::directory_iterator(files))
            entries << QString::fromStdString(entry.path().filename().native());
        QCOMPARE(entries, left);
    }
};

QTEST_GUILESS_MAIN(TestEmptyCommand)
#include "tst_EmptyCommand.moc"
