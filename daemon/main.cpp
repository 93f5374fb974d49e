#include "Platform/BuildInfo.h"
#include "Platform/SystemLog.h"
#include "QuillaneDaemon.h"
#include "TrashHelperAdaptor.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>
#include <cstdio>

// The privileged helper daemon: serves com.velmoric.QuillaneDaemon on the system bus.
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
    parser.addOption(application);
    parser.addOption(manifest);
    parser.process(app);

    QDBusConnection bus = QDBusConnection::systemBus();
    auto* daemon = new quillane::daemon::QuillaneDaemon(
        bus, {parser.value(application).toStdString(), parser.value(manifest).toStdString()}, &app);
    new TrashHelperAdaptor(daemon);
    if (!bus.registerObject(QStringLiteral("/com/velmoric/QuillaneDaemon"), daemon) ||
        !bus.registerService(QStringLiteral("com.velmoric.QuillaneDaemon"))) {
        std::fprintf(stderr, "quillane-daemon: cannot serve com.velmoric.QuillaneDaemon: %s\n",
                     qPrintable(bus.lastError().message()));
        return 1;
    }
    quillane::SystemLog::write("quillane-daemon serving");
    return app.exec();
}
