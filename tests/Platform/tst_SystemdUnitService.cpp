#include "Platform/BusNames.h"
#include "Platform/linux/SystemdUnitService.h"
#include "PrivateBus.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <latch>
#include <memory>

using namespace quillane;

namespace
{

const QString systemd = BusNames::systemdService;

// What the fake manager answers and what it was asked. The test sets and reads it between calls;
// each call's message passing orders those accesses.
struct Script {
    QString state; // the daemon unit's file state; empty: no such unit file
    QStringList calls;
};

// systemd's manager as far as SystemdUnitService uses it, and a method it must never call.
class FakeManager : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.systemd1.Manager")

public:
    explicit FakeManager(Script& script) : m_script(script) {}

public Q_SLOTS:
    Q_SCRIPTABLE QString GetUnitFileState(const QString& unit)
    {
        record(QStringLiteral("GetUnitFileState ") + unit);
        if (m_script.state.isEmpty())
            sendErrorReply(QStringLiteral("org.freedesktop.DBus.Error.FileNotFound"),
                           QStringLiteral("No such file or directory"));
        return m_script.state;
    }
    Q_SCRIPTABLE void Reload() { record(QStringLiteral("Reload")); }

private:
    void record(const QString& call)
    {
        const bool interactive = message().isInteractiveAuthorizationAllowed();
        m_script.calls << call + (interactive ? QStringLiteral(" (may ask)") : QString());
    }
    Script& m_script;
};

} // namespace

class TestSystemdUnitService : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<test::PrivateBus> m_bus;
    QDBusConnection m_client{QString()};
    Script m_script;
    std::unique_ptr<QThread> m_managerThread;
    QDBusConnection bus() { return m_client; }
    QDBusConnection managerBus() { return QDBusConnection(QStringLiteral("manager")); }

private Q_SLOTS:
    void initTestCase()
    {
        m_bus = std::make_unique<test::PrivateBus>();
        QVERIFY2(m_bus->isUp(), "dbus-daemon is needed (scripts/setup)");
        m_client = m_bus->connect(QStringLiteral("client"));

        // The manager answers on a thread of its own, since the service's calls block.
        std::latch ready(1);
        m_managerThread.reset(QThread::create([this, &ready] {
            FakeManager manager(m_script);
            QDBusConnection::connectToBus(m_bus->address(), QStringLiteral("manager"))
                .registerObject(BusNames::systemdPath, &manager,
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
        m_client = QDBusConnection(QString());
        m_bus.reset();
    }
    void init() { m_script = Script(); }

    // Installing is registering: the four files in the folders the system reads, and a unit
    // that systemd can load. Registering and unregistering change nothing and ask no one;
    // reading never lets polkit ask. Without a manager to ask (a container), the files are all
    // there is; the answer comes from the bus at once, not from a call running out of time.
    void status_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("unit");  // the one the activation file names
        QTest::addColumn<QString>("state"); // the manager's answer; null: no manager on the bus
        QTest::addColumn<bool>("connected");
        QTest::addColumn<bool>("asked"); // whether the manager is asked about the unit
        QTest::addColumn<int>("status");
        const QStringList all = installation();
        const QString daemon = QStringLiteral("quillane-daemon.service");
        const QString other = QStringLiteral("dbus-quillane.service");
        const QString loads = QStringLiteral("static");
        const int enabled = ServiceHandle::Enabled, notFound = ServiceHandle::NotFound;
        QTest::newRow("all installed") << all << daemon << loads << true << true << enabled;
        for (const QString& file : all) {
            QStringList without = all;
            without.removeOne(file);
            QTest::newRow(qPrintable(QStringLiteral("without ") + file))
                << without << daemon << loads << true << false << notFound;
        }
        QStringList local = all;
        local.replaceInStrings(QStringLiteral("usr/share/"), QStringLiteral("usr/local/share/"));
        QTest::newRow("all under /usr/local")
            << local << daemon << loads << true << false << notFound;
        QStringList etc = all;
        etc.replaceInStrings(QStringLiteral("usr/share/dbus-1/system.d"),
                             QStringLiteral("etc/dbus-1/system.d"));
        etc.replaceInStrings(QStringLiteral("lib/systemd/system"),
                             QStringLiteral("etc/systemd/system"));
        QTest::newRow("policy and unit under /etc")
            << etc << daemon << loads << true << true << enabled;
        QTest::newRow("activation names a unit with no file")
            << all << other << loads << true << false << notFound;
        QTest::newRow("activation names another unit")
            << all + QStringList{QStringLiteral("lib/systemd/system/") + other} << other << loads
            << true << true << enabled;
        QTest::newRow("masked") << all << daemon << QStringLiteral("masked") << true << true
                                << int(ServiceHandle::RequiresApproval);
        QTest::newRow("manager has no unit file")
            << all << daemon << QStringLiteral("") << true << true << notFound;
        QTest::newRow("not on the bus, installed")
            << all << daemon << QString() << true << false << enabled;
        QTest::newRow("not on the bus, missing")
            << QStringList() << daemon << QString() << true << false << notFound;
        QTest::newRow("no bus, installed")
            << all << daemon << QString() << false << false << enabled;
    }
    void status()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, unit);
        QFETCH(QString, state);
        QFETCH(bool, connected);
        QFETCH(bool, asked);
        QTemporaryDir root;
        install(root.path(), files, unit);
        m_script.state = state;
        if (!state.isNull())
            QVERIFY(managerBus().registerService(systemd));
        const auto release = qScopeGuard([this] { managerBus().unregisterService(systemd); });
        const QDBusConnection connection =
            connected ? bus()
                      : QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent/bus"),
                                                      QStringLiteral("none"));
        SystemdUnitService service(connection, root.path().toStdString());
        QVERIFY(service.registerService().ok());
        QVERIFY(service.unregisterService().ok());
        QTEST(service.status(), "status");
        QCOMPARE(m_script.calls,
                 asked ? QStringList{QStringLiteral("GetUnitFileState ") + unit} : QStringList());
    }

    void unitFileStates_data()
    {
        QTest::addColumn<QString>("state");
        QTest::addColumn<int>("status");
        const int enabled = ServiceHandle::Enabled;
        for (const char* state : {"enabled", "enabled-runtime", "static", "indirect", "generated",
                                  "transient", "alias", "disabled", "linked", "linked-runtime"})
            QTest::newRow(state) << state << enabled;
        for (const char* state : {"masked", "masked-runtime"})
            QTest::newRow(state) << state << int(ServiceHandle::RequiresApproval);
        for (const char* state : {"bad", "not-found", ""})
            QTest::newRow(*state ? state : "no unit file") << state << int(ServiceHandle::NotFound);
        QTest::newRow("newer") << "frozen" << SystemdUnitService::UnrecognisedState;
    }
    void unitFileStates()
    {
        QFETCH(QString, state);
        QTEST(SystemdUnitService::statusForUnitFileState(state), "status");
    }

private:
    // The files an installation to /usr puts where the system reads them.
    static QStringList installation()
    {
        return {QStringLiteral("usr/share/dbus-1/system-services/") + BusNames::daemonService +
                    QStringLiteral(".service"),
                QStringLiteral("usr/share/dbus-1/system.d/") + BusNames::daemonService +
                    QStringLiteral(".conf"),
                QStringLiteral("usr/share/polkit-1/actions/") + BusNames::polkitActionsFile,
                QStringLiteral("lib/systemd/system/quillane-daemon.service")};
    }
    static void install(const QString& root, const QStringList& files,
                        const QString& unit = QStringLiteral("quillane-daemon.service"))
    {
        for (const QString& file : files) {
            const QString path = root + u'/' + file;
            QDir().mkpath(QFileInfo(path).path());
            QFile out(path);
            QVERIFY(out.open(QIODevice::WriteOnly));
            if (file.contains(u"system-services"))
                out.write("[D-BUS Service]\nName=" + BusNames::daemonService.toUtf8() +
                          "\nExec=/bin/false\nUser=root\nSystemdService=" + unit.toUtf8() + "\n");
        }
    }
};

QTEST_GUILESS_MAIN(TestSystemdUnitService)
#include "tst_SystemdUnitService.moc"
