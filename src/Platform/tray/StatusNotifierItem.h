#pragma once

#include "TrayMenu.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QIcon>
#include <QList>
#include <QObject>
#include <QPoint>

namespace quillane
{

class DBusMenuExporter;

// One picture of an item's icon as the tray host wants it: ARGB32 pixels in network byte order.
struct StatusIconPixmap {
    int width = 0;
    int height = 0;
    QByteArray pixels;
};
using StatusIconPixmaps = QList<StatusIconPixmap>;

struct StatusToolTip {
    QString iconName;
    StatusIconPixmaps icon;
    QString title;
    QString text;
};

QDBusArgument& operator<<(QDBusArgument& argument, const StatusIconPixmap& pixmap);
const QDBusArgument& operator>>(const QDBusArgument& argument, StatusIconPixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& argument, const StatusToolTip& toolTip);
const QDBusArgument& operator>>(const QDBusArgument& argument, StatusToolTip& toolTip);

// The icon's pictures at the sizes panels use.
StatusIconPixmaps statusIconPixmaps(const QIcon& icon);

// A tray icon as desktops with a StatusNotifier host show it (KDE Plasma, XFCE's and LXQt's
// panels, GNOME with the AppIndicator extension): our own item on the session bus, registered
// with the host's watcher. Qt has such an item too, but decides once per process whether a host
// exists, so an application started before the panel would never get its icon; this one
// registers whenever it is asked to.
//
// Its menu is published with it (com.canonical.dbusmenu), for the host to draw as its own.
class StatusNotifierItem : public QObject
{
    Q_OBJECT

public:
    // iconName: the icon theme's name for the icon, which hosts prefer; icon: its pictures, for
    // hosts whose theme lacks that name.
    StatusNotifierItem(QDBusConnection bus, QString id, QString title, QString iconName, QIcon icon,
                       TrayMenu menu, QObject* parent = nullptr);
    ~StatusNotifierItem() override;

    // Changes the icon; the host is told to read it again.
    void setIcon(QString iconName, const QIcon& icon);

    // Exports the item and asks the watcher to show it; false, with the reason in error(),
    // when the item cannot be exported. The watcher's refusal arrives later, as
    // registrationFailed(). Call again after the watcher has restarted.
    bool registerWithWatcher();
    QString error() const { return m_error; }

    // Read by the bus adaptor.
    QString id() const { return m_id; }
    QString title() const { return m_title; }
    QString iconName() const { return m_iconName; }
    const StatusIconPixmaps& pixmaps() const { return m_pixmaps; }

    static const QString menuPath;

Q_SIGNALS:
    // The icon was clicked; where: the click's position on the screen, as the host reports it
    // (some hosts report none: then it is null).
    void activated(QPoint where);
    void contextMenuRequested(QPoint where);
    void registrationFailed(const QString& error);
    void iconChanged();

private:
    QDBusConnection m_bus;
    QString m_id;
    QString m_title;
    QString m_iconName;
    StatusIconPixmaps m_pixmaps;
    DBusMenuExporter* m_menu;
    QString m_serviceName;
    QString m_error;
    bool m_exported = false;
};

// Whether the session has a StatusNotifier host, followed as hosts come and go.
class StatusNotifierHostWatcher : public QObject
{
    Q_OBJECT

public:
    explicit StatusNotifierHostWatcher(QDBusConnection bus, QObject* parent = nullptr);

    bool hostAvailable() const { return m_hostAvailable; }

    static const QString watcherService;
    static const QString watcherPath;
    static const QString watcherInterface;

Q_SIGNALS:
    void hostAvailableChanged(bool available);
    // The watcher itself (re)started: items must register again.
    void watcherStarted();

private Q_SLOTS:
    void refresh();

private:
    static QDBusMessage hostQuestion();
    static bool hostIn(const QDBusMessage& reply);
    void setHostAvailable(bool available);

    QDBusConnection m_bus;
    bool m_hostAvailable = false;
};

} // namespace quillane

Q_DECLARE_METATYPE(quillane::StatusIconPixmap)
Q_DECLARE_METATYPE(quillane::StatusToolTip)
