// A client of the helper daemon for its end-to-end tests, run as an unprivileged user:
//   quillane-test-client delete PATH          prints "removed" or "error: TEXT" when the daemon
//                                             reports
//   quillane-test-client uninstall APP        prints the daemon's reply
//   quillane-test-client repair home          prints "repaired" or "error: TEXT" when the daemon
//                                             gives the caller's home trash back, or does not
//   quillane-test-client batch @FILE          sends the paths FILE lists (NUL-separated) in one
//                                             deleteFiles call, prints "PATH: " and the answer
//                                             for each
//   quillane-test-client flood COUNT @FILE    sends the requests FILE lists over COUNT connections
//                                             of its own, in turn, prints "sent", then a line
//                                             for each answer
// A PATH of "@FILE" is read from FILE, for names a command line cannot carry. A flood's FILE
// holds requests separated by NUL bytes: "d" and a path to delete, or "u" and an application
// to uninstall.
// Exit status: 0 when the daemon answered everything, 2 when it did not in time.
#include "TestClient.h"

#include "HelperClientAdaptor.h"
#include "Platform/BusNames.h"
#include "TrashHelperProxy.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QFile>
#include <QTimer>
#include <cstdio>
#include <memory>
#include <vector>

namespace
{

QByteArray readArgument(const char* argument)
{
    QByteArray text(argument);
    if (!text.startsWith('@'))
        return text;
    QFile file(QString::fromLocal8Bit(text.mid(1)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// One connection to the system bus, with its own report object and proxy.
struct Connection {
    Connection(const QString& name, std::function<void()> answered)
        : bus(name == QString() ? QDBusConnection::systemBus()
                                : QDBusConnection::connectToBus(QDBusConnection::SystemBus, name)),
          reports(std::move(answered)),
          helper(quillane::BusNames::daemonService, quillane::BusNames::daemonPath, bus)
    {
        new HelperClientAdaptor(&reports);
        bus.registerObject(quillane::BusNames::clientPath, &reports);
    }

    QDBusConnection bus;
    Reports reports;
    TrashHelperProxy helper;
};

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    qDBusRegisterMetaType<QByteArrayList>();
    const QStringList arguments = app.arguments();
    if (arguments.size() != 3 &&
        !(arguments.size() == 4 && arguments[1] == QStringLiteral("flood")))
        return 64;

    int unanswered = 0;
    const auto answered = [&unanswered] {
        std::fflush(stdout);
        if (--unanswered == 0)
            QCoreApplication::exit(0);
    };
    QList<QByteArray> requests;
    int connectionCount = 1;
    if (arguments[1] == QStringLiteral("delete"))
        requests = {'d' + readArgument(argv[2])};
    else if (arguments[1] == QStringLiteral("uninstall"))
        requests = {'u' + QByteArray(argv[2])};
    else if (arguments[1] == QStringLiteral("repair"))
        requests = {QByteArray("r")};
    else if (arguments[1] == QStringLiteral("batch")) {
        QByteArrayList paths = readArgument(argv[2]).split('\0');
        paths.removeAll(QByteArray());
        for (const QByteArray& path : paths)
            requests << 'b' + path;
    } else if (arguments[1] == QStringLiteral("flood")) {
        connectionCount = arguments[2].toInt();
        requests = readArgument(argv[3]).split('\0');
        requests.removeAll(QByteArray());
    } else {
        return 64;
    }

    std::vector<std::unique_ptr<Connection>> connections;
    for (int i = 0; i < connectionCount; ++i)
        connections.push_back(std::make_unique<Connection>(
            connectionCount == 1 ? QString() : QStringLiteral("flood-%1").arg(i), answered));

    unanswered = static_cast<int>(requests.size());
    QByteArrayList batch;
    for (const QByteArray& request : requests)
        if (request.startsWith('b'))
            batch << request.mid(1);
    if (!batch.isEmpty()) {
        connections.front()->reports.namesItems = true;
        auto* watcher =
            new QDBusPendingCallWatcher(connections.front()->helper.deleteFiles(batch), &app);
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [watcher] {
            if (watcher->isError()) {
                std::printf("batch refused: %s\n", qPrintable(watcher->error().message()));
                std::fflush(stdout);
            }
        });
    }
    for (qsizetype i = 0; i < requests.size(); ++i) {
        Connection& connection = *connections[static_cast<std::size_t>(i % connectionCount)];
        const QByteArray what = requests[i].mid(1);
        if (requests[i].startsWith('b'))
            continue;
        if (requests[i].startsWith('d')) {
            connection.helper.deleteFile(what);
            continue;
        }
        if (requests[i].startsWith('r')) {
            connection.helper.setTimeout(60000);
            auto* watcher = new QDBusPendingCallWatcher(connection.helper.repairHomeTrash(), &app);
            QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [watcher, answered] {
                const QDBusPendingReply<QStringList> reply = *watcher;
                if (reply.isError())
                    std::printf("error: %s\n", qPrintable(reply.error().message()));
                else if (reply.value().isEmpty())
                    std::printf("repaired\n");
                else
                    std::printf("error: %s\n", qPrintable(reply.value().first()));
                answered();
            });
            continue;
        }
        auto* watcher = new QDBusPendingCallWatcher(
            connection.helper.uninstall({QStringLiteral("test")}, {QString::fromLocal8Bit(what)}),
            &app);
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [watcher, answered] {
            const QDBusPendingReply<QStringList> reply = *watcher;
            std::printf("%s\n", reply.isError() ? qPrintable(reply.error().message())
                                                : qPrintable(reply.value().value(0)));
            answered();
        });
    }
    if (arguments[1] == QStringLiteral("flood")) {
        std::printf("sent\n");
        std::fflush(stdout);
    }
    QTimer::singleShot(60000, [] { QCoreApplication::exit(2); });
    const int status = app.exec();
    std::fflush(stdout);
    return status;
}
