#include "Platform/BusNames.h"
#include "TestSupport.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QObject>
#include <QProcess>
#include <QTest>
#include <unistd.h>

// The daemon's bus policy on a bus with the system bus's default rules: who may own the
// daemon's name, who may call it, and what the daemon may call back.
class TestDaemonPolicy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (getuid() != 0)
            QSKIP("needs root to act as the daemon and as an unprivileged caller");
        m_bus.start(QStringLiteral("dbus-daemon"),
                    {QStringLiteral("--config-file=" QUILLANE_POLICY_BUS_CONFIG),
                     QStringLiteral("--print-address"), QStringLiteral("--nofork")});
        QVERIFY(m_bus.waitForReadyRead(10000));
        m_address = QString::fromLatin1(m_bus.readLine().trimmed());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_address.toLatin1());
    }

    void cleanupTestCase()
    {
        m_daemon.kill();
        m_daemon.waitForFinished();
        m_bus.kill();
        m_bus.waitForFinished();
    }

    void onlyRootOwnsTheName()
    {
        QProcess asNobody;
        asNobody.start(QStringLiteral("setpriv"),
                       unprivileged({QStringLiteral(QUILLANE_TEST_HELPER)}));
        QVERIFY(asNobody.waitForFinished(10000));
        QCOMPARE(asNobody.exitCode(), 1);
        QVERIFY(asNobody.readAllStandardError().contains("cannot serve"));

        m_daemon.start(QStringLiteral(QUILLANE_TEST_HELPER),
                       {QStringLiteral("--version"), QStringLiteral("9")});
        QVERIFY(m_daemon.waitForReadyRead(10000));
        QVERIFY(m_daemon.readAll().contains("ready"));
    }

    void anyoneCallsTheDaemon()
    {
        QString output;
        QVERIFY(quillane::test::run(
            QStringLiteral("setpriv"),
            unprivileged(
                {QStringLiteral("gdbus"), QStringLiteral("call"), QStringLiteral("--address"),
                 m_address, QStringLiteral("--dest"), quillane::BusNames::daemonService,
                 QStringLiteral("--object-path"), quillane::BusNames::daemonPath,
                 QStringLiteral("--method"),
                 quillane::BusNames::trashHelperInterface + QStringLiteral(".versionWithReply")}),
            &output));
        QVERIFY2(output.contains(QStringLiteral("['9']")), qPrintable(output));
    }

    // A client (here this test's own connection) may be called by root with the three
    // callbacks only, and by no one else.
    void onlyTheDaemonsCallbacksReachAClient_data()
    {
        QTest::addColumn<bool>("asRoot");
        QTest::addColumn<QString>("method");
        QTest::addColumn<bool>("delivered");
        const QString client = quillane::BusNames::helperClientInterface + u'.';
        QTest::newRow("root, a callback") << true << client + QStringLiteral("postVersion") << true;
        QTest::newRow("root, anything else")
            << true << QStringLiteral("org.freedesktop.DBus.Peer.Ping") << false;
        QTest::newRow("a user, a callback")
            << false << client + QStringLiteral("postVersion") << false;
    }

    void onlyTheDaemonsCallbacksReachAClient()
    {
        QFETCH(bool, asRoot);
        QFETCH(QString, method);
        QFETCH(bool, delivered);

        QDBusConnection client = QDBusConnection::connectToBus(m_address, QStringLiteral("client"));
        QVERIFY(client.isConnected());
        QStringList call = {QStringLiteral("gdbus"),         QStringLiteral("call"),
                            QStringLiteral("--address"),     m_address,
                            QStringLiteral("--dest"),        client.baseService(),
                            QStringLiteral("--object-path"), quillane::BusNames::clientPath,
                            QStringLiteral("--method"),      method};
        if (method.endsWith(QStringLiteral("postVersion")))
            call << QStringLiteral("['3']");
        QProcess caller;
        if (asRoot)
            caller.start(call.takeFirst(), call);
        else
            caller.start(QStringLiteral("setpriv"), unprivileged(call));
        // The call itself is answered by this connection's event loop, or refused by the bus.
        QTRY_VERIFY_WITH_TIMEOUT(caller.state() == QProcess::NotRunning, 20000);
        const QByteArray errors = caller.readAllStandardError();
        QCOMPARE(errors.contains("AccessDenied"), !delivered);
    }

private:
    static QStringList unprivileged(QStringList command)
    {
        return QStringList{QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                           QStringLiteral("--clear-groups"), QStringLiteral("--")} +
               command;
    }

    QProcess m_bus;
    QProcess m_daemon;
    QString m_address;
};

QTEST_GUILESS_MAIN(TestDaemonPolicy)
#include "tst_DaemonPolicy.moc"
