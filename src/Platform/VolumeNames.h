#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quillane
{

// The name a user gave a volume: its filesystem label, where there is one.
class VolumeNames
{
public:
    virtual ~VolumeNames() = default;

    // Nothing when the path is not the top of a mounted filesystem or the filesystem has no
    // label.
    virtual std::optional<std::string> volumeName(const std::filesystem::path& path) const = 0;
};

} // namespace quillane
