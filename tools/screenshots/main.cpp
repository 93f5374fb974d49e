// quillane-screenshot VIEW FILE.png: draws one view of the application off screen into a PNG
// file, filled from a staged set of trash locations of its own (nothing of the user's is read).
// It is built with the tests and never installed.

#include "Model/TrashContents.h"
#include "Platform/BuildInfo.h"
#include "Platform/Console.h"
#include "Shell/Translations.h"
#include "StagedScene.h"
#include "Views/ItemsWindow.h"
#include "Views/MenuView.h"
#include "Views/Pictures.h"
#include "Views/SettingsView.h"
#include "Views/SetupView.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QLabel>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTableView>
#include <QVBoxLayout>
#include <cstdio>

namespace fs = std::filesystem;
using namespace quillane;

namespace
{

const QStringList views = {QStringLiteral("panel"),        QStringLiteral("panel-12"),
                           QStringLiteral("emptying"),     QStringLiteral("setup-fda"),
                           QStringLiteral("setup-helper"), QStringLiteral("setup-login"),
                           QStringLiteral("settings"),     QStringLiteral("items")};

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

int draw(const QString& view, const QString& file)
{
    // The scene lives in the user's cache folder.
    const QString cache = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    if (cache.isEmpty() || !QDir().mkpath(cache)) {
        std::fprintf(stderr, "quillane-screenshot: no cache folder to stage the scene in\n");
        return 1;
    }
    // The items window shows the home trash with records of its own.
    std::vector<StagedLocation> locations =
        view == QStringLiteral("panel-12") ? twelveLocations() : threeLocations();
    if (view == QStringLiteral("items"))
        locations.front().items = 0;
    StagedScene scene(cache, locations);
    if (!scene.isValid()) {
        std::fprintf(stderr, "quillane-screenshot: could not stage the scene in %s\n",
                     qPrintable(cache));
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
        std::fprintf(stderr, "quillane-screenshot: could not write %s\n", qPrintable(file));
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    // Pictures are drawn off screen, the same on every machine, unless a platform is asked for.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    // The models' diagnostic lines are not the tool's output.
    Console::discard();
    // The views show the application's own name and version.
    QCoreApplication::setApplicationName(QStringLiteral("quillane"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(BuildInfo::versionText));
    QApplication::setApplicationDisplayName(QStringLiteral("Quillane"));
    installTranslations();
    ensureIconTheme();

    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 3) {
        std::fprintf(stderr, "usage: quillane-screenshot VIEW FILE.png\nviews: %s\n",
                     qPrintable(views.join(QStringLiteral(", "))));
        return 2;
    }
    if (!views.contains(arguments[1])) {
        std::fprintf(stderr, "quillane-screenshot: no view \"%s\"; views: %s\n",
                     qPrintable(arguments[1]), qPrintable(views.join(QStringLiteral(", "))));
        return 2;
    }
    return draw(arguments[1], arguments[2]);
}
