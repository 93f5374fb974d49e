#include "Platform/BuildInfo.h"
#include "Platform/BusNames.h"
#include "Platform/SystemLog.h"
#include "QuillaneDaemon.h"
#include "TrashHelperAdaptor.h"
#include "Uninstallation.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>
#include <cstdio>
#include <cstdlib>
#include <grp.h>
#include <string_view>
#include <unistd.h>

namespace
{

namespace BusNames = quillane::BusNames;
using quillane::daemon::QuillaneDaemon;

// The service manager's stop step: removes the installation once the daemon has ended with the
// status that says an uninstall was accepted, and does nothing otherwise.
int finishUninstall(const QString& manifest)
{
    const char* code = std::getenv("EXIT_CODE");
    const char* status = std::getenv("EXIT_STATUS");
    if (!code || !status || std::string_view(code) != "exited" ||
        std::string_view(status) != std::to_string(QuillaneDaemon::uninstallAccepted))
        return 0;
    const std::string failures = quillane::daemon::removeInstallation(manifest.toStdString());
    quillane::SystemLog::write("uninstall: " + (failures.empty() ? std::string("done") : failures));
    return failures.empty() ? 0 : 1;
}

} // namespace

// The privileged helper daemon: serves BusNames::daemonService on the system bus.
int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quillane-daemon"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(quillane::BuildInfo::versionText));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Quillane's privileged helper daemon."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption application(
        QStringLiteral("application"), QStringLiteral("The installed application (uninstall)."),
        QStringLiteral("path"), QStringLiteral(QUILLANE_INSTALLED_APPLICATION));
    const QCommandLineOption manifest(
        QStringLiteral("manifest"), QStringLiteral("The installation's manifest (uninstall)."),
        QStringLiteral("path"), QStringLiteral(QUILLANE_INSTALL_MANIFEST));
    const QCommandLineOption finish(
        QStringLiteral("finish-uninstall"),
        QStringLiteral("Remove the installation if the daemon ended accepting an uninstall "
                       "(the service manager's stop step; reads EXIT_CODE and EXIT_STATUS)."));
    const QCommandLineOption waiting(QStringLiteral("waiting-per-user"),
                                     QStringLiteral("Requests one user may have waiting."),
                                     QStringLiteral("count"), QStringLiteral("4096"));
    const QCommandLineOption idle(QStringLiteral("idle-exit"),
                                  QStringLiteral("Seconds without requests before exiting."),
                                  QStringLiteral("seconds"), QStringLiteral("60"));
    parser.addOptions({application, manifest, finish, waiting, idle});
    parser.process(app);

    if (parser.isSet(finish))
        return finishUninstall(parser.value(manifest));

    bool countValid = false;
    bool secondsValid = false;
    quillane::daemon::DaemonLimits limits;
    limits.waiting.perUser = parser.value(waiting).toUInt(&countValid);
    limits.idleExit = std::chrono::seconds(parser.value(idle).toUInt(&secondsValid));
    if (!countValid || !secondsValid || limits.waiting.perUser == 0) {
        std::fprintf(stderr, "quillane-daemon: --waiting-per-user and --idle-exit take a number\n");
        return 64;
    }

    // The daemon works as each caller where it can, and a caller's identity must not carry root's
    // groups along.
    if (getgroups(0, nullptr) != 0 && setgroups(0, nullptr) != 0) {
        std::perror("quillane-daemon: cannot leave the supplementary groups");
        return 1;
    }

    QDBusConnection bus = QDBusConnection::systemBus();
    auto* daemon = new QuillaneDaemon(bus, {parser.value(application).toStdString()}, limits, &app);
    new TrashHelperAdaptor(daemon);
    if (!bus.registerObject(BusNames::daemonPath, daemon) ||
        !bus.registerService(BusNames::daemonService)) {
        std::fprintf(stderr, "quillane-daemon: cannot serve %s: %s\n",
                     qPrintable(BusNames::daemonService), qPrintable(bus.lastError().message()));
        return 1;
    }
    quillane::SystemLog::write("quillane-daemon serving");
    return app.exec();
}
