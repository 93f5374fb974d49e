#pragma once

#include "Result.h"

#include <memory>

namespace quillane
{

// The service manager's view of one registration: the privileged daemon's system service, or
// the application's own start at login.
class ServiceHandle
{
public:
    // The four states a registration can be in. Other raw values may come from a newer
    // service manager and are kept as they are.
    enum Status : int { NotRegistered = 0, Enabled = 1, RequiresApproval = 2, NotFound = 3 };

    virtual ~ServiceHandle() = default;

    virtual int status() const = 0;
    // Both may ask an administrator to approve; both block until the answer.
    virtual Result<bool> registerService() = 0;
    virtual Result<bool> unregisterService() = 0;
};

// Opens the desktop's own settings for what starts at login.
class LoginItemsSettings
{
public:
    virtual ~LoginItemsSettings() = default;
    virtual void open() = 0;
};

} // namespace quillane
