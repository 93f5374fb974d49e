#pragma once

#include <functional>
#include <memory>
#include <optional>

namespace quillane
{

class LoginItemsSettings;
class Scheduler;
class ServiceHandle;
class WorkQueue;

// The daemon's systemd unit and the application's XDG autostart entry, as registrations.
//
// The two registrations the application needs: the privileged helper daemon, and the
// application's own start at login. It keeps their last known statuses and the flags the helper
// link reads to decide when to start the daemon.
//
// On Linux, installing the daemon registers it: the package puts its unit, bus files and polkit
// actions in place, and the bus starts it on demand. So registerDaemon() and unregisterDaemon()
// change nothing on the system; like updateStatus(), they read the daemon's status again. That
// read may wait on the service manager, so it runs on the registration queue, never more than one
// at a time, and its result is applied on the main queue. (`register` is a C++ keyword, hence
// the names.)
class VLAppService
{
public:
    // daemon or loginItem may be null: no handle, as when the service manager has none.
    // The daemon's status is read on registrationQueue and applied on mainQueue.
    VLAppService(std::unique_ptr<ServiceHandle> daemon, std::unique_ptr<ServiceHandle> loginItem,
                 LoginItemsSettings& loginItemsSettings, WorkQueue& registrationQueue,
                 Scheduler& mainQueue);
    ~VLAppService();
    VLAppService(const VLAppService&) = delete;
    VLAppService& operator=(const VLAppService&) = delete;

    // Reads the login item's status at once and asks for the daemon's.
    void updateStatus();
    void registerDaemon();
    void unregisterDaemon();
    bool addToLoginItems();
    bool removeFromLoginItems();
    void removeLoginItem();
    void openLoginItems();

    // Called on the main queue each time a read of the daemon's status has been applied.
    void setDaemonStatusListener(std::function<void()> listener);
    // A read of the daemon's status has been asked for and has not been applied yet.
    bool daemonStatusPending() const { return m_readInFlight; }

    std::optional<int> serviceStatus() const { return m_serviceStatus; }
    std::optional<int> loginStatus() const { return m_loginStatus; }
    // Safe to read on any thread.
    bool shouldGrantPrivilege() const;
    bool isRegistered() const;
    bool loginAdded() const;
    bool shouldOpenLoginItems() const;

private:
    // The daemon's handle and the flags, shared with a status read in flight so that it may
    // finish after this object is gone.
    struct Shared;

    void readDaemonStatus();
    void applyDaemonStatus(std::optional<int> status);
    void readLoginStatus();
    // Adds or removes the login item; false, with a line on the console, when that failed.
    bool setLoginItem(bool added);

    std::shared_ptr<Shared> m_shared;
    std::unique_ptr<ServiceHandle> m_loginItem;
    LoginItemsSettings& m_loginItemsSettings;
    WorkQueue& m_registrationQueue;
    Scheduler& m_mainQueue;
    // Lets a read in flight find out, on the main queue, whether this object is still there.
    std::shared_ptr<VLAppService*> m_self;
    std::function<void()> m_listener;
    bool m_readInFlight = false;
    bool m_daemonStatusRead = false;
    bool m_loginStatusRead = false;
    std::optional<int> m_serviceStatus;
    std::optional<int> m_loginStatus;
};

} // namespace quillane
