// Opens the list of a home trash of 100,000 items, each with its record, the way the items
// window does (the trash's model under a sorting and filtering proxy, in a table shown off
// screen), and prints how long the first rows took to reach the model and the screen, how long
// every record and every size took, and the longest the main thread went without turning
// meanwhile. Beside it, the time standard tools take to list the same trash.

#include "BenchSupport.h"
#include "Model/TrashContents.h"
#include "Platform/linux/LinuxPlatform.h"
#include "Shell/MainThreadStallMeter.h"
#include "TrashTree.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QHeaderView>
#include <QProcess>
#include <QSortFilterProxyModel>
#include <QTableView>
#include <QTimer>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace fs = std::filesystem;
using namespace quillane::bench;

namespace
{

struct Options {
    std::uint64_t items = 100000;
    std::optional<fs::path> dir;
};

constexpr const char* usageText = R"(Usage: quillane-bench-items [--items N] [--dir FOLDER]

Makes a home trash of N items (default 100000), each a small file with its
record, in a scratch home inside FOLDER (default $TMPDIR or /var/tmp), and lists
it as the items window does, off screen. Prints the time to the first rows in the
model and on screen, to the last record and the last size, and the longest
main-thread stall; then the time trash-list, gio trash --list and ls -f | wc -l
take on the same trash.
)";

// One item in a thousand has a name that is not UTF-8, as a trash filled from old disks has.
void makeTrash(const fs::path& home, std::uint64_t items)
{
    const fs::path trash = home / ".local/share/Trash";
    fs::create_directories(trash / "files");
    fs::create_directories(trash / "info");
    for (std::uint64_t i = 0; i < items; ++i) {
        if (interrupted())
            throw Interrupted();
        std::string name = "item " + std::to_string(i);
        if (i % 1000 == 0)
            name += " caf\xe9";
        std::ofstream(trash / "files" / name) << "x";
        std::ofstream(trash / "info" / (name + ".trashinfo")) << trashInfoText(
            home / "Documents" / name, "2024-05-0" + std::to_string(1 + i % 9) + "T10:00:00");
    }
}

// The wall time of a shell command run with the scratch home, in seconds; none if it failed.
std::optional<double> timeCommand(const fs::path& home, const QString& command)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), QString::fromStdString(home.native()));
    environment.insert(QStringLiteral("XDG_DATA_HOME"),
                       QString::fromStdString((home / ".local/share").native()));
    process.setProcessEnvironment(environment);
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    QElapsedTimer clock;
    clock.start();
    process.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), command});
    if (!process.waitForFinished(600000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        return std::nullopt;
    return static_cast<double>(clock.nsecsElapsed()) / 1e9;
}

int run(const Options& options, int argc, char** argv)
{
    const ScratchFolder scratch(scratchParent(options.dir));
    const fs::path home = scratch.path() / "home";
    std::fprintf(stderr, "Making a home trash of %s items...\n", grouped(options.items).c_str());
    makeTrash(home, options.items);

    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
    unsetenv("XDG_DATA_HOME");
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication application(argc, argv);
    quillane::LinuxPlatform linux;
    const fs::path files = home / ".local/share/Trash/files";

    quillane::TrashContents contents(files, "/", linux.platform());
    QSortFilterProxyModel proxy;
    proxy.setSourceModel(&contents);
    proxy.setSortRole(quillane::TrashContents::SortRole);
    QTableView table;
    table.setModel(&proxy);
    table.horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    table.setSortingEnabled(true);
    table.resize(760, 480);
    table.show();
    QApplication::processEvents();

    QElapsedTimer clock;
    std::optional<double> firstInModel;
    std::optional<double> firstOnScreen;
    std::optional<double> allRecords;
    std::optional<double> allSizes;
    const auto now = [&] { return static_cast<double>(clock.nsecsElapsed()) / 1e9; };
    QObject::connect(&proxy, &QAbstractItemModel::rowsInserted, [&] {
        if (!firstInModel) {
            firstInModel = now();
            // The table paints what it was given once the event loop turns.
            QTimer::singleShot(0, [&] {
                table.viewport()->repaint();
                firstOnScreen = now();
            });
        }
    });
    QEventLoop loop;
    QObject::connect(&contents, &quillane::TrashContents::loaded, [&] { allRecords = now(); });
    QObject::connect(&contents, &quillane::TrashContents::sized, [&] {
        allSizes = now();
        loop.quit();
    });
    quillane::MainThreadStallMeter stalls;
    stalls.start();
    clock.start();
    contents.load();
    loop.exec();
    const QString stall = stalls.report();

    std::printf("The items window's list on a home trash of %s items on %s.\n",
                grouped(options.items).c_str(), fileSystemName(files).c_str());
    std::printf("  first rows in the model:  %8.3f s   (goal: within 0.5 s)\n",
                firstInModel.value_or(-1));
    std::printf("  first rows on screen:     %8.3f s\n", firstOnScreen.value_or(-1));
    std::printf("  every record read:        %8.3f s   (%d rows)\n", allRecords.value_or(-1),
                contents.rowCount());
    std::printf("  every size read:          %8.3f s\n", allSizes.value_or(-1));
    std::printf("  %s (goal: at most 50 ms)\n", stall.toUtf8().constData());
    std::printf("The same trash listed by standard tools (wall time, process start included):\n");
    const std::pair<const char*, const char*> tools[] = {
        {"trash-list", "trash-list"},
        // gio reads a trash through gvfsd, which a bus of its own starts.
        {"gio trash --list", "dbus-run-session -- gio trash --list"},
        {"ls -f files | wc -l", "ls -f \"$HOME/.local/share/Trash/files\" | wc -l"},
    };
    for (const auto& [label, command] : tools) {
        const auto seconds = timeCommand(home, QString::fromUtf8(command));
        if (seconds)
            std::printf("  %-24s %8.3f s\n", label, *seconds);
        else
            std::printf("  %-24s   failed or missing\n", label);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    return runBenchmark(argc, argv, "quillane-bench-items", usageText,
                        {numberOption("--items", options.items), pathOption("--dir", options.dir)},
                        [&] { return run(options, argc, argv); });
}
