#include "Uninstallation.h"

#include "Platform/Result.h"
#include "Platform/linux/PackageOrigin.h"

#include <cerrno>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace quillane::daemon
{

namespace fs = std::filesystem;

std::string removeInstallation(const fs::path& manifest, const fs::path& infoFolder)
{
    struct stat owner {
    };
    if (lstat(manifest.c_str(), &owner) != 0 || !S_ISREG(owner.st_mode) || owner.st_uid != 0 ||
        (owner.st_mode & (S_IWGRP | S_IWOTH)))
        return "no install manifest that only root can write";
    std::ifstream list(manifest);
    if (!list)
        return "no install manifest";
    std::string failures;
    std::string line;
    while (std::getline(list, line)) {
        const fs::path file = line;
        struct stat entry {
        };
        if (!file.is_absolute() || lstat(file.c_str(), &entry) != 0)
            continue;
        if (!S_ISREG(entry.st_mode) && !S_ISLNK(entry.st_mode))
            continue;
        if (installedFromPackage(file, infoFolder)) {
            failures += line + ": installed by the package manager; remove the package\n";
            continue;
        }
        if (unlink(file.c_str()) != 0)
            failures += describeErrno(line, errno) + '\n';
    }
    unlink(manifest.c_str());
    if (!failures.empty())
        failures.pop_back();
    return failures;
}

} // namespace quillane::daemon
