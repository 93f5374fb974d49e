#pragma once

#include <QString>
#include <filesystem>
#include <optional>
#include <string>

namespace quillane
{

// What the application knows of its own installation.
struct BundleInfo {
    // The build number as text, a decimal integer in a real build; absent in a damaged one.
    std::optional<QString> buildVersion;
    QString shortVersion;
    std::optional<std::filesystem::path> executablePath;
    // Icons, images and the sound: <prefix>/share/quillane beside an installed
    // <prefix>/bin/quillane, else the source tree's Resources folder of this build.
    std::filesystem::path resourceFolder;

    // The resource file of that name (it may name a subfolder), when it exists.
    std::optional<std::filesystem::path> resource(const std::string& name) const;

    // This build's, from the generated build information and the running executable.
    static BundleInfo current();
};

} // namespace quillane
