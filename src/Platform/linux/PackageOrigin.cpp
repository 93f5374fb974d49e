#include "PackageOrigin.h"

#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace quillane
{

namespace
{

bool listsFile(const fs::path& list, const fs::path& executable)
{
    std::ifstream in(list, std::ios::binary);
    const std::string wanted = executable.native();
    const std::string leaf = "/" + executable.filename().native();
    std::string line;
    while (std::getline(in, line)) {
        if (line == wanted)
            return true;
        // Only a path with the same last name can be another name of the same file.
        std::error_code error;
        if (line.ends_with(leaf) && fs::equivalent(line, executable, error))
            return true;
    }
    return false;
}

} // namespace

std::optional<std::string> owningPackage(const fs::path& executable, const fs::path& infoFolder)
{
    if (executable.empty() || !executable.has_filename())
        return std::nullopt;
    std::error_code error;
    for (fs::directory_iterator entry(infoFolder, error), end; !error && entry != end;
         entry.increment(error)) {
        const fs::path& path = entry->path();
        std::error_code typeError;
        if (path.extension() == ".list" && entry->is_regular_file(typeError) &&
            listsFile(path, executable)) {
            const std::string name = path.stem().native();
            return name.substr(0, name.find(':')); // "quillane:amd64" is the package quillane
        }
    }
    return std::nullopt;
}

bool installedFromPackage(const fs::path& executable, const fs::path& infoFolder)
{
    return owningPackage(executable, infoFolder).has_value();
}

} // namespace quillane
