#include "VLAppService.h"

#include "Platform/Console.h"
#include "Platform/Scheduler.h"
#include "Platform/ServiceManager.h"

#include <atomic>
#include <string>

namespace quillane
{

struct VLAppService::Shared {
    explicit Shared(std::unique_ptr<ServiceHandle> handle) : daemon(std::move(handle)) {}

    const std::unique_ptr<ServiceHandle> daemon;
    std::atomic<bool> shouldGrantPrivilege{false};
    std::atomic<bool> isRegistered{false};
    std::atomic<bool> loginAdded{false};
    std::atomic<bool> shouldOpenLoginItems{false};
};

VLAppService::VLAppService(std::unique_ptr<ServiceHandle> daemon,
                           std::unique_ptr<ServiceHandle> loginItem,
                           LoginItemsSettings& loginItemsSettings, WorkQueue& registrationQueue,
                           Scheduler& mainQueue)
    : m_shared(std::make_shared<Shared>(std::move(daemon))), m_loginItem(std::move(loginItem)),
      m_loginItemsSettings(loginItemsSettings), m_registrationQueue(registrationQueue),
      m_mainQueue(mainQueue), m_self(std::make_shared<VLAppService*>(this))
{
    updateStatus();
}

VLAppService::~VLAppService() = default;

void VLAppService::setDaemonStatusListener(std::function<void()> listener)
{
    m_listener = std::move(listener);
}

bool VLAppService::shouldGrantPrivilege() const
{
    return m_shared->shouldGrantPrivilege;
}

bool VLAppService::isRegistered() const
{
    return m_shared->isRegistered;
}

bool VLAppService::loginAdded() const
{
    return m_shared->loginAdded;
}

bool VLAppService::shouldOpenLoginItems() const
{
    return m_shared->shouldOpenLoginItems;
}

void VLAppService::updateStatus()
{
    readDaemonStatus();
    readLoginStatus();
}

void VLAppService::readDaemonStatus()
{
    // However often it is asked, one read at a time: the answer it brings is as new as any.
    if (m_readInFlight)
        return;
    m_readInFlight = true;
    m_registrationQueue.async(
        [shared = m_shared, self = std::weak_ptr<VLAppService*>(m_self), &queue = m_mainQueue] {
            std::optional<int> status;
            if (shared->daemon)
                status = shared->daemon->status();
            queue.post([self, status] {
                if (const auto service = self.lock())
                    (*service)->applyDaemonStatus(status);
            });
        });
}

void VLAppService::applyDaemonStatus(std::optional<int> status)
{
    m_readInFlight = false;
    // A status is said when it changes, not at every read: a missing daemon is one line.
    const bool changed = !m_daemonStatusRead || status != m_serviceStatus;
    m_daemonStatusRead = true;
    m_serviceStatus = status;

    // Flags only ever go up here, except the wish to register, which an enabled daemon has met.
    if (!status) {
        if (changed)
            Console::writeLine("uh oh");
    } else {
        switch (*status) {
        case ServiceHandle::NotRegistered:
            m_shared->shouldGrantPrivilege = true;
            break;
        case ServiceHandle::Enabled:
            m_shared->isRegistered = true;
            m_shared->shouldGrantPrivilege = false;
            break;
        case ServiceHandle::RequiresApproval:
            m_shared->shouldGrantPrivilege = true;
            m_shared->shouldOpenLoginItems = true;
            break;
        case ServiceHandle::NotFound:
            m_shared->shouldGrantPrivilege = true;
            if (changed)
                Console::writeLine("notFound");
            break;
        default:
            if (changed)
                Console::writeLine("unsupported case");
        }
    }
    if (m_listener)
        m_listener();
}

void VLAppService::readLoginStatus()
{
    std::optional<int> status;
    if (m_loginItem)
        status = m_loginItem->status();
    const bool changed = !m_loginStatusRead || status != m_loginStatus;
    m_loginStatusRead = true;
    m_loginStatus = status;

    const auto say = [changed](const char* line) {
        if (changed)
            Console::writeLine(line);
    };
    if (!status) {
        say("uh oh");
        return;
    }
    switch (*status) {
    case ServiceHandle::NotRegistered:
        say("login item not registered");
        break;
    case ServiceHandle::Enabled:
        m_shared->loginAdded = true;
        break;
    case ServiceHandle::RequiresApproval:
        say("login item requires approval??");
        break;
    case ServiceHandle::NotFound:
        say("login item notFound");
        break;
    default:
        say("unsupported case");
    }
}

void VLAppService::registerDaemon()
{
    // Installing the daemon registered it; there is nothing to ask an administrator for.
    if (m_shared->shouldGrantPrivilege)
        readDaemonStatus();
}

void VLAppService::unregisterDaemon()
{
    // An older daemon leaves by itself when idle, and the bus starts the installed one; removing
    // the daemon is the package manager's work.
    readDaemonStatus();
}

bool VLAppService::addToLoginItems()
{
    return setLoginItem(true);
}

bool VLAppService::removeFromLoginItems()
{
    return setLoginItem(false);
}

bool VLAppService::setLoginItem(bool added)
{
    if (m_loginItem &&
        !(added ? m_loginItem->registerService() : m_loginItem->unregisterService())) {
        // One line for either way: the toggle failed, whichever way it went.
        Console::writeLine("Failed to add to login items");
        return false;
    }
    m_shared->loginAdded = added;
    return true;
}

void VLAppService::removeLoginItem()
{
    if (!m_loginItem)
        return;
    if (const Result<bool> result = m_loginItem->unregisterService(); !result)
        Console::writeLine(result.error());
}

void VLAppService::openLoginItems()
{
    m_loginItemsSettings.open();
}

} // namespace quillane
