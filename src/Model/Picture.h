#pragma once

#include <filesystem>
#include <string>

namespace quillane
{

// What a location's picture is, for the views to resolve: a symbol of the icon theme, an image
// of our own resources, or the icon the desktop shows for a path.
struct Picture {
    enum class Kind { Symbol, Asset, FileIcon };

    Kind kind = Kind::Symbol;
    std::string name;           // Symbol and Asset
    std::filesystem::path path; // FileIcon

    static Picture symbol(std::string name) { return {Kind::Symbol, std::move(name), {}}; }
    static Picture asset(std::string name) { return {Kind::Asset, std::move(name), {}}; }
    static Picture fileIcon(std::filesystem::path path)
    {
        return {Kind::FileIcon, {}, std::move(path)};
    }

    friend bool operator==(const Picture&, const Picture&) = default;
};

} // namespace quillane
