// Hands items to the real helper daemon the way the application does (XPCClient::deleteFile,
// through the application's own helper link), on a private system bus with the real polkitd,
// from a client running as an unprivileged user, and measures the processor time the client's
// main thread spends from the first hand-over to the last answer, per item, and how many times
// the daemon asked polkit.
//
// Run as root in a mount namespace of its own (bench/privileged does both): it gives the test
// user a home through a copy of /etc/passwd bound over the real one, and polkitd its rules.

#include "App/HelperLink.h"
#include "BenchSupport.h"
#include "DaemonTestSupport.h"
#include "Helper/XPCClient.h"
#include "Platform/Alerts.h"
#include "Platform/ApplicationControl.h"
#include "Platform/BusNames.h"
#include "Platform/QtScheduler.h"
#include "Platform/UserDefaults.h"
#include "TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace quillane;
using namespace quillane::bench;

namespace
{

constexpr double goalMsPerItem = 0.1;
constexpr int clientTimeoutMs = 300000;

struct Options {
    std::uint64_t items = 2000;
};

constexpr const char* usageText = R"(Usage: quillane-bench-privileged [--items N]

Starts a private system bus with the real polkitd and the helper daemon of this
build, puts N items (default 2000) owned by root in the home trash of an
unprivileged test user, and has a client running as that user hand all of them
to the daemon as the application does. Prints the processor time of the client's
main thread per item, with its goal, and how many times polkit was asked.
Needs root in a mount namespace of its own: run it through bench/privileged.
)";

double threadCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

class NoAlerts final : public Alerts
{
public:
    AlertAnswer runModal(const AlertRequest& request) override
    {
        std::fprintf(stderr, "alert: %s\n", qPrintable(request.title));
        return {};
    }
};

class NoApplication final : public ApplicationControl
{
public:
    void terminate() override { QCoreApplication::exit(3); }
};

// The client's side, run as the test user: prints "name value" lines.
int runClient(int argc, char** argv, const QString& list)
{
    QCoreApplication app(argc, argv);
    QFile file(list);
    if (!file.open(QIODevice::ReadOnly))
        return 1;
    QByteArrayList paths = file.readAll().split('\0');
    paths.removeAll(QByteArray());

    QtScheduler mainQueue;
    SettingsUserDefaults defaults(QDir::home().filePath(QStringLiteral("bench-settings.ini")));
    NoAlerts alerts;
    NoApplication application;
    HelperLink link(mainQueue, defaults, alerts, application);

    qsizetype answered = 0;
    qsizetype refused = 0;
    double cpuStart = 0;
    double cpuEnd = 0;
    std::chrono::steady_clock::time_point wallStart;
    std::chrono::steady_clock::time_point wallEnd;
    const auto settle = [&](bool removed) {
        refused += removed ? 0 : 1;
        if (++answered == paths.size()) {
            cpuEnd = threadCpuMs();
            wallEnd = std::chrono::steady_clock::now();
            QCoreApplication::exit(0);
        }
    };
    QObject::connect(&link.client(), &XPCClient::xpcDidDelete, [&] { settle(true); });
    QObject::connect(&link.client(), &XPCClient::xpcDeleteFailed,
                     [&](const fs::path&, const QString& reason) {
                         std::fprintf(stderr, "refused: %s\n", qPrintable(reason));
                         settle(false);
                     });

    // What the link does at its start (the daemon's status read) settles first.
    QTimer::singleShot(500, [&] {
        cpuStart = threadCpuMs();
        wallStart = std::chrono::steady_clock::now();
        for (const QByteArray& path : paths)
            link.client().deleteFile(fs::path(path.toStdString()));
    });
    QTimer::singleShot(clientTimeoutMs, [] { QCoreApplication::exit(2); });
    const int status = app.exec();
    std::printf("answered %lld\nrefused %lld\ncpu_ms %.3f\nwall_ms %.1f\n",
                static_cast<long long>(answered), static_cast<long long>(refused),
                cpuEnd - cpuStart,
                std::chrono::duration<double, std::milli>(wallEnd - wallStart).count());
    return status;
}

// N items owned by root, each with its record, in the user's home trash; their paths as a
// list the client reads.
fs::path makeTrash(const test::TestUser& user, const fs::path& scratch, std::uint64_t items)
{
    const fs::path trash = fs::path(user.home().toStdString()) / ".local/share/Trash";
    fs::create_directories(trash / "files");
    fs::create_directories(trash / "info");
    std::string list;
    for (std::uint64_t i = 0; i < items; ++i) {
        const std::string name = "item " + std::to_string(i);
        test::writeFile(trash / "files" / name, "root's");
        test::writeFile(trash / "info" / (name + ".trashinfo"), "[Trash Info]\n");
        lchown((trash / "info" / (name + ".trashinfo")).c_str(), user.uid(), user.gid());
        list += (trash / "files" / name).native() + '\0';
    }
    for (const fs::path& folder : {fs::path(user.home().toStdString()) / ".local",
                                   fs::path(user.home().toStdString()) / ".local/share", trash,
                                   trash / "files", trash / "info"})
        lchown(folder.c_str(), user.uid(), user.gid());
    const fs::path file = scratch / "items";
    test::writeFile(file, list);
    chmod(file.c_str(), 0644);
    return file;
}

int countLeft(const test::TestUser& user)
{
    int left = 0;
    for ([[maybe_unused]] const auto& entry :
         fs::directory_iterator(fs::path(user.home().toStdString()) / ".local/share/Trash/files"))
        ++left;
    return left;
}

double valueOf(const QByteArrayList& lines, const QByteArray& name)
{
    for (const QByteArray& line : lines)
        if (line.startsWith(name + ' '))
            return line.mid(name.size() + 1).toDouble();
    return -1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::string_view(argv[1]) == "--client")
        return runClient(argc, argv, QString::fromLocal8Bit(argv[2]));

    Options options;
    if (!parseOptions(argc, argv, "quillane-bench-privileged", usageText,
                      {numberOption("--items", options.items)}))
        return 64;
    if (!test::canMount()) {
        std::fputs("quillane-bench-privileged: needs root in a mount namespace of its own; run "
                   "bench/privileged\n",
                   stderr);
        return 77;
    }

    QCoreApplication app(argc, argv);
    QTemporaryDir scratchDir;
    const fs::path scratch = scratchDir.path().toStdString();
    chmod(scratch.c_str(), 0755);
    test::PrivateBus bus(test::PrivateBus::System);
    test::TestUser user(QString::fromStdString((scratch / "home").native()));
    if (!bus.isUp() || !user.isValid() || !user.listHome(scratch)) {
        std::fputs("quillane-bench-privileged: cannot set up the bus and the test user\n", stderr);
        return 1;
    }
    test::ScriptedPolkit polkit(bus, {{user.name(), true}});
    if (!polkit.isRunning()) {
        std::fprintf(stderr, "quillane-bench-privileged: %s\n", qPrintable(polkit.error()));
        return 1;
    }
    const fs::path list = makeTrash(user, scratch, options.items);
    test::ChildProcess daemon;
    if (!test::startDaemon(daemon, bus, QStringLiteral(QUILLANE_DAEMON),
                           {QStringLiteral("--idle-exit"), QStringLiteral("3600")})) {
        std::fputs("quillane-bench-privileged: the daemon did not start\n", stderr);
        return 1;
    }

    QProcess client;
    client.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    user.start(client, QCoreApplication::applicationFilePath(),
               {QStringLiteral("--client"), QString::fromStdString(list.native())});
    if (!client.waitForFinished(clientTimeoutMs + 10000) || client.exitCode() != 0) {
        std::fprintf(stderr, "quillane-bench-privileged: the client did not finish (status %d)\n",
                     client.exitCode());
        return 1;
    }
    const QByteArrayList lines = client.readAllStandardOutput().split('\n');
    const double cpuMs = valueOf(lines, "cpu_ms");
    const double wallMs = valueOf(lines, "wall_ms");
    const auto refused = static_cast<long long>(valueOf(lines, "refused"));
    const int questions = polkit.questions(BusNames::deleteItemAction);
    const int left = countLeft(user);
    const double perItem = cpuMs / static_cast<double>(options.items);

    std::printf("Handing %s items owned by root to the helper daemon, as the application does;\n"
                "a private system bus with the real polkitd; %u CPUs.\n\n",
                grouped(options.items).c_str(), std::thread::hardware_concurrency());
    std::printf("  items  refused  left  polkit questions  main-thread ms  per item ms  all "
                "answered s\n");
    std::printf("%7s  %7lld  %4d  %16d  %14.2f  %11.4f  %14.2f\n\n", grouped(options.items).c_str(),
                refused, left, questions, cpuMs, perItem, wallMs / 1000);
    const bool met = perItem <= goalMsPerItem && questions == 1;
    std::printf("Goal: at most %.1f ms of the client's main thread per item, and one polkit "
                "question: %s.\n",
                goalMsPerItem, met ? "met" : "MISSED");
    return refused == 0 && left == 0 ? 0 : 1;
}
