#pragma once

#include "Platform/tray/TrayMenu.h"

#include <QDBusConnection>
#include <QIcon>
#include <QObject>
#include <QPoint>
#include <memory>

class QSystemTrayIcon;

namespace quillane
{

class StatusNotifierHostWatcher;
class StatusNotifierItem;

// What the tray icon shows: the icon theme's name for it, and our own pictures for where the
// theme has no such icon.
struct TrayPicture {
    QString iconName;
    QIcon fallback;
};

// The tray icon wherever the desktop has a tray: a StatusNotifier item when the session has a
// host for one (now or later), else the X11 system tray through Qt. Some desktops have
// neither (GNOME without an extension, a bare X server): then there is no icon until a host
// appears. A click opens the panel; the other button opens the menu, which a StatusNotifier
// host reads over the bus and draws itself.
class TrayIcon : public QObject
{
    Q_OBJECT

public:
    TrayIcon(TrayPicture picture, TrayMenu menu, QDBusConnection sessionBus,
             QObject* parent = nullptr);
    ~TrayIcon() override;

    // Shows the icon if the desktop has a tray; whether it does.
    bool start();
    bool isShown() const;
    void setPicture(TrayPicture picture);

Q_SIGNALS:
    // The icon was clicked at anchor (on the screen; null when the tray does not say).
    void clicked(QPoint anchor);
    // The icon was shown after start() found no tray.
    void appeared();

private:
    bool showStatusNotifierItem();
    QIcon themedIcon() const;
    // Our own drawing of the menu, where the tray leaves it to us.
    void popUpMenu(QPoint anchor);

    TrayPicture m_picture;
    TrayMenu m_menu;
    QDBusConnection m_bus;
    std::unique_ptr<StatusNotifierHostWatcher> m_hosts;
    std::unique_ptr<StatusNotifierItem> m_item;
    std::unique_ptr<QSystemTrayIcon> m_systemTray;
};

} // namespace quillane
