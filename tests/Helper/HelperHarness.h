#pragma once

#include "Helper/VLAppService.h"
#include "Helper/XPCClient.h"
#include "Platform/Alerts.h"
#include "Platform/ApplicationControl.h"
#include "Platform/PackageManager.h"
#include "Platform/ServiceManager.h"
#include "Platform/UserDefaults.h"
#include "Platform/VirtualScheduler.h"
#include "TestSupport.h"

#include <QProcess>
#include <QTemporaryDir>
#include <filesystem>
#include <memory>
#include <optional>

namespace quillane::test
{

// A service-manager registration that answers as told and counts what it was asked.
class ScriptedService final : public ServiceHandle
{
public:
    int status() const override
    {
        ++statusReads;
        return currentStatus;
    }
    Result<bool> registerService() override
    {
        ++registers;
        return Result<bool>::success(true);
    }
    Result<bool> unregisterService() override
    {
        ++unregisters;
        return Result<bool>::success(true);
    }

    int currentStatus = ServiceHandle::NotRegistered;
    mutable int statusReads = 0;
    int registers = 0;
    int unregisters = 0;
};

// A real registration whose status reads are counted.
class CountedService final : public ServiceHandle
{
public:
    explicit CountedService(std::unique_ptr<ServiceHandle> inner) : m_inner(std::move(inner)) {}
    int status() const override
    {
        ++statusReads;
        return m_inner->status();
    }
    Result<bool> registerService() override { return m_inner->registerService(); }
    Result<bool> unregisterService() override { return m_inner->unregisterService(); }

    mutable int statusReads = 0;

private:
    std::unique_ptr<ServiceHandle> m_inner;
};

// Runs work at once, or holds it while `hold` is set, as a service manager that does not answer.
class HoldingWorkQueue final : public WorkQueue
{
public:
    void async(Task task) override
    {
        if (hold)
            held.push_back(std::move(task));
        else
            task();
    }
    bool hold = false;
    std::vector<Task> held;
};

// PackageKit cannot run here: a package manager that answers as told.
class ScriptedPackageManager final : public PackageManager
{
public:
    void removePackage(const QString& name, std::function<void(Result<bool>)> done) override
    {
        removals << name;
        done(refusal.empty() ? Result<bool>::success(true) : Result<bool>::failure(refusal));
    }
    std::string refusal;
    QStringList removals;
};

class CountingApplication final : public ApplicationControl
{
public:
    void terminate() override { ++terminations; }
    int terminations = 0;
};

class NoLoginItemsSettings final : public LoginItemsSettings
{
public:
    void open() override { ++opened; }
    int opened = 0;
};

// A private system-type bus, the scripted helper daemon on it, and an XPCClient wired to
// both with a virtual clock and scripted registrations. With an install root, the daemon's
// registration is the real reader of what is installed under that root (daemonService is then
// null, and installedDaemon counts its reads).
class HelperHarness
{
public:
    explicit HelperHarness(std::optional<std::filesystem::path> installRoot = std::nullopt);
    ~HelperHarness();

    bool busIsUp() const { return m_bus.isConnected(); }
    // Starts the scripted daemon with these switches and waits until it serves.
    bool startDaemon(const QStringList& script);
    void stopDaemon();
    // Ends the bus itself, as when the system bus goes away.
    void stopBus();
    // How often the daemon received a call so far.
    int calls(const QString& name);
    QString daemonOutput();

    XPCClient& client(std::optional<QString> buildVersion = QStringLiteral("17"));

    VirtualScheduler scheduler;
    HoldingWorkQueue registrationQueue;
    ScriptedService* daemonService = nullptr;
    CountedService* installedDaemon = nullptr;
    ScriptedService* loginService = nullptr;
    NoLoginItemsSettings loginItemsSettings;
    std::unique_ptr<VLAppService> appService;
    ScriptedAlerts alerts;
    CountingApplication application;
    // For the next client(): the package the application came from, and who removes it.
    std::optional<QString> package;
    PackageManager* packageManager = nullptr;

private:
    QString m_connectionName;
    QTemporaryDir m_dir;
    QProcess m_busDaemon;
    QProcess m_helper;
    QByteArray m_helperOutput;
    QDBusConnection m_bus{QString()};
    std::unique_ptr<SettingsUserDefaults> m_defaults;
    std::unique_ptr<XPCClient> m_client;
};

} // namespace quillane::test
