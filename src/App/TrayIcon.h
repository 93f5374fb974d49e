#pragma once

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

// The tray icon wherever the desktop has a tray: a StatusNotifier item when the session has a
// host for one (now or later), else the X11 system tray through Qt. Some desktops have
// neither (GNOME without an extension, a bare X server): then there is no icon until a host
// appears.
class TrayIcon : public QObject
{
    Q_OBJECT

public:
    TrayIcon(QIcon icon, QDBusConnection sessionBus, QObject* parent = nullptr);
    ~TrayIcon() override;

    // Shows the icon if the desktop has a tray; whether it does.
    bool start();
    bool isShown() const;

Q_SIGNALS:
    // The icon was clicked at anchor (on the screen; null when the tray does not say).
    void clicked(QPoint anchor);
    void contextMenuRequested(QPoint anchor);
    // The icon was shown after start() found no tray.
    void appeared();

private:
    bool showStatusNotifierItem();

    QIcon m_icon;
    QDBusConnection m_bus;
    std::unique_ptr<StatusNotifierHostWatcher> m_hosts;
    std::unique_ptr<StatusNotifierItem> m_item;
    std::unique_ptr<QSystemTrayIcon> m_systemTray;
};

} // namespace quillane
