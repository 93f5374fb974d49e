#pragma once

#include "Platform/Platform.h"

#include <memory>
#include <string>

namespace quillane
{

class DiskLabels;
class FreedesktopTrash;
class InotifyFolderWatcher;
class MountInfoWatcher;
class ProcMountTable;
class QtScheduler;
class SettingsUserDefaults;
class ThreadWorkQueue;

// The real services of a Linux desktop session. Made on the main thread, after the Qt
// application object.
class LinuxPlatform
{
public:
    LinuxPlatform();
    ~LinuxPlatform();

    Platform platform() const;

    // $HOME, or the password database's home when it is unset.
    static std::filesystem::path homeFolder();
    // The login name of the user, as the password database gives it.
    static std::string userName();
    // $XDG_DATA_HOME when it is an absolute path, else home/.local/share.
    static std::filesystem::path dataHome(const std::filesystem::path& home);

private:
    std::filesystem::path m_home;
    std::unique_ptr<QtScheduler> m_mainQueue;
    std::unique_ptr<ThreadWorkQueue> m_workQueue;
    std::unique_ptr<ThreadWorkQueue> m_removalQueue;
    std::unique_ptr<ThreadWorkQueue> m_contentsQueue;
    std::unique_ptr<FreedesktopTrash> m_trash;
    std::unique_ptr<ProcMountTable> m_mounts;
    std::unique_ptr<MountInfoWatcher> m_mountWatcher;
    std::unique_ptr<InotifyFolderWatcher> m_folderWatcher;
    std::unique_ptr<SettingsUserDefaults> m_defaults;
    std::unique_ptr<DiskLabels> m_volumeNames;
};

} // namespace quillane
