#include "AutostartEntry.h"

#include "LinuxPlatform.h"

#include <QFile>
#include <QSaveFile>
#include <QString>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string_view>

namespace fs = std::filesystem;

namespace quillane
{

namespace
{

// A failure of a file system call that reported `error`, described after `what`.
Result<bool> failed(const std::string& what, const std::error_code& error)
{
    return Result<bool>::failure(describeErrno(what, error.value()), error.value());
}

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Whether the entry's main group says the session should skip it.
bool switchedOff(std::istream& entry)
{
    bool inMainGroup = false;
    for (std::string raw; std::getline(entry, raw);) {
        const std::string_view line = trimmed(raw);
        if (line.empty() || line.front() == '#')
            continue;
        if (line.front() == '[') {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        const auto equals = line.find('=');
        if (!inMainGroup || equals == std::string_view::npos)
            continue;
        const std::string_view key = trimmed(line.substr(0, equals));
        const std::string_view value = trimmed(line.substr(equals + 1));
        if ((key == "Hidden" && value == "true") ||
            (key == "X-GNOME-Autostart-enabled" && value == "false"))
            return true;
    }
    return false;
}

bool isUtf8(const std::string& bytes)
{
    return QString::fromStdString(bytes).toStdString() == bytes;
}

// The Exec value that runs the program with no arguments. A program whose path holds a character
// the shell-like Exec syntax reserves goes in double quotes, with ", `, $ and \ escaped inside;
// % is doubled everywhere, as it starts a field code. The result then takes the escapes every
// string value takes, which is why a backslash in the path ends up as four.
std::optional<std::string> execValue(const std::string& program)
{
    if (!isUtf8(program))
        return std::nullopt;
    constexpr std::string_view reserved = " \t\n\"'\\><~|&;$*?#()`";
    const bool quoted = program.find_first_of(reserved) != std::string::npos;
    std::string exec = quoted ? "\"" : "";
    for (const char c : program) {
        if (quoted && (c == '"' || c == '`' || c == '$' || c == '\\'))
            exec += '\\';
        exec += c;
        if (c == '%')
            exec += '%';
    }
    if (quoted)
        exec += '"';

    std::string value;
    for (const char c : exec) {
        switch (c) {
        case '\\':
            value += "\\\\";
            break;
        case '\n':
            value += "\\n";
            break;
        case '\t':
            value += "\\t";
            break;
        case '\r':
            value += "\\r";
            break;
        default:
            value += c;
        }
    }
    return value;
}

} // namespace

AutostartEntry::AutostartEntry(fs::path configHome, fs::path executable)
    : m_path(autostartFolder(configHome) / "quillane.desktop"), m_executable(std::move(executable))
{
}

fs::path AutostartEntry::configHomeFromEnvironment()
{
    const char* configHome = std::getenv("XDG_CONFIG_HOME");
    if (configHome && configHome[0] == '/')
        return configHome;
    return LinuxPlatform::homeFolder() / ".config";
}

fs::path AutostartEntry::autostartFolder(const fs::path& configHome)
{
    return configHome / "autostart";
}

int AutostartEntry::status() const
{
    std::ifstream entry(m_path);
    if (!entry)
        return NotRegistered;
    return switchedOff(entry) ? NotRegistered : Enabled;
}

Result<bool> AutostartEntry::registerService()
{
    const std::optional<std::string> exec = execValue(m_executable.native());
    if (!exec)
        return Result<bool>::failure("Cannot start " + m_executable.native() +
                                     " at login: a desktop entry holds only UTF-8 text");
    // QSaveFile names files by text, so the folder's name must be text too.
    const std::string& path = m_path.native();
    if (!isUtf8(path))
        return Result<bool>::failure("Cannot write an autostart entry in " + path +
                                     ": the path is not UTF-8");

    const fs::path folder = m_path.parent_path();
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        return failed("Cannot make the autostart folder " + folder.native(), error);

    const std::string contents = "[Desktop Entry]\n"
                                 "Type=Application\n"
                                 "Name=Quillane\n"
                                 "Comment=Empty the trash from the tray\n"
                                 "Exec=" +
                                 *exec +
                                 "\n"
                                 "Icon=quillane\n"
                                 "Terminal=false\n"
                                 "X-GNOME-Autostart-enabled=true\n";
    QSaveFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(contents.data(), qint64(contents.size())) != qint64(contents.size()) ||
        !file.commit())
        return Result<bool>::failure("Cannot write the autostart entry " + path + ": " +
                                     file.errorString().toStdString());
    return Result<bool>::success(true);
}

Result<bool> AutostartEntry::unregisterService()
{
    std::error_code error;
    fs::remove(m_path, error);
    if (error)
        return failed("Cannot remove the autostart entry " + m_path.native(), error);
    return Result<bool>::success(true);
}

} // namespace quillane
