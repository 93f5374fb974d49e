// Runs the tray application on a home trash of about 100,000 files and trashes 1,000 more items
// into it one by one, the way a file manager does (the record in info/, then the item moved into
// files/). Prints the processor time the application spent on them, as a multiple of one full
// size walk of that trash, how long after the last one its work ended, and then its processor
// time and memory while idle.

#include "BenchSupport.h"
#include "Model/VolumeObserver.h"
#include "Platform/Console.h"
#include "Platform/FileSystem.h"
#include "Platform/linux/LinuxPlatform.h"
#include "TrashTree.h"

#include <QCoreApplication>
#include <QTimer>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using namespace quillane::bench;

namespace
{

struct Options {
    std::uint64_t files = 100000;
    std::uint64_t items = 1000;
    std::uint64_t layout = 1;
    int idleSeconds = 30;
    std::optional<fs::path> dir;
    std::optional<fs::path> quillane;
};

constexpr const char* usageText =
    R"(Usage: quillane-bench-live [--files N] [--items M] [--idle-seconds S] [--layout N]
                           [--dir FOLDER] [--quillane PATH]

Makes a home trash of about N files (default 100000) in a scratch home inside FOLDER
(default: the folder of this program), starts the tray application of PATH there
(off screen, with a home, runtime folder and no session bus of its own) and, once it
is quiet, trashes M items (default 1000) one by one. Prints the processor time the
application spent on them as a multiple of one full size walk of that trash, the time
from the last item to the end of its work, and its processor time and memory over S
seconds of idling (default 30).
)";

// The processor time of this process, all its threads, in seconds.
double ownProcessorSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
}

// The processor time a process has spent so far (user and system, its threads included), from
// /proc/PID/stat, in seconds; nullopt once it is gone.
std::optional<double> processorSeconds(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), {});
    const auto close = text.rfind(')');
    if (close == std::string::npos)
        return std::nullopt;
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    unsigned long long user = 0, system = 0;
    // After the name: state is field 3; utime and stime are fields 14 and 15.
    for (int number = 3; number <= 15 && fields >> field; ++number) {
        if (number == 14)
            user = std::stoull(field);
        else if (number == 15)
            system = std::stoull(field);
    }
    return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The resident memory of a process, in MiB, from /proc/PID/status.
double residentMebibytes(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.starts_with("VmRSS:"))
            return std::stod(line.substr(6)) / 1024.0;
    }
    return 0;
}

bool running(pid_t pid)
{
    int status = 0;
    return waitpid(pid, &status, WNOHANG) == 0;
}

// Waits until the process has used no processor time for `quiet`, polling every 10 ms; returns
// the moment of its last use (or of the start of the wait when it used none). Gives up after
// `limit`.
Clock::time_point waitUntilQuiet(pid_t pid, Clock::duration quiet, Clock::duration limit)
{
    const auto start = Clock::now();
    auto lastUse = start;
    double last = processorSeconds(pid).value_or(0);
    while (Clock::now() - lastUse < quiet) {
        if (interrupted())
            throw Interrupted{};
        if (Clock::now() - start > limit)
            throw std::runtime_error("the application never became quiet");
        if (!running(pid))
            throw std::runtime_error("the application ended by itself");
        std::this_thread::sleep_for(10ms);
        const double now = processorSeconds(pid).value_or(last);
        if (now != last) {
            last = now;
            lastUse = Clock::now();
        }
    }
    return lastUse;
}

pid_t startApplication(const fs::path& quillane, const fs::path& home, const fs::path& runtime,
                       const fs::path& logs)
{
    const auto environment = environmentWithout(
        {"HOME=", "XDG_",
         "DBUS_SESSION_BUS_ADDRESS=", "DISPLAY=", "WAYLAND_DISPLAY=", "QT_QPA_PLATFORM="},
        {"HOME=" + home.native(), "XDG_RUNTIME_DIR=" + runtime.native(),
         "QT_QPA_PLATFORM=offscreen", "DBUS_SESSION_BUS_ADDRESS=disabled:"});
    return startProgram({quillane.native()}, environment, logs / "app.log", logs / "app.log");
}

// Trashes a file the way file managers do: its record in info/ first, then the file itself.
void trash(const fs::path& file, const fs::path& trashFolder)
{
    const std::string name = file.filename().native();
    const fs::path record = trashFolder / "info" / (name + ".trashinfo");
    const int fd = open(record.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        throw std::runtime_error("cannot write " + printablePath(record) + ": " +
                                 std::strerror(errno));
    const std::string text = trashInfoText(file, "2026-01-01T12:00:00");
    const bool written = write(fd, text.data(), text.size()) == ssize_t(text.size());
    close(fd);
    if (!written || rename(file.c_str(), (trashFolder / "files" / name).c_str()) != 0)
        throw std::runtime_error("cannot trash " + printablePath(file) + ": " +
                                 std::strerror(errno));
}

struct Application {
    pid_t pid = 0;
    ~Application()
    {
        if (pid > 0) {
            kill(pid, SIGTERM);
            int status = 0;
            for (int i = 0; i < 300 && waitpid(pid, &status, WNOHANG) == 0; ++i)
                std::this_thread::sleep_for(10ms);
            if (waitpid(pid, &status, WNOHANG) == 0) {
                kill(pid, SIGKILL);
                waitpid(pid, &status, 0);
            }
        }
    }
};

// The application's model (the platform of this machine and the list of locations, with the
// panel's pace) started in this process on the benchmark's home: the time until it publishes
// its first list. Starting the program itself comes on top, a few milliseconds.
double firstListSeconds(const fs::path& home, const fs::path& runtime)
{
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
    unsetenv("XDG_DATA_HOME");
    int argc = 1;
    char name[] = "quillane-bench-live";
    char* argv[] = {name, nullptr};
    QCoreApplication application(argc, argv);
    quillane::Console::discard(); // its fixed lines are the application's, not this report's
    const auto start = Clock::now();
    quillane::LinuxPlatform linux;
    quillane::VolumeObserver observer(linux.platform());
    auto published = Clock::time_point::max();
    QObject::connect(&observer, &quillane::VolumeObserver::listPublished, &application, [&] {
        published = Clock::now();
        QCoreApplication::quit();
    });
    QTimer::singleShot(30000, &application, &QCoreApplication::quit);
    QCoreApplication::exec();
    if (published == Clock::time_point::max())
        throw std::runtime_error("the model published no list within 30 s");
    return secondsOf(published - start);
}

int run(const Options& options)
{
    const fs::path quillane = quillaneProgram(options.quillane);
    ScratchFolder scratch(fs::absolute(options.dir.value_or(ownFolder())));
    const fs::path home = scratch.path() / "home";
    const fs::path trashFolder = home / ".local" / "share" / "Trash";
    const fs::path runtime = scratch.path() / "runtime";
    const fs::path logs = scratch.path() / "logs";
    const fs::path outside = scratch.path() / "outside";
    const fs::path waiting = home / "to trash";
    for (const fs::path& folder : {home / ".local" / "share", runtime, logs, outside, waiting})
        fs::create_directories(folder);
    fs::permissions(runtime, fs::perms::owner_all);
    makeBigFile(outside / "big.bin", 1024 * 1024);

    std::fprintf(stderr, "making a trash of %s files\n", grouped(options.files).c_str());
    const TrashTree tree = makeTrashTree({.root = trashFolder,
                                          .bigFile = outside / "big.bin",
                                          .fileCount = options.files,
                                          .layout = options.layout,
                                          .trashInfo = true,
                                          .interrupted = interrupted});
    for (std::uint64_t i = 0; i < options.items; ++i) {
        std::ofstream(waiting / ("item " + std::to_string(i) + ".txt"))
            << std::string(100 + i % 4000, 'x');
    }

    // One full walk of that trash, warm, in this process: the unit of the application's cost.
    std::fputs("timing one full size walk\n", stderr);
    if (const auto warm = quillane::allocatedSizeOfDirectory(trashFolder / "files"); !warm)
        throw std::runtime_error("allocatedSizeOfDirectory: " + warm.error());
    double walk = 1e9;
    double walkWall = 1e9;
    for (int i = 0; i < 3; ++i) {
        const double before = ownProcessorSeconds();
        const auto start = Clock::now();
        (void)quillane::allocatedSizeOfDirectory(trashFolder / "files");
        walkWall = std::min(walkWall, secondsOf(Clock::now() - start));
        walk = std::min(walk, ownProcessorSeconds() - before);
    }

    std::fputs("timing the model's first list\n", stderr);
    const double firstList = firstListSeconds(home, runtime);

    std::fputs("starting the tray application\n", stderr);
    Application application;
    const auto started = Clock::now();
    application.pid = startApplication(quillane, home, runtime, logs);
    const auto startQuiet = waitUntilQuiet(application.pid, 3s, 300s);
    const double startCost = processorSeconds(application.pid).value_or(0);

    std::fprintf(stderr, "trashing %s items one by one\n", grouped(options.items).c_str());
    const double before = processorSeconds(application.pid).value_or(0);
    const auto firstItem = Clock::now();
    for (std::uint64_t i = 0; i < options.items; ++i)
        trash(waiting / ("item " + std::to_string(i) + ".txt"), trashFolder);
    const auto lastItem = Clock::now();
    std::fputs("waiting for the application to settle\n", stderr);
    const auto settled = waitUntilQuiet(application.pid, 5s, 900s);
    const double spent = processorSeconds(application.pid).value_or(0) - before;
    const double settleSeconds = std::max(0.0, secondsOf(settled - lastItem));

    std::fprintf(stderr, "idling for %d s\n", options.idleSeconds);
    const double idleBefore = processorSeconds(application.pid).value_or(0);
    for (int i = 0; i < options.idleSeconds * 10; ++i) {
        if (interrupted())
            throw Interrupted{};
        std::this_thread::sleep_for(100ms);
    }
    if (!running(application.pid))
        throw std::runtime_error("the application ended by itself");
    const double idle = processorSeconds(application.pid).value_or(0) - idleBefore;
    const double rss = residentMebibytes(application.pid);

    const auto verdict = [](bool met) { return met ? "met" : "MISSED"; };
    std::printf(
        "The tray application (off screen) on a home trash of %s files in %s folders, %s items\n"
        "at its top, on %s; %u CPUs. One full size walk of that trash takes %.3f s of processor\n"
        "time (%.3f s of wall time) in process, warm. At start the application was quiet after\n"
        "%.2f s, having used %.2f s of processor time.\n\n",
        grouped(tree.regularFiles).c_str(), grouped(tree.folders).c_str(),
        grouped(tree.topItems).c_str(), fileSystemName(home).c_str(),
        std::thread::hardware_concurrency(), walk, walkWall, secondsOf(startQuiet - started),
        startCost);
    std::printf("The model of the application, started in this process on the same home, published "
                "its\nfirst list after %.3f s                               goal: within 0.6 s of "
                "start (%s)\n\n",
                firstList, verdict(firstList <= 0.6));
    std::printf("%s items trashed one by one (record, then item) in %.2f s:\n",
                grouped(options.items).c_str(), secondsOf(lastItem - firstItem));
    std::printf("  processor time of the application     %7.3f s = %6.2f full walks   goal: at "
                "most 3 (%s)\n",
                spent, spent / walk, verdict(spent / walk <= 3));
    std::printf("  its last work after the last item     %7.3f s                      goal: at "
                "most 1 s (%s)\n",
                settleSeconds, verdict(settleSeconds <= 1.0));
    std::printf("Idle for %d s afterwards:\n", options.idleSeconds);
    std::printf("  processor time                        %7.3f s = %5.2f%%              goal: 0%% "
                "(%s)\n",
                idle, 100.0 * idle / options.idleSeconds, verdict(idle < 0.01));
    std::printf("  resident memory                       %7.1f MiB                    goal: at "
                "most 60 MB (%s)\n",
                rss, verdict(rss * 1.048576 <= 60));
    std::printf("The end of its work is the last moment its processor time grew, polled every "
                "10 ms\n(/proc/PID/stat counts in %ld ms steps).\n",
                1000 / sysconf(_SC_CLK_TCK));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    return runBenchmark(
        argc, argv, "quillane-bench-live", usageText,
        {numberOption("--files", options.files), numberOption("--items", options.items),
         numberOption("--idle-seconds", options.idleSeconds),
         numberOption<std::uint64_t>("--layout", options.layout, 0),
         pathOption("--dir", options.dir), pathOption("--quillane", options.quillane)},
        [&] { return run(options); });
}
