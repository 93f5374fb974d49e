#pragma once

#include <QString>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace quillane
{

// A size in decimal units with one decimal, as desktop file managers show it, in the user's
// language: "532 bytes", "1 byte", "1.2 MB"; in German "1,2 MB".
QString formatByteCount(std::uint64_t bytes);

// Names and paths are bytes; for display, bytes that are not UTF-8 read as U+FFFD.
QString displayText(std::string_view bytes);
QString displayPath(const std::filesystem::path& path);
// The same for a message or a terminal, with control bytes and newlines escaped (printable()):
// a name can neither split the line nor steer the terminal.
QString messageText(std::string_view bytes);
QString messagePath(const std::filesystem::path& path);

} // namespace quillane
