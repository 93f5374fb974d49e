#include "StagedScene.h"

#include "App/HelperLink.h"
#include "Helper/XPCClient.h"
#include "Platform/TrashItems.h"
#include "Shell/Updater.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDeadlineTimer>
#include <cstring>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace quillane
{

namespace
{

std::string ownTrashName()
{
    return ".Trash-" + std::to_string(getuid());
}

void fillTrash(const fs::path& trash, int items, std::size_t bytesPerItem)
{
    fs::create_directories(trash);
    for (int i = 0; i < items; ++i) {
        std::ofstream file(trash / ("item " + std::to_string(i)), std::ios::binary);
        const std::string block(bytesPerItem, 'q');
        file.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
}

} // namespace

std::vector<StagedLocation> threeLocations()
{
    return {{"Home", 24, 180'000}, {"Backup Disk", 312, 2'400'000}, {"16 GB Volume", 3, 12'000}};
}

std::vector<StagedLocation> twelveLocations()
{
    std::vector<StagedLocation> locations = threeLocations();
    for (const char* name : {"Photos", "Projects", "Music", "Camera Card", "Archive", "Scratch",
                             "Video Edit", "Old Laptop", "Travel"})
        locations.push_back({name, static_cast<int>(std::strlen(name)) * 7, 900'000});
    return locations;
}

StagedTrash::StagedTrash(fs::path homeTrash, fs::path volumes)
    : m_homeTrash(std::move(homeTrash)), m_volumes(std::move(volumes))
{
}

Result<fs::path> StagedTrash::trashFolder(const fs::path& location) const
{
    if (location == "/")
        return Result<fs::path>::success(m_homeTrash);
    const fs::path trash = m_volumes / location.filename() / ownTrashName() / "files";
    if (fs::is_directory(trash))
        return Result<fs::path>::success(trash);
    return Result<fs::path>::failure("no trash at " + location.native());
}

std::optional<std::string> StagedNames::volumeName(const fs::path& path) const
{
    const auto found = names.find(path);
    return found == names.end() ? std::nullopt : std::optional(found->second);
}

void fillTrashWithRecords(const fs::path& files, const fs::path& home)
{
    struct Staged {
        std::string name;
        std::string from; // the folder it was trashed from, below home; none for a lost record
        std::string deleted;
        std::size_t bytes;
    };
    const std::vector<Staged> items = {
        {"Quarterly report.pdf", "Documents", "2026-11-23T09:14:02", 1'840'000},
        {"caf\xe9 menu.txt", "Downloads", "2026-11-24T18:40:55", 3'200},
        {"Holiday \xff\xfe photos", "Pictures", "2026-11-20T11:02:31", 48'000'000},
        {"notes\nold.md", "Documents/Notes", "2026-11-25T07:55:10", 12'400},
        {"-rf", "Projects", "2026-11-22T16:21:47", 640},
        {"recovered.bin", "", "", 900'000},
    };
    const fs::path info = files.parent_path() / "info";
    fs::create_directories(files);
    fs::create_directories(info);
    for (const Staged& item : items) {
        std::ofstream(files / item.name, std::ios::binary) << std::string(item.bytes, 'q');
        if (item.from.empty())
            continue;
        std::string path;
        for (const fs::path& part : home / item.from / item.name)
            if (part != "/")
                path += "/" + percentEncoded(part.native());
        std::ofstream(info / (item.name + ".trashinfo"))
            << "[Trash Info]\nPath=" << path << "\nDeletionDate=" << item.deleted << "\n";
    }
}

StagedScene::StagedScene(const QString& folder, const std::vector<StagedLocation>& locations)
    : m_root(folder + QStringLiteral("/quillane-scene-XXXXXX")),
      m_home(m_root.path().toStdString() + "/home"),
      m_trash(m_home / ".local/share/Trash/files", m_root.path().toStdString() + "/volumes"),
      m_mounts(m_root.path().toStdString() + "/mountinfo", m_home),
      m_defaults(m_root.filePath(QStringLiteral("settings.ini"))), m_alerts(), m_workspace()
{
    if (!m_root.isValid())
        return;
    // The autostart entry of this scene's own, not the user's.
    qputenv("XDG_CONFIG_HOME", m_root.filePath(QStringLiteral("config")).toLocal8Bit());
    std::ofstream mountinfo(m_root.path().toStdString() + "/mountinfo");
    int id = 20;
    for (const StagedLocation& location : locations) {
        fs::path point = "/";
        if (id == 20) {
            fillTrash(m_trash.homeTrashFolder(), location.items, location.bytesPerItem);
        } else {
            point = fs::path("/media") / location.name;
            fillTrash(fs::path(m_root.path().toStdString()) / "volumes" / location.name /
                          ownTrashName() / "files",
                      location.items, location.bytesPerItem);
        }
        m_names.names[point] = location.name;
        std::string escaped;
        for (const char c : point.native())
            escaped += c == ' ' ? std::string("\\040") : std::string(1, c);
        mountinfo << id << " 1 8:" << id << " / " << escaped << " rw shared:1 - ext4 /dev/sd" << id
                  << " rw\n";
        ++id;
    }
    mountinfo.close();

    m_observer = std::make_unique<VolumeObserver>(Platform{m_scheduler, m_work, m_work, m_work,
                                                           m_trash, m_mounts, m_mountWatcher,
                                                           m_folders, m_defaults, m_names, m_home});
    m_helper = std::make_unique<HelperLink>(m_scheduler, m_defaults, m_alerts, m_application,
                                            QDBusConnection(QString()));
    m_updater = std::make_unique<Updater>(Updater::Services{
        m_alerts, m_workspace, m_defaults, m_scheduler, BundleInfo::current(), QUrl(), {}});
    m_scheduler.advance(std::chrono::seconds(1));
}

// QTemporaryDir removes its folder by names read as text, which leaves the items whose names are
// not UTF-8 behind; the scene's models go first, then the folder, name by name as bytes.
StagedScene::~StagedScene()
{
    m_updater.reset();
    m_helper.reset();
    m_observer.reset();
    std::error_code ignored;
    fs::remove_all(m_root.path().toStdString(), ignored);
}

ViewServices StagedScene::services()
{
    return ViewServices{*m_observer, m_helper->client(), *m_updater,    m_defaults,
                        m_alerts,    m_workspace,        m_application, BundleInfo::current(),
                        [] {}};
}

void StagedScene::runUntil(const std::function<bool()>& done)
{
    QDeadlineTimer deadline(10000);
    while (!done() && !deadline.hasExpired()) {
        QApplication::processEvents(QEventLoop::AllEvents, 20);
        m_scheduler.advance(std::chrono::milliseconds(50));
    }
}

void StagedScene::emptyPartly(const std::string& name, double share)
{
    for (const Volume& volume : m_observer->volumes()) {
        if (volume.name(m_names) != name)
            continue;
        m_observer->emptySelectedTrash(volume);
        while (m_observer->progress() < share && m_scheduler.runNext()) {
        }
        return;
    }
}

} // namespace quillane
