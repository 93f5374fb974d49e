#include "App/EmptyCommand.h"
#include "App/LaunchArguments.h"
#include "App/ListCommand.h"
#include "App/RunningInstance.h"
#include "App/ScreenshotCommand.h"
#include "App/TrashApp.h"
#include "Platform/BuildInfo.h"
#include "Platform/Console.h"
#include "Views/Pictures.h"
#include "Views/Translations.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFileInfo>
#include <cstdio>
#include <cstring>

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

bool wantsScreenshot(int argc, char* argv[])
{
    return argc > 1 && std::strcmp(argv[1], "--screenshot") == 0;
}

void prepareWidgets(QApplication& app)
{
    QApplication::setApplicationDisplayName(QStringLiteral("Quillane"));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.velmoric.Quillane"));
    // The tray application goes on with no window open; it ends through its quit command.
    QApplication::setQuitOnLastWindowClosed(false);
    (void)app;
    quillane::installTranslations();
    quillane::ensureIconTheme();
}

// Without a session bus, the bus library would start one of its own (dbus-launch) that outlives
// the application for as long as the X server runs. A user's bus that is not announced is at
// $XDG_RUNTIME_DIR/bus; with none, the application goes on without one and says so once.
void useOnlyTheUsersSessionBus()
{
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
        return;
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QFileInfo::exists(QString::fromLocal8Bit(runtime + "/bus"))) {
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + runtime + "/bus");
        return;
    }
    qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    quillane::Console::writeLine("There is no session bus: Quillane runs without a tray icon of "
                                 "its own and without desktop notifications.");
}

int runTrayApplication(int argc, char* argv[])
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        std::fputs("quillane: there is no desktop to show the tray application on (neither "
                   "DISPLAY nor WAYLAND_DISPLAY is set).\nSee quillane --help for the commands "
                   "that work without one.\n",
                   stderr);
        return 2;
    }
    quillane::Console::toStandardOutput();
    useOnlyTheUsersSessionBus();
    QApplication app(argc, argv);
    nameApplication();
    prepareWidgets(app);

    quillane::RunningInstance instance;
    switch (instance.askRunningToShow()) {
    case quillane::RunningInstance::Answer::Shown:
        std::fputs("Quillane is already running: its panel was brought forward.\n", stdout);
        return 0;
    case quillane::RunningInstance::Answer::NoAnswer:
        std::fputs("Quillane is already running but did not answer; try again in a moment.\n",
                   stderr);
        return 1;
    case quillane::RunningInstance::Answer::NoInstance:
        break;
    }
    if (!instance.listen()) {
        quillane::Console::writeLine("Instance Error: ", instance.error().toStdString());
    }

    quillane::TrashApp trash;
    QObject::connect(&instance, &quillane::RunningInstance::showRequested, &trash,
                     &quillane::TrashApp::showPanel);
    trash.launch();
    return QApplication::exec();
}

int runScreenshot(int argc, char* argv[])
{
    // Screenshots are drawn off screen, the same on every machine.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    nameApplication();
    prepareWidgets(app);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 4) {
        std::fprintf(stderr, "usage: quillane --screenshot VIEW FILE.png\nviews: %s\n",
                     qPrintable(quillane::screenshotViews().join(QStringLiteral(", "))));
        return 2;
    }
    return quillane::runScreenshotCommand(arguments[2], arguments[3]);
}

int runCommandLine(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    nameApplication();

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Quillane shows the trash of every location (your home, each mounted volume, cloud "
        "folders) and empties one at a time.\n\nWithout a command it runs as a tray "
        "application.\n\nCommands:\n"
        "  list [--json]            Print every trash location with its item count and size.\n"
        "  empty LOCATION [--yes]   Empty the trash of one location, named as list shows it.\n"
        "  --screenshot VIEW FILE   Draw a view of the application into a PNG file."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption jsonOption(QStringLiteral("json"),
                                        QStringLiteral("With list: print a JSON array."));
    parser.addOption(jsonOption);
    const QCommandLineOption yesOption(QStringLiteral("yes"),
                                       QStringLiteral("With empty: do not ask first."));
    parser.addOption(yesOption);
    const QCommandLineOption verboseOption(
        QStringLiteral("verbose"),
        QStringLiteral("Also print the diagnostic lines of the tray application, on standard "
                       "error."));
    parser.addOption(verboseOption);
    // For the benchmarks: with empty, the longest main-thread stall on standard error at the end.
    QCommandLineOption stallsOption(QStringLiteral("report-stalls"),
                                    QStringLiteral("With empty: report the longest stall."));
    stallsOption.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOption(stallsOption);
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("list or empty"),
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

    std::fprintf(stderr, "quillane: unknown command \"%s\"; see quillane --help\n",
                 qPrintable(arguments.join(QLatin1Char(' '))));
    return 2;
}

} // namespace

int main(int argc, char* argv[])
{
    if (wantsScreenshot(argc, argv))
        return runScreenshot(argc, argv);
    if (wantsCommandLine(argc, argv))
        return runCommandLine(argc, argv);
    return runTrayApplication(argc, argv);
}
