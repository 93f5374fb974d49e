#pragma once

#include "Platform/ServiceManager.h"

#include <filesystem>

namespace quillane
{

// The application's start at login: an XDG Autostart entry, <config home>/autostart/
// quillane.desktop, that the desktop session reads when the user logs in.
//
// status() is Enabled when the entry is there and does not switch itself off, NotRegistered
// otherwise. Desktops skip an entry with Hidden=true, and GNOME one with
// X-GNOME-Autostart-enabled=false (what its settings write when the user turns an entry off), so
// both count as not registered. So does an entry we cannot read: the session, running as the same
// user, cannot read it either.
class AutostartEntry final : public ServiceHandle
{
public:
    // executable: what the entry starts, an absolute path.
    AutostartEntry(std::filesystem::path configHome, std::filesystem::path executable);

    // $XDG_CONFIG_HOME when it is an absolute path, else ~/.config.
    static std::filesystem::path configHomeFromEnvironment();
    static std::filesystem::path autostartFolder(const std::filesystem::path& configHome);

    const std::filesystem::path& path() const { return m_path; }

    int status() const override;
    // Writes the entry in one step, making the autostart folder when it is missing.
    Result<bool> registerService() override;
    // Removes the entry; an entry that is not there is already removed.
    Result<bool> unregisterService() override;

private:
    std::filesystem::path m_path;
    std::filesystem::path m_executable;
};

} // namespace quillane
