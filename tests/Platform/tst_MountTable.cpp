#include "Platform/linux/DiskLabels.h"
#include "Platform/linux/MountInfoWatcher.h"
#include "Platform/linux/ProcMountTable.h"
#include "PlatformTestSupport.h"

#include <QTest>
#include <QThread>

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
        QTest::addColumn<QByteArray>("mounts"); // point=type, in the kernel's order
        QTest::addColumn<QByteArray>("home");
        QTest::addColumn<QByteArray>("expected");
        const auto visible = [](const char* tag, const char* mounts, const char* home,
                                const char* expected) {
            QTest::newRow(tag) << QByteArray(mounts) << QByteArray(home) << QByteArray(expected);
        };
        visible("pseudo filesystems dropped",
                "/=ext4 /proc=proc /sys/fs/cgroup=cgroup2 /tmp=tmpfs /var/lib/docker/x=overlay "
                "/mnt/data=xfs",
                "/home/me", "/=ext4 /mnt/data=xfs");
        visible("system mount points dropped",
                "/=ext4 /boot=ext4 /boot/efi=vfat /snap/x=ext4 /dev/shm=ext4 /proc/fs=ext4 "
                "/sys/kernel=ext4 /run/user/1000=ext4 /run/media/me/USB=vfat",
                "/home/me", "/=ext4 /run/media/me/USB=vfat");
        visible("look-alike names kept",
                "/running=ext4 /devices=ext4 /snapshots=btrfs /bootleg=ext4", "/home/me",
                "/running=ext4 /devices=ext4 /snapshots=btrfs /bootleg=ext4");
        visible("root and home kept whatever their type",
                "/=overlay /home=tmpfs /home/me/.cache=tmpfs", "/home/me", "/=overlay /home=tmpfs");
        visible("home is a whole component", "/=ext4 /home/me=tmpfs", "/home/me2", "/=ext4");
        visible("kernel order kept", "/mnt/b=ext4 /media/c=ext4 /mnt/a=ext4", "/home/me",
                "/mnt/b=ext4 /media/c=ext4 /mnt/a=ext4");
        visible("over-mounted point listed once, as the topmost mount",
                "/media/usb=ext4 /mnt/x=ext4 /media/usb=vfat", "/home/me",
                "/media/usb=vfat /mnt/x=ext4");
        visible("a volume hidden by a pseudo filesystem mounted over it is gone",
                "/=ext4 /media/usb=ext4 /media/usb=tmpfs", "/home/me", "/=ext4");
    }

    void userVisible()
    {
        QFETCH(QByteArray, mounts);
        QFETCH(QByteArray, home);
        QFETCH(QByteArray, expected);
        QByteArray text;
        for (const QByteArray& mount : mounts.split(' '))
            text += line(mount.split('=')[0], mount.split('=')[1]);
        QByteArrayList kept;
        for (const MountEntry& entry : ProcMountTable::userVisible(
                 ProcMountTable::parse(text.toStdString()), home.toStdString()))
            kept << QByteArray::fromStdString(entry.mountPoint.native() + '=' + entry.fsType);
        QCOMPARE(kept.join(' '), expected);
    }

    void watcherReportsMountsAndUnmounts_data()
    {
        QTest::addColumn<QByteArray>("point");
        QTest::newRow("plain") << QByteArray("/mnt/volume");
        QTest::newRow("space") << QByteArray("/mnt/My Volume");
        QTest::newRow("tab and backslash") << QByteArray("/mnt/a\tb\\c");
    }

    void watcherReportsMountsAndUnmounts()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        QFETCH(QByteArray, point);
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
        fs::remove(folder / "Holiday\\x20Photos");
        QCOMPARE(label(labels.volumeName(point)), QByteArray("<none>"));
    }
};

QTEST_GUILESS_MAIN(TestMountTable)
#include "tst_MountTable.moc"
