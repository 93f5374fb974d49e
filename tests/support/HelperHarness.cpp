#include "HelperHarness.h"

#include "Platform/BusNames.h"
#include "Platform/linux/SystemdUnitService.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <QTimer>

namespace quillane::test
{

namespace
{

std::optional<QString> option(const QStringList& script, const QString& name)
{
    const qsizetype at = script.indexOf(name);
    if (at < 0 || at + 1 >= script.size())
        return std::nullopt;
    return script[at + 1];
}

QStringList listOf(const std::optional<QString>& value)
{
    return value ? QStringList{*value} : QStringList();
}

void callBack(const QDBusConnection& connection, const QDBusMessage& call, const QString& method,
              const QVariantList& arguments)
{
    QDBusMessage report = QDBusMessage::createMethodCall(call.service(), BusNames::clientPath,
                                                         BusNames::helperClientInterface, method);
    report.setArguments(arguments);
    connection.send(report);
}

} // namespace

// The privileged helper daemon as a script says, served from this process on a connection of
// its own: the client sees it on the bus as it sees the real one.
class ScriptedDaemon final : public QDBusVirtualObject
{
public:
    ScriptedDaemon(QStringList script, std::function<void()> vanish)
        : m_script(std::move(script)), m_vanish(std::move(vanish))
    {
    }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        if (message.interface() != BusNames::trashHelperInterface)
            return false;
        const QString member = message.member();
        ++calls[member];
        QVariantList reply;
        if (member == QStringLiteral("versionWithReply")) {
            if (const auto posted = option(m_script, QStringLiteral("--post-version")))
                callBack(connection, message, QStringLiteral("postVersion"),
                         {QStringList{*posted}});
            if (m_script.contains(QStringLiteral("--silent")))
                return true; // and never answer
            reply << listOf(option(m_script, QStringLiteral("--version")));
        } else if (member == QStringLiteral("replyStatusWithReply")) {
            reply << listOf(option(m_script, QStringLiteral("--status")));
        } else if (member == QStringLiteral("uninstall")) {
            uninstallArguments.clear();
            for (const QVariant& argument : message.arguments())
                uninstallArguments << argument.toStringList();
            reply << listOf(option(m_script, QStringLiteral("--uninstall-reply")));
        } else if (member == QStringLiteral("repairHomeTrash")) {
            repairWasInteractive = message.isInteractiveAuthorizationAllowed();
            if (const auto failure = option(m_script, QStringLiteral("--repair-failure"))) {
                connection.send(message.createErrorReply(
                    BusNames::daemonService + QStringLiteral(".Error.NotAuthorized"), *failure));
                return true;
            }
            reply << listOf(option(m_script, QStringLiteral("--repair-answer")));
        } else if (member.startsWith(QStringLiteral("deleteFile"))) {
            if (member == QStringLiteral("deleteFiles") &&
                m_script.contains(QStringLiteral("--no-batches"))) {
                connection.send(message.createErrorReply(QDBusError::UnknownMethod,
                                                         QStringLiteral("No such method")));
                return true;
            }
            if (m_script.contains(QStringLiteral("--exit-on-delete"))) {
                QTimer::singleShot(0, this, m_vanish);
                return true;
            }
            const QVariant urls = message.arguments().value(0);
            const QByteArrayList items = member == QStringLiteral("deleteFile")
                                             ? QByteArrayList{urls.toByteArray()}
                                             : qdbus_cast<QByteArrayList>(urls);
            for (const QByteArray& url : items)
                callBack(connection, message, QStringLiteral("deleteResultWithUrl"),
                         {url, listOf(option(m_script, QStringLiteral("--delete-error")))});
        }
        connection.send(message.createReply(reply));
        return true;
    }

    QHash<QString, int> calls;
    QStringList uninstallArguments;
    bool repairWasInteractive = false;

private:
    QStringList m_script;
    std::function<void()> m_vanish;
};

HelperHarness::HelperHarness(std::optional<std::filesystem::path> installRoot)
{
    std::unique_ptr<ServiceHandle> installed;
    if (installRoot)
        installed = std::make_unique<SystemdUnitService>(bus().connection(), *installRoot);
    appService = std::make_unique<VLAppService>(
        std::make_unique<ScriptedService>(daemonService, std::move(installed)),
        std::make_unique<ScriptedService>(loginService), loginItemsSettings, registrationQueue,
        scheduler);
    m_defaults =
        std::make_unique<SettingsUserDefaults>(m_dir.filePath(QStringLiteral("defaults.ini")));
}

HelperHarness::~HelperHarness()
{
    m_client.reset();
    stopDaemon();
}

bool HelperHarness::startDaemon(const QStringList& script)
{
    stopDaemon();
    m_daemon = std::make_unique<ScriptedDaemon>(script, [this] { stopDaemon(); });
    m_daemonBus = bus().connect(QStringLiteral("daemon"));
    return m_daemonBus.registerVirtualObject(BusNames::daemonPath, m_daemon.get()) &&
           m_daemonBus.registerService(BusNames::daemonService);
}

void HelperHarness::stopDaemon()
{
    if (!m_daemonBus.name().isEmpty())
        QDBusConnection::disconnectFromBus(m_daemonBus.name());
    m_daemonBus = QDBusConnection(QString());
}

PrivateBus& HelperHarness::bus()
{
    if (!m_bus)
        m_bus = std::make_unique<PrivateBus>();
    return *m_bus;
}

int HelperHarness::calls(const QString& name) const
{
    return m_daemon ? m_daemon->calls.value(name) : 0;
}

QStringList HelperHarness::uninstallArguments() const
{
    return m_daemon ? m_daemon->uninstallArguments : QStringList();
}

bool HelperHarness::repairWasInteractive() const
{
    return m_daemon && m_daemon->repairWasInteractive;
}

XPCClient& HelperHarness::client(std::optional<QString> buildVersion)
{
    BundleInfo bundle;
    bundle.buildVersion = std::move(buildVersion);
    bundle.shortVersion = QStringLiteral("1.0");
    bundle.executablePath = "/usr/bin/quillane";
    m_client = std::make_unique<XPCClient>(XPCClient::Services{
        m_bus ? m_bus->connection() : QDBusConnection(QString()), scheduler, *appService,
        *m_defaults, alerts, application, bundle, package, packageManager});
    return *m_client;
}

} // namespace quillane::test
