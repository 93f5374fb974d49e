// A client of the helper daemon for its end-to-end tests, run as an unprivileged user:
//   quillane-test-client delete PATH       prints "removed" or "error: TEXT" when the daemon
//   reports quillane-test-client uninstall APP     prints the daemon's reply
// Exit status: 0 when the daemon answered, 2 when it did not in time.
#include "TestClient.h"

#include "HelperClientAdaptor.h"
#include "TrashHelperProxy.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QFile>
#include <QTimer>
#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() != 3)
        return 64;
    QDBusConnection bus = QDBusConnection::systemBus();
    Reports reports;
    new HelperClientAdaptor(&reports);
    bus.registerObject(QStringLiteral("/com/velmoric/QuillaneClient"), &reports);
    TrashHelperProxy helper(QStringLiteral("com.velmoric.QuillaneDaemon"),
                            QStringLiteral("/com/velmoric/QuillaneDaemon"), bus);

    if (arguments[1] == QStringLiteral("delete")) {
        // A path is bytes; "@FILE" reads it from a file, for names a command line cannot carry.
        QByteArray path(argv[2]);
        if (path.startsWith('@')) {
            QFile file(QString::fromLocal8Bit(path.mid(1)));
            path = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        }
        helper.deleteFile(path);
    } else {
        auto* watcher = new QDBusPendingCallWatcher(
            helper.uninstall({QStringLiteral("test")}, {arguments[2]}), &app);
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [watcher] {
            const QDBusPendingReply<QStringList> reply = *watcher;
            std::printf("%s\n", reply.isError() ? qPrintable(reply.error().message())
                                                : qPrintable(reply.value().value(0)));
            QCoreApplication::exit(0);
        });
    }
    QTimer::singleShot(30000, [] { QCoreApplication::exit(2); });
    const int status = app.exec();
    std::fflush(stdout);
    return status;
}
