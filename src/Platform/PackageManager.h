#pragma once

#include "Result.h"

#include <QString>
#include <functional>

namespace quillane
{

// The system's package manager, for an application that came as a package: removing that package
// is the only uninstall that leaves the package manager's records true.
class PackageManager
{
public:
    virtual ~PackageManager() = default;

    // Removes the installed package of that name, asking an administrator as the package manager
    // does, and calls done on the main thread: true once removed, or why it was not. Fails at once,
    // with no question asked, where no package manager service runs.
    virtual void removePackage(const QString& name, std::function<void(Result<bool>)> done) = 0;
};

} // namespace quillane
