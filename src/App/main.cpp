#include "App/EmptyCommand.h"
#include "App/LaunchArguments.h"
#include "App/ListCommand.h"
#include "Platform/BuildInfo.h"
#include "Platform/Console.h"
#include "Shell/Translations.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <cstdio>
#include <dlfcn.h>
#include <filesystem>
#include <string>

namespace
{

void nameApplication()
{
    QCoreApplication::setApplicationName(QStringLiteral("quillane"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(quillane::BuildInfo::versionText));
}

// With no command, quillane is the tray application (a desktop restoring its session starts it
// with arguments of its own and Qt's); a command or a request for help runs on the command line,
// where no display is needed.
bool wantsCommandLine(int argc, char* argv[])
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    return !quillane::isTrayLaunch(arguments);
}

// The tray application is in a module of its own, loaded only to run it: the commands start
// without the widget, graphics and multimedia libraries. It lies beside the program in a build
// tree, and in the program's library folder once installed.
int runWindows(int argc, char* argv[])
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path folder = fs::read_symlink("/proc/self/exe", error).parent_path();
    const fs::path places[] = {folder / QUILLANE_WINDOWS_MODULE,
                               folder / QUILLANE_WINDOWS_MODULE_FROM_BIN / QUILLANE_WINDOWS_MODULE};
    for (const fs::path& module : places) {
        if (!fs::exists(module, error))
            continue;
        void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
        const auto run =
            handle ? reinterpret_cast<int (*)(int, char**)>(dlsym(handle, "quillaneWindowsMain"))
                   : nullptr;
        if (!run) {
            std::fprintf(stderr, "quillane: the tray application cannot start: %s\n", dlerror());
            return 1;
        }
        return run(argc, argv);
    }
    std::fprintf(stderr,
                 "quillane: the tray application is not installed (%s is missing); the commands "
                 "of quillane --help work without it\n",
                 places[1].c_str());
    return 1;
}

int runCommandLine(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    nameApplication();
    quillane::installTranslations();

    QCommandLineParser parser;
    parser.setApplicationDescription(QCoreApplication::translate(
        "quillane::CommandLine",
        "Quillane shows the trash of every location (your home, each mounted volume, cloud "
        "folders) and empties one at a time.\n\nWithout a command it runs as a tray "
        "application.\n\nCommands:\n"
        "  list [--json]            Print every trash location with its item count and size.\n"
        "  empty LOCATION [--yes]   Empty the trash of one location, named as list shows it."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption jsonOption(
        QStringLiteral("json"),
        QCoreApplication::translate("quillane::CommandLine", "With list: print a JSON array."));
    parser.addOption(jsonOption);
    const QCommandLineOption yesOption(
        QStringLiteral("yes"),
        QCoreApplication::translate("quillane::CommandLine", "With empty: do not ask first."));
    parser.addOption(yesOption);
    const QCommandLineOption verboseOption(
        QStringLiteral("verbose"),
        QCoreApplication::translate(
            "quillane::CommandLine",
            "Also print the diagnostic lines of the tray application, on standard "
            "error."));
    parser.addOption(verboseOption);
    // For the benchmarks: with empty, the longest main-thread stall on standard error at the end.
    QCommandLineOption stallsOption(QStringLiteral("report-stalls"),
                                    QStringLiteral("With empty: report the longest stall."));
    stallsOption.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOption(stallsOption);
    parser.addPositionalArgument(
        QStringLiteral("command"),
        QCoreApplication::translate("quillane::CommandLine", "list or empty"),
        QStringLiteral("[command]"));
    parser.process(app);

    // The command line prints its output and real errors; the diagnostic lines the tray
    // application writes only when asked for, on standard error so that --json stays clean.
    if (parser.isSet(verboseOption))
        quillane::Console::toStandardError();
    else
        quillane::Console::discard();

    const QStringList arguments = parser.positionalArguments();
    if (arguments.size() == 1 && arguments.first() == QStringLiteral("list"))
        return quillane::runListCommand(parser.isSet(jsonOption));

    if (arguments.size() == 2 && arguments.first() == QStringLiteral("empty"))
        return quillane::runEmptyCommand(arguments[1], parser.isSet(yesOption),
                                         parser.isSet(stallsOption));

    const QString unknown =
        QCoreApplication::translate("quillane::CommandLine",
                                    "quillane: unknown command \"%1\"; see quillane --help")
            .arg(arguments.join(QLatin1Char(' ')));
    std::fprintf(stderr, "%s\n", qPrintable(unknown));
    return 2;
}

} // namespace

int main(int argc, char* argv[])
{
    if (wantsCommandLine(argc, argv))
        return runCommandLine(argc, argv);
    return runWindows(argc, argv);
}
