#include "Platform/BusNames.h"
#include "Platform/linux/DiskLabels.h"
#include "Platform/linux/MountInfoWatcher.h"
#include "Platform/linux/ProcMountTable.h"
#include "Platform/linux/UDisksLabels.h"
#include "PlatformTestSupport.h"
#include "PrivateBus.h"

#include <QDBusConnection>
#include <QEventLoop>
#include <QTest>
#include <QThread>
#include <latch>
#include <sys/sysmacros.h>

namespace fs = std::filesystem;
using namespace quillane;

namespace
{

const fs::path mountinfo = "/proc/self/mountinfo";

// One mountinfo line, the mount point escaped as the kernel writes it.
QByteArray line(const QByteArray& point, const QByteArray& type, const QByteArray& source = "src",
                const QByteArray& options = "rw,relatime")
{
    return "30 1 8:1 / " + point + ' ' + options + " shared:1 - " + type + ' ' + source + " rw\n";
}

QByteArray describe(const MountEntry& entry)
{
    return QByteArray::fromStdString(entry.mountPoint.native() + ' ' + entry.fsType + ' ' +
                                     entry.source) +
           (entry.readOnly ? " ro" : " rw") + (entry.local ? "" : " remote");
}

QByteArray label(const std::optional<std::string>& name)
{
    return name ? QByteArray::fromStdString(*name) : QByteArray("<none>");
}

void row(const char* tag, const QByteArray& text, const QByteArray& expected)
{
    QTest::newRow(tag) << text << expected;
}

// A block device object of udisks, with the one property read here.
class FakeBlock : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.UDisks2.Block")
    Q_PROPERTY(QString IdLabel READ idLabel)

public:
    explicit FakeBlock(QString label) : m_label(std::move(label)) {}
    QString idLabel() const { return m_label; }

private:
    QString m_label;
};

} // namespace

class TestMountTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parse_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("expected");
        row("no optional fields",
            "36 35 98:0 / /data rw,noatime - ext4 /dev/sda2 rw,errors=remount-ro",
            "/data ext4 /dev/sda2 rw");
        row("several optional fields",
            "36 35 98:0 /sub /media/usb rw shared:5 master:3 propagate_from:2 unbindable - vfat "
            "/dev/sdb1 rw",
            "/media/usb vfat /dev/sdb1 rw");
        row("space", line("/media/me/My\\040Disk", "ext4"), "/media/me/My Disk ext4 src rw");
        row("tab, newline and backslash", line("/mnt/a\\011b\\012c\\134d", "ext4", "/dev/x\\040y"),
            "/mnt/a\tb\nc\\d ext4 /dev/x y rw");
        row("escaped backslash before digits", line("/mnt/x\\134040", "ext4"),
            "/mnt/x\\040 ext4 src rw");
        row("read-only mount", line("/mnt/cd", "iso9660", "/dev/sr0", "ro,nosuid"),
            "/mnt/cd iso9660 /dev/sr0 ro");
        row("nfs", line("/net/home", "nfs4", "server:/home"),
            "/net/home nfs4 server:/home rw remote");
        row("cifs", line("/mnt/share", "cifs", "//nas/s"), "/mnt/share cifs //nas/s rw remote");
        row("sshfs", line("/mnt/far", "fuse.sshfs", "me@host:"),
            "/mnt/far fuse.sshfs me@host: rw remote");
    }

    void parse()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, expected);
        // A blank line and a truncated one around the real line are skipped.
        const auto entries = ProcMountTable::parse(("\n25 1 0:1 / /cut rw\n" + text).toStdString());
        QCOMPARE(entries.size(), std::size_t(1));
        QCOMPARE(describe(entries[0]), expected);
    }

    void userVisible_data()
    {
        // Whole machines, as their mountinfo and fstab read; the user is "me".
        QTest::addColumn<QByteArray>("mountinfo");
        QTest::addColumn<QByteArray>("fstab");
        QTest::addColumn<QByteArray>("home");
        QTest::addColumn<bool>("rootTrash"); // whether / holds a trash of the user's
        QTest::addColumn<QByteArray>("expected");
        const QByteArray pseudo = "22 28 0:20 / /sys rw,nosuid shared:7 - sysfs sysfs rw\n"
                                  "24 28 0:5 / /dev rw,nosuid shared:2 - devtmpfs udev rw\n"
                                  "26 28 0:23 / /run rw,nosuid shared:5 - tmpfs tmpfs rw\n"
                                  "27 26 0:45 / /run/user/1000 rw shared:9 - tmpfs tmpfs rw\n"
                                  "29 27 0:46 / /run/user/1000/gvfs rw shared:420 - "
                                  "fuse.gvfsd-fuse gvfsd-fuse rw,user_id=1000\n"
                                  "32 28 7:0 / /snap/core22/1380 ro shared:8 - squashfs "
                                  "/dev/loop0 ro\n";
        const auto row = [](const char* tag, const QByteArray& mountinfo, const QByteArray& fstab,
                            const char* home, bool rootTrash, const char* expected) {
            QTest::newRow(tag) << mountinfo << fstab << QByteArray(home) << rootTrash
                               << QByteArray(expected);
        };
        row("Debian, ext4",
            pseudo + "28 1 8:2 / / rw,relatime shared:1 - ext4 /dev/sda2 rw\n"
                     "40 28 8:1 / /boot/efi rw shared:30 - vfat /dev/sda1 rw\n"
                     "41 28 8:3 / /var/lib/x rw shared:31 - ext4 /dev/sda3 rw\n"
                     "43 28 8:5 / /data rw shared:33 - ext4 /dev/sda5 rw\n"
                     "44 28 8:6 / /mnt/backup rw shared:34 - ext4 /dev/sda6 rw\n"
                     "45 28 8:7 / /opt rw shared:35 - xfs /dev/sda7 rw\n"
                     "60 26 8:17 / /media/me/STICK rw,nosuid shared:440 - vfat /dev/sdb1 rw\n"
                     "61 26 8:33 / /run/media/me/My\\040Data rw shared:441 - ext4 /dev/sdc1 rw\n"
                     "62 26 8:49 / /run/media/other/THEIRS rw shared:442 - ext4 /dev/sdd1 rw\n"
                     "63 28 8:2 /home/me/Projects /mnt/projects rw shared:1 - ext4 /dev/sda2 rw\n",
            "# <file system> <mount point> <type> <options> <dump> <pass>\n"
            "UUID=1 /               ext4    errors=remount-ro 0       1\n"
            "/dev/sda5\t/data/\text4\tdefaults,x-gvfs-show\t0 2\n"
            "/dev/sda6 /mnt/backup ext4 defaults,x-gvfs-hide 0 2\n"
            "#/dev/sda7 /opt xfs x-gvfs-show 0 2\n",
            "/home/me", false, "/ home, /data, /media/me/STICK, /run/media/me/My Data");
        row("Fedora, btrfs subvolumes",
            pseudo + "28 1 0:32 /root / rw,relatime shared:1 - btrfs /dev/nvme0n1p3 rw\n"
                     "90 28 0:32 /home /home rw,relatime shared:45 - btrfs /dev/nvme0n1p3 rw\n"
                     "92 28 259:2 / /boot rw shared:47 - ext4 /dev/nvme0n1p2 rw\n"
                     "98 90 0:32 /data /home/me/Data rw shared:52 - btrfs /dev/nvme0n1p3 rw\n"
                     "99 26 8:17 / /run/media/me/Stick rw,nosuid shared:53 - vfat /dev/sdb1 rw\n",
            {}, "/home/me", false, "/home home, /run/media/me/Stick");
        row("Ubuntu, ZFS datasets",
            pseudo + "28 1 0:24 / / rw,relatime shared:1 - zfs rpool/ROOT/ubuntu_abc rw\n"
                     "40 28 0:41 / /home/me rw shared:20 - zfs rpool/USERDATA/me_abc rw\n"
                     "42 28 0:43 / /srv rw shared:22 - zfs rpool/ROOT/ubuntu_abc/srv rw\n"
                     "49 26 8:17 / /media/me/USB rw,nosuid shared:26 - exfat /dev/sdb1 rw\n"
                     "50 40 0:51 / /home/me/GoogleDrive rw,nosuid shared:27 - "
                     "fuse.google-drive-ocamlfuse google-drive-ocamlfuse rw,user_id=1000\n",
            {}, "/home/me", false,
            "/home/me home, /media/me/USB, /home/me/GoogleDrive cloud=GoogleDrive remote");
        row("NFS home",
            pseudo + "28 1 8:1 / / rw,relatime shared:1 - ext4 /dev/vda1 rw\n"
                     "50 28 0:52 / /home rw,relatime shared:60 - nfs4 fileserver:/export/home "
                     "rw,vers=4.2\n"
                     "51 28 0:53 / /mnt/share rw shared:61 - cifs //nas/share rw\n"
                     "52 28 0:54 / /mnt/cloud rw,nosuid shared:62 - fuse.rclone gdrive: rw\n",
            "fileserver:/export/home /home nfs4 defaults,x-gvfs-hide 0 0\n", "/home/me", false,
            "/home home remote, /mnt/share remote, /mnt/cloud cloud=rclone remote");
        row("bind mounts",
            pseudo + "28 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
                     "60 26 8:17 / /media/me/Stick rw shared:70 - ext4 /dev/sdb1 rw\n"
                     "61 28 8:17 /photos /mnt/photos rw shared:70 - ext4 /dev/sdb1 rw\n"
                     "63 28 8:1 /home/me/music /mnt/music rw shared:1 - ext4 /dev/sda1 rw\n"
                     "64 28 8:33 /data /mnt/data rw shared:71 - ext4 /dev/sdc1 rw\n"
                     "65 26 8:33 / /media/me/Disk rw shared:71 - ext4 /dev/sdc1 rw\n"
                     "66 28 8:1 /home/me /home/me/mirror rw shared:1 - ext4 /dev/sda1 rw\n",
            {}, "/home/me", false, "/ home, /media/me/Stick, /media/me/Disk");
        row("a mount point mounted over is judged by its topmost mount",
            "28 1 8:1 / / rw shared:1 - ext4 /dev/sda1 rw\n"
            "60 28 8:17 / /media/usb rw shared:2 - ext4 /dev/sdb1 rw\n"
            "61 28 8:33 / /mnt/x rw shared:3 - ext4 /dev/sdc1 rw\n"
            "62 60 8:49 / /media/usb rw shared:4 - vfat /dev/sdd1 rw\n"
            "63 61 0:60 / /mnt/x rw shared:5 - tmpfs tmpfs rw\n",
            {}, "/home/me", false, "/ home, /media/usb");
        // The root of a machine whose home is elsewhere is listed only when it has a trash of
        // the user's.
        const QByteArray split = "28 1 8:1 / / rw shared:1 - ext4 /dev/sda1 rw\n"
                                 "29 28 8:2 / /home rw shared:2 - ext4 /dev/sda2 rw\n";
        row("root without a trash of the user's", split, {}, "/home/me", false, "/home home");
        row("root with a trash of the user's", split, {}, "/home/me", true, "/, /home home");
    }

    void userVisible()
    {
        QFETCH(QByteArray, mountinfo);
        QFETCH(QByteArray, fstab);
        QFETCH(QByteArray, home);
        QFETCH(bool, rootTrash);
        QFETCH(QByteArray, expected);
        QByteArrayList kept;
        for (const MountEntry& entry : ProcMountTable::userVisible(
                 ProcMountTable::parse(mountinfo.toStdString()),
                 {home.toStdString(), "me", fstab.toStdString(), rootTrash})) {
            QByteArray text = QByteArray::fromStdString(entry.mountPoint.native());
            if (entry.holdsHome)
                text += " home";
            if (!entry.cloudProvider.empty())
                text += " cloud=" + QByteArray::fromStdString(entry.cloudProvider);
            if (!entry.local)
                text += " remote";
            kept << text;
        }
        QCOMPARE(kept.join(", "), expected);
    }

    // A root with no block device of its own (an overlay, ZFS) is named by its size too.
    void rootWithoutADeviceIsNamedBySize()
    {
        QTemporaryDir dir;
        const fs::path folder = dir.path().toStdString();
        test::writeFile(folder / "mountinfo", "28 1 0:30 / / rw - overlay overlay rw\n");
        const ProcMountTable table(folder / "mountinfo", "/home/me");
        const DiskLabels labels(folder / "no-labels", table);
        const QByteArray name = label(labels.volumeName("/"));
        QVERIFY2(name.endsWith(" Volume") && name.front() != ' ', name.constData());
    }

    void watcherReportsMountsAndUnmounts()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        const QByteArray point = "/mnt/My Volume";
        const ProcMountTable table(mountinfo, "/home/me");
        MountInfoWatcher watcher(mountinfo, table);
        QVERIFY(watcher.isWatching());
        QByteArrayList events;
        const auto record = [&events](const char* what) {
            return [&events, what](const fs::path& path) {
                const bool onMain = QThread::currentThread() == qApp->thread();
                events << what + QByteArray::fromStdString(path.native()) +
                              (onMain ? "" : " off the main thread");
            };
        };
        connect(&watcher, &MountWatcher::mounted, this, record("mounted "));
        connect(&watcher, &MountWatcher::unmounted, this, record("unmounted "));

        test::ScratchVolume volume(point.toStdString());
        QVERIFY(volume.isMounted());
        QTRY_COMPARE(events, QByteArrayList{"mounted " + point});
        QVERIFY(volume.unmount());
        QTRY_COMPARE(events, (QByteArrayList{"mounted " + point, "unmounted " + point}));
    }

    void decodeLabel_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("expected");
        row("spaces", "My\\x20Big\\x20Disk", "My Big Disk");
        row("slash and upper-case hex", "A\\x2fB\\x2F", "A/B/");
        row("escape at the end", "end\\x21", "end!");
        row("not an escape", "a\\xZZ\\x2", "a\\xZZ\\x2");
    }

    void decodeLabel()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, expected);
        QCOMPARE(QByteArray::fromStdString(DiskLabels::decodeLabel(text.toStdString())), expected);
    }

    void labelComesFromTheLinkToTheDevice()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        const fs::path point = "/mnt/Labelled Volume";
        test::ScratchVolume volume(point);
        QVERIFY(volume.isMounted());
        QString device;
        QVERIFY(test::run(QStringLiteral("findmnt"),
                          {QStringLiteral("-nro"), QStringLiteral("SOURCE"),
                           QStringLiteral("--mountpoint"), QString::fromStdString(point)},
                          &device));

        // A by-label folder as udev makes it, with links to other devices beside ours.
        QTemporaryDir byLabel;
        const fs::path folder = byLabel.path().toStdString();
        const std::string source = device.trimmed().toStdString();
        fs::create_symlink(source, folder / "Holiday\\x20Photos");
        fs::create_symlink(source == "/dev/loop7" ? "/dev/loop6" : "/dev/loop7", folder / "Other");
        fs::create_symlink("/dev/null", folder / "Null");
        fs::create_symlink("missing", folder / "Dangling");
        const ProcMountTable table(mountinfo, "/home/me");
        const DiskLabels labels(folder, table);
        QCOMPARE(label(labels.volumeName(point)), QByteArray("Holiday Photos"));
        QCOMPARE(label(labels.volumeName("/mnt/Labelled Volume/")), QByteArray("Holiday Photos"));
        QCOMPARE(label(labels.volumeName(point / "lost+found")), QByteArray("<none>"));
        QCOMPARE(label(labels.volumeName("/mnt")), QByteArray("<none>"));
        QVERIFY(!labels.holdsHome(point));

        // Without a label the desktop names a volume by its size, rounded as file managers do.
        fs::remove(folder / "Holiday\\x20Photos");
        QCOMPARE(label(labels.volumeName(point)), QByteArray("134 MB Volume"));
        // Without udev, the label is read from the filesystem where the device may be read.
        QVERIFY(test::run(QStringLiteral("e2label"),
                          {QString::fromStdString(source), QStringLiteral("On The Disk")}));
        QCOMPARE(label(labels.volumeName(point)), QByteArray("On The Disk"));
        // A label source that knows the device comes first.
        const DiskLabels asked(folder, table, "/sys/dev/block",
                               [](dev_t) { return std::optional<std::string>("From udisks"); });
        QCOMPARE(label(asked.volumeName(point)), QByteArray("From udisks"));

        // The volume that holds the home folder is where the desktop's home is.
        const ProcMountTable homeTable(mountinfo, point / "me");
        const DiskLabels homeLabels(folder, homeTable);
        QVERIFY(homeLabels.holdsHome(point));
        QVERIFY(!homeLabels.holdsHome("/"));
    }

    // udisks stands in on a bus of our own: it does not run here, and where it runs it knows
    // labels only through a udev that does not run here either.
    void udisksLabels_data()
    {
        QTest::addColumn<QByteArray>("kernelName");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("labelled") << QByteArray("sdb1") << QByteArray("Holiday Photos");
        QTest::newRow("a name udisks escapes")
            << QByteArray("dm-0") << QByteArray("Encrypted Data");
        QTest::newRow("no label") << QByteArray("sdc1") << QByteArray("<none>");
        QTest::newRow("unknown to udisks") << QByteArray("sdz9") << QByteArray("<none>");
    }

    void udisksLabels()
    {
        QFETCH(QByteArray, kernelName);
        QFETCH(QByteArray, expected);
        test::PrivateBus bus;
        QVERIFY2(bus.isUp(), "dbus-daemon is needed (scripts/setup)");
        const QString address = bus.address();

        // The daemon answers on a thread of its own, since the lookup's call blocks.
        std::latch ready(1);
        std::unique_ptr<QThread> udisks(QThread::create([&] {
            FakeBlock stick(QStringLiteral("Holiday Photos"));
            FakeBlock mapped(QStringLiteral("Encrypted Data"));
            FakeBlock bare{QString()};
            QDBusConnection connection =
                QDBusConnection::connectToBus(address, QStringLiteral("udisks"));
            const QString devices = BusNames::udisksBlockDevicesPath;
            connection.registerObject(devices + QStringLiteral("sdb1"), &stick,
                                      QDBusConnection::ExportAllProperties);
            connection.registerObject(devices + QStringLiteral("dm_2d0"), &mapped,
                                      QDBusConnection::ExportAllProperties);
            connection.registerObject(devices + QStringLiteral("sdc1"), &bare,
                                      QDBusConnection::ExportAllProperties);
            connection.registerService(BusNames::udisksService);
            ready.count_down();
            QEventLoop().exec();
            QDBusConnection::disconnectFromBus(QStringLiteral("udisks"));
        }));
        udisks->start();
        ready.wait();
        const auto stop = qScopeGuard([&] {
            udisks->quit();
            udisks->wait();
            QDBusConnection::disconnectFromBus(QStringLiteral("client"));
        });

        // sysfs links each device number to the device's folder, named as the kernel names it.
        QTemporaryDir sys;
        const fs::path sysBlock = sys.path().toStdString();
        fs::create_symlink("../devices/virtual/block/" + kernelName.toStdString(),
                           sysBlock / "8:17");
        const UDisksLabels labels(QDBusConnection::connectToBus(address, QStringLiteral("client")),
                                  sysBlock);
        QCOMPARE(label(labels.label(makedev(8, 17))), expected);
        QCOMPARE(label(labels.label(makedev(8, 18))), QByteArray("<none>")); // not in sysfs
    }

    void sizeName_data()
    {
        QTest::addColumn<qulonglong>("bytes");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("16 GB stick") << 15'518'924'800ULL << QByteArray("16 GB Volume");
        QTest::newRow("below ten, one decimal") << 8'388'608ULL << QByteArray("8.4 MB Volume");
        QTest::newRow("rounds up into the next unit")
            << 999'600'000'000ULL << QByteArray("1.0 TB Volume");
        QTest::newRow("9.96 is 10") << 9'960'000'000ULL << QByteArray("10 GB Volume");
        QTest::newRow("bytes") << 512ULL << QByteArray("512 bytes Volume");
    }

    void sizeName()
    {
        QFETCH(qulonglong, bytes);
        QFETCH(QByteArray, expected);
        QCOMPARE(QByteArray::fromStdString(DiskLabels::sizeName(bytes)), expected);
    }
};

QTEST_GUILESS_MAIN(TestMountTable)
#include "tst_MountTable.moc"
