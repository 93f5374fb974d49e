#pragma once

#include <QDateTime>
#include <QString>
#include <filesystem>
#include <functional>
#include <optional>

namespace quillane
{

class Alerts;
struct BundleInfo;

// How Debug::writeToFile finds a user's home folder and the time. Left empty, they are the
// password database and the system clock; tests pin both.
struct DebugLogContext {
    std::function<std::optional<std::filesystem::path>(const QString& userName)> homeFolder;
    std::function<QDateTime()> now;
};

// Developer aids: a plain alert, and a log file on the user's desktop that survives the
// console being gone (the tray application has none a user would see).
class Debug
{
public:
    static void alert(Alerts& alerts, const QString& message);

    // Appends "<time> - |<build>| - <text>" to quillane_debug_log.txt on the desktop of the
    // user. Nothing is written by a build that does not know its build version.
    static void writeToFile(const QString& text, const QString& userName, const BundleInfo& bundle,
                            const DebugLogContext& context = {});
};

} // namespace quillane
