#include "HelperHarness.h"

#include "Platform/linux/SystemdUnitService.h"

#include <QTest>

namespace quillane::test
{

HelperHarness::HelperHarness(std::optional<std::filesystem::path> installRoot)
    : m_connectionName(QStringLiteral("quillane-test-bus-%1").arg(quintptr(this)))
{
    m_busDaemon.start(QStringLiteral("dbus-daemon"),
                      {QStringLiteral("--config-file=" QUILLANE_TEST_BUS_CONFIG),
                       QStringLiteral("--print-address"), QStringLiteral("--nofork")});
    if (!m_busDaemon.waitForReadyRead(10000))
        return;
    const QString address = QString::fromLatin1(m_busDaemon.readLine().trimmed());
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", address.toLatin1()); // for the scripted daemon
    m_bus = QDBusConnection::connectToBus(address, m_connectionName);

    std::unique_ptr<ServiceHandle> daemon;
    if (installRoot) {
        auto counted = std::make_unique<CountedService>(
            std::make_unique<SystemdUnitService>(m_bus, *installRoot));
        installedDaemon = counted.get();
        daemon = std::move(counted);
    } else {
        auto scripted = std::make_unique<ScriptedService>();
        daemonService = scripted.get();
        daemon = std::move(scripted);
    }
    auto login = std::make_unique<ScriptedService>();
    loginService = login.get();
    appService = std::make_unique<VLAppService>(std::move(daemon), std::move(login),
                                                loginItemsSettings, registrationQueue, scheduler);
    m_defaults =
        std::make_unique<SettingsUserDefaults>(m_dir.filePath(QStringLiteral("defaults.ini")));
}

HelperHarness::~HelperHarness()
{
    m_client.reset();
    stopDaemon();
    m_bus = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(m_connectionName);
    m_busDaemon.kill();
    m_busDaemon.waitForFinished();
}

bool HelperHarness::startDaemon(const QStringList& script)
{
    m_helper.start(QStringLiteral(QUILLANE_TEST_HELPER), script);
    if (!m_helper.waitForStarted())
        return false;
    while (!m_helperOutput.contains("ready\n")) {
        if (!m_helper.waitForReadyRead(10000))
            return false;
        m_helperOutput += m_helper.readAllStandardOutput();
    }
    return true;
}

void HelperHarness::stopDaemon()
{
    if (m_helper.state() == QProcess::NotRunning)
        return;
    m_helper.kill();
    m_helper.waitForFinished();
}

void HelperHarness::stopBus()
{
    m_busDaemon.kill();
    m_busDaemon.waitForFinished();
}

QString HelperHarness::daemonOutput()
{
    m_helperOutput += m_helper.readAllStandardOutput();
    return QString::fromUtf8(m_helperOutput);
}

int HelperHarness::calls(const QString& name)
{
    return static_cast<int>(
        daemonOutput().count(QStringLiteral("call ") + name + QLatin1Char('\n')));
}

XPCClient& HelperHarness::client(std::optional<QString> buildVersion)
{
    BundleInfo bundle;
    bundle.buildVersion = std::move(buildVersion);
    bundle.shortVersion = QStringLiteral("1.0");
    bundle.executablePath = "/usr/bin/quillane";
    m_client = std::make_unique<XPCClient>(XPCClient::Services{m_bus, scheduler, *appService,
                                                               *m_defaults, alerts, application,
                                                               bundle, package, packageManager});
    return *m_client;
}

} // namespace quillane::test
