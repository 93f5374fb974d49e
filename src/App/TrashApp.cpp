#include "TrashApp.h"

#include "App/AppDelegate.h"
#include "App/PanelWindow.h"
#include "App/TrayIcon.h"
#include "Helper/XPCClient.h"
#include "Model/VolumeObserver.h"
#include "Platform/BuildInfo.h"
#include "Platform/Console.h"
#include "Platform/linux/PackageOrigin.h"
#include "Shell/Debug.h"
#include "Shell/HelperLink.h"
#include "Shell/TerminationHelper.h"
#include "Shell/Updater.h"
#include "Views/MenuView.h"
#include "Views/SettingsView.h"
#include "Views/SetupView.h"

#include <QCloseEvent>
#include <QMenu>
#include <QVBoxLayout>

namespace quillane
{

namespace
{

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

// A top-level window that takes the size of its one content widget.
template <class Window = QWidget> Window* windowAround(Window* window, QWidget* content)
{
    auto* layout = new QVBoxLayout(window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->addWidget(content);
    window->setWindowTitle(QStringLiteral("Quillane"));
    return window;
}

QIcon resourceIcon(const BundleInfo& bundle, const std::string& name)
{
    const auto path = bundle.resource(name);
    return path ? QIcon(QString::fromStdString(path->native())) : QIcon();
}

} // namespace

TrashApp::TrashApp(QDBusConnection sessionBus)
    : m_platform(m_linux.platform()), m_bundle(BundleInfo::current()),
      m_sessionBus(std::move(sessionBus))
{
    EmptyingServices emptying;
    emptying.deleteWithPrivilege = [this](const std::filesystem::path& item) {
        client().deleteFile(item);
    };
    emptying.alert = [this](const QString& message) { Debug::alert(m_alerts, message); };
    emptying.sound = &m_sound;
    emptying.findResource = [bundle = m_bundle](const std::string& name) {
        return bundle.resource(name);
    };
    m_observer = std::make_unique<VolumeObserver>(m_platform, std::move(emptying));
    m_helperLink = std::make_unique<HelperLink>(m_platform.mainQueue, m_platform.defaults,
                                                m_alerts, m_application);
    const bool packaged = m_bundle.executablePath && installedFromPackage(*m_bundle.executablePath);
    m_updater = std::make_unique<Updater>(Updater::Services{
        m_alerts, m_workspace, m_platform.defaults, m_platform.mainQueue, m_bundle,
        QUrl(QString::fromLatin1(BuildInfo::feedUrl)), packaged});
    m_updater->start();
    m_appDelegate =
        std::make_unique<AppDelegate>(client(), m_platform.defaults, m_application);

    // The application's commands. Linux applications have no application menu: the commands
    // are keyboard shortcuts of every window of ours, and entries of the panel's menu. There
    // is no new-window command to take away.
    m_checkForUpdatesCommand.setText(QStringLiteral("Check for Updates"));
    m_checkForUpdatesCommand.setShortcut(QKeySequence(QStringLiteral("Ctrl+U")));
    connect(&m_checkForUpdatesCommand, &QAction::triggered, this,
            [this] { m_updater->checkForUpdates(); });
    m_settingsCommand.setText(QStringLiteral("Settings..."));
    m_settingsCommand.setShortcut(QKeySequence(QStringLiteral("Ctrl+,")));
    connect(&m_settingsCommand, &QAction::triggered, this, &TrashApp::openSettings);
    m_quitCommand.setText(QStringLiteral("Quit"));
    m_quitCommand.setShortcut(QKeySequence(QStringLiteral("Ctrl+Q")));
    connect(&m_quitCommand, &QAction::triggered, this, [this] {
        TerminationHelper::terminationCheck(m_platform.defaults, m_alerts, m_application);
    });
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
    return ViewServices{*m_observer, client(),      *m_updater,  m_platform.defaults,
                        m_alerts,    m_workspace,   m_application, m_bundle,
                        [this] { openSettings(); }};
}

void TrashApp::addCommands(QWidget* window)
{
    window->addActions({&m_checkForUpdatesCommand, &m_settingsCommand, &m_quitCommand});
}

void TrashApp::launch()
{
    showSetupWindow();

    m_tray = std::make_unique<TrayIcon>(resourceIcon(m_bundle, "images/MenuIcon.svg"),
                                        m_sessionBus);
    connect(m_tray.get(), &TrayIcon::clicked, this, &TrashApp::togglePanel);
    connect(m_tray.get(), &TrayIcon::contextMenuRequested, this, &TrashApp::showTrayMenu);
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
    if (m_tray && m_tray->isShown()) {
        if (!m_panel || !m_panel->isVisible())
            togglePanel(QPoint());
        return;
    }
    showWindowedPanel();
}

void TrashApp::togglePanel(QPoint anchor)
{
    if (!m_panel) {
        m_panel = std::make_unique<PanelWindow>(new MenuView(viewServices()));
        addCommands(m_panel.get());
    }
    m_panel->toggle(anchor);
}

void TrashApp::showWindowedPanel()
{
    if (!m_windowedPanel) {
        auto* window = windowAround(new QuitOnCloseWindow([this] {
                                        TerminationHelper::terminationCheck(
                                            m_platform.defaults, m_alerts, m_application);
                                    }),
                                    new MenuView(viewServices()));
        window->setWindowIcon(resourceIcon(m_bundle, "icons/com.velmoric.Quillane.svg"));
        addCommands(window);
        m_windowedPanel = window;
    }
    m_windowedPanel->show();
    m_windowedPanel->raise();
    m_windowedPanel->activateWindow();
}

void TrashApp::showSetupWindow()
{
    auto* setup = new SetupView(viewServices());
    auto* window = windowAround(new QWidget, setup);
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->setWindowIcon(resourceIcon(m_bundle, "icons/com.velmoric.Quillane.svg"));
    addCommands(window);
    m_setupWindow = window;
    // With every step done there is nothing to show; the window is not opened then.
    if (setup->page() != SetupView::Page::None)
        window->show();
    else
        window->deleteLater();
}

void TrashApp::openSettings()
{
    if (!m_settingsWindow) {
        auto* window = windowAround(new QWidget, new SettingsView(viewServices()));
        window->setAttribute(Qt::WA_DeleteOnClose);
        window->setWindowTitle(QStringLiteral("Quillane Settings"));
        window->setWindowIcon(resourceIcon(m_bundle, "icons/com.velmoric.Quillane.svg"));
        addCommands(window);
        m_settingsWindow = window;
    }
    m_settingsWindow->show();
    m_settingsWindow->raise();
    m_settingsWindow->activateWindow();
}

void TrashApp::showTrayMenu(QPoint anchor)
{
    auto* menu = new QMenu;
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->addAction(QStringLiteral("Open Quillane"), this, [this, anchor] { togglePanel(anchor); });
    menu->addAction(&m_checkForUpdatesCommand);
    menu->addAction(&m_settingsCommand);
    menu->addSeparator();
    menu->addAction(&m_quitCommand);
    menu->popup(anchor.isNull() ? QCursor::pos() : anchor);
}

} // namespace quillane
