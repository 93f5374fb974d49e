#include "DaemonTestSupport.h"
#include "TestSupport.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <csignal>
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

QProcessEnvironment userWithHome(const QString& home)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), home);
    environment.remove(QStringLiteral("XDG_DATA_HOME"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    return environment;
}

// A program run to its end, given this input: how it ended (-1 when it did not), what it wrote
// on its output and on its error output.
struct Ran {
    int code = -1;
    QByteArray output, errors;
};
Ran run(const QProcessEnvironment& environment, const QString& program,
        const QStringList& arguments, const QByteArray& input = {})
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000))
        return {-1, {}, "did not finish"};
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

// A run of quillane empty by a user with this home, answered with this input.
std::pair<int, QString> emptyIn(const QString& home, const QStringList& arguments,
                                const QByteArray& input = {},
                                const QString& language = QStringLiteral("C.UTF-8"))
{
    QProcessEnvironment environment = userWithHome(home);
    environment.insert(QStringLiteral("LANG"), language);
    const Ran ran = run(environment, QStringLiteral(QUILLANE_EXECUTABLE),
                        QStringList{QStringLiteral("empty")} + arguments, input);
    return {ran.code, QString::fromUtf8(ran.errors)};
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
        QTest::addColumn<bool>("killed"); // the daemon, in the middle of its removal
        QTest::addColumn<int>("exitCode");
        QTest::newRow("the administrator approves") << true << false << 0;
        // What the daemon refuses stays, is named, and ends the run with its own status.
        QTest::newRow("the administrator refuses") << false << false << 4;
        // A daemon that dies mid-request ends the run at once; the next run finishes the job.
        QTest::newRow("the daemon is killed midway") << true << true << 3;
    }

    void emptiesAVolumeTrashWithTheDaemonsHelp()
    {
        QFETCH(bool, approved);
        QFETCH(bool, killed);
        QFETCH(int, exitCode);
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        QTemporaryDir dir;
        const fs::path root = dir.path().toStdString();
        QVERIFY(chmod(root.c_str(), 0755) == 0);
        test::PrivateBus bus(test::PrivateBus::System);
        QVERIFY(bus.isUp());
        test::TestUser user(QString::fromStdString((root / "home").native()));
        QVERIFY(user.isValid());
        test::ScriptedPolkit polkit(bus, {{user.name(), approved}});
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
        for (int i = 0; killed && i < 20000; ++i) // long enough to be caught at it
            test::writeFile(system / std::to_string(i));
        lchown(system.c_str(), 0, 0);
        lchown((system / "content").c_str(), 0, 0);
        chmod(system.c_str(), 0555);
        const QStringList outside = tree(stick / "Documents");

        QProcess quillane;
        const auto empty = [&] {
            user.start(quillane, QStringLiteral(QUILLANE_EXECUTABLE),
                       {QStringLiteral("empty"), QString::fromStdString(stick.native()),
                        QStringLiteral("--yes")});
        };
        empty();
        if (killed) {
            // The folder changes with the daemon's first removal in it.
            struct stat before {
            }, now{};
            QVERIFY(stat(system.c_str(), &before) == 0);
            QElapsedTimer waited;
            waited.start();
            while (stat(system.c_str(), &now) == 0 &&
                   now.st_mtim.tv_nsec == before.st_mtim.tv_nsec &&
                   now.st_mtim.tv_sec == before.st_mtim.tv_sec && waited.elapsed() < 20000)
                QThread::usleep(200);
            daemon.kill();
            daemon.waitForFinished();
        }
        QVERIFY(quillane.waitForFinished(60000));
        QByteArray errors = quillane.readAllStandardError();
        QVERIFY2(quillane.exitCode() == exitCode, errors.constData());
        if (killed) {
            QVERIFY2(errors.contains("the helper daemon stopped answering"), errors.constData());
            QVERIFY(fs::exists(trash / "info/system folder.trashinfo")); // with what is left
            QVERIFY(test::startDaemon(daemon, bus, QStringLiteral(QUILLANE_DAEMON)));
            empty();
            QVERIFY(quillane.waitForFinished(60000));
            errors = quillane.readAllStandardError();
            QVERIFY2(quillane.exitCode() == 0, errors.constData());
        }

        const QStringList left{QString::fromStdString((trash / "files/system folder").native()),
                               QString::fromStdString((system / "content").native())};
        QCOMPARE(tree(trash / "files"), approved ? QStringList() : left);
        QVERIFY(!fs::exists(trash / "directorysizes") ||
                test::readFile(trash / "directorysizes").empty());
        QCOMPARE(fs::is_empty(trash / "info"), approved);
        QCOMPARE(errors.contains("system folder stayed: "), !approved);
        QCOMPARE(tree(stick / "Documents"), outside);
        daemon.kill();
        daemon.waitForFinished();
        QVERIFY(test::unmount(stick));
    }

    void endsOnEveryTrash_data()
    {
        QTest::addColumn<bool>("heldElsewhere"); // with an item, which stays
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("says");
        QTest::newRow("empty") << false << 0 << QStringLiteral("holds nothing to remove");
        QTest::newRow("being emptied elsewhere")
            << true << 1 << QStringLiteral("another emptying of this trash is under way");
    }

    // quillane empty always comes to an end, and says how when it removed nothing.
    void endsOnEveryTrash()
    {
        QFETCH(bool, heldElsewhere);
        QFETCH(int, exitCode);
        QFETCH(QString, says);
        QTemporaryDir home;
        const fs::path files = fs::path(home.path().toStdString()) / ".local/share/Trash/files";
        fs::create_directories(files);
        QProcess holder;
        if (heldElsewhere) {
            test::writeFile(files / "a", "x");
            holder.start(QStringLiteral("flock"),
                         {QString::fromStdString(files.native()), QStringLiteral("-c"),
                          QStringLiteral("echo locked; sleep 30")});
            QVERIFY(holder.waitForReadyRead(5000));
        }

        const auto [code, errors] =
            emptyIn(home.path(), {QString::fromStdString(files.native()), QStringLiteral("--yes")});
        holder.kill();
        holder.waitForFinished();
        QVERIFY2(code == exitCode, qPrintable(errors));
        QVERIFY2(errors.contains(says), qPrintable(errors));
        QCOMPARE(fs::exists(files / "a"), heldElsewhere);
    }

    // Without --yes the command asks in the user's language, and takes that language's yes as
    // well as the "y" scripts type.
    void asksInTheUsersLanguage_data()
    {
        QTest::addColumn<QString>("language");
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<QString>("asked");
        QTest::addColumn<bool>("emptied");
        const QString english = QStringLiteral(
            "Empty the trash of Home (1 item)? The items cannot be restored. [y/N] ");
        const QString german = QStringLiteral("Papierkorb von Home leeren (1 Objekt)? Das Objekt "
                                              "kann nicht wiederhergestellt werden. [j/N] ");
        const QString c = QStringLiteral("C.UTF-8");
        const QString de = QStringLiteral("de_DE.UTF-8");
        QTest::newRow("English, y") << c << QByteArray("y\n") << english << true;
        QTest::newRow("English, no answer") << c << QByteArray("\n") << english << false;
        QTest::newRow("English, j is no yes") << c << QByteArray("j\n") << english << false;
        QTest::newRow("German, j") << de << QByteArray("j\n") << german << true;
        QTest::newRow("German, Ja") << de << QByteArray("Ja\n") << german << true;
        QTest::newRow("German, y") << de << QByteArray("y\n") << german << true;
        QTest::newRow("German, n") << de << QByteArray("n\n") << german << false;
    }

    void asksInTheUsersLanguage()
    {
        QFETCH(QString, language);
        QFETCH(QByteArray, answer);
        QFETCH(QString, asked);
        QFETCH(bool, emptied);
        QTemporaryDir home;
        const fs::path trash = fs::path(home.path().toStdString()) / ".local/share/Trash";
        test::writeFile(trash / "files/letter", "x");
        test::writeFile(trash / "info/letter.trashinfo",
                        "[Trash Info]\nPath=/tmp/letter\nDeletionDate=2024-01-02T03:04:05\n");
        const auto [code, errors] =
            emptyIn(home.path(), {QStringLiteral("Home")}, answer, language);
        QVERIFY2(errors.startsWith(asked), qPrintable(errors));
        QCOMPARE(code, emptied ? 0 : 1);
        QCOMPARE(fs::exists(trash / "files/letter"), !emptied);
    }

    void saysWhyThereIsNoTrash_data()
    {
        QTest::addColumn<QString>("place");
        QTest::addColumn<QString>("says");
        QTest::newRow("the home trash is a symbolic link")
            << QStringLiteral("linked home trash") << QStringLiteral("is a symbolic link");
        QTest::newRow("a folder whose trash was never made")
            << QStringLiteral("no home trash") << QStringLiteral("Trash does not exist");
        QTest::newRow("a volume mounted read-only")
            << QStringLiteral("read-only volume") << QStringLiteral("mounted read-only");
    }

    // A location with no trash to empty says why, and nothing is removed.
    void saysWhyThereIsNoTrash()
    {
        QFETCH(QString, place);
        QFETCH(QString, says);
        QTemporaryDir home;
        const fs::path root = home.path().toStdString();
        const fs::path stick = "/mnt/read-only stick";
        QString location = QStringLiteral("Home");
        if (place == QStringLiteral("linked home trash")) {
            test::writeFile(root / "elsewhere/files/kept", "x");
            fs::create_directories(root / ".local/share");
            fs::create_directory_symlink(root / "elsewhere", root / ".local/share/Trash");
        } else if (place == QStringLiteral("no home trash")) {
            test::writeFile(root / "Documents/kept", "x");
            location = QString::fromStdString((root / "Documents").native());
        } else {
            if (!test::canMount())
                QSKIP("needs root in a private mount namespace");
            QVERIFY(test::mountExt4(root / "stick.img", stick));
            test::writeFile(stick / ".Trash-0/files/kept", "x");
            QVERIFY(test::run(QStringLiteral("mount"),
                              {QStringLiteral("-o"), QStringLiteral("remount,ro"),
                               QString::fromStdString(stick.native())}));
            location = QString::fromStdString(stick.native());
        }
        const auto unmount = qScopeGuard([&] {
            if (fs::exists(stick / ".Trash-0"))
                test::unmount(stick);
        });
        const auto [code, errors] = emptyIn(home.path(), {location, QStringLiteral("--yes")});
        QVERIFY2(code == 2 && errors.contains(says), qPrintable(errors));
        for (const fs::path& kept : {root / "elsewhere/files/kept", root / "Documents/kept",
                                     stick / ".Trash-0/files/kept"})
            QVERIFY(!fs::exists(kept.parent_path()) || fs::exists(kept));
    }

    void faultsLeaveTheTrashConsistent_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("a record made by hand, with no item") << "ghost" << 0;
        QTest::newRow("killed midway, then run again") << "SIGKILL" << 0;
        QTest::newRow("remounted read-only midway, then run again") << "read-only" << 1;
        QTest::newRow("unplugged midway, then plugged in and run again") << "unplugged" << 1;
        QTest::newRow("a name with an escape sequence the helper cannot take")
            << "escape sequence" << 3;
    }

    // Whatever breaks in the middle, one more quillane empty leaves a trash that every program
    // reads as empty: no record without its item, no size line of a folder that is gone. A
    // fault that concerns the whole volume says so once.
    void faultsLeaveTheTrashConsistent()
    {
        QFETCH(QString, fault);
        QFETCH(int, exitCode);
        const bool onAVolume =
            fault == QStringLiteral("read-only") || fault == QStringLiteral("unplugged");
        if (onAVolume && !test::canMount())
            QSKIP("needs root in a private mount namespace");
        QTemporaryDir home;
        const fs::path stick = "/mnt/faults stick";
        const fs::path image = fs::path(home.path().toStdString()) / "stick.img";
        if (onAVolume)
            QVERIFY(test::mountExt4(image, stick));
        const auto unmount = qScopeGuard([&] {
            if (onAVolume)
                QProcess::execute(QStringLiteral("umount"),
                                  {QString::fromStdString(stick.native())});
        });
        const fs::path trash = onAVolume
                                   ? stick / ".Trash-0"
                                   : fs::path(home.path().toStdString()) / ".local/share/Trash";
        const QString location = QString::fromStdString((trash / "files").native());
        QProcessEnvironment environment = userWithHome(home.path());
        // No helper daemon: what needs one stays.
        environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"),
                           QStringLiteral("unix:path=/nonexistent/bus"));

        // Real trash from the desktop's and the command line's trashers, then what the fault
        // needs on top.
        for (const char* name : {"from gio", "from trash-cli"})
            test::writeFile(fs::path(home.path().toStdString()) / name / "content", "x");
        QVERIFY(onAVolume ||
                run(environment, QStringLiteral("gio"),
                    {QStringLiteral("trash"), home.path() + QStringLiteral("/from gio")})
                        .code == 0);
        QVERIFY(onAVolume || run(environment, QStringLiteral("trash-put"),
                                 {home.path() + QStringLiteral("/from trash-cli")})
                                     .code == 0);
        const int many = fault == QStringLiteral("SIGKILL") || onAVolume ? 3000 : 0;
        std::string sizes;
        for (int i = 0; i < many; ++i) {
            const std::string name = "item " + std::to_string(i);
            for (const char* file : {"a", "b", "c"}) // enough work to be caught midway
                test::writeFile(trash / "files" / name / file, "x");
            test::writeFile(trash / "info" / (name + ".trashinfo"), "[Trash Info]\n");
            sizes += "4096 1700000000 item%20" + std::to_string(i) + "\n";
        }
        test::writeFile(trash / "info/ghost.trashinfo", "[Trash Info]\nPath=/gone\n");
        test::writeFile(trash / "directorysizes", sizes + "4096 1700000000 ghost\n");
        const std::string oddName = "\x1b[2Jodd\nname";
        if (fault == QStringLiteral("escape sequence")) {
            test::writeFile(trash / "files" / oddName / "content", "x");
            QVERIFY(test::run(
                QStringLiteral("chattr"),
                {QStringLiteral("+i"),
                 QString::fromStdString((trash / "files" / oddName / "content").native())}));
        }

        const auto empty = [&](QProcess& quillane) {
            quillane.setProcessEnvironment(environment);
            quillane.start(QStringLiteral(QUILLANE_EXECUTABLE),
                           {QStringLiteral("empty"), location, QStringLiteral("--yes")});
            QVERIFY(quillane.waitForStarted());
        };
        const auto itemsLeft = [&] {
            return std::distance(fs::directory_iterator(trash / "files"), {});
        };
        QProcess first;
        empty(first);
        if (fault == QStringLiteral("SIGKILL")) {
            QTRY_VERIFY_WITH_TIMEOUT(itemsLeft() < many, 20000);
            first.kill();
        } else if (onAVolume) {
            // Held still as soon as its first items are gone, so that the stick goes or the
            // remount lands midway however fast the removal goes. A remount takes only once no
            // write is under way, so between tries the process is let go on for a moment.
            QDeadlineTimer deadline(20000);
            while (itemsLeft() == many && !deadline.hasExpired()) {
            }
            const auto pid = static_cast<pid_t>(first.processId());
            const QString point = QString::fromStdString(stick.native());
            const QStringList command =
                fault == QStringLiteral("unplugged")
                    ? QStringList{QStringLiteral("umount"), QStringLiteral("-l"), point}
                    : QStringList{QStringLiteral("mount"), QStringLiteral("-o"),
                                  QStringLiteral("remount,ro"), point};
            bool done = false;
            for (int attempt = 0; attempt < 400 && !done; ++attempt) {
                ::kill(pid, SIGSTOP);
                if (attempt == 0)
                    QVERIFY(itemsLeft() < many);
                done = QProcess::execute(command.first(), command.mid(1)) == 0;
                ::kill(pid, SIGCONT);
                if (!done)
                    QThread::msleep(2);
            }
            QVERIFY(done);
        }
        QVERIFY(first.waitForFinished(30000));
        const QByteArray errors = first.readAllStandardError();
        if (fault != QStringLiteral("SIGKILL"))
            QVERIFY2(first.exitCode() == exitCode, errors.constData());
        QVERIFY2(!errors.contains('\x1b'), errors.constData()); // nothing steers the terminal
        if (fault == QStringLiteral("unplugged")) {
            QVERIFY2(errors.count("was unmounted") == 1, errors.constData());
            QVERIFY(
                test::run(QStringLiteral("mount"), {QStringLiteral("-o"), QStringLiteral("loop"),
                                                    QString::fromStdString(image.native()),
                                                    QString::fromStdString(stick.native())}));
            QVERIFY(itemsLeft() > 0); // what was not reached is still there
        } else if (onAVolume) {
            QVERIFY2(errors.count("Read-only file system") == 1, errors.constData());
            // Stopped midway: items, or at least their records, are left for the next run.
            QVERIFY(itemsLeft() > 0 || !fs::is_empty(trash / "info"));
            QVERIFY(test::run(QStringLiteral("mount"),
                              {QStringLiteral("-o"), QStringLiteral("remount,rw"),
                               QString::fromStdString(stick.native())}));
        }
        if (fault == QStringLiteral("escape sequence")) {
            QVERIFY2(errors.contains("\\x1b[2Jodd\\nname stayed: "), errors.constData());
            test::run(QStringLiteral("chattr"),
                      {QStringLiteral("-i"),
                       QString::fromStdString((trash / "files" / oddName / "content").native())});
        }
        if (exitCode != 0 || fault == QStringLiteral("SIGKILL")) {
            const Ran again = run(environment, QStringLiteral(QUILLANE_EXECUTABLE),
                                  {QStringLiteral("empty"), location, QStringLiteral("--yes")});
            QVERIFY2(again.code == 0, again.errors.constData());
        }

        QVERIFY(fs::is_empty(trash / "files"));
        QVERIFY(fs::is_empty(trash / "info"));
        QCOMPARE(QByteArray::fromStdString(test::readFile(trash / "directorysizes")), QByteArray());
        if (!onAVolume)
            QCOMPARE(run(environment, QStringLiteral("trash-list"), {}).output, QByteArray());
    }

    // Two locations of one name: the command names both and removes nothing.
    void anAmbiguousNameRemovesNothing()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        QTemporaryDir dir;
        const fs::path root = dir.path().toStdString();
        std::vector<fs::path> trashes;
        for (const char* stick : {"/mnt/first/stick", "/mnt/second/stick"}) {
            QVERIFY(test::mountExt4(root / (std::string(stick + 5, 5) + ".img"), stick));
            trashes.push_back(fs::path(stick) / ".Trash-0/files");
            test::writeFile(trashes.back() / "item", "x");
        }
        const auto system = QProcessEnvironment::systemEnvironment();
        const QString quillane = QStringLiteral(QUILLANE_EXECUTABLE);
        QString name;
        const QByteArray listed =
            run(system, quillane, {QStringLiteral("list"), QStringLiteral("--json")}).output;
        for (const QJsonValue entry : QJsonDocument::fromJson(listed).array())
            if (entry[QStringLiteral("trash")].toString() ==
                QString::fromStdString(trashes[0].native()))
                name = entry[QStringLiteral("name")].toString();
        QVERIFY(!name.isEmpty());

        const auto [code, output, errors] =
            run(system, quillane, {QStringLiteral("empty"), name, QStringLiteral("--yes")});
        QVERIFY2(code == 2, errors.constData());
        for (const fs::path& trash : trashes) {
            QVERIFY2(errors.contains(QByteArray::fromStdString(trash.native())),
                     errors.constData());
            QVERIFY(fs::exists(trash / "item"));
        }
        for (const char* stick : {"/mnt/first/stick", "/mnt/second/stick"})
            QVERIFY(test::unmount(stick));
    }
};

QTEST_GUILESS_MAIN(TestEmptyCommand)
#include "tst_EmptyCommand.moc"
