#include "DaemonTestSupport.h"
#include "Platform/BusNames.h"
#include "TestSupport.h"
#include "Uninstallation.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QTest>
#include <fcntl.h>
#include <memory>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace quillane;
namespace fs = std::filesystem;

namespace
{

// Every path below a folder, with what it is, never following links: what a test compares
// before and after a request to see that nothing else was touched.
QStringList snapshot(const fs::path& folder)
{
    QStringList entries;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(folder, error);
         it != fs::recursive_directory_iterator(); it.increment(error)) {
        struct stat info {
        };
        lstat(it->path().c_str(), &info);
        // A folder's size is its filesystem's business (tmpfs counts its entries).
        entries << QString::fromLocal8Bit(it->path().c_str()) + QLatin1Char(' ') +
                       QString::number(info.st_mode, 8) + QLatin1Char(' ') +
                       QString::number(S_ISDIR(info.st_mode) ? 0 : info.st_size) +
                       QStringLiteral(" %1:%2").arg(info.st_uid).arg(info.st_gid);
    }
    entries.sort();
    return entries;
}

void chownTree(const fs::path& path, uid_t uid, gid_t gid)
{
    lchown(path.c_str(), uid, gid);
    if (fs::is_directory(fs::symlink_status(path)))
        for (const auto& entry : fs::recursive_directory_iterator(path))
            lchown(entry.path().c_str(), uid, gid);
}

} // namespace

// The real daemon on a private system bus with the real polkitd, asked by a real client
// running as an unprivileged user. Nothing but what was asked for may go.
class TestDaemon : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        m_root = m_dir.path().toStdString();
        QVERIFY(chmod(m_root.c_str(), 0755) == 0);
        m_bus = std::make_unique<test::PrivateBus>(test::PrivateBus::System);
        QVERIFY(m_bus->isUp());
        m_user =
            std::make_unique<test::TestUser>(QString::fromStdString((m_root / "home").native()));
        QVERIFY(m_user->isValid());
        m_home = m_user->home().toStdString();
        QVERIFY(m_user->listHome(m_root)); // where the daemon looks for it
        m_volume = "/mnt/daemon volume";
        QVERIFY(test::mountExt4(m_root / "volume.img", m_volume));
        m_stage = m_root / "stage";
        stageInstallation();
        startDaemon();
    }

    void cleanupTestCase()
    {
        m_daemon.reset();
        if (!m_volume.empty())
            test::unmount(m_volume);
    }

    void init()
    {
        // A fresh pair of trash folders: the home's and the volume's, each with an item to
        // ask for and a neighbour that must stay. Whatever a test swapped in goes first.
        umount2((homeTrash() / "files" / "item" / "mounted").c_str(), MNT_DETACH);
        umount2((homeTrash() / "files").c_str(), MNT_DETACH);
        fs::remove_all(m_home / ".local");
        fs::remove_all(m_volume / "elsewhere");
        for (const fs::path& trash : {homeTrash(), volumeTrash()}) {
            fs::remove_all(trash);
            test::writeFile(trash / "files" / "keep", "keep");
            test::writeFile(trash / "info" / "keep.trashinfo", "[Trash Info]\n");
            test::writeFile(trash / "files" / "item" / "inner", "inner");
            test::writeFile(trash / "info" / "item.trashinfo", "[Trash Info]\n");
            chownTree(trash, m_user->uid(), m_user->gid());
        }
        chownTree(m_home, m_user->uid(), m_user->gid());
        m_polkit = std::make_unique<test::ScriptedPolkit>(
            *m_bus, QList<test::PolkitRule>{{m_user->name(), true}});
        QVERIFY2(m_polkit->isRunning(), qPrintable(m_polkit->error()));
    }

    void cleanup() { m_polkit.reset(); }

    // The interfaces, the bus policy and the polkit actions name what the code calls (the unit
    // and the activation file take the name from the build, as the install test checks).
    void theSystemsFilesNameWhatTheCodeCalls_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("line");
        const QString bus = QStringLiteral("dbus/") + BusNames::daemonService;
        const QString actions = QStringLiteral("polkit/") + BusNames::polkitActionsFile;
        const auto quoted = [](const QString& name) { return u'"' + name + u'"'; };
        QTest::newRow("operations")
            << bus + QStringLiteral(".TrashHelper.xml")
            << QStringLiteral("<interface name=") + quoted(BusNames::trashHelperInterface);
        QTest::newRow("reports") << bus + QStringLiteral(".HelperClient.xml")
                                 << QStringLiteral("<interface name=") +
                                        quoted(BusNames::helperClientInterface);
        QTest::newRow("policy, owner")
            << bus + QStringLiteral(".conf")
            << QStringLiteral("<allow own=") + quoted(BusNames::daemonService);
        QTest::newRow("policy, operations")
            << bus + QStringLiteral(".conf")
            << QStringLiteral("send_interface=") + quoted(BusNames::trashHelperInterface);
        QTest::newRow("policy, reports")
            << bus + QStringLiteral(".conf")
            << QStringLiteral("send_interface=") + quoted(BusNames::helperClientInterface);
        for (const QString& action :
             {BusNames::deleteItemAction, BusNames::repairTrashAction, BusNames::uninstallAction})
            QTest::newRow(qPrintable(action))
                << actions << QStringLiteral("<action id=") + quoted(action);
    }

    void theSystemsFilesNameWhatTheCodeCalls()
    {
        QFETCH(QString, file);
        QFETCH(QString, line);
        QFile source(QStringLiteral(QUILLANE_DAEMON_SOURCE_DIR "/") + file);
        QVERIFY2(source.open(QIODevice::ReadOnly), qPrintable(source.fileName()));
        QVERIFY2(QString::fromUtf8(source.readAll()).contains(line), qPrintable(line));
    }

    // The daemon's bus policy on a bus with the system bus's default rules: only root owns the
    // daemon's name, anyone calls it, and a client hears root's callbacks and nothing else.
    void theBusPolicy_data()
    {
        QTest::addColumn<bool>("asRoot");
        QTest::addColumn<QString>("method"); // empty: serve as the daemon
        QTest::addColumn<bool>("allowed");
        const QString callback = BusNames::helperClientInterface + QStringLiteral(".postVersion");
        QTest::newRow("a user serves as the daemon") << false << QString() << false;
        QTest::newRow("a user calls the daemon")
            << false << BusNames::trashHelperInterface + QStringLiteral(".versionWithReply")
            << true;
        QTest::newRow("root calls a client back") << true << callback << true;
        QTest::newRow("root calls a client otherwise")
            << true << QStringLiteral("org.freedesktop.DBus.Peer.Ping") << false;
        QTest::newRow("a user calls a client back") << false << callback << false;
    }

    void theBusPolicy()
    {
        QFETCH(bool, asRoot);
        QFETCH(QString, method);
        QFETCH(bool, allowed);
        QStringList command = {QStringLiteral(QUILLANE_DAEMON)};
        if (!method.isEmpty()) {
            // A client here is this test's own connection, answered by its event loop.
            const bool toDaemon = method.startsWith(BusNames::trashHelperInterface);
            command = {QStringLiteral("gdbus"),
                       QStringLiteral("call"),
                       QStringLiteral("--address"),
                       m_bus->address(),
                       QStringLiteral("--dest"),
                       toDaemon ? BusNames::daemonService : m_bus->connection().baseService(),
                       QStringLiteral("--object-path"),
                       toDaemon ? BusNames::daemonPath : BusNames::clientPath,
                       QStringLiteral("--method"),
                       method};
            if (method.endsWith(QStringLiteral("postVersion")))
                command << QStringLiteral("['3']");
        }
        if (!asRoot)
            command = QStringList{QStringLiteral("setpriv"),
                                  QStringLiteral("--reuid=%1").arg(m_user->uid()),
                                  QStringLiteral("--regid=%1").arg(m_user->gid()),
                                  QStringLiteral("--clear-groups"), QStringLiteral("--")} +
                      command;
        test::ChildProcess caller;
        caller.start(command.takeFirst(), command);
        QTRY_VERIFY_WITH_TIMEOUT(caller.state() == QProcess::NotRunning, 20000);
        const QByteArray errors = caller.readAllStandardError();
        QVERIFY2((errors.contains("AccessDenied") || errors.contains("not allowed to own")) ==
                     !allowed,
                 errors.constData());
    }

    // The case the daemon exists for: folders of root's, read-only, inside the user's trash.
    void removesWhatTheUserCannot_data()
    {
        QTest::addColumn<int>("place"); // 0: home, 1: volume, 2: home linked to another volume
        QTest::addColumn<QByteArray>("name");
        QTest::newRow("home trash, root's read-only folders") << 0 << QByteArray("item");
        QTest::newRow("volume trash, a name not UTF-8") << 1 << QByteArray("caf\xe9\n-rf");
        QTest::newRow("volume trash, deeper than PATH_MAX") << 1 << QByteArray("deep");
        // The administrator's link: the home is judged by the mount it really lies on.
        QTest::newRow("home linked to another filesystem") << 2 << QByteArray("item");
    }

    void removesWhatTheUserCannot()
    {
        QFETCH(int, place);
        QFETCH(QByteArray, name);
        const fs::path realHome = "/mnt/homes/me";
        const fs::path aside = m_home.native() + ".aside";
        const auto restore = qScopeGuard([&] {
            if (fs::is_symlink(m_home)) {
                fs::remove(m_home);
                fs::rename(aside, m_home);
                umount2("/mnt/homes", MNT_DETACH);
            }
        });
        if (place == 2) {
            fs::create_directories("/mnt/homes");
            QVERIFY(mount("homes", "/mnt/homes", "tmpfs", 0, nullptr) == 0);
            fs::rename(m_home, aside);
            fs::create_directories(realHome);
            fs::create_directory_symlink(realHome, m_home);
            test::writeFile(homeTrash() / "files" / "keep", "keep");
            test::writeFile(homeTrash() / "info" / "keep.trashinfo", "[Trash Info]\n");
            chownTree(realHome, m_user->uid(), m_user->gid());
        }
        const fs::path trash = place == 1 ? volumeTrash() : homeTrash();
        const fs::path item = trash / "files" / name.toStdString();
        test::writeFile(trash / "info" / (name.toStdString() + ".trashinfo"), "[Trash Info]\n");
        if (name == "deep")
            QVERIFY(makeDeepTree(item, 120));
        else
            test::writeFile(item / "locked" / "system file", "root's");
        chownTree(trash / "info", m_user->uid(), m_user->gid());
        chmod((item.parent_path()).c_str(), 0755);
        chmod((item / "locked").c_str(), 0555); // root's and read-only: beyond the user

        const QStringList before = snapshot(trash);
        QCOMPARE(askToDelete(*m_user, QByteArray::fromStdString(item.native())),
                 QStringLiteral("removed"));
        QVERIFY(!fs::exists(fs::symlink_status(item)));
        // Exactly the item, all below it, and its record are gone.
        const QString itemText = QString::fromLocal8Bit(item.c_str());
        const QString recordText =
            QString::fromLocal8Bit((trash / "info" / (name.toStdString() + ".trashinfo")).c_str());
        QStringList expected;
        for (const QString& entry : before) {
            if (!entry.startsWith(itemText + QLatin1Char(' ')) &&
                !entry.startsWith(itemText + QLatin1Char('/')) &&
                !entry.startsWith(recordText + QLatin1Char(' ')))
                expected << entry;
        }
        QCOMPARE(snapshot(trash), expected);
        QVERIFY(expected.size() >= 4); // the neighbours and their folders
    }

    void refusals_data()
    {
        QTest::addColumn<int>("layout");
        QTest::addColumn<QByteArray>("request"); // relative to the home (~) or the volume (@)
        QTest::addColumn<bool>("asOtherUser");
        QTest::addColumn<bool>("polkitAllows");
        QTest::addColumn<QString>("reason");
        const QString notInTrash = QStringLiteral("not an item of a trash folder of user");
        const QString link = QStringLiteral("a symbolic link");
        QTest::newRow("outside any trash")
            << 0 << QByteArray("~/Documents/secret") << false << true << notInTrash;
        QTest::newRow("parent components")
            << 0 << QByteArray("~/.local/share/Trash/files/../../../../Documents/secret") << false
            << true << QStringLiteral("not a plain absolute path");
        QTest::newRow("a link in the user's part of the path")
            << 1 << QByteArray("~/.local/share/Trash/files/victim") << false << true << link;
        QTest::newRow("files folder links to a system folder")
            << 2 << QByteArray("@/.Trash-UID/files/hostname") << false << true << link;
        QTest::newRow("another user's trash")
            << 3 << QByteArray("@/.Trash-0/files/item") << false << true << notInTrash;
        QTest::newRow("the trash folder is a link")
            << 4 << QByteArray("@/.Trash-UID/files/item") << false << true << link;
        QTest::newRow("a filesystem mounted inside the item")
            << 5 << QByteArray("~/.local/share/Trash/files/item") << false << true
            << QStringLiteral("another filesystem is mounted here");
        QTest::newRow("a filesystem mounted on the files folder")
            << 6 << QByteArray("~/.local/share/Trash/files/item") << false << true
            << QStringLiteral("another filesystem is mounted here");
        // The user's world-writable folder holds another user's private one: the user cannot
        // remove it, so neither may the daemon for them.
        QTest::newRow("another user's folder inside the user's shared one")
            << 7 << QByteArray("~/.local/share/Trash/files/shared") << false << true
            << QStringLiteral("owned by another user");
        // Root's power is for root's entries only: a folder of the user's own that the user
        // cannot even open stays theirs to open up. (One they can open but not write to, they
        // may and do open up themselves.)
        QTest::newRow("the user's own folder that they cannot open")
            << 8 << QByteArray("~/.local/share/Trash/files/item") << false << true
            << QStringLiteral("Permission denied");
        QTest::newRow("an item that is not there, with its record")
            << 9 << QByteArray("~/.local/share/Trash/files/missing") << false << true
            << QStringLiteral("no such item in the trash");
        QTest::newRow("polkit says no") << 0 << QByteArray("~/.local/share/Trash/files/item")
                                        << false << false << QStringLiteral("not authorized");
        // polkit lets the other user through here: the daemon itself must say no.
        QTest::newRow("a caller of another uid")
            << 0 << QByteArray("~/.local/share/Trash/files/item") << true << true << notInTrash;
    }

    void refusals()
    {
        QFETCH(int, layout);
        QFETCH(QByteArray, request);
        QFETCH(bool, asOtherUser);
        QFETCH(bool, polkitAllows);
        QFETCH(QString, reason);

        test::writeFile(m_home / "Documents" / "secret", "secret");
        const fs::path victims = m_root / "victims";
        fs::remove_all(victims);
        test::writeFile(victims / "Trash" / "files" / "victim", "victim");
        test::TestUser nobody(QString::fromStdString((m_root / "nobody").native()),
                              QStringLiteral("nobody"));
        chownTree(m_home, m_user->uid(), m_user->gid());
        switch (layout) {
        case 1: // ~/.local/share is a link to a folder with a trash of its own
            fs::rename(m_home / ".local" / "share", m_home / ".local" / "share.real");
            fs::create_directory_symlink(victims, m_home / ".local" / "share");
            break;
        case 2:
            fs::rename(volumeTrash() / "files", volumeTrash() / "files.real");
            fs::create_directory_symlink("/etc", volumeTrash() / "files");
            break;
        case 3:
            test::writeFile(m_volume / ".Trash-0" / "files" / "item", "root's own");
            break;
        case 4:
            fs::rename(volumeTrash(), m_volume / "elsewhere");
            fs::create_directory_symlink(m_volume / "elsewhere", volumeTrash());
            break;
        case 5:
            fs::create_directories(homeTrash() / "files" / "item" / "mounted");
            QVERIFY(mount("inside", (homeTrash() / "files" / "item" / "mounted").c_str(), "tmpfs",
                          0, nullptr) == 0);
            test::writeFile(homeTrash() / "files" / "item" / "mounted" / "precious", "precious");
            break;
        case 6: // what the user mounts over their files folder is not a trash of theirs
            QVERIFY(mount("over", (homeTrash() / "files").c_str(), "tmpfs", 0, nullptr) == 0);
            test::writeFile(homeTrash() / "files" / "item" / "precious", "precious");
            chownTree(homeTrash() / "files", m_user->uid(), m_user->gid());
            break;
        case 7: {
            const fs::path shared = homeTrash() / "files" / "shared";
            test::writeFile(shared / "private" / "secret", "secret");
            chownTree(shared, nobody.uid(), nobody.gid());
            QVERIFY(lchown(shared.c_str(), m_user->uid(), m_user->gid()) == 0);
            QVERIFY(chmod(shared.c_str(), 0777) == 0);
            QVERIFY(chmod((shared / "private").c_str(), 0700) == 0);
            break;
        }
        case 8:
            QVERIFY(chmod((homeTrash() / "files" / "item").c_str(), 0) == 0);
            break;
        case 9:
            test::writeFile(homeTrash() / "info" / "missing.trashinfo", "[Trash Info]\n");
            break;
        }
        m_polkit.reset();
        m_polkit = std::make_unique<test::ScriptedPolkit>(
            *m_bus, QList<test::PolkitRule>{{m_user->name(), polkitAllows},
                                            {QStringLiteral("nobody"), true}});

        QByteArray path = request;
        path.replace("~", QByteArray::fromStdString(m_home.native()));
        path.replace("@", QByteArray::fromStdString(m_volume.native()));
        path.replace("UID", QByteArray::number(m_user->uid()));
        const QStringList before = snapshot(m_home) + snapshot(m_volume) + snapshot(victims) +
                                   snapshot("/etc").filter(QStringLiteral("hostname"));

        const QString answer = askToDelete(asOtherUser ? nobody : *m_user, path);
        QVERIFY2(answer.startsWith(QStringLiteral("error: ")) && answer.contains(reason),
                 qPrintable(answer));
        QCOMPARE(snapshot(m_home) + snapshot(m_volume) + snapshot(victims) +
                     snapshot("/etc").filter(QStringLiteral("hostname")),
                 before);
    }

    // Items handed over together are one request: polkit is asked once, and each item is
    // answered on its own, those refused among the others too.
    void aBatchIsAskedAboutOnce_data()
    {
        QTest::addColumn<bool>("polkitAllows");
        QTest::newRow("approved") << true;
        QTest::newRow("polkit says no") << false;
    }

    void aBatchIsAskedAboutOnce()
    {
        QFETCH(bool, polkitAllows);
        const fs::path files = homeTrash() / "files";
        test::writeFile(files / "locked" / "system file", "root's");
        test::writeFile(homeTrash() / "info" / "locked.trashinfo", "[Trash Info]\n");
        test::writeFile(homeTrash() / "info" / "missing.trashinfo", "[Trash Info]\n");
        test::writeFile(m_home / "Documents" / "secret", "secret");
        chownTree(homeTrash() / "info", m_user->uid(), m_user->gid());
        QVERIFY(chmod((files / "locked").c_str(), 0555) == 0); // root's: beyond the user
        m_polkit.reset();
        m_polkit = std::make_unique<test::ScriptedPolkit>(
            *m_bus, QList<test::PolkitRule>{{m_user->name(), polkitAllows}});
        QVERIFY(m_polkit->isRunning());
        const QString action = BusNames::deleteItemAction;
        const int questionsBefore = m_polkit->questions(action);

        // Refused before polkit is asked (outside the trash), and by the removal (not there).
        const QList<std::pair<fs::path, QString>> items = {
            {files / "locked", QStringLiteral("removed")},
            {m_home / "Documents" / "secret", QStringLiteral("not an item of a trash folder")},
            {files / "missing", QStringLiteral("no such item in the trash")},
            {files / "item", QStringLiteral("removed")},
        };
        QByteArray list;
        for (const auto& [path, answer] : items)
            list += QByteArray::fromStdString(path.native()) + '\0';
        const fs::path request = m_root / "batch";
        test::writeFile(request, list.toStdString());
        chmod(request.c_str(), 0644);
        const QStringList before = snapshot(m_home);

        const QStringList answers =
            runClient(*m_user, {QStringLiteral("batch"),
                                QStringLiteral("@") + QString::fromStdString(request.native())})
                .split(u'\n');
        QVERIFY2(answers.size() == items.size(), qPrintable(answers.join(u'|')));
        for (const auto& [path, expected] : items) {
            const QString prefix = QString::fromStdString(path.native()) + QStringLiteral(": ");
            const QStringList found = answers.filter(prefix);
            QCOMPARE(found.size(), 1);
            const QString answer = found.first().mid(prefix.size());
            if (polkitAllows || expected.startsWith(QStringLiteral("not an item")))
                QVERIFY2(expected == QStringLiteral("removed")
                             ? answer == expected
                             : answer.startsWith(QStringLiteral("error: ")) &&
                                   answer.contains(expected),
                         qPrintable(answer));
            else
                QCOMPARE(answer, QStringLiteral("error: not authorized"));
        }
        QTRY_COMPARE(m_polkit->questions(action) - questionsBefore, 1);
        if (!polkitAllows) {
            QCOMPARE(snapshot(m_home), before);
            return;
        }
        QVERIFY(!fs::exists(files / "locked") && !fs::exists(files / "item"));
        QVERIFY(fs::exists(files / "keep") && fs::exists(m_home / "Documents" / "secret"));
        QVERIFY(!fs::exists(homeTrash() / "info" / "locked.trashinfo"));
        QVERIFY(fs::exists(homeTrash() / "info" / "missing.trashinfo"));
    }

    // A program run as root made the user's home trash root's: the daemon gives it back to the
    // user, and nothing beyond it.
    void repairsTheHomeTrash_data()
    {
        QTest::addColumn<int>("layout");
        QTest::addColumn<QString>("answer");
        const QString repaired = QStringLiteral("repaired");
        QTest::newRow("root's trash given back") << 0 << repaired;
        QTest::newRow("the trash is a symbolic link")
            << 1 << QStringLiteral("/.local/share/Trash: a symbolic link");
        QTest::newRow("a link inside to root's file is not followed") << 2 << repaired;
        QTest::newRow("a home that is not the caller's")
            << 3 << QStringLiteral("the home folder is not the caller's");
        QTest::newRow("polkit says no") << 4 << QStringLiteral("not authorized");
        QTest::newRow("a hard link to root's file stays root's") << 5 << repaired;
    }

    void repairsTheHomeTrash()
    {
        QFETCH(int, layout);
        QFETCH(QString, answer);
        const fs::path rootsFile = m_root / "root's file";
        const fs::path elsewhere = m_root / "elsewhere";
        fs::remove_all(elsewhere);
        fs::remove(rootsFile);
        test::writeFile(rootsFile, "root's");
        test::writeFile(homeTrash() / "files" / "made by root" / "inside", "root's");
        chownTree(homeTrash(), 0, 0);
        QVERIFY(chmod((homeTrash() / "files").c_str(), 0500) == 0);
        QVERIFY(chmod((homeTrash() / "info").c_str(), 0) == 0);
        switch (layout) {
        case 1:
            fs::rename(homeTrash(), elsewhere);
            fs::create_directory_symlink(elsewhere, homeTrash());
            break;
        case 2:
            fs::create_symlink(rootsFile, homeTrash() / "files" / "link");
            QVERIFY(lchown((homeTrash() / "files" / "link").c_str(), 0, 0) == 0);
            break;
        case 3:
            QVERIFY(chown(m_home.c_str(), 0, 0) == 0);
            break;
        case 5:
            fs::create_hard_link(rootsFile, homeTrash() / "files" / "hard link");
            break;
        }
        m_polkit.reset();
        m_polkit = std::make_unique<test::ScriptedPolkit>(
            *m_bus, QList<test::PolkitRule>{{m_user->name(), layout != 4}});
        QVERIFY(m_polkit->isRunning());
        const QStringList before = snapshot(m_home) + snapshot(elsewhere);
        const QStringList items = snapshot(homeTrash() / "files");

        const QString reply =
            runClient(*m_user, {QStringLiteral("repair"), QStringLiteral("home")});
        QVERIFY2(reply == answer ||
                     (reply.startsWith(QStringLiteral("error: ")) &&
                      answer != QStringLiteral("repaired") && reply.contains(answer)),
                 qPrintable(reply));
        struct stat info {
        };
        QVERIFY(stat(rootsFile.c_str(), &info) == 0);
        QCOMPARE(info.st_uid, uid_t(0)); // what a link names stays its owner's
        if (answer != QStringLiteral("repaired")) {
            QCOMPARE(snapshot(m_home) + snapshot(elsewhere), before);
            return;
        }
        // The trash and its two folders are the user's; every item is still there, as it was,
        // its owner included, and no other folder was left beside the trash.
        for (const fs::path& folder : {homeTrash(), homeTrash() / "files", homeTrash() / "info"}) {
            QVERIFY(lstat(folder.c_str(), &info) == 0);
            QCOMPARE(info.st_uid, m_user->uid());
            QCOMPARE(info.st_mode & S_IRWXU, mode_t(S_IRWXU));
        }
        QCOMPARE(snapshot(homeTrash() / "files"), items);
        QVERIFY(!fs::exists(homeTrash().parent_path() / "Trash.quillane-repair"));
    }

    // One user floods the daemon, over more connections than it ever served callers at once,
    // behind a removal that takes a while; another user asks meanwhile and is served before
    // that removal is over, while the flood's surplus is refused at once.
    void aFloodFromOneUserLeavesAnotherServed_data()
    {
        QTest::addColumn<int>("connections");
        QTest::addColumn<char>("kind"); // what the flood asks for: 'd'elete, 'u'ninstall
        QTest::newRow("deletions over 40 connections") << 40 << 'd';
        QTest::newRow("uninstall calls") << 4 << 'u';
    }

    void aFloodFromOneUserLeavesAnotherServed()
    {
        QFETCH(int, connections);
        QFETCH(char, kind);
        m_polkit.reset();
        m_polkit = std::make_unique<test::ScriptedPolkit>(
            *m_bus, QList<test::PolkitRule>{{m_user->name(), false, BusNames::uninstallAction},
                                            {m_user->name(), true},
                                            {QStringLiteral("nobody"), true}});
        QVERIFY(m_polkit->isRunning());

        // The flood's trash is on a volume in memory, where a large tree is quick to make.
        const fs::path volume = "/mnt/flooded";
        fs::create_directories(volume);
        QVERIFY(mount("flooded", volume.c_str(), "tmpfs", 0, nullptr) == 0);
        const auto unmount = qScopeGuard([&volume] { umount2(volume.c_str(), MNT_DETACH); });
        const fs::path trash = volume / (".Trash-" + std::to_string(m_user->uid()));
        const fs::path big = trash / "files" / "big";
        QVERIFY(makeWideTree(big, 200000));
        test::writeFile(trash / "files" / "item", "item");
        fs::create_directories(trash / "info");
        chownTree(trash, m_user->uid(), m_user->gid());
        QByteArray requests = 'd' + QByteArray::fromStdString(big.native()) + '\0';
        const int floodSize = 3 * waitingPerUser;
        for (int i = 0; i < floodSize; ++i) {
            requests +=
                kind == 'd'
                    ? 'd' + QByteArray::fromStdString((trash / "files" / "item").native())
                    : 'u' + QByteArray::fromStdString((m_stage / "bin" / "quillane").native());
            requests += '\0';
        }
        const fs::path list = m_root / "flood";
        test::writeFile(list, requests.toStdString());
        chmod(list.c_str(), 0644);

        test::TestUser nobody(QString::fromStdString((m_root / "nobody").native()),
                              QStringLiteral("nobody"));
        const fs::path otherTrash = m_volume / (".Trash-" + std::to_string(nobody.uid()));
        fs::remove_all(otherTrash);
        test::writeFile(otherTrash / "files" / "theirs", "theirs");
        fs::create_directories(otherTrash / "info");
        chownTree(otherTrash, nobody.uid(), nobody.gid());

        QProcess flood;
        m_user->start(flood, QStringLiteral(QUILLANE_TEST_CLIENT),
                      {QStringLiteral("flood"), QString::number(connections),
                       QStringLiteral("@") + QString::fromStdString(list.native())});
        QVERIFY(flood.waitForReadyRead(30000));
        QCOMPARE(flood.readLine().trimmed(), QByteArray("sent"));

        const QString answer = askToDelete(
            nobody, QByteArray::fromStdString((otherTrash / "files" / "theirs").native()), 50000);
        QVERIFY2(answer == QStringLiteral("removed"),
                 qPrintable(answer + QStringLiteral(", daemon: ") +
                            QString::number(m_daemon->state()) + QLatin1Char(' ') +
                            QString::number(m_daemon->exitCode())));
        QVERIFY2(fs::exists(big), "the other user waited for the flood's first removal");

        QVERIFY(flood.waitForFinished(60000));
        QCOMPARE(flood.exitCode(), 0); // everything answered
        const QStringList answers =
            QString::fromLocal8Bit(flood.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(answers.size(), floodSize + 1);
        QVERIFY(!fs::exists(big));
        // The first request of the flood and a user's worth of others waited; the rest could not.
        QVERIFY2(
            answers.count(QStringLiteral("Refused: too many requests are waiting; try again")) +
                    answers.count(
                        QStringLiteral("error: too many requests are waiting; try again")) >=
                floodSize - waitingPerUser,
            qPrintable(answers.join(u'|')));
    }

    // An idle daemon ends; the bus starts it again on the next call.
    void exitsWhenIdle()
    {
        m_daemon.reset();
        startDaemon({QStringLiteral("--idle-exit"), QStringLiteral("1")});
        QVERIFY(m_daemon->waitForFinished(20000));
        QCOMPARE(m_daemon->exitStatus(), QProcess::NormalExit);
        QCOMPARE(m_daemon->exitCode(), 0);
        startDaemon();
    }

    // Root writes none of the user's files: a removal leaves directorysizes exactly as it was,
    // and a folder named like the record is no record and stays.
    void leavesTheUsersOtherFilesAlone_data()
    {
        QTest::addColumn<bool>("recordIsFolder");
        QTest::newRow("a record") << false;
        QTest::newRow("a folder named like the record") << true;
    }

    void leavesTheUsersOtherFilesAlone()
    {
        QFETCH(bool, recordIsFolder);
        const fs::path item = homeTrash() / "files" / "item";
        const fs::path record = homeTrash() / "info" / "item.trashinfo";
        const fs::path sizes = homeTrash() / "directorysizes";
        if (recordIsFolder) {
            fs::remove(record);
            test::writeFile(record / "inside", "not a record");
        }
        test::writeFile(sizes, "4096 1700000000 item\n4096 1700000000 gone\n");
        chownTree(homeTrash(), m_user->uid(), m_user->gid());
        test::writeFile(item / "locked" / "system file", "root's");
        QVERIFY(chmod((item / "locked").c_str(), 0555) == 0); // root's: beyond the user
        const auto sizesNow = [&] {
            struct stat info {
            };
            lstat(sizes.c_str(), &info);
            return QStringList{QString::fromStdString(test::readFile(sizes)),
                               QStringLiteral("%1 %2 %3:%4 %5.%6")
                                   .arg(info.st_ino)
                                   .arg(info.st_mode, 0, 8)
                                   .arg(info.st_uid)
                                   .arg(info.st_gid)
                                   .arg(info.st_mtim.tv_sec)
                                   .arg(info.st_mtim.tv_nsec)};
        };
        const QStringList before = sizesNow();

        QCOMPARE(askToDelete(*m_user, QByteArray::fromStdString(item.native())),
                 QStringLiteral("removed"));
        QVERIFY(!fs::exists(fs::symlink_status(item)));
        QCOMPARE(fs::exists(record / "inside"), recordIsFolder);
        QVERIFY(recordIsFolder || !fs::exists(fs::symlink_status(record)));
        QCOMPARE(sizesNow(), before);
    }

    // Last: an accepted uninstall ends the daemon, and the service manager's stop step, outside
    // the daemon's sandbox, removes the installation.
    void uninstallRemovesOnlyItsOwnFiles()
    {
        const QStringList before = snapshot(m_stage);
        QCOMPARE(askToUninstall(QStringLiteral("/usr/bin/someone-else")).left(8),
                 QStringLiteral("Refused:"));
        QCOMPARE(snapshot(m_stage), before);

        QCOMPARE(askToUninstall(QString::fromStdString((m_stage / "bin" / "quillane").native())),
                 QStringLiteral("Uninstalling"));
        QVERIFY(m_daemon->waitForFinished(20000));
        QCOMPARE(m_daemon->exitCode(), 3);
        QCOMPARE(snapshot(m_stage), before);

        // Only after the daemon ended accepting an uninstall.
        QCOMPARE(finishUninstall("exited", "0"), 0);
        QCOMPARE(finishUninstall("killed", "3"), 0);
        QCOMPARE(snapshot(m_stage), before);
        QCOMPARE(finishUninstall("exited", "3"), 0);
        QVERIFY(!fs::exists(m_stage / "bin" / "quillane"));
        QVERIFY(!fs::exists(m_stage / "manifest.txt"));
        QVERIFY(!fs::exists(m_stage / "share" / "quillane" / "empty trash.aif"));
        QVERIFY(fs::exists(m_stage / "bin" / "neighbour"));
        QVERIFY(fs::is_directory(m_stage / "share" / "quillane"));
    }

    // A packaged install is the package manager's to remove: its files stay, and say why.
    void uninstallLeavesWhatThePackageManagerOwns()
    {
        QTemporaryDir stage;
        const fs::path root = stage.path().toStdString();
        for (const char* file : {"bin/quillane", "share/quillane/sound"})
            test::writeFile(root / file, "x");
        test::writeFile(root / "manifest", (root / "bin/quillane").native() + '\n' +
                                               (root / "share/quillane/sound").native() + '\n');
        test::writeFile(root / "dpkg/quillane.list", (root / "bin/quillane").native() + '\n');
        QVERIFY(chmod((root / "manifest").c_str(), 0644) == 0);

        const std::string failures = daemon::removeInstallation(root / "manifest", root / "dpkg");
        QVERIFY2(failures.find("installed by the package manager") != std::string::npos,
                 failures.c_str());
        QVERIFY(fs::exists(root / "bin/quillane"));
        QVERIFY(!fs::exists(root / "share/quillane/sound"));
    }

private:
    fs::path homeTrash() const { return m_home / ".local" / "share" / "Trash"; }
    fs::path volumeTrash() const { return m_volume / (".Trash-" + std::to_string(m_user->uid())); }

    void stageInstallation()
    {
        // What an installation would have put in place, and a file it did not.
        for (const char* file : {"bin/quillane", "libexec/quillane-daemon",
                                 "share/quillane/empty trash.aif", "bin/neighbour"})
            test::writeFile(m_stage / file, "installed");
        test::writeFile(m_stage / "manifest.txt",
                        (m_stage / "bin/quillane").native() + "\n" +
                            (m_stage / "libexec/quillane-daemon").native() + "\n" +
                            (m_stage / "share/quillane/empty trash.aif").native() + "\n");
        chmod((m_stage / "manifest.txt").c_str(), 0644);
    }

    // Without a bus to start it again, the daemon must not end on its own between tests.
    void startDaemon(const QStringList& options = {QStringLiteral("--idle-exit"),
                                                   QStringLiteral("3600")})
    {
        m_daemon = std::make_unique<test::ChildProcess>();
        QVERIFY(test::startDaemon(
            *m_daemon, *m_bus, QStringLiteral(QUILLANE_DAEMON),
            QStringList{QStringLiteral("--application"),
                        QString::fromStdString((m_stage / "bin/quillane").native()),
                        QStringLiteral("--waiting-per-user"), QString::number(waitingPerUser)} +
                options));
    }

    // The daemon's part in the service manager's stop step, with what the manager tells it.
    int finishUninstall(const char* exitCode, const char* exitStatus)
    {
        QProcess step;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("EXIT_CODE"), QString::fromLatin1(exitCode));
        environment.insert(QStringLiteral("EXIT_STATUS"), QString::fromLatin1(exitStatus));
        step.setProcessEnvironment(environment);
        step.start(QStringLiteral(QUILLANE_DAEMON),
                   {QStringLiteral("--finish-uninstall"), QStringLiteral("--manifest"),
                    QString::fromStdString((m_stage / "manifest.txt").native())});
        return step.waitForFinished(20000) ? step.exitCode() : -1;
    }

    // A folder of sub-folders holding `count` empty files in all: a removal that takes a while.
    bool makeWideTree(const fs::path& top, int count)
    {
        for (int i = 0; i < count; ++i) {
            const fs::path folder = top / std::to_string(i / 1000);
            if (i % 1000 == 0)
                fs::create_directories(folder);
            const int file =
                open((folder / std::to_string(i)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
            if (file < 0)
                return false;
            close(file);
        }
        return true;
    }

    bool makeDeepTree(const fs::path& top, int depth)
    {
        fs::create_directories(top);
        int fd = open(top.c_str(), O_RDONLY | O_DIRECTORY);
        const std::string name(40, 'd');
        for (int level = 0; fd >= 0 && level < depth; ++level) {
            if (mkdirat(fd, name.c_str(), 0755) != 0)
                return false;
            const int next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
            close(fd);
            fd = next;
        }
        if (fd < 0)
            return false;
        const int file = openat(fd, "bottom", O_CREAT | O_WRONLY, 0644);
        close(file);
        close(fd);
        return true;
    }

    QString runClient(const test::TestUser& user, const QStringList& arguments,
                      int deadlineMs = 40000)
    {
        QProcess client;
        user.start(client, QStringLiteral(QUILLANE_TEST_CLIENT), arguments);
        if (!client.waitForFinished(deadlineMs))
            return QStringLiteral("no answer: ") +
                   QString::fromLocal8Bit(client.readAllStandardOutput());
        return QString::fromLocal8Bit(client.readAllStandardOutput()).trimmed();
    }

    QString askToDelete(const test::TestUser& user, const QByteArray& path, int deadlineMs = 40000)
    {
        const fs::path request = m_root / "request";
        test::writeFile(request, path.toStdString());
        chmod(request.c_str(), 0644);
        return runClient(user,
                         {QStringLiteral("delete"),
                          QStringLiteral("@") + QString::fromStdString(request.native())},
                         deadlineMs);
    }

    QString askToUninstall(const QString& application)
    {
        return runClient(*m_user, {QStringLiteral("uninstall"), application});
    }

    static constexpr int waitingPerUser = 16;

    QTemporaryDir m_dir;
    fs::path m_root;
    fs::path m_home;
    fs::path m_volume;
    fs::path m_stage;
    std::unique_ptr<test::PrivateBus> m_bus;
    std::unique_ptr<test::TestUser> m_user;
    std::unique_ptr<test::ScriptedPolkit> m_polkit;
    std::unique_ptr<test::ChildProcess> m_daemon;
};

QTEST_GUILESS_MAIN(TestDaemon)
#include "tst_Daemon.moc"
