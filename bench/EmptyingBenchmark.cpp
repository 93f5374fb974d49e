// Times emptying a home trash of about 100,000 files three ways, each on its own copy of the same
// generated trash: `quillane empty LOCATION --yes`, `rm -rf` of its files/ and info/, and
// trash-cli's trash-empty. Afterwards checks that every trash is empty and that nothing its links
// point at went with it.

#include "BenchSupport.h"
#include "TrashTree.h"

#include <QByteArray>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <limits>
#include <optional>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace quillane::bench;

namespace
{

// What the trees' links point at from outside; it must outlive every emptying.
constexpr std::uint64_t bigFileBytes = 1024 * 1024;
constexpr std::string_view stallPrefix = "longest main-thread stall: ";

enum class Tool { Rm, Quillane, TrashEmpty };
constexpr std::array allTools = {Tool::Rm, Tool::Quillane, Tool::TrashEmpty};

std::string_view toolName(Tool tool)
{
    switch (tool) {
    case Tool::Rm:
        return "rm";
    case Tool::Quillane:
        return "quillane";
    case Tool::TrashEmpty:
        return "trash-empty";
    }
    return {};
}

struct Options {
    // The order the tools run in; the table keeps its own.
    std::vector<Tool> order{allTools.begin(), allTools.end()};
    std::uint64_t files = 100000;
    std::uint64_t layout = 1;
    std::optional<fs::path> dir;
    std::optional<fs::path> quillane;
    // quillane's time at most this many times rm's: 0.7 on an ext4 in memory, 1.0 on a disk.
    double goal = 1.0;
    std::string place = "on disk";
    int commandRuns = 11; // of each command on a trash of one item
};

constexpr const char* usageText =
    R"(Usage: quillane-bench-empty [--files N] [--layout N] [--dir FOLDER] [--quillane PATH]
                            [--order TOOL,TOOL,TOOL] [--goal RATIO] [--place TEXT]
                            [--command-runs N]

Makes the same home trash of about N files (default 100000) three times, each copy
right before the tool that empties it: `quillane empty LOCATION --yes`, rm -rf of
its files/ and info/, and trash-empty, each run with HOME set to the copy's own
scratch home. Prints each tool's time and Quillane's longest main-thread stall, and
exits with 1 when a trash is not empty afterwards.

The copies go into a new folder inside FOLDER (default: the folder of this program),
which is removed at the end. FOLDER must not lie below a path holding "/tmp":
Quillane leaves such mount points out. PATH is the quillane program to time
(default: the one of this build). --order runs rm, quillane and trash-empty in
another order than that one. --goal is the most quillane may take as a multiple of
rm's time (default 1.0), and --place says where FOLDER is, for the report.
It also times `quillane list --json` and `quillane empty LOCATION --yes` on a trash
of one item, N times each (default 11), and prints their medians.
)";

// --order: each tool once, separated by commas.
Option orderOption(std::vector<Tool>& order)
{
    return {"--order", [&order](std::string_view value) {
                order.clear();
                const auto names = splitList(value);
                for (std::size_t i = 0; i < names.size(); ++i) {
                    if (names[i].empty() && i + 1 == names.size())
                        break; // a trailing comma
                    const auto tool = std::ranges::find(allTools, names[i], toolName);
                    if (tool == allTools.end() || std::ranges::count(order, *tool) != 0)
                        return false;
                    order.push_back(*tool);
                }
                return order.size() == allTools.size();
            }};
}

std::string readFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The environment every tool runs in: ours, with HOME the copy's scratch home and without the
// XDG folders that would lead a tool (or Quillane's settings) anywhere else.
std::vector<std::string> environmentFor(const fs::path& home)
{
    return environmentWithout(
        {"HOME=", "XDG_DATA_HOME=", "XDG_CONFIG_HOME=", "XDG_CACHE_HOME=", "XDG_STATE_HOME="},
        {"HOME=" + home.native()});
}

struct Run {
    int status = 0; // as wait4() gives it
    Clock::duration wall{};
    double userSeconds = 0;
    double systemSeconds = 0;
    std::string output;
    std::string errors;

    bool succeeded() const { return WIFEXITED(status) && WEXITSTATUS(status) == 0; }
};

// Runs a program to its end with nothing on standard input and its output kept in `logs`. The
// time counts from just before the spawn to the reaping.
Run runProgram(const std::vector<std::string>& arguments,
               const std::vector<std::string>& environment, const fs::path& logs)
{
    const fs::path outputFile = logs / "stdout";
    const fs::path errorFile = logs / "stderr";
    const auto start = Clock::now();
    const pid_t child = startProgram(arguments, environment, outputFile, errorFile);
    Run run;
    rusage usage{};
    while (wait4(child, &run.status, 0, &usage) < 0 && errno == EINTR) {
    }
    run.wall = Clock::now() - start;
    run.userSeconds = secondsOf(usage.ru_utime);
    run.systemSeconds = secondsOf(usage.ru_stime);
    if (interrupted())
        throw Interrupted{};
    run.output = readFile(outputFile);
    run.errors = readFile(errorFile);
    return run;
}

// The last lines a failing tool wrote, for the report.
std::string tail(const std::string& text)
{
    constexpr std::size_t limit = 1500;
    return text.size() <= limit ? text : "..." + text.substr(text.size() - limit);
}

// A copy of the trash in a home of its own: HOME/.local/share/Trash.
struct Copy {
    fs::path home;
    fs::path trash;
    TrashTree tree;
};

Copy makeCopy(const fs::path& folder, const fs::path& bigFile, std::uint64_t files,
              std::uint64_t layout)
{
    Copy copy;
    copy.home = folder / "home";
    fs::create_directories(copy.home / ".local" / "share");
    copy.trash = copy.home / ".local" / "share" / "Trash";
    copy.tree = makeTrashTree({.root = copy.trash,
                               .bigFile = bigFile,
                               .fileCount = files,
                               .layout = layout,
                               .trashInfo = true,
                               .interrupted = interrupted});
    return copy;
}

// Entries in a folder; nullopt when the folder is not there.
std::optional<std::uint64_t> entriesIn(const fs::path& folder)
{
    DIR* listing = opendir(folder.c_str());
    if (!listing) {
        if (errno == ENOENT)
            return std::nullopt;
        throw std::runtime_error("cannot list " + printablePath(folder) + ": " +
                                 std::strerror(errno));
    }
    std::uint64_t count = 0;
    while (const dirent* entry = readdir(listing)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            ++count;
    }
    closedir(listing);
    return count;
}

// Why a trash is not emptied as it should be, or nothing. rm -rf takes files/ and info/ with it;
// the emptiers leave both folders in place.
std::string emptinessProblem(const Copy& copy, bool foldersMayGo)
{
    std::string problem;
    for (const char* name : {"files", "info"}) {
        const auto entries = entriesIn(copy.trash / name);
        if (!entries && !foldersMayGo)
            problem += std::string(problem.empty() ? "" : "; ") + name + "/ is gone";
        else if (entries && *entries > 0)
            problem += std::string(problem.empty() ? "" : "; ") + std::to_string(*entries) +
                       " entries left in " + name + "/";
    }
    return problem;
}

// The links of every tree point at the big file and its folder; both must still be there.
std::string outsideProblem(const fs::path& bigFile)
{
    struct stat info {
    };
    if (lstat(bigFile.c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
        static_cast<std::uint64_t>(info.st_size) != bigFileBytes)
        return "the file outside the trash that its links point at was touched";
    const auto entries = entriesIn(bigFile.parent_path());
    if (!entries || *entries != 1)
        return "the folder outside the trash that its links point at was touched";
    return {};
}

// The location `quillane list` gives the home trash of `home`, as `quillane empty` takes it.
std::string homeTrashLocation(const fs::path& quillane, const Copy& copy, const fs::path& logs)
{
    const Run run =
        runProgram({quillane.native(), "list", "--json"}, environmentFor(copy.home), logs);
    if (!run.succeeded())
        throw std::runtime_error("quillane list failed:\n" + tail(run.errors));
    const QString trash =
        QFile::decodeName(QByteArray::fromStdString((copy.trash / "files").native()));
    const QJsonArray locations =
        QJsonDocument::fromJson(QByteArray::fromStdString(run.output)).array();
    for (const auto& value : locations) {
        const QJsonObject location = value.toObject();
        if (location.value(QStringLiteral("trash")).toString() == trash)
            return QFile::encodeName(location.value(QStringLiteral("location")).toString())
                .toStdString();
    }
    throw std::runtime_error(
        "quillane list does not show " + printablePath(copy.trash / "files") +
        " as the home trash of any location; put the scratch folder on another file system "
        "with --dir. It showed:\n" +
        run.output);
}

std::optional<double> stallMilliseconds(const std::string& errors)
{
    const auto at = errors.rfind(stallPrefix);
    if (at == std::string::npos)
        return std::nullopt;
    const char* begin = errors.data() + at + stallPrefix.size();
    double value = 0;
    const auto [end, error] = std::from_chars(begin, errors.data() + errors.size(), value);
    if (error != std::errc() || std::string_view(end, 3) != " ms")
        return std::nullopt;
    return value;
}

// Empties what the page cache holds dirty for the scratch file system, so that no tool pays
// for writing back the trees or the previous tool's work. Nothing is dropped from the cache.
void flush(const fs::path& folder)
{
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        syncfs(fd);
        close(fd);
    }
}

// Milliseconds the device holding `folder` has spent doing I/O since it started (io_ticks in
// its sysfs stat); nullopt where the kernel keeps no such count (a network or virtual file
// system).
std::optional<std::uint64_t> diskBusyMilliseconds(const fs::path& folder)
{
    struct stat info {
    };
    if (stat(folder.c_str(), &info) != 0)
        return std::nullopt;
    std::ifstream in("/sys/dev/block/" + std::to_string(major(info.st_dev)) + ":" +
                     std::to_string(minor(info.st_dev)) + "/stat");
    std::uint64_t field = 0;
    for (int i = 0; i < 10 && in >> field; ++i) {
    }
    return in ? std::optional(field) : std::nullopt;
}

// Waits until the disk has been idle for a second, for at most 30 s. A file system finishes
// its work on freed and written blocks (discards above all) after the program that caused it
// has ended; that work would otherwise be timed with the next tool.
void waitForQuietDisk(const fs::path& folder)
{
    using namespace std::chrono_literals;
    constexpr auto step = 250ms;
    const auto start = Clock::now();
    std::vector<std::uint64_t> samples;
    while (Clock::now() - start < 30s) {
        if (interrupted())
            throw Interrupted{};
        const auto busy = diskBusyMilliseconds(folder);
        if (!busy)
            return;
        samples.push_back(*busy);
        // A second's worth of samples with at most 1% of it busy.
        if (samples.size() > 4 && *busy - samples[samples.size() - 5] <= 10)
            break;
        std::this_thread::sleep_for(step);
    }
    const double waited = std::chrono::duration<double>(Clock::now() - start).count();
    if (waited > 1.5)
        std::fprintf(stderr, "  waited %.1f s for the disk to go quiet\n", waited);
}

struct Row {
    std::string tool;
    Run run;
    std::optional<double> stall;
    std::string problem;
};

int run(const Options& options)
{
    const fs::path parent = fs::absolute(options.dir.value_or(ownFolder()));
    if (parent.native().find("/tmp") != std::string::npos)
        throw std::runtime_error(
            "the scratch folder would lie below " + printablePath(parent) +
            ", a path holding \"/tmp\", and Quillane leaves out such mount points; choose "
            "another folder with --dir");
    const fs::path quillane = quillaneProgram(options.quillane);

    ScratchFolder scratch(parent);
    const fs::path logs = scratch.path() / "logs";
    fs::create_directory(logs);
    const fs::path outside = scratch.path() / "outside";
    fs::create_directory(outside);
    const fs::path bigFile = outside / "big.bin";
    quillane::bench::makeBigFile(bigFile, bigFileBytes);

    // trash-cli's own options: newer versions ask first unless told -f. Either way it is told
    // which trash to empty, so that it never reaches the volume trashes of this machine.
    const Run help = runProgram({"trash-empty", "--help"}, environmentFor(logs), logs);
    if (!help.succeeded())
        throw std::runtime_error("trash-empty does not run; scripts/setup installs trash-cli");
    const Run version = runProgram({"trash-empty", "--version"}, environmentFor(logs), logs);
    std::string trashCliVersion = version.output.substr(0, version.output.find('\n'));
    if (const auto space = trashCliVersion.rfind(' '); space != std::string::npos)
        trashCliVersion = trashCliVersion.substr(space + 1);
    const bool asksFirst = help.output.find(" -f") != std::string::npos;

    // A trash of one item first: it shows where Quillane finds the home trash, and what a run
    // costs before there is anything to remove.
    std::fputs("checking where quillane finds the home trash\n", stderr);
    const Copy probe = makeCopy(scratch.path() / "one-item", bigFile, 1, options.layout);
    const std::string location = homeTrashLocation(quillane, probe, logs);
    flush(scratch.path());
    waitForQuietDisk(scratch.path());
    const Run fixed = runProgram({quillane.native(), "empty", location, "--yes"},
                                 environmentFor(probe.home), logs);
    if (!fixed.succeeded() || !emptinessProblem(probe, false).empty())
        throw std::runtime_error("quillane did not empty a trash of one item:\n" +
                                 tail(fixed.errors));

    // The command line on a trash of one item, each run on a trash made afresh (not timed).
    const double commandGoal = 0.15;
    std::vector<double> listTimes;
    std::vector<double> emptyTimes;
    for (int i = 0; i < options.commandRuns; ++i) {
        fs::remove_all(scratch.path() / "one-item");
        const Copy one = makeCopy(scratch.path() / "one-item", bigFile, 1, options.layout);
        const Run listed =
            runProgram({quillane.native(), "list", "--json"}, environmentFor(one.home), logs);
        const Run emptied = runProgram({quillane.native(), "empty", location, "--yes"},
                                       environmentFor(one.home), logs);
        if (!listed.succeeded() || !emptied.succeeded() || !emptinessProblem(one, false).empty())
            throw std::runtime_error("quillane did not list and empty a trash of one item:\n" +
                                     tail(listed.errors + emptied.errors));
        listTimes.push_back(secondsOf(listed.wall));
        emptyTimes.push_back(secondsOf(emptied.wall));
    }
    const auto median = [](std::vector<double> times) {
        std::ranges::sort(times);
        return times[times.size() / 2];
    };
    const double listMedian = median(listTimes);
    const double emptyMedian = median(emptyTimes);

    // Each copy is made right before its tool runs, so that every tool finds the disk in the
    // same state: a tool that ran after all three were made paid for the file system's catching
    // up on them, whichever it was.
    std::vector<Row> rows(allTools.size());
    std::optional<TrashTree> tree;
    for (const Tool tool : options.order) {
        const auto index = static_cast<std::size_t>(tool);
        Row& row = rows[index];
        std::fprintf(stderr, "making a trash of %s files for %s\n", grouped(options.files).c_str(),
                     std::string(toolName(tool)).c_str());
        const auto start = Clock::now();
        const Copy copy = makeCopy(scratch.path() / std::string(toolName(tool)), bigFile,
                                   options.files, options.layout);
        std::fprintf(stderr, "  made in %.1f s\n", secondsOf(Clock::now() - start));
        tree = copy.tree;
        std::vector<std::string> arguments;
        switch (tool) {
        case Tool::Rm:
            row.tool = "rm -rf files info";
            arguments = {"rm", "-rf", "--", (copy.trash / "files").native(),
                         (copy.trash / "info").native()};
            break;
        case Tool::Quillane:
            row.tool = "quillane empty " + location + " --yes";
            arguments = {quillane.native(), "empty", location, "--yes", "--report-stalls"};
            break;
        case Tool::TrashEmpty:
            row.tool = std::string("trash-empty") + (asksFirst ? " -f" : "");
            arguments = {"trash-empty", "--trash-dir=" + copy.trash.native()};
            if (asksFirst)
                arguments.emplace_back("-f");
            break;
        }
        std::fprintf(stderr, "emptying with %s\n", row.tool.c_str());
        flush(scratch.path());
        waitForQuietDisk(scratch.path());
        row.run = runProgram(arguments, environmentFor(copy.home), logs);
        if (tool == Tool::Quillane)
            row.stall = stallMilliseconds(row.run.errors);
        if (!row.run.succeeded())
            row.problem = "it failed:\n" + tail(row.run.errors);
        else if (const std::string left = emptinessProblem(copy, tool == Tool::Rm); !left.empty())
            row.problem = left;
        else if (tool == Tool::Quillane && !row.stall)
            row.problem = "it did not report its longest main-thread stall";
        if (const std::string touched = outsideProblem(bigFile); !touched.empty())
            row.problem += (row.problem.empty() ? "" : "; ") + touched;
    }

    std::string order;
    for (const Tool tool : options.order)
        order += (order.empty() ? "" : ", ") + std::string(toolName(tool));
    std::printf(
        "Emptying a home trash of %s files in %s folders, with %s links, on %s; %u CPUs.\n"
        "%s items at its top, %s of them with a record in info/.\n"
        "Each tool empties its own copy, made right before it and flushed to disk, once the\n"
        "disk is quiet; nothing is dropped from the page cache. Order: %s.\n"
        "trash-empty is trash-cli %s, told which trash folder to empty.\n"
        "\n",
        grouped(tree->regularFiles).c_str(), grouped(tree->folders).c_str(),
        grouped(tree->links).c_str(), fileSystemName(scratch.path()).c_str(),
        std::thread::hardware_concurrency(), grouped(tree->topItems).c_str(),
        grouped(tree->trashInfos).c_str(), order.c_str(), trashCliVersion.c_str());
    const std::size_t toolWidth =
        std::ranges::max(rows, {}, [](const Row& row) { return row.tool.size(); }).tool.size();
    std::printf("%-*s %9s %9s %8s %8s   %s\n", static_cast<int>(toolWidth), "tool", "seconds",
                "/ rm -rf", "user s", "system s", "longest main-thread stall");
    const double baseline = secondsOf(rows.front().run.wall);
    bool good = true;
    for (const Row& row : rows) {
        char stall[32] = "";
        if (row.stall)
            std::snprintf(stall, sizeof stall, "   %.1f ms", *row.stall);
        std::printf("%-*s %9.2f %9.2f %8.2f %8.2f%s\n", static_cast<int>(toolWidth),
                    row.tool.c_str(), secondsOf(row.run.wall), secondsOf(row.run.wall) / baseline,
                    row.run.userSeconds, row.run.systemSeconds, stall);
        good = good && row.problem.empty();
    }
    const Row& ours = rows[static_cast<std::size_t>(Tool::Quillane)];
    const double ratio = secondsOf(ours.run.wall) / baseline;
    std::printf("\ngoal: quillane at most %.1fx rm -rf %s: %.2fx, %s\n", options.goal,
                options.place.c_str(), ratio, ratio <= options.goal ? "met" : "MISSED");
    std::printf("\nOn a trash of one item, median of %d runs each (goal: under %.2f s):\n"
                "  quillane list --json            %6.3f s  %s\n"
                "  quillane empty %s --yes %*s%6.3f s  %s\n",
                options.commandRuns, commandGoal, listMedian,
                listMedian < commandGoal ? "met" : "MISSED", location.c_str(),
                static_cast<int>(location.size() < 10 ? 10 - location.size() : 0), "", emptyMedian,
                emptyMedian < commandGoal ? "met" : "MISSED");
    std::printf("quillane's time on the big trash includes %.2f s for its first run on a trash "
                "of one item\n(starting, finding the locations, the removal and the sound).\n",
                secondsOf(fixed.wall));
    for (const Row& row : rows) {
        if (!row.problem.empty())
            std::printf("NOT EMPTIED by %s: %s\n", row.tool.c_str(), row.problem.c_str());
    }
    if (good)
        std::printf("Every trash is empty: files/ and info/ hold nothing, and what the links "
                    "point at is still there.\n");
    return good ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    return runBenchmark(argc, argv, "quillane-bench-empty", usageText,
                        {numberOption("--files", options.files),
                         numberOption<std::uint64_t>("--layout", options.layout, 0),
                         orderOption(options.order), pathOption("--dir", options.dir),
                         pathOption("--quillane", options.quillane),
                         // Any ratio above zero.
                         numberOption("--goal", options.goal, std::numeric_limits<double>::min()),
                         Option{"--place",
                                [&](std::string_view value) {
                                    options.place = std::string(value);
                                    return true;
                                }},
                         numberOption("--command-runs", options.commandRuns)},
                        [&] { return run(options); });
}
