#pragma once

#include <memory>
#include <optional>

namespace quillane
{

class LoginItemsSettings;
class ServiceHandle;
class WorkQueue;

// The two registrations the application needs from the service manager: the privileged helper
// daemon, and the application's own start at login. It keeps their last known statuses and the
// flags the helper link reads to decide when to register, start or re-authorise the daemon.
//
// `register` and `unregister` are C++ keywords' territory, so the daemon's two operations are
// named registerDaemon() and unregisterDaemon().
class VLAppService
{
public:
    // daemon or loginItem may be null: no handle, as when the service manager has none.
    // Daemon registration runs on registrationQueue.
    VLAppService(std::unique_ptr<ServiceHandle> daemon, std::unique_ptr<ServiceHandle> loginItem,
                 LoginItemsSettings& loginItemsSettings, WorkQueue& registrationQueue);
    ~VLAppService();
    VLAppService(const VLAppService&) = delete;
    VLAppService& operator=(const VLAppService&) = delete;

    void updateStatus();
    void registerDaemon();
    void unregisterDaemon();
    bool addToLoginItems();
    bool removeFromLoginItems();
    void removeLoginItem();
    void openLoginItems();

    std::optional<int> serviceStatus() const { return m_serviceStatus; }
    std::optional<int> loginStatus() const { return m_loginStatus; }
    // Safe to read on any thread while a registration runs in the background.
    bool shouldGrantPrivilege() const;
    bool isRegistered() const;
    bool loginAdded() const;
    bool shouldOpenLoginItems() const;

private:
    // The daemon's handle and the flags, shared with a registration in flight so that it may
    // finish after this object is gone.
    struct Shared;

    std::shared_ptr<Shared> m_shared;
    std::unique_ptr<ServiceHandle> m_loginItem;
    LoginItemsSettings& m_loginItemsSettings;
    WorkQueue& m_registrationQueue;
    std::optional<int> m_serviceStatus;
    std::optional<int> m_loginStatus;
};

} // namespace quillane
