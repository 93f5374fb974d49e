#include "CallerTrash.h"

#include <algorithm>

namespace quillane::daemon
{

namespace fs = std::filesystem;

namespace
{

// Whether the path is absolute and made only of ordinary names.
bool isPlainAbsolute(const fs::path& path)
{
    const std::string& text = path.native();
    if (text.empty() || text.front() != '/' || text.back() == '/' ||
        text.find("//") != std::string::npos)
        return false;
    return std::ranges::none_of(path.relative_path(), [](const fs::path& part) {
        return part == "." || part == ".." || part.empty();
    });
}

// The components of path below folder, when path lies below folder.
std::optional<fs::path> below(const fs::path& path, const fs::path& folder)
{
    const std::string& text = path.native();
    const std::string& prefix = folder.native();
    if (prefix == "/")
        return fs::path(text.substr(1));
    if (text.size() > prefix.size() + 1 && text.starts_with(prefix) && text[prefix.size()] == '/')
        return fs::path(text.substr(prefix.size() + 1));
    return std::nullopt;
}

std::vector<fs::path> components(const fs::path& relative)
{
    return {relative.begin(), relative.end()};
}

} // namespace

Result<TrashPlace> findCallerTrash(const fs::path& item, uid_t uid, const fs::path& home,
                                   const std::vector<fs::path>& mountPoints)
{
    using PlaceResult = Result<TrashPlace>;
    if (!isPlainAbsolute(item))
        return PlaceResult::failure(item.native() + ": not a plain absolute path");

    const std::string id = std::to_string(uid);
    if (!home.empty() && home.is_absolute()) {
        if (const auto rest = below(item, home)) {
            const auto parts = components(*rest);
            if (parts.size() == 5 && parts[0] == ".local" && parts[1] == "share" &&
                parts[2] == "Trash" && parts[3] == "files")
                return PlaceResult::success({home, ".local/share/Trash", false, parts[4].native()});
        }
    }

    // The deepest mount point first: a volume mounted inside the home folder is its own.
    std::vector<fs::path> points = mountPoints;
    std::ranges::sort(points, [](const fs::path& a, const fs::path& b) {
        return a.native().size() > b.native().size();
    });
    for (const fs::path& point : points) {
        const auto rest = below(item, point);
        if (!rest)
            continue;
        const auto parts = components(*rest);
        if (parts.size() == 3 && parts[0] == ".Trash-" + id && parts[1] == "files")
            return PlaceResult::success({point, parts[0], false, parts[2].native()});
        if (parts.size() == 4 && parts[0] == ".Trash" && parts[1] == id && parts[2] == "files")
            return PlaceResult::success({point, fs::path(".Trash") / id, true, parts[3].native()});
        break; // below the deepest mount point that holds it, and not in its trash
    }
    return PlaceResult::failure(item.native() + ": not an item of a trash folder of user " + id);
}

} // namespace quillane::daemon
