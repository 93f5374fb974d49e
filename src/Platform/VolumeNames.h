#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quillane
{

// How the desktop names a mounted volume: by its filesystem label, or, without one, by its
// size ("16 GB Volume").
class VolumeNames
{
public:
    virtual ~VolumeNames() = default;

    // Nothing when the path is not the top of a mounted filesystem or the desktop would not
    // know a name for it.
    virtual std::optional<std::string> volumeName(const std::filesystem::path& path) const = 0;
    // Whether the path is where the filesystem that holds the user's home folder is mounted:
    // the place the desktop calls "Home".
    virtual bool holdsHome(const std::filesystem::path& path) const
    {
        (void)path;
        return false;
    }
};

} // namespace quillane
