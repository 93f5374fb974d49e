#include "PrivateBus.h"

#include <QDBusConnectionInterface>
#include <QTest>
#include <csignal>
#include <sys/prctl.h>

namespace quillane::test
{

namespace
{
constexpr int startTimeoutMs = 10000;
constexpr const char* systemBusVariable = "DBUS_SYSTEM_BUS_ADDRESS";
} // namespace

void dieWithParent(QProcess& process)
{
    process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

PrivateBus::PrivateBus(Kind kind)
{
    const QString config = kind == System ? QStringLiteral(QUILLANE_SYSTEM_BUS_CONFIG)
                                          : QStringLiteral(QUILLANE_OPEN_BUS_CONFIG);
    // dbus-daemon keeps root here, so its death signal stays set; what runs on it as another
    // user ends when the bus does.
    m_daemon.start(QStringLiteral("dbus-daemon"),
                   {QStringLiteral("--config-file=") + config, QStringLiteral("--print-address"),
                    QStringLiteral("--nofork")});
    if (!m_daemon.waitForReadyRead(startTimeoutMs)) {
        qWarning().noquote() << "dbus-daemon did not start:" << m_daemon.readAllStandardError();
        return;
    }
    m_address = QString::fromLatin1(m_daemon.readLine().trimmed());
    if (kind == System) {
        m_namesSystemBus = true;
        m_previousAddress = qgetenv(systemBusVariable);
        qputenv(systemBusVariable, m_address.toLatin1());
    }
    m_connection = connect(QStringLiteral("own"));
}

PrivateBus::~PrivateBus()
{
    m_connection = QDBusConnection(QString());
    for (const QString& name : std::as_const(m_connectionNames))
        QDBusConnection::disconnectFromBus(name);
    if (!m_namesSystemBus)
        return;
    if (m_previousAddress.isEmpty())
        qunsetenv(systemBusVariable);
    else
        qputenv(systemBusVariable, m_previousAddress);
}

QDBusConnection PrivateBus::connect(const QString& name)
{
    const QString unique = QStringLiteral("%1-%2").arg(name).arg(quintptr(this));
    m_connectionNames << unique;
    return QDBusConnection::connectToBus(m_address, unique);
}

bool PrivateBus::hasOwner(const QString& name) const
{
    return isUp() && m_connection.interface()->isServiceRegistered(name).value();
}

void PrivateBus::stop()
{
    m_daemon.kill();
    m_daemon.waitForFinished();
}

} // namespace quillane::test
