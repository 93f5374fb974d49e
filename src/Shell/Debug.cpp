#include "Debug.h"

#include "Platform/Alerts.h"
#include "Platform/BundleInfo.h"
#include "Platform/Console.h"

#include <QCoreApplication>
#include <QFile>
#include <QLocale>
#include <QSaveFile>
#include <algorithm>
#include <fstream>
#include <pwd.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace quillane
{

namespace
{

std::optional<fs::path> passwordDatabaseHome(const QString& userName)
{
    const long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? std::size_t(suggested) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    const QByteArray name = userName.toLocal8Bit();
    if (getpwnam_r(name.constData(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found ||
        !found->pw_dir || !*found->pw_dir)
        return std::nullopt;
    return fs::path(found->pw_dir);
}

// XDG_DESKTOP_DIR from the home's user-dirs.dirs: a quoted, shell-escaped value that is
// either "$HOME/..." or absolute. Later lines win, as with the xdg-user-dirs tools.
std::optional<fs::path> configuredDesktop(const fs::path& home)
{
    std::ifstream file(home / ".config" / "user-dirs.dirs");
    std::optional<fs::path> desktop;
    const std::string key = "XDG_DESKTOP_DIR=\"";
    for (std::string line; std::getline(file, line);) {
        const std::size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line.compare(start, key.size(), key) != 0)
            continue;
        std::string value;
        bool closed = false;
        for (std::size_t i = start + key.size(); i < line.size() && !closed; ++i) {
            if (line[i] == '\\' && i + 1 < line.size())
                value += line[++i];
            else if (line[i] == '"')
                closed = true;
            else
                value += line[i];
        }
        if (!closed)
            continue;
        const std::string homeVariable = "$HOME";
        if (value.starts_with(homeVariable) &&
            (value.size() == homeVariable.size() || value[homeVariable.size()] == '/'))
            desktop = home / value.substr(std::min(value.size(), homeVariable.size() + 1));
        else if (value.starts_with('/'))
            desktop = fs::path(value);
    }
    return desktop;
}

std::optional<fs::path> logFile(const QString& userName, const DebugLogContext& context)
{
    const auto home =
        context.homeFolder ? context.homeFolder(userName) : passwordDatabaseHome(userName);
    if (!home)
        return std::nullopt;
    const fs::path desktop = configuredDesktop(*home).value_or(*home / "Desktop");
    return desktop / "quillane_debug_log.txt";
}

} // namespace

void Debug::alert(Alerts& alerts, const QString& message)
{
    alerts.runModal({QCoreApplication::translate("quillane::Debug", "Quillane Alert"),
                     message,
                     {QCoreApplication::translate("quillane::Debug", "Ok")},
                     false,
                     {}});
}

void Debug::writeToFile(const QString& text, const QString& userName, const BundleInfo& bundle,
                        const DebugLogContext& context)
{
    if (!bundle.buildVersion)
        return;

    const std::optional<fs::path> path = logFile(userName, context);
    const QString fileName = path ? QFile::decodeName(path->c_str()) : QString();

    // The old entries are kept as the bytes they are; only the new line is encoded.
    QByteArray content;
    QFile existing(fileName);
    if (path && existing.open(QIODevice::ReadOnly))
        content = existing.readAll();
    else
        Console::writeLine("Error reading: File not found");
    existing.close();

    // The locale's short date and time: what the user reads on the desktop's own clock.
    const QDateTime now = context.now ? context.now() : QDateTime::currentDateTime();
    const QString line = QLocale::system().toString(now, QLocale::ShortFormat) +
                         QStringLiteral(" - |") + *bundle.buildVersion + QStringLiteral("| - ") +
                         text + QLatin1Char('\n');
    content += line.toUtf8();

    // Written whole to a temporary file beside it and renamed over it, so a failed write
    // leaves the old log as it was.
    QSaveFile file(fileName);
    if (!path || !file.open(QIODevice::WriteOnly) || file.write(content) != content.size() ||
        !file.commit())
        Console::writeLine("Error writing content");
}

} // namespace quillane
