#pragma once

#include "Platform/DesktopNotifier.h"
#include "Platform/Platform.h"
#include "Platform/linux/LinuxPlatform.h"
#include "Platform/multimedia/QtSoundPlayer.h"
#include "Platform/widgets/DesktopWorkspace.h"
#include "Platform/widgets/WidgetAlerts.h"
#include "Platform/widgets/WidgetApplication.h"
#include "Views/ViewServices.h"

#include <QAction>
#include <QDBusConnection>
#include <QObject>
#include <QPointer>
#include <memory>
#include <optional>

class QWidget;

namespace quillane
{

class AppDelegate;
class FreedesktopNotifier;
class HelperLink;
class PanelWindow;
class TrashFullness;
class TrayIcon;
class Updater;
class VolumeNames;
struct EmptyingResult;
struct TrayPicture;
class VolumeObserver;
class XPCClient;

// The tray application: the one volume list, helper connection and update checker, and the
// three scenes every view is shown in: the setup window, the tray icon with its panel (a
// window of its own where the desktop has no tray), and the settings window.
class TrashApp : public QObject
{
    Q_OBJECT

public:
    // The session bus is where the tray lives.
    explicit TrashApp(QDBusConnection sessionBus = QDBusConnection::sessionBus());
    ~TrashApp() override;

    // Builds the scenes and finishes launching. Returns at once; the event loop runs them.
    void launch();
    // Brings the panel forward: a later launch asked for it.
    void showPanel();
    void openSettings();
    // Quits through the quit confirmation.
    void quit();

    VolumeObserver& observer() { return *m_observer; }
    XPCClient& client();
    Updater& updater() { return *m_updater; }
    // The window that shows the panel where the desktop has no tray; null while there is a tray.
    QWidget* panelWindow() const { return m_windowedPanel; }
    // The panel the tray icon opens; null until it is first opened.
    QWidget* trayPanel() const;
    QWidget* settingsWindow() const { return m_settingsWindow; }
    QWidget* setupWindow() const { return m_setupWindow; }

    // What the desktop is told when an emptying has ended; nothing for one that emptied
    // nothing or stopped (an alert says why).
    static std::optional<DesktopNotification> notificationFor(const EmptyingResult& result,
                                                              const VolumeNames& names);

private:
    ViewServices viewServices();
    // A top-level window of ours around one view: sized by it, with our icon and commands.
    QWidget* windowAround(QWidget* window, QWidget* content);
    void addCommands(QWidget* window);
    // For a window whose closing loses nothing (the first-run guide, the settings).
    static void closeOnEscape(QWidget* window);
    void showSetupWindow();
    void showWindowedPanel();
    // The tray icon's panel, made when first needed.
    PanelWindow& panel();
    void togglePanel(QPoint anchor);
    void openPanel(QPoint anchor);
    TrayPicture trayPicture() const;

    LinuxPlatform m_linux;
    Platform m_platform;
    BundleInfo m_bundle;
    WidgetAlerts m_alerts;
    WidgetApplication m_application;
    DesktopWorkspace m_workspace;
    QtSoundPlayer m_sound;
    std::unique_ptr<VolumeObserver> m_observer;
    std::unique_ptr<HelperLink> m_helperLink;
    std::unique_ptr<Updater> m_updater;
    std::unique_ptr<AppDelegate> m_appDelegate;
    QDBusConnection m_sessionBus;
    std::unique_ptr<FreedesktopNotifier> m_notifier;
    std::unique_ptr<TrashFullness> m_fullness;

    QAction m_checkForUpdatesCommand;
    QAction m_settingsCommand;
    QAction m_quitCommand;

    std::unique_ptr<TrayIcon> m_tray;
    std::unique_ptr<PanelWindow> m_panel;
    QPointer<QWidget> m_windowedPanel;
    QPointer<QWidget> m_setupWindow;
    QPointer<QWidget> m_settingsWindow;
};

} // namespace quillane
