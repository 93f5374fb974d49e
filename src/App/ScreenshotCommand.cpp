#include "ScreenshotCommand.h"

#include "App/HelperLink.h"
#include "Helper/XPCClient.h"
#include "Model/TrashContents.h"
#include "Model/VolumeObserver.h"
#include "Platform/BuildInfo.h"
#include "Platform/MountWatcher.h"
#include "Platform/TrashLocator.h"
#include "Platform/UserDefaults.h"
#include "Platform/VirtualScheduler.h"
#include "Platform/VolumeNames.h"
#include "Platform/linux/InotifyFolderWatcher.h"
#include "Platform/linux/ProcMountTable.h"
#include "Platform/widgets/DesktopWorkspace.h"
#include "Platform/widgets/WidgetAlerts.h"
#include "Platform/widgets/WidgetApplication.h"
#include "Shell/Updater.h"
#include "Views/ItemsWindow.h"
#include "Views/MenuView.h"
#include "Views/SettingsView.h"
#include "Views/SetupView.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDeadlineTimer>
#include <QDir>
#include <QLabel>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTableView>
#include <QTemporaryDir>
#include <QVBoxLayout>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <unistd.h>

namespace fs = std::filesystem;

namespace quillane
{

namespace
{

struct StagedLocation {
    std::string name;
    int items;
    std::size_t bytesPerItem;
};

const std::vector<StagedLocation> threeLocations = {
    {"Home", 24, 180'000}, {"Backup Disk", 312, 2'400'000}, {"16 GB Volume", 3, 12'000}};

std::vector<StagedLocation> twelveLocations()
{
    std::vector<StagedLocation> locations = threeLocations;
    for (const char* name : {"Photos", "Projects", "Music", "Camera Card", "Archive", "Scratch",
                             "Video Edit", "Old Laptop", "Travel"})
        locations.push_back({name, static_cast<int>(std::strlen(name)) * 7, 900'000});
    return locations;
}

// Each staged location is a folder with its own trash, standing for a volume mounted under
// /media; the first one stands for the computer's own disk and holds the home folder.
class StagedTrash final : public TrashLocator
{
public:
    StagedTrash(fs::path homeTrash, fs::path volumes)
        : m_homeTrash(std::move(homeTrash)), m_volumes(std::move(volumes))
    {
    }

    Result<fs::path> trashFolder(const fs::path& location) const override
    {
        if (location == "/")
            return Result<fs::path>::success(m_homeTrash);
        const fs::path trash =
            m_volumes / location.filename() / (".Trash-" + std::to_string(getuid())) / "files";
        if (fs::is_directory(trash))
            return Result<fs::path>::success(trash);
        return Result<fs::path>::failure("no trash at " + location.native());
    }
    fs::path homeTrashFolder() const override { return m_homeTrash; }

private:
    fs::path m_homeTrash;
    fs::path m_volumes; // the folders standing for the volumes, by name
};

class StagedNames final : public VolumeNames
{
public:
    std::optional<std::string> volumeName(const fs::path& path) const override
    {
        const auto found = names.find(path);
        return found == names.end() ? std::nullopt : std::optional(found->second);
    }
    bool holdsHome(const fs::path& path) const override { return path == "/"; }

    std::map<fs::path, std::string> names;
};

void fillTrash(const fs::path& trash, int items, std::size_t bytesPerItem)
{
    fs::create_directories(trash);
    for (int i = 0; i < items; ++i) {
        std::ofstream file(trash / ("item " + std::to_string(i)), std::ios::binary);
        const std::string block(bytesPerItem, 'q');
        file.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
}

// Items as desktops trash them, each with its record: names that are not UTF-8 or hold a line
// break among them, and one item whose record is lost.
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

// A whole application's worth of models over the staged locations, on a virtual clock so that
// an emptying can be stopped halfway for its picture.
class Scene
{
public:
    Scene(const QString& folder, const std::vector<StagedLocation>& locations)
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
                              (".Trash-" + std::to_string(getuid())) / "files",
                          location.items, location.bytesPerItem);
            }
            m_names.names[point] = location.name;
            std::string escaped;
            for (const char c : point.native())
                escaped += c == ' ' ? std::string("\\040") : std::string(1, c);
            mountinfo << id << " 1 8:" << id << " / " << escaped << " rw shared:1 - ext4 /dev/sd"
                      << id << " rw\n";
            ++id;
        }
        mountinfo.close();

        m_observer = std::make_unique<VolumeObserver>(Platform{m_scheduler, m_work, m_work, m_trash,
                                                               m_mounts, m_mountWatcher, m_folders,
                                                               m_defaults, m_names, m_home});
        m_helper = std::make_unique<HelperLink>(m_scheduler, m_defaults, m_alerts, m_application,
                                                QDBusConnection(QString()));
        m_updater = std::make_unique<Updater>(Updater::Services{
            m_alerts, m_workspace, m_defaults, m_scheduler, BundleInfo::current(), QUrl(), {}});
        m_scheduler.advance(std::chrono::seconds(1));
    }

    bool isValid() const { return m_root.isValid() && m_observer; }
    const std::vector<Volume>& volumes() const { return m_observer->volumes(); }
    // Runs what the views queued until `done` holds, or for ten seconds at most.
    void runUntil(const std::function<bool()>& done)
    {
        QDeadlineTimer deadline(10000);
        while (!done() && !deadline.hasExpired()) {
            QApplication::processEvents(QEventLoop::AllEvents, 20);
            m_scheduler.advance(std::chrono::milliseconds(50));
        }
    }
    fs::path homeTrashFolder() const { return m_trash.homeTrashFolder(); }

    ViewServices services()
    {
        return ViewServices{*m_observer, m_helper->client(), *m_updater,    m_defaults,
                            m_alerts,    m_workspace,        m_application, BundleInfo::current(),
                            [] {}};
    }

    // Starts emptying the named location and stops when about that share of it is done.
    void emptyPartly(const std::string& name, double share)
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

private:
    QTemporaryDir m_root;
    fs::path m_home;
    VirtualScheduler m_scheduler;
    InlineWorkQueue m_work;
    StagedTrash m_trash;
    ProcMountTable m_mounts;
    MountWatcher m_mountWatcher;
    InotifyFolderWatcher m_folders;
    SettingsUserDefaults m_defaults;
    StagedNames m_names;
    WidgetAlerts m_alerts;
    DesktopWorkspace m_workspace;
    WidgetApplication m_application;
    std::unique_ptr<VolumeObserver> m_observer;
    std::unique_ptr<HelperLink> m_helper;
    std::unique_ptr<Updater> m_updater;
};

// Lets the rows finish their background counting before the picture is taken.
void settle(QWidget& view)
{
    QDeadlineTimer deadline(10000);
    while (!deadline.hasExpired()) {
        QApplication::processEvents(QEventLoop::AllEvents, 50);
        const auto labels = view.findChildren<QLabel*>();
        if (std::ranges::none_of(labels, [](const QLabel* label) {
                return label->text() ==
                       QCoreApplication::translate("quillane::ListItem", "Calculating...");
            }))
            break;
    }
    view.adjustSize();
    QApplication::processEvents();
}

// The view in a plain window background, as it appears on the desktop. The picture shows the
// whole view at its own size: unlike a window, it has no screen to fit.
std::unique_ptr<QWidget> framed(QWidget* view)
{
    auto window = std::make_unique<QWidget>();
    auto* layout = new QVBoxLayout(window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->addWidget(view);
    window->setAutoFillBackground(true);
    return window;
}

// One page of the first-run guide at the size the setup window gives it.
template <class Page> QWidget* page(const ViewServices& services)
{
    auto* view = new Page(services);
    view->setFixedSize(Page::pageSize);
    return view;
}

} // namespace

QStringList screenshotViews()
{
    return {QStringLiteral("panel"),        QStringLiteral("panel-12"),
            QStringLiteral("emptying"),     QStringLiteral("setup-fda"),
            QStringLiteral("setup-helper"), QStringLiteral("setup-login"),
            QStringLiteral("settings"),     QStringLiteral("items")};
}

int runScreenshotCommand(const QString& view, const QString& file)
{
    if (!screenshotViews().contains(view)) {
        std::fprintf(stderr, "quillane: no view \"%s\"; views: %s\n", qPrintable(view),
                     qPrintable(screenshotViews().join(QStringLiteral(", "))));
        return 2;
    }
    // The scene lives in the user's cache folder.
    const QString cache = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    if (cache.isEmpty() || !QDir().mkpath(cache)) {
        std::fprintf(stderr, "quillane: no cache folder to stage the screenshot in\n");
        return 1;
    }
    // The items window shows the home trash with records of its own.
    std::vector<StagedLocation> locations =
        view == QStringLiteral("panel-12") ? twelveLocations() : threeLocations;
    if (view == QStringLiteral("items"))
        locations.front().items = 0;
    Scene scene(cache, locations);
    if (!scene.isValid()) {
        std::fprintf(stderr, "quillane: could not stage the screenshot in %s\n", qPrintable(cache));
        return 1;
    }
    const ViewServices services = scene.services();

    QWidget* content = nullptr;
    // The access page explains a trash its owner may not open, as a careless chmod leaves it;
    // the scene's folder is opened again before it is cleaned up.
    const fs::path trashFiles = scene.homeTrashFolder();
    const auto reopen = qScopeGuard([&] {
        std::error_code ignored;
        fs::permissions(trashFiles, fs::perms::owner_all, fs::perm_options::add, ignored);
    });
    if (view == QStringLiteral("setup-fda")) {
        std::error_code ignored;
        fs::permissions(trashFiles, fs::perms::owner_read | fs::perms::owner_exec,
                        fs::perm_options::replace, ignored);
    }

    ItemsWindow* items = nullptr;
    if (view.startsWith(QStringLiteral("panel")) || view == QStringLiteral("emptying")) {
        content = new MenuView(services);
    } else if (view == QStringLiteral("items")) {
        fillTrashWithRecords(trashFiles, "/home/robin");
        content = items = new ItemsWindow(scene.volumes().front(), services);
        items->setMinimumSize(900, 290);
    } else if (view == QStringLiteral("setup-fda"))
        content = page<FDAView>(services);
    else if (view == QStringLiteral("setup-helper"))
        content = page<HelperView>(services);
    else if (view == QStringLiteral("setup-login"))
        content = page<LoginItemView>(services);
    else
        content = new SettingsView(services);

    const std::unique_ptr<QWidget> window = framed(content);
    window->show();
    settle(*window);
    if (view == QStringLiteral("emptying")) {
        scene.emptyPartly("Backup Disk", 0.4);
        settle(*window);
    }
    if (items) {
        TrashContents& contents = *items->contents();
        bool sized = false;
        QObject::connect(&contents, &TrashContents::sized, [&sized] { sized = true; });
        scene.runUntil([&] { return contents.isLoaded() && sized; });
        items->table()->sortByColumn(TrashContents::Deleted, Qt::DescendingOrder);
        items->table()->selectRow(1);
        settle(*window);
    }
    if (!window->grab().save(file, "PNG")) {
        std::fprintf(stderr, "quillane: could not write %s\n", qPrintable(file));
        return 1;
    }
    return 0;
}

} // namespace quillane
