#include "Platform/linux/SystemdUnitService.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QEventLoop>
#include <QProcess>
#include <QScopeGuard>
#include <QTest>
#include <QThread>
#include <latch>
#include <signal.h>
#include <sys/prctl.h>

using namespace quillane;

namespace
{

const QString systemd = QStringLiteral("org.freedesktop.systemd1");

// What the fake manager answers and what it was asked. The test sets and reads it between calls;
// each call's message passing orders those accesses.
struct Script {
    QString state;   // the daemon unit's file state; empty: no such unit file
    QString refusal; // when set, changing unit files is refused with this message
    QStringList calls;
};

// systemd's manager as far as SystemdUnitService uses it. It answers only what the service reads.
class FakeManager : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.systemd1.Manager")

public:
    explicit FakeManager(Script& script) : m_script(script) {}

public Q_SLOTS:
    Q_SCRIPTABLE QString GetUnitFileState(const QString& unit)
    {
        if (unit != u"quillane-daemon.service" || m_script.state.isEmpty())
            sendErrorReply(QStringLiteral("org.freedesktop.DBus.Error.FileNotFound"),
                           QStringLiteral("No such file or directory"));
        return m_script.state;
    }
    Q_SCRIPTABLE bool EnableUnitFiles(const QStringList& units, bool runtime, bool force)
    {
        record(
            QStringLiteral("Enable %1 runtime=%2 force=%3")
                .arg(units.join(u','), QVariant(runtime).toString(), QVariant(force).toString()));
        return true;
    }
    Q_SCRIPTABLE void DisableUnitFiles(const QStringList& units, bool runtime)
    {
        record(QStringLiteral("Disable %1 runtime=%2")
                   .arg(units.join(u','), QVariant(runtime).toString()));
    }
    Q_SCRIPTABLE void Reload() { record(QStringLiteral("Reload")); }

private:
    void record(const QString& call)
    {
        const bool interactive = message().isInteractiveAuthorizationAllowed();
        m_script.calls << call + (interactive ? QStringLiteral(" (may ask)") : QString());
        if (!m_script.refusal.isEmpty())
            sendErrorReply(QDBusError::AccessDenied, m_script.refusal);
    }
    Script& m_script;
};

} // namespace

class TestSystemdUnitService : public QObject
{
    Q_OBJECT

private:
    QProcess m_busDaemon;
    QString m_address;
    Script m_script;
    std::unique_ptr<QThread> m_managerThread;
    QDBusConnection bus() { return QDBusConnection(QStringLiteral("client")); }
    QDBusConnection managerBus() { return QDBusConnection(QStringLiteral("manager")); }

private Q_SLOTS:
    void initTestCase()
    {
        // A bus of our own; the bus daemon ends with this process, however it ends.
        m_busDaemon.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGTERM); });
        m_busDaemon.start(QStringLiteral("dbus-daemon"),
                          {QStringLiteral("--config-file=" QUILLANE_TEST_BUS_CONFIG),
                           QStringLiteral("--print-address"), QStringLiteral("--nofork")});
        QVERIFY2(m_busDaemon.waitForReadyRead(10000), "dbus-daemon is needed (scripts/setup)");
        m_address = QString::fromLatin1(m_busDaemon.readLine().trimmed());
        QVERIFY(QDBusConnection::connectToBus(m_address, QStringLiteral("client")).isConnected());

        // The manager answers on a thread of its own, since the service's calls block.
        std::latch ready(1);
        m_managerThread.reset(QThread::create([this, &ready] {
            FakeManager manager(m_script);
            QDBusConnection::connectToBus(m_address, QStringLiteral("manager"))
                .registerObject(QStringLiteral("/org/freedesktop/systemd1"), &manager,
                                QDBusConnection::ExportScriptableSlots);
            ready.count_down();
            QEventLoop().exec();
            QDBusConnection::disconnectFromBus(QStringLiteral("manager"));
        }));
        m_managerThread->start();
        ready.wait();
    }
    void cleanupTestCase()
    {
        if (m_managerThread) {
            m_managerThread->quit();
            m_managerThread->wait();
        }
        QDBusConnection::disconnectFromBus(QStringLiteral("client"));
        m_busDaemon.terminate();
        m_busDaemon.waitForFinished();
    }
    void init() { m_script = Script(); }

    // Without a manager to ask, nothing is installed and nothing can be changed; the answer comes
    // from the bus at once, not from a call running out of time.
    void withoutSystemd_data()
    {
        QTest::addColumn<bool>("connected");
        QTest::addColumn<QString>("named");
        QTest::newRow("not on the bus") << true << systemd;
        QTest::newRow("no bus") << false << "";
    }
    void withoutSystemd()
    {
        QFETCH(bool, connected);
        QFETCH(QString, named);
        const QDBusConnection connection =
            connected ? bus()
                      : QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent/bus"),
                                                      QStringLiteral("none"));
        SystemdUnitService service(connection);
        QCOMPARE(service.status(), ServiceHandle::NotFound);
        for (const Result<bool>& result :
             {service.registerService(), service.unregisterService()}) {
            QVERIFY(!result.ok());
            QVERIFY2(!result.error().empty() &&
                         QString::fromStdString(result.error()).contains(named),
                     result.error().c_str());
        }
    }

    void unitFileStates_data()
    {
        QTest::addColumn<QString>("state");
        QTest::addColumn<int>("status");
        const int enabled = ServiceHandle::Enabled, notRegistered = ServiceHandle::NotRegistered;
        for (const char* state : {"enabled", "enabled-runtime", "static", "indirect", "generated",
                                  "transient", "alias"})
            QTest::newRow(state) << state << enabled;
        for (const char* state : {"disabled", "linked", "linked-runtime"})
            QTest::newRow(state) << state << notRegistered;
        for (const char* state : {"masked", "masked-runtime"})
            QTest::newRow(state) << state << int(ServiceHandle::RequiresApproval);
        for (const char* state : {"bad", "not-found", ""})
            QTest::newRow(*state ? state : "no unit file") << state << int(ServiceHandle::NotFound);
        QTest::newRow("newer") << "frozen" << SystemdUnitService::UnrecognisedState;
    }
    void unitFileStates()
    {
        QFETCH(QString, state);
        m_script.state = state;
        QVERIFY(managerBus().registerService(systemd));
        const auto release = qScopeGuard([this] { managerBus().unregisterService(systemd); });
        QTEST(SystemdUnitService(bus()).status(), "status");
    }

    // Each change lets polkit ask an administrator, then reloads the manager; a refusal stops it.
    void changesEnableOrDisableTheUnit_data()
    {
        QTest::addColumn<bool>("registering");
        QTest::addColumn<QString>("refusal");
        QTest::addColumn<QStringList>("calls");
        const QString enable =
            QStringLiteral("Enable quillane-daemon.service runtime=false force=false (may ask)");
        const QString disable =
            QStringLiteral("Disable quillane-daemon.service runtime=false (may ask)");
        const QString reload = QStringLiteral("Reload (may ask)");
        QTest::newRow("register") << true << "" << QStringList{enable, reload};
        QTest::newRow("unregister") << false << "" << QStringList{disable, reload};
        QTest::newRow("register refused") << true << "Not authorized" << QStringList{enable};
        QTest::newRow("unregister refused") << false << "Not authorized" << QStringList{disable};
    }
    void changesEnableOrDisableTheUnit()
    {
        QFETCH(bool, registering);
        QFETCH(QString, refusal);
        m_script.refusal = refusal;
        QVERIFY(managerBus().registerService(systemd));
        const auto release = qScopeGuard([this] { managerBus().unregisterService(systemd); });
        SystemdUnitService service(bus());
        const Result<bool> result =
            registering ? service.registerService() : service.unregisterService();
        QTEST(m_script.calls, "calls");
        QCOMPARE(result.ok(), refusal.isEmpty());
        QCOMPARE(QString::fromStdString(result.error()), refusal);
    }
};

QTEST_GUILESS_MAIN(TestSystemdUnitService)
#include "tst_SystemdUnitService.moc"
