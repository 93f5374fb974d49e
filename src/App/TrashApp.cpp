#include "TrashApp.h"

#include "App/AppDelegate.h"
#include "App/HelperLink.h"
#include "App/PanelWindow.h"
#include "App/TrayIcon.h"
#include "App/WindowFrame.h"
#include "Helper/XPCClient.h"
#include "Model/TrashFullness.h"
#include "Model/VolumeObserver.h"
#include "Platform/BuildInfo.h"
#include "Platform/Console.h"
#include "Platform/DisplayText.h"
#include "Platform/Scheduler.h"
#include "Platform/UserDefaults.h"
#include "Platform/linux/FreedesktopNotifier.h"
#include "Platform/linux/PackageOrigin.h"
#include "Shell/Debug.h"
#include "Shell/TerminationHelper.h"
#include "Shell/Updater.h"
#include "Views/MenuView.h"
#include "Views/SettingsView.h"
#include "Views/SetupView.h"

#include <QApplication>
#include <QCloseEvent>

namespace quillane
{

namespace
{

// Played when an emptying completes.
constexpr const char* soundName = "empty trash.aif";

// A window that asks before the application quits when it is closed: the panel's own window
// on a desktop without a tray, whose closing would otherwise leave nothing to reach us by.
class QuitOnCloseWindow : public QWidget
{
public:
    explicit QuitOnCloseWindow(std::function<void()> quit) : m_quit(std::move(quit)) {}

protected:
    void closeEvent(QCloseEvent* event) override
    {
        event->ignore();
        m_quit();
    }

private:
    std::function<void()> m_quit;
};

void bringForward(QWidget* window)
{
    window->show();
    window->raise();
    window->activateWindow();
}

QIcon resourceIcon(const BundleInfo& bundle, const std::string& name)
{
    const auto path = bundle.resource(name);
    return path ? QIcon(QString::fromStdString(path->native())) : QIcon();
}

// What the user must be told of an emptying that did not do everything asked; empty when it did.
QString emptyingProblem(const EmptyingResult& result, const VolumeNames& names)
{
    const QString name = messageText(result.volume.name(names));
    if (result.ending == EmptyingResult::Ending::NotStarted)
        return result.busy ? TrashApp::tr("The trash of %1 is already being emptied "
                                          "by another Quillane. Nothing was removed.")
                                 .arg(name)
                           : TrashApp::tr("The trash of %1 could not be emptied: %2")
                                 .arg(name, result.error);
    if (result.ending == EmptyingResult::Ending::Stopped)
        return TrashApp::tr("Emptying the trash of %1 stopped: %2\nWhat was not "
                            "removed yet is still in the trash.")
            .arg(name, result.error);
    QStringList lines;
    if (const int count = int(result.refused.size()); count > 0) {
        lines << TrashApp::tr("The helper did not remove %n item(s) from the trash "
                              "of %1; they are still there:",
                              nullptr, count)
                     .arg(name);
        for (const auto& [item, reason] : result.refused)
            lines << QStringLiteral("%1: %2").arg(messagePath(item), reason);
    }
    if (!result.problems.isEmpty())
        lines << TrashApp::tr("The trash of %1 could not be put fully in order:").arg(name)
              << result.problems;
    return lines.join(QLatin1Char('\n'));
}

} // namespace

TrashApp::TrashApp(QDBusConnection sessionBus)
    : m_platform(m_linux.platform()), m_bundle(BundleInfo::current()),
      m_sessionBus(std::move(sessionBus))
{
    const auto sound = m_bundle.resource(soundName);
    if (!sound)
        qFatal("Unable to find %s in bundle", soundName);
    m_observer = std::make_unique<VolumeObserver>(
        m_platform, EmptyingServices{CompletionSound{m_sound, *sound}, true});
    connect(m_observer.get(), &VolumeObserver::removalFailed, this,
            [this](const QString& message) { Debug::alert(m_alerts, message); });
    m_notifier = std::make_unique<FreedesktopNotifier>(m_sessionBus, QStringLiteral("Quillane"));
    connect(m_observer.get(), &VolumeObserver::emptyingFinished, this,
            [this](const EmptyingResult& result) {
                if (const auto notification = notificationFor(result, m_platform.volumeNames))
                    m_notifier->notify(*notification);
                const QString message = emptyingProblem(result, m_platform.volumeNames);
                // After the emptying has ended, so that the next one is not held up by the alert.
                if (!message.isEmpty())
                    m_platform.mainQueue.post(this,
                                              [this, message] { Debug::alert(m_alerts, message); });
            });
    m_helperLink = std::make_unique<HelperLink>(m_platform.mainQueue, m_platform.defaults, m_alerts,
                                                m_application);
    connect(m_observer.get(), &VolumeObserver::itemNeedsHelper, &client(),
            [this](const std::filesystem::path& item) { client().deleteFile(item); });
    m_helperLink->reportTo(*m_observer);
    m_updater = std::make_unique<Updater>(Updater::Services{
        m_alerts, m_workspace, m_platform.defaults, m_platform.mainQueue, m_bundle,
        QUrl(QString::fromLatin1(BuildInfo::feedUrl)), [executable = m_bundle.executablePath] {
            return executable && installedFromPackage(*executable);
        }});
    m_updater->start();
    m_appDelegate = std::make_unique<AppDelegate>(client(), m_platform.defaults, m_application);
    QApplication::setWindowIcon(resourceIcon(m_bundle, "icons/com.velmoric.Quillane.svg"));

    // The application's commands. Linux applications have no application menu: the commands
    // are keyboard shortcuts of every window of ours, and entries of the panel's menu. There
    // is no new-window command to take away.
    m_checkForUpdatesCommand.setText(tr("Check for Updates"));
    m_checkForUpdatesCommand.setShortcut(QKeySequence(QStringLiteral("Ctrl+U")));
    connect(&m_checkForUpdatesCommand, &QAction::triggered, this,
            [this] { m_updater->checkForUpdates(); });
    m_settingsCommand.setText(tr("Settings..."));
    m_settingsCommand.setShortcut(QKeySequence(QStringLiteral("Ctrl+,")));
    connect(&m_settingsCommand, &QAction::triggered, this, &TrashApp::openSettings);
    m_quitCommand.setText(tr("Quit"));
    m_quitCommand.setShortcut(QKeySequence(QStringLiteral("Ctrl+Q")));
    connect(&m_quitCommand, &QAction::triggered, this, &TrashApp::quit);
}

void TrashApp::quit()
{
    TerminationHelper::terminationCheck(m_platform.defaults, m_alerts, m_application);
}

TrashApp::~TrashApp()
{
    delete m_settingsWindow;
    delete m_setupWindow;
    delete m_windowedPanel;
    m_panel.reset();
    m_tray.reset();
}

XPCClient& TrashApp::client()
{
    return m_helperLink->client();
}

ViewServices TrashApp::viewServices()
{
    return ViewServices{*m_observer, client(),      *m_updater, m_platform.defaults,       m_alerts,
                        m_workspace, m_application, m_bundle,   [this] { openSettings(); }};
}

QWidget* TrashApp::windowAround(QWidget* window, QWidget* content)
{
    frameAround(window, content);
    window->setWindowTitle(QStringLiteral("Quillane"));
    addCommands(window);
    return window;
}

void TrashApp::addCommands(QWidget* window)
{
    window->addActions({&m_checkForUpdatesCommand, &m_settingsCommand, &m_quitCommand});
}

void TrashApp::closeOnEscape(QWidget* window)
{
    auto* close = new QAction(window);
    close->setShortcut(Qt::Key_Escape);
    close->setShortcutContext(Qt::WindowShortcut);
    connect(close, &QAction::triggered, window, &QWidget::close);
    window->addAction(close);
}

void TrashApp::launch()
{
    if (const QString problem = m_platform.defaults.storageProblem(); !problem.isEmpty())
        Console::writeLine(problem.toStdString()); // and the settings window shows it
    showSetupWindow();

    // The panel's own commands, for the tray icon's other button.
    TrayMenu menu{
        {tr("Open Quillane"), [this] { openPanel(QPoint()); }},
        TrayMenuEntry::separator(),
        {tr("Check for Updates..."), [this] { m_updater->checkForUpdates(); }},
        {tr("Settings..."), [this] { openSettings(); }},
        TrayMenuEntry::separator(),
        {tr("Quit Quillane"), [this] { quit(); }},
    };
    m_fullness = std::make_unique<TrashFullness>(*m_observer);
    m_tray = std::make_unique<TrayIcon>(trayPicture(), std::move(menu), m_sessionBus);
    connect(m_fullness.get(), &TrashFullness::fullChanged, m_tray.get(),
            [this] { m_tray->setPicture(trayPicture()); });
    connect(m_tray.get(), &TrayIcon::clicked, this, &TrashApp::togglePanel);
    if (!m_tray->start()) {
        Console::writeLine(
            "This desktop shows no tray icons, so Quillane's panel opens as a window. Start "
            "quillane again to bring it forward; the tray icon appears as soon as a tray does.");
        showWindowedPanel();
    }

    m_appDelegate->applicationDidFinishLaunching();
}

void TrashApp::showPanel()
{
    if (m_tray && m_tray->isShown())
        openPanel(QPoint());
    else
        showWindowedPanel();
}

PanelWindow& TrashApp::panel()
{
    if (!m_panel) {
        m_panel = std::make_unique<PanelWindow>(new MenuView(viewServices()));
        addCommands(m_panel.get());
    }
    return *m_panel;
}

QWidget* TrashApp::trayPanel() const
{
    return m_panel.get();
}

void TrashApp::togglePanel(QPoint anchor)
{
    panel().toggle(anchor);
}

void TrashApp::openPanel(QPoint anchor)
{
    if (!panel().isVisible())
        panel().popUp(anchor);
}

void TrashApp::showWindowedPanel()
{
    if (!m_windowedPanel) {
        m_windowedPanel =
            windowAround(new QuitOnCloseWindow([this] { quit(); }), new MenuView(viewServices()));
        WidgetApplication::markAsTray(m_windowedPanel);
    }
    bringForward(m_windowedPanel);
}

void TrashApp::showSetupWindow()
{
    auto* setup = new SetupView(viewServices());
    QWidget* window = windowAround(new QWidget, setup);
    window->setAttribute(Qt::WA_DeleteOnClose);
    closeOnEscape(window);
    m_setupWindow = window;
    // The window is opened at every launch. With every step done it has nothing to show and
    // stays out of sight, until a step is due again (the helper was disabled, say); once the
    // last step is done while it is open, it closes. Closed, it is gone for the rest of the run.
    const auto showWhenDue = [window, setup] {
        const bool due = setup->page() != SetupView::Page::None;
        if (due && !window->isVisible())
            window->show();
        else if (!due && window->isVisible())
            window->close();
    };
    connect(m_observer.get(), &VolumeObserver::fdaGrantedChanged, setup, showWhenDue);
    connect(&client(), &XPCClient::helperRegisteredChanged, setup, showWhenDue);
    connect(&client(), &XPCClient::showLoginLaunchScreenChanged, setup, showWhenDue);
    showWhenDue();
}

void TrashApp::openSettings()
{
    if (!m_settingsWindow) {
        m_settingsWindow = windowAround(new QWidget, new SettingsView(viewServices()));
        m_settingsWindow->setAttribute(Qt::WA_DeleteOnClose);
        closeOnEscape(m_settingsWindow);
        m_settingsWindow->setWindowTitle(tr("Quillane Settings"));
    }
    bringForward(m_settingsWindow);
}

TrayPicture TrashApp::trayPicture() const
{
    // The desktop's own trash icons, as its file manager shows them; ours where it has none.
    if (m_fullness && m_fullness->isFull())
        return {QStringLiteral("user-trash-full"),
                resourceIcon(m_bundle, "images/MenuIconFull.svg")};
    return {QStringLiteral("user-trash"), resourceIcon(m_bundle, "images/MenuIcon.svg")};
}

std::optional<DesktopNotification> TrashApp::notificationFor(const EmptyingResult& result,
                                                             const VolumeNames& names)
{
    if (result.ending != EmptyingResult::Ending::Completed)
        return std::nullopt;
    DesktopNotification notification;
    const QString name = messageText(result.volume.name(names));
    notification.summary = result.chosenItems ? tr("Deleted %n item(s) from the trash of %1",
                                                   nullptr, static_cast<int>(*result.chosenItems))
                                                    .arg(name)
                                              : tr("Emptied the trash of %1").arg(name);
    if (result.freedBytes)
        notification.body = tr("%1 freed").arg(formatByteCount(*result.freedBytes));
    notification.iconName = QStringLiteral("user-trash");
    return notification;
}

} // namespace quillane
