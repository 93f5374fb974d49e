#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quillane
{

// Whether the package manager installed the executable: dpkg's database lists every file of
// an installed package in <info folder>/<package>.list, one path a line. A listed path that is
// another name of the same file (a /bin path on a merged /usr, a linked folder) counts too.
// A database that cannot be read counts as not installed from a package.
bool installedFromPackage(const std::filesystem::path& executable,
                          const std::filesystem::path& infoFolder = "/var/lib/dpkg/info");

// The name of the package that installed the executable (without an architecture), if any.
std::optional<std::string>
owningPackage(const std::filesystem::path& executable,
              const std::filesystem::path& infoFolder = "/var/lib/dpkg/info");

} // namespace quillane
