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
                           LoginItemsSettings& loginItemsSettings, WorkQueue& registrationQueue)
    : m_shared(std::make_shared<Shared>(std::move(daemon))), m_loginItem(std::move(loginItem)),
      m_loginItemsSettings(loginItemsSettings), m_registrationQueue(registrationQueue)
{
    updateStatus();
}

VLAppService::~VLAppService() = default;

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
    m_serviceStatus.reset();
    if (m_shared->daemon)
        m_serviceStatus = m_shared->daemon->status();
    m_loginStatus.reset();
    if (m_loginItem)
        m_loginStatus = m_loginItem->status();

    // Flags only ever go up here: a registration that once needed approval keeps asking for it
    // until the user has been shown where to give it.
    if (!m_serviceStatus) {
        Console::writeLine("uh oh");
    } else {
        switch (*m_serviceStatus) {
        case ServiceHandle::NotRegistered:
            m_shared->shouldGrantPrivilege = true;
            break;
        case ServiceHandle::Enabled:
            m_shared->shouldGrantPrivilege = true;
            m_shared->isRegistered = true;
            break;
        case ServiceHandle::RequiresApproval:
            m_shared->shouldGrantPrivilege = true;
            m_shared->shouldOpenLoginItems = true;
            break;
        case ServiceHandle::NotFound:
            m_shared->shouldGrantPrivilege = true;
            Console::writeLine("notFound");
            break;
        default:
            Console::writeLine("unsupported case");
        }
    }

    if (!m_loginStatus) {
        Console::writeLine("uh oh");
    } else {
        switch (*m_loginStatus) {
        case ServiceHandle::NotRegistered:
            Console::writeLine("login item not registered");
            break;
        case ServiceHandle::Enabled:
            m_shared->loginAdded = true;
            break;
        case ServiceHandle::RequiresApproval:
            Console::writeLine("login item requires approval??");
            break;
        case ServiceHandle::NotFound:
            Console::writeLine("login item notFound");
            break;
        default:
            Console::writeLine("unsupported case");
        }
    }
}

void VLAppService::registerDaemon()
{
    if (!m_shared->shouldGrantPrivilege)
        return;
    // Registering may wait for an administrator; the work item owns what it touches.
    m_registrationQueue.async([shared = m_shared] {
        if (!shared->daemon) {
            Console::writeLine("AppService status: -1");
        } else if (!shared->daemon->registerService()) {
            // Refused or failed: the next status update decides what to ask for.
            return;
        }
        Console::writeLine("did register");
        shared->isRegistered = true;
        shared->shouldGrantPrivilege = false;
    });
}

void VLAppService::unregisterDaemon()
{
    if (!m_shared->daemon)
        return;
    if (const Result<bool> result = m_shared->daemon->unregisterService(); !result)
        Console::writeLine(result.error());
}

bool VLAppService::addToLoginItems()
{
    if (m_loginItem && !m_loginItem->registerService()) {
        Console::writeLine("Failed to add to login items");
        return false;
    }
    m_shared->loginAdded = true;
    return true;
}

bool VLAppService::removeFromLoginItems()
{
    if (m_loginItem && !m_loginItem->unregisterService()) {
        // The same line as for adding: the toggle failed, whichever way it went.
        Console::writeLine("Failed to add to login items");
        return false;
    }
    m_shared->loginAdded = false;
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
