#include "DaemonTestSupport.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
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
        entries << QString::fromLocal8Bit(it->path().c_str()) + QLatin1Char(' ') +
                       QString::number(info.st_mode, 8) + QLatin1Char(' ') +
                       QString::number(info.st_size);
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
        m_bus = std::make_unique<test::SystemBus>();
        QVERIFY(m_bus->isUp());
        m_user =
            std::make_unique<test::TestUser>(QString::fromStdString((m_root / "home").native()));
        QVERIFY(m_user->isValid());
        m_home = m_user->home().toStdString();
        QVERIFY(giveTheUserItsHome());
        m_volume = "/mnt/daemon volume";
        QVERIFY(test::mountExt4(m_root / "volume.img", m_volume));
        m_stage = m_root / "stage";
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
        m_polkit = std::make_unique<test::PolkitAuthority>(
            *m_bus, QList<test::PolkitRule>{{m_user->name(), true}});
        QVERIFY2(m_polkit->isRunning(), qPrintable(m_polkit->error()));
    }

    void cleanup() { m_polkit.reset(); }

    // The case the daemon exists for: folders of root's, read-only, inside the user's trash.
    void removesWhatTheUserCannot_data()
    {
        QTest::addColumn<bool>("onVolume");
        QTest::addColumn<QByteArray>("name");
        QTest::newRow("home trash, root's read-only folders") << false << QByteArray("item");
        QTest::newRow("volume trash, a name not UTF-8") << true << QByteArray("caf\xe9\n-rf");
        QTest::newRow("volume trash, deeper than PATH_MAX") << true << QByteArray("deep");
    }

    void removesWhatTheUserCannot()
    {
        QFETCH(bool, onVolume);
        QFETCH(QByteArray, name);
        const fs::path trash = onVolume ? volumeTrash() : homeTrash();
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
        }
        chownTree(m_home, m_user->uid(), m_user->gid());
        m_polkit.reset();
        m_polkit = std::make_unique<test::PolkitAuthority>(
            *m_bus, QList<test::PolkitRule>{{m_user->name(), polkitAllows},
                                            {QStringLiteral("nobody"), true}});

        QByteArray path = request;
        path.replace("~", QByteArray::fromStdString(m_home.native()));
        path.replace("@", QByteArray::fromStdString(m_volume.native()));
        path.replace("UID", QByteArray::number(m_user->uid()));
        const QStringList before = snapshot(m_home) + snapshot(m_volume) + snapshot(victims) +
                                   snapshot("/etc").filter(QStringLiteral("hostname"));

        test::TestUser nobody(QString::fromStdString((m_root / "nobody").native()),
                              QStringLiteral("nobody"));
        const QString answer = askToDelete(asOtherUser ? nobody : *m_user, path);
        QVERIFY2(answer.startsWith(QStringLiteral("error: ")) && answer.contains(reason),
                 qPrintable(answer));
        QCOMPARE(snapshot(m_home) + snapshot(m_volume) + snapshot(victims) +
                     snapshot("/etc").filter(QStringLiteral("hostname")),
                 before);
    }

    // Last: an accepted uninstall ends the daemon.
    void uninstallRemovesOnlyItsOwnFiles()
    {
        const QStringList before = snapshot(m_stage);
        QCOMPARE(askToUninstall(QStringLiteral("/usr/bin/someone-else")).left(8),
                 QStringLiteral("Refused:"));
        QCOMPARE(snapshot(m_stage), before);

        QCOMPARE(askToUninstall(QString::fromStdString((m_stage / "bin" / "quillane").native())),
                 QStringLiteral("Uninstalling"));
        QTRY_VERIFY(!fs::exists(m_stage / "bin" / "quillane"));
        QTRY_VERIFY(!fs::exists(m_stage / "manifest.txt"));
        QVERIFY(!fs::exists(m_stage / "share" / "quillane" / "empty trash.aif"));
        QVERIFY(fs::exists(m_stage / "bin" / "neighbour"));
        QVERIFY(fs::is_directory(m_stage / "share" / "quillane"));
    }

private:
    fs::path homeTrash() const { return m_home / ".local" / "share" / "Trash"; }
    fs::path volumeTrash() const { return m_volume / (".Trash-" + std::to_string(m_user->uid())); }

    // The daemon finds a caller's home in the password database: in this test's private
    // mount namespace, a copy of it gives the test user its home folder here.
    bool giveTheUserItsHome()
    {
        QFile passwd(QStringLiteral("/etc/passwd"));
        if (!passwd.open(QIODevice::ReadOnly))
            return false;
        QByteArrayList lines = passwd.readAll().split('\n');
        for (QByteArray& line : lines) {
            QByteArrayList fields = line.split(':');
            if (fields.size() == 7 && fields[0] == m_user->name().toUtf8()) {
                fields[5] = QByteArray::fromStdString(m_home.native());
                line = fields.join(':');
            }
        }
        const fs::path copy = m_root / "passwd";
        test::writeFile(copy, lines.join('\n').toStdString());
        chmod(copy.c_str(), 0644);
        return mount(copy.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) == 0;
    }

    void startDaemon()
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

        m_daemon = std::make_unique<test::ChildProcess>();
        QVERIFY(test::startDaemon(*m_daemon, *m_bus, QStringLiteral(QUILLANE_DAEMON),
                                  {QStringLiteral("--application"),
                                   QString::fromStdString((m_stage / "bin/quillane").native()),
                                   QStringLiteral("--manifest"),
                                   QString::fromStdString((m_stage / "manifest.txt").native())}));
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

    QString runClient(const test::TestUser& user, const QStringList& arguments)
    {
        QProcess client;
        user.start(client, QStringLiteral(QUILLANE_TEST_CLIENT), arguments);
        if (!client.waitForFinished(40000))
            return QStringLiteral("no answer");
        return QString::fromLocal8Bit(client.readAllStandardOutput()).trimmed();
    }

    QString askToDelete(const test::TestUser& user, const QByteArray& path)
    {
        const fs::path request = m_root / "request";
        test::writeFile(request, path.toStdString());
        chmod(request.c_str(), 0644);
        return runClient(user, {QStringLiteral("delete"),
                                QStringLiteral("@") + QString::fromStdString(request.native())});
    }

    QString askToUninstall(const QString& application)
    {
        return runClient(*m_user, {QStringLiteral("uninstall"), application});
    }

    QTemporaryDir m_dir;
    fs::path m_root;
    fs::path m_home;
    fs::path m_volume;
    fs::path m_stage;
    std::unique_ptr<test::SystemBus> m_bus;
    std::unique_ptr<test::TestUser> m_user;
    std::unique_ptr<test::PolkitAuthority> m_polkit;
    std::unique_ptr<test::ChildProcess> m_daemon;
};

QTEST_GUILESS_MAIN(TestDaemon)
#include "tst_Daemon.moc"
