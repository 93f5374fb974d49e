#pragma once

#include <QDBusConnection>
#include <memory>

namespace quillane
{

class Alerts;
class ApplicationControl;
class AutostartEntry;
class DesktopLoginItemsSettings;
class PackageKitManager;
class Scheduler;
class SystemdUnitService;
class ThreadWorkQueue;
class UserDefaults;
class VLAppService;
class VolumeObserver;
class XPCClient;

// The helper link as the application runs it: the daemon as installed on this system and the
// autostart entry as registrations, and the client on the system bus.
class HelperLink
{
public:
    HelperLink(Scheduler& mainQueue, UserDefaults& defaults, Alerts& alerts,
               ApplicationControl& application, QDBusConnection bus = QDBusConnection::systemBus());
    ~HelperLink();

    XPCClient& client() { return *m_client; }
    VLAppService& appService() { return *m_appService; }
    // Tells the observer what the daemon did with the items it handed over, and when the daemon
    // left with some unanswered. Handing them over is the caller's: the panel and the command
    // line do it differently.
    void reportTo(VolumeObserver& observer);

private:
    std::unique_ptr<ThreadWorkQueue> m_registrationQueue;
    std::unique_ptr<DesktopLoginItemsSettings> m_loginItemsSettings;
    std::unique_ptr<VLAppService> m_appService;
    std::unique_ptr<PackageKitManager> m_packageManager;
    std::unique_ptr<XPCClient> m_client;
};

} // namespace quillane
