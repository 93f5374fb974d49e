#pragma once

#include "Helper/VLAppService.h"
#include "Helper/XPCClient.h"
#include "Platform/UserDefaults.h"
#include "Platform/VirtualScheduler.h"
#include "PrivateBus.h"
#include "TestSupport.h"

#include <QTemporaryDir>
#include <filesystem>
#include <memory>
#include <optional>

namespace quillane::test
{

class ScriptedDaemon;

// The desktop's settings window has no place in a test: counts how often it was opened.
class NoLoginItemsSettings final : public LoginItemsSettings
{
public:
    void open() override { ++opened; }
    int opened = 0;
};

// An XPCClient with a virtual clock and scripted registrations, and, for the cases that need
// one, a private bus with a scripted helper daemon on it. With an install root, the daemon's status
// is read by the real reader of what is installed under that root (daemonService still counts
// reads).
class HelperHarness
{
public:
    explicit HelperHarness(std::optional<std::filesystem::path> installRoot = std::nullopt);
    ~HelperHarness();

    // Starts the bus, if it is not up yet, for the next client(); without it the client has no
    // bus at all. Starting a daemon starts it too.
    PrivateBus& bus();
    // Puts a daemon on the bus that answers as the switches say: --version V, --status S,
    // --uninstall-reply R, --delete-error E, --post-version V (sent back on each version call),
    // --repair-answer A, --repair-failure F (a refusal from polkit); --silent (no version
    // reply), --exit-on-delete (it vanishes), --no-batches (as a daemon without deleteFiles).
    bool startDaemon(const QStringList& script);
    void stopDaemon();
    // Ends the bus itself, as when the system bus goes away.
    void stopBus() { bus().stop(); }
    // How often the daemon received a call so far.
    int calls(const QString& name) const;
    // What the daemon was last asked to uninstall, and whether polkit could ask the user
    // about its last repair.
    QStringList uninstallArguments() const;
    bool repairWasInteractive() const;

    XPCClient& client(std::optional<QString> buildVersion = QStringLiteral("17"));

    VirtualScheduler scheduler;
    HeldWorkQueue registrationQueue{false};
    std::shared_ptr<ServiceScript> daemonService = std::make_shared<ServiceScript>();
    std::shared_ptr<ServiceScript> loginService = std::make_shared<ServiceScript>();
    NoLoginItemsSettings loginItemsSettings;
    std::unique_ptr<VLAppService> appService;
    ScriptedAlerts alerts;
    RecordingApplication application;
    // For the next client(): the package the application came from, and who removes it.
    std::optional<QString> package;
    PackageManager* packageManager = nullptr;

private:
    std::unique_ptr<PrivateBus> m_bus;
    QTemporaryDir m_dir;
    std::unique_ptr<ScriptedDaemon> m_daemon;
    QDBusConnection m_daemonBus{QString()};
    std::unique_ptr<SettingsUserDefaults> m_defaults;
    std::unique_ptr<XPCClient> m_client;
};

} // namespace quillane::test
