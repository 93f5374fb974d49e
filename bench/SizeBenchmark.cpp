// Times allocatedSizeOfDirectory() on generated trash trees against `du -s --block-size=1` on the
// same trees, with warm caches, and checks that the two totals differ by exactly what du counts
// and we do not.

#include "BenchSupport.h"
#include "Platform/FileSystem.h"
#include "TrashTree.h"

#include <atomic>
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
#include <optional>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace quillane::bench;

namespace
{

constexpr std::uint64_t bigFileBytes = 64 * 1024 * 1024;

struct Options {
    std::vector<std::uint64_t> sizes{1000, 100000};
    int runs = 5;
    std::uint64_t layout = 1;
    std::optional<fs::path> dir;
};

constexpr const char* usageText =
    R"(Usage: quillane-bench-size [--files N[,N...]] [--runs N] [--layout N] [--dir FOLDER]

Makes a trash tree of about N files for each N (default 1000,100000), then sizes
it with allocatedSizeOfDirectory() and with du -s --block-size=1: one untimed run
of each, then the best of --runs (default 5) timed runs of each.
The trees go into a new folder inside FOLDER (default $TMPDIR, else /var/tmp),
which is removed at the end.
)";

// --files: sizes above zero, separated by commas.
Option sizesOption(std::vector<std::uint64_t>& sizes)
{
    return {"--files", [&sizes](std::string_view value) {
                sizes.clear();
                for (const std::string_view item : splitList(value)) {
                    const auto size = parseNumber<std::uint64_t>(item);
                    if (!size || *size == 0)
                        return false;
                    sizes.push_back(*size);
                }
                return true;
            }};
}

// du -s --block-size=1 FOLDER as a child process; returns its total in bytes.
std::uint64_t runDu(const fs::path& folder)
{
    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::string program = "du", summary = "-s", blockSize = "--block-size=1", endOfOptions = "--";
    std::string target = folder.native();
    char* arguments[] = {program.data(),      summary.data(), blockSize.data(),
                         endOfOptions.data(), target.data(),  nullptr};
    pid_t child = 0;
    const int spawnError =
        posix_spawnp(&child, program.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(output[1]);
    if (spawnError != 0) {
        close(output[0]);
        throw std::runtime_error(std::string("cannot run du: ") + std::strerror(spawnError));
    }

    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t got = read(output[0], buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        text.append(buffer, static_cast<std::size_t>(got));
    }
    close(output[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (interrupted())
        throw quillane::bench::Interrupted{};
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("du failed on " + printablePath(folder));

    const auto digits = text.find_first_not_of("0123456789");
    const auto total = parseNumber<std::uint64_t>(std::string_view(text).substr(0, digits));
    if (!total)
        throw std::runtime_error("cannot read du's output: " + text);
    return *total;
}

std::uint64_t runOurs(const fs::path& folder)
{
    const auto result = quillane::allocatedSizeOfDirectory(folder);
    if (!result.ok())
        throw std::runtime_error("allocatedSizeOfDirectory: " + result.error());
    return result.value();
}

// A tree below the open folder `parent`, walked depth first with nothing checked but the type.
std::uint64_t floorTree(int parent, const char* name)
{
    const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    DIR* folder = fd < 0 ? nullptr : fdopendir(fd);
    if (!folder) {
        if (fd >= 0)
            close(fd);
        return 0;
    }
    std::uint64_t total = 0;
    while (const dirent* entry = readdir(folder)) {
        if (entry->d_name[0] == '.' &&
            (entry->d_name[1] == '\0' || (entry->d_name[1] == '.' && entry->d_name[2] == '\0')))
            continue;
        struct stat info {
        };
        if (entry->d_type == DT_DIR)
            total += floorTree(dirfd(folder), entry->d_name);
        else if (entry->d_type == DT_REG &&
                 fstatat(dirfd(folder), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0)
            total += static_cast<std::uint64_t>(info.st_blocks) * 512;
    }
    closedir(folder);
    return total;
}

// The floor: the least a walk does on this machine, on two threads that take the folders at the
// top of the tree in turn, each read with readdir and each file stated once. It follows no link
// and checks nothing else, so it shows what our checks and rules cost.
std::uint64_t runFloor(const fs::path& folder)
{
    const int top = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (top < 0)
        throw std::runtime_error("cannot open " + printablePath(folder));
    std::vector<std::string> folders;
    std::atomic<std::uint64_t> total = 0;
    if (DIR* listing = fdopendir(dup(top))) {
        while (const dirent* entry = readdir(listing)) {
            const std::string name = entry->d_name;
            struct stat info {
            };
            if (name == "." || name == "..")
                continue;
            if (entry->d_type == DT_DIR)
                folders.push_back(name);
            else if (entry->d_type == DT_REG &&
                     fstatat(top, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0)
                total += static_cast<std::uint64_t>(info.st_blocks) * 512;
        }
        closedir(listing);
    }
    std::atomic<std::size_t> next = 0;
    const auto walker = [&] {
        for (std::size_t i = next++; i < folders.size(); i = next++)
            total += floorTree(top, folders[i].c_str());
    };
    {
        std::jthread other(walker);
        walker();
    }
    close(top);
    return total;
}

struct Timing {
    Clock::duration best = Clock::duration::max();
    std::uint64_t total = 0;
};

// One untimed run to warm the caches, then the fastest of `runs`; every run must agree on the
// total.
template <class Sizer> Timing timeBest(Sizer sizer, const fs::path& folder, int runs)
{
    Timing timing;
    timing.total = sizer(folder);
    for (int i = 0; i < runs; ++i) {
        if (interrupted())
            throw quillane::bench::Interrupted{};
        const auto start = Clock::now();
        const std::uint64_t total = sizer(folder);
        const auto elapsed = Clock::now() - start;
        if (total != timing.total)
            throw std::runtime_error("the total changed between runs on " + printablePath(folder));
        timing.best = std::min(timing.best, elapsed);
    }
    return timing;
}

// The trash's size again after one more item (a folder of ten small files) arrives, from what
// the last sizing of that trash left known: the best of `runs`, each after its own new item.
Clock::duration timeResize(const fs::path& trash, int runs)
{
    const auto sizeTrash = [&] {
        const auto result = quillane::allocatedSizeOfTrash(trash);
        if (!result.ok())
            throw std::runtime_error("allocatedSizeOfTrash: " + result.error());
    };
    sizeTrash();
    Clock::duration best = Clock::duration::max();
    for (int i = 0; i < runs; ++i) {
        const fs::path item = trash / ("arrived " + std::to_string(i));
        fs::create_directory(item);
        for (int file = 0; file < 10; ++file)
            std::ofstream(item / std::to_string(file)) << "new";
        const auto start = Clock::now();
        sizeTrash();
        best = std::min(best, Clock::now() - start);
    }
    for (int i = 0; i < runs; ++i)
        fs::remove_all(trash / ("arrived " + std::to_string(i)));
    return best;
}

struct Row {
    quillane::bench::TrashTree tree;
    Timing ours;
    Timing du;
    Timing floor;
    Clock::duration resize{};
};

double milliseconds(Clock::duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

// Prints the table; returns whether every tree's totals reconcile.
bool printReport(const std::vector<Row>& rows, Clock::duration duStart)
{
    std::printf("%9s %8s %6s %10s %10s %8s %9s %10s %11s %13s %15s %15s\n", "files", "folders",
                "links", "ours ms", "du ms", "ours/du", "floor ms", "ours/floor", "re-size ms",
                "re-size/full", "ours bytes", "du bytes");
    for (const Row& row : rows) {
        const double ours = milliseconds(row.ours.best);
        std::printf("%9s %8s %6s %10.2f %10.2f %8.2f %9.2f %10.2f %11.2f %13.3f %15s %15s\n",
                    grouped(row.tree.regularFiles).c_str(), grouped(row.tree.folders).c_str(),
                    grouped(row.tree.links).c_str(), ours, milliseconds(row.du.best),
                    ours / milliseconds(row.du.best), milliseconds(row.floor.best),
                    ours / milliseconds(row.floor.best), milliseconds(row.resize),
                    milliseconds(row.resize) / ours, grouped(row.ours.total).c_str(),
                    grouped(row.du.total).c_str());
    }
    std::printf("Goals: ours/du at most 0.60 (the floor is a bare two-thread walk, for "
                "comparison); re-size/full (one item added, sized from what the "
                "last sizing left known) at most 0.05.\n");
    std::printf("\ndu also counts the blocks of the folders and links themselves; we count "
                "regular files only:\n");
    bool agree = true;
    for (const Row& row : rows) {
        const std::uint64_t expected = row.ours.total + row.tree.ownBytesOfFoldersAndLinks;
        const bool same = row.du.total == expected;
        agree = agree && same;
        const bool duLess = row.du.total < row.ours.total;
        const std::uint64_t difference =
            duLess ? row.ours.total - row.du.total : row.du.total - row.ours.total;
        std::printf(
            "%9s files: du - ours = %s%s bytes; the folders and links take %s bytes%s\n",
            grouped(row.tree.regularFiles).c_str(), duLess ? "-" : "", grouped(difference).c_str(),
            grouped(row.tree.ownBytesOfFoldersAndLinks).c_str(), same ? "" : "  <- MISMATCH");
    }
    std::printf("du's times include starting the process: %.2f ms on an empty folder.\n",
                milliseconds(duStart));
    return agree;
}

int run(const Options& options)
{
    ScratchFolder scratch(scratchParent(options.dir));

    const fs::path outside = scratch.path() / "outside";
    fs::create_directory(outside);
    const fs::path bigFile = outside / "big.bin";
    quillane::bench::makeBigFile(bigFile, bigFileBytes);

    std::printf("Sizing trash trees on %s with allocatedSizeOfDirectory() and "
                "du -s --block-size=1.\n"
                "Best of %d warm runs of each, after one untimed run; %u CPUs.\n\n",
                fileSystemName(scratch.path()).c_str(), options.runs,
                std::thread::hardware_concurrency());
    std::fflush(stdout);

    // What du costs before it reads anything, to tell apart from its walk on small trees.
    const fs::path empty = scratch.path() / "empty";
    fs::create_directory(empty);
    const Timing duStart = timeBest(runDu, empty, options.runs);

    std::vector<Row> rows;
    for (const std::uint64_t size : options.sizes) {

        std::fprintf(stderr, "making a trash of %s files\n", grouped(size).c_str());
        const auto start = Clock::now();
        Row row;
        row.tree = makeTrashTree({.root = scratch.path() / ("trash-" + std::to_string(size)),
                                  .bigFile = bigFile,
                                  .fileCount = size,
                                  .layout = options.layout,
                                  .interrupted = interrupted});
        std::fprintf(stderr, "  made in %.1f s; sizing it\n", secondsOf(Clock::now() - start));

        row.ours = timeBest(runOurs, row.tree.files, options.runs);
        row.du = timeBest(runDu, row.tree.files, options.runs);
        row.floor = timeBest(runFloor, row.tree.files, options.runs);
        row.resize = timeResize(row.tree.files, options.runs);
        rows.push_back(std::move(row));
    }
    return printReport(rows, duStart.best) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    return runBenchmark(argc, argv, "quillane-bench-size", usageText,
                        {sizesOption(options.sizes), numberOption("--runs", options.runs),
                         numberOption<std::uint64_t>("--layout", options.layout, 0),
                         pathOption("--dir", options.dir)},
                        [&] { return run(options); });
}
