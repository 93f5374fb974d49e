#pragma once

#include <filesystem>
#include <string>

namespace quillane::daemon
{

// Removes the files that the installation's manifest lists, one file or link at a time;
// folders and anything else stay, and the manifest goes last. The manifest decides what root
// removes, so it is trusted only when root owns it and no one else can write it. Returns empty
// when all went, else what did not, a line each. A file the package manager installed (listed
// in dpkg's database under infoFolder) is never removed: the package is removed instead.
std::string removeInstallation(const std::filesystem::path& manifest,
                               const std::filesystem::path& infoFolder = "/var/lib/dpkg/info");

} // namespace quillane::daemon
