#pragma once

#include "Helper/VLAppService.h"
#include "Helper/XPCClient.h"
#include "Platform/Alerts.h"
#include "Platform/ApplicationControl.h"
#include "Platform/ServiceManager.h"
#include "Platform/UserDefaults.h"
#include "Platform/VirtualScheduler.h"
#include "TestSupport.h"

#include <QProcess>
#include <QTemporaryDir>
#include <memory>

namespace quillane::test
{

// A service-manager registration that answers as told and counts what it was asked.
class ScriptedService final : public ServiceHandle
{
public:
    int status() const override { return currentStatus; }
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
    int registers = 0;
    int unregisters = 0;
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
// both with a virtual clock and scripted registrations.
class HelperHarness
{
public:
    HelperHarness();
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
    InlineWorkQueue registrationQueue;
    ScriptedService* daemonService = nullptr;
    ScriptedService* loginService = nullptr;
    NoLoginItemsSettings loginItemsSettings;
    std::unique_ptr<VLAppService> appService;
    ScriptedAlerts alerts;
    CountingApplication application;

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
