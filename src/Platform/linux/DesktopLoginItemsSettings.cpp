#include "DesktopLoginItemsSettings.h"

#include "AutostartEntry.h"

#include <QProcess>
#include <QStandardPaths>
#include <algorithm>
#include <system_error>
#include <utility>
#include <vector>

namespace quillane
{

namespace
{

struct Candidate {
    const char* program;
    std::vector<const char*> arguments;
};

struct DesktopSettings {
    std::vector<const char*> desktops; // as XDG_CURRENT_DESKTOP names them
    std::vector<Candidate> candidates; // the first one installed is run
};

const std::vector<DesktopSettings>& settingsByDesktop()
{
    static const std::vector<DesktopSettings> settings = {
        {{"GNOME", "Unity", "Budgie"}, {{"gnome-session-properties", {}}, {"gnome-tweaks", {}}}},
        {{"KDE"},
         {{"systemsettings", {"kcm_autostart"}},
          {"kcmshell6", {"kcm_autostart"}},
          {"kcmshell5", {"kcm_autostart"}}}},
        {{"XFCE"}, {{"xfce4-session-settings", {}}}},
        {{"MATE"}, {{"mate-session-properties", {}}}},
        {{"X-Cinnamon", "Cinnamon"}, {{"cinnamon-settings", {"startup"}}}},
        {{"LXQt"}, {{"lxqt-config-session", {}}}},
    };
    return settings;
}

} // namespace

DesktopLoginItemsSettings::DesktopLoginItemsSettings(QString currentDesktop,
                                                     std::filesystem::path autostartFolder)
    : m_currentDesktop(std::move(currentDesktop)), m_autostartFolder(std::move(autostartFolder))
{
}

DesktopLoginItemsSettings DesktopLoginItemsSettings::fromEnvironment()
{
    return DesktopLoginItemsSettings(
        qEnvironmentVariable("XDG_CURRENT_DESKTOP"),
        AutostartEntry::autostartFolder(AutostartEntry::configHomeFromEnvironment()));
}

void DesktopLoginItemsSettings::open()
{
    // The file manager shows an error for a folder that does not exist yet.
    std::error_code ignored;
    std::filesystem::create_directories(m_autostartFolder, ignored);

    const auto command = chooseCommand(
        m_currentDesktop, [](const QString& name) { return QStandardPaths::findExecutable(name); },
        QString::fromStdString(m_autostartFolder.native()));
    if (command)
        QProcess::startDetached(command->program, command->arguments);
}

std::optional<DesktopLoginItemsSettings::Command>
DesktopLoginItemsSettings::chooseCommand(const QString& currentDesktop,
                                         const FindExecutable& findExecutable,
                                         const QString& autostartFolder)
{
    for (const QString& desktop : currentDesktop.split(u':', Qt::SkipEmptyParts)) {
        for (const DesktopSettings& settings : settingsByDesktop()) {
            const bool matches = std::any_of(
                settings.desktops.begin(), settings.desktops.end(), [&](const char* name) {
                    return desktop.compare(QLatin1String(name), Qt::CaseInsensitive) == 0;
                });
            if (!matches)
                continue;
            for (const Candidate& candidate : settings.candidates) {
                const QString program = findExecutable(QLatin1String(candidate.program));
                if (program.isEmpty())
                    continue;
                Command command{program, {}};
                for (const char* argument : candidate.arguments)
                    command.arguments << QLatin1String(argument);
                return command;
            }
        }
    }
    const QString fileManager = findExecutable(QStringLiteral("xdg-open"));
    if (fileManager.isEmpty())
        return std::nullopt;
    return Command{fileManager, {autostartFolder}};
}

} // namespace quillane
