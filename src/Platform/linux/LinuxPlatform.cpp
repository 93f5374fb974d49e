#include "LinuxPlatform.h"

#include "DiskLabels.h"
#include "FreedesktopTrash.h"
#include "InotifyFolderWatcher.h"
#include "MountInfoWatcher.h"
#include "Platform/FileSystem.h"
#include "Platform/QtScheduler.h"
#include "Platform/UserDefaults.h"
#include "ProcMountTable.h"
#include "UDisksLabels.h"

#include <QThread>
#include <algorithm>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace quillane
{

namespace fs = std::filesystem;

namespace
{
const fs::path mountinfo = "/proc/self/mountinfo";
}

LinuxPlatform::LinuxPlatform()
    : m_home(homeFolder()), m_mainQueue(std::make_unique<QtScheduler>()),
      m_workQueue(std::make_unique<ThreadWorkQueue>()),
      // Removal is bound by the filesystem's metadata work, which several threads share well.
      m_removalQueue(std::make_unique<ThreadWorkQueue>(std::max(2, QThread::idealThreadCount()))),
      m_contentsQueue(std::make_unique<ThreadWorkQueue>()),
      m_trash(std::make_unique<FreedesktopTrash>(m_home, dataHome(m_home), getuid())),
      m_mounts(
          std::make_unique<ProcMountTable>(mountinfo, m_home, "/etc/fstab", userName(), getuid())),
      m_mountWatcher(std::make_unique<MountInfoWatcher>(mountinfo, *m_mounts)),
      m_folderWatcher(std::make_unique<InotifyFolderWatcher>()),
      m_defaults(std::make_unique<SettingsUserDefaults>()),
      m_volumeNames(std::make_unique<DiskLabels>(
          "/dev/disk/by-label", *m_mounts, "/sys/dev/block",
          [udisks = std::make_shared<UDisksLabels>(QDBusConnection::systemBus())](dev_t device) {
              return udisks->label(device);
          }))
{
}

LinuxPlatform::~LinuxPlatform()
{
    // Queued scans use the other services: let them finish while those still exist.
    m_workQueue.reset();
    m_removalQueue.reset();
    m_contentsQueue.reset();
}

Platform LinuxPlatform::platform() const
{
    return Platform{*m_mainQueue, *m_workQueue,   *m_removalQueue, *m_contentsQueue,
                    *m_trash,     *m_mounts,      *m_mountWatcher, *m_folderWatcher,
                    *m_defaults,  *m_volumeNames, m_home};
}

fs::path LinuxPlatform::homeFolder()
{
    const char* home = std::getenv("HOME");
    if (home && home[0] == '/')
        return withoutTrailingSlash(fs::path(home).lexically_normal());
    if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_dir)
        return withoutTrailingSlash(fs::path(entry->pw_dir).lexically_normal());
    return "/";
}

std::string LinuxPlatform::userName()
{
    if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_name)
        return entry->pw_name;
    const char* user = std::getenv("USER");
    return user ? user : "";
}

fs::path LinuxPlatform::dataHome(const fs::path& home)
{
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome && dataHome[0] == '/')
        return dataHome;
    return home / ".local" / "share";
}

} // namespace quillane
