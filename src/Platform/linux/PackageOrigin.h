#pragma once

#include <filesystem>

namespace quillane
{

// Whether the package manager installed the executable: dpkg's database lists every file of
// an installed package in <info folder>/<package>.list, one path a line. A listed path that is
// another name of the same file (a /bin path on a merged /usr, a linked folder) counts too.
// A database that cannot be read counts as not installed from a package.
bool installedFromPackage(const std::filesystem::path& executable,
                          const std::filesystem::path& infoFolder = "/var/lib/dpkg/info");

} // namespace quillane
