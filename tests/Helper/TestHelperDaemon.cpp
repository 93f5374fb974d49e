#include "TestHelperDaemon.h"

#include "HelperClientProxy.h"
#include "Platform/BusNames.h"
#include "TrashHelperAdaptor.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <cstdio>

namespace
{

void record(const char* call)
{
    std::printf("call %s\n", call);
    std::fflush(stdout);
}

HelperClientProxy callerOf(const QDBusMessage& message)
{
    return HelperClientProxy(message.service(), quillane::BusNames::clientPath,
                             QDBusConnection::systemBus());
}

} // namespace

void TestHelperDaemon::install()
{
    record("install");
}

QStringList TestHelperDaemon::uninstall(const QStringList& userName, const QStringList& appPath)
{
    record("uninstall");
    std::printf("uninstall %s %s\n", qPrintable(userName.join(QLatin1Char(','))),
                qPrintable(appPath.join(QLatin1Char(','))));
    std::fflush(stdout);
    return m_script.uninstallReply;
}

void TestHelperDaemon::stop()
{
    record("stop");
    QCoreApplication::quit();
}

QStringList TestHelperDaemon::replyStatusWithReply()
{
    record("replyStatusWithReply");
    return m_script.status;
}

QStringList TestHelperDaemon::versionWithReply()
{
    record("versionWithReply");
    if (!m_script.postVersion.isEmpty())
        callerOf(message()).postVersion(m_script.postVersion);
    if (m_script.silent)
        setDelayedReply(true); // and never answer
    return m_script.version;
}

void TestHelperDaemon::deleteFile(const QByteArray& url)
{
    record("deleteFile");
    if (m_script.exitOnDelete)
        std::exit(0);
    callerOf(message()).deleteResultWithUrl(url, m_script.deleteError);
}

void TestHelperDaemon::deleteFiles(const QByteArrayList& urls)
{
    record("deleteFiles");
    if (m_script.noBatches) {
        sendErrorReply(QDBusError::UnknownMethod, QStringLiteral("No such method"));
        return;
    }
    if (m_script.exitOnDelete)
        std::exit(0);
    HelperClientProxy caller = callerOf(message());
    for (const QByteArray& url : urls)
        caller.deleteResultWithUrl(url, m_script.deleteError);
}

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    qDBusRegisterMetaType<QByteArrayList>();
    QCommandLineParser parser;
    const auto option = [&](const char* name) {
        const QCommandLineOption created(QString::fromLatin1(name), {}, QStringLiteral("value"));
        parser.addOption(created);
        return created;
    };
    const QCommandLineOption version = option("version"), status = option("status"),
                             uninstall = option("uninstall-reply"), error = option("delete-error"),
                             post = option("post-version");
    const QCommandLineOption silent(QStringLiteral("silent")),
        exitOnDelete(QStringLiteral("exit-on-delete")), noBatches(QStringLiteral("no-batches"));
    parser.addOption(noBatches);
    parser.addOption(silent);
    parser.addOption(exitOnDelete);
    parser.process(app);

    const auto optional = [&](const QCommandLineOption& o) {
        return parser.isSet(o) ? QStringList{parser.value(o)} : QStringList{};
    };
    auto* daemon = new TestHelperDaemon(
        {optional(version), parser.isSet(silent), optional(status), optional(uninstall),
         optional(error), parser.isSet(exitOnDelete), optional(post), parser.isSet(noBatches)});
    new TrashHelperAdaptor(daemon);
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.registerObject(quillane::BusNames::daemonPath, daemon) ||
        !bus.registerService(quillane::BusNames::daemonService)) {
        std::fprintf(stderr, "test helper: cannot serve on the bus\n");
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    return app.exec();
}
