#pragma once

#include <QString>

// Every D-Bus name, object path and interface that Quillane owns or calls, and its polkit
// actions. The application, the daemon and the tests take them from here; the bus policy,
// activation and polkit files under daemon/ and the interface files beside them write the same
// names, and the daemon tests check that they agree. Interfaces that a class exports through
// Q_CLASSINFO are written there too, as moc reads only literals.
namespace quillane::BusNames
{

// The helper daemon on the system bus, and the client object each application exports to it.
inline const QString daemonService = QStringLiteral("com.velmoric.QuillaneDaemon");
inline const QString daemonPath = QStringLiteral("/com/velmoric/QuillaneDaemon");
inline const QString trashHelperInterface =
    QStringLiteral("com.velmoric.QuillaneDaemon.TrashHelper");
inline const QString helperClientInterface =
    QStringLiteral("com.velmoric.QuillaneDaemon.HelperClient");
inline const QString clientPath = QStringLiteral("/com/velmoric/QuillaneClient");

// The polkit actions the daemon asks about (daemon/polkit).
inline const QString deleteItemAction = QStringLiteral("com.velmoric.quillane.delete-item");
inline const QString repairTrashAction = QStringLiteral("com.velmoric.quillane.repair-trash");
inline const QString uninstallAction = QStringLiteral("com.velmoric.quillane.uninstall");
// The file that declares them, as installed under polkit-1/actions.
inline const QString polkitActionsFile = QStringLiteral("com.velmoric.quillane.policy");

// The polkit authority.
inline const QString polkitService = QStringLiteral("org.freedesktop.PolicyKit1");
inline const QString polkitPath = QStringLiteral("/org/freedesktop/PolicyKit1/Authority");
inline const QString polkitInterface = QStringLiteral("org.freedesktop.PolicyKit1.Authority");

// systemd's manager, asked whether the daemon's unit is installed.
inline const QString systemdService = QStringLiteral("org.freedesktop.systemd1");
inline const QString systemdPath = QStringLiteral("/org/freedesktop/systemd1");
inline const QString systemdManagerInterface = QStringLiteral("org.freedesktop.systemd1.Manager");

// Desktop notifications.
inline const QString notificationsService = QStringLiteral("org.freedesktop.Notifications");
inline const QString notificationsPath = QStringLiteral("/org/freedesktop/Notifications");
inline const QString notificationsInterface = QStringLiteral("org.freedesktop.Notifications");

// The tray: the host's watcher, the item this application exports and the item's menu.
inline const QString statusNotifierWatcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
inline const QString statusNotifierWatcherPath = QStringLiteral("/StatusNotifierWatcher");
inline const QString statusNotifierWatcherInterface =
    QStringLiteral("org.kde.StatusNotifierWatcher");
// %1 the process id, %2 a count within the process.
inline const QString statusNotifierItemServicePattern =
    QStringLiteral("org.kde.StatusNotifierItem-%1-%2");
inline const QString statusNotifierItemPath = QStringLiteral("/StatusNotifierItem");
inline const QString statusNotifierItemInterface = QStringLiteral("org.kde.StatusNotifierItem");
inline const QString menuPath = QStringLiteral("/MenuBar");
inline const QString menuInterface = QStringLiteral("com.canonical.dbusmenu");

// PackageKit, which tells which package installed the application.
inline const QString packageKitService = QStringLiteral("org.freedesktop.PackageKit");
inline const QString packageKitPath = QStringLiteral("/org/freedesktop/PackageKit");
inline const QString packageKitTransactionInterface =
    QStringLiteral("org.freedesktop.PackageKit.Transaction");

// UDisks, which knows the labels of block devices.
inline const QString udisksService = QStringLiteral("org.freedesktop.UDisks2");
inline const QString udisksBlockDevicesPath =
    QStringLiteral("/org/freedesktop/UDisks2/block_devices/");
inline const QString udisksBlockInterface = QStringLiteral("org.freedesktop.UDisks2.Block");

// The bus's own properties interface.
inline const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

} // namespace quillane::BusNames
