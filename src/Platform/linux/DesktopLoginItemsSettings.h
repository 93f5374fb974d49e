#pragma once

#include "Platform/ServiceManager.h"

#include <QString>
#include <QStringList>
#include <filesystem>
#include <functional>
#include <optional>

namespace quillane
{

// Opens the desktop's own list of what starts at login, where the desktop has one:
//
//   GNOME, Unity, Budgie  gnome-session-properties, else GNOME Tweaks (its Startup Applications)
//   KDE                   systemsettings kcm_autostart, else kcmshell6 / kcmshell5 kcm_autostart
//   XFCE                  xfce4-session-settings
//   MATE                  mate-session-properties
//   Cinnamon              cinnamon-settings startup
//   LXQt                  lxqt-config-session
//
// Anywhere else, or when none of those is installed, it opens the autostart folder itself in the
// file manager (xdg-open). The settings run as a process of their own; this layer shows nothing.
class DesktopLoginItemsSettings final : public LoginItemsSettings
{
public:
    struct Command {
        QString program;
        QStringList arguments;
        bool operator==(const Command&) const = default;
    };
    // The full path of an installed program, or empty when it is not installed.
    using FindExecutable = std::function<QString(const QString& name)>;

    // currentDesktop: XDG_CURRENT_DESKTOP, a colon-separated list of names, most specific first.
    DesktopLoginItemsSettings(QString currentDesktop, std::filesystem::path autostartFolder);
    // The session's desktop and autostart folder, from the environment.
    static DesktopLoginItemsSettings fromEnvironment();

    void open() override;

    // What open() runs: nothing when there is neither a settings program nor xdg-open.
    static std::optional<Command> chooseCommand(const QString& currentDesktop,
                                                const FindExecutable& findExecutable,
                                                const QString& autostartFolder);

private:
    QString m_currentDesktop;
    std::filesystem::path m_autostartFolder;
};

} // namespace quillane
