#include "App/RunningInstance.h"
#include "App/TrashApp.h"
#include "Platform/BuildInfo.h"
#include "Platform/Console.h"
#include "Shell/Translations.h"
#include "Views/Pictures.h"

#include <QApplication>
#include <QFileInfo>
#include <cstdio>

// The part of quillane that shows windows: the tray application. It is built as a module of its
// own, which bin/quillane loads only to run it, so that the commands start without the widget,
// graphics and multimedia libraries.

namespace
{

void nameApplication()
{
    QCoreApplication::setApplicationName(QStringLiteral("quillane"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(quillane::BuildInfo::versionText));
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

} // namespace

extern "C" __attribute__((visibility("default"))) int quillaneWindowsMain(int argc, char* argv[])
{
    return runTrayApplication(argc, argv);
}
