#include "DaemonTestSupport.h"
#include "Platform/BusNames.h"
#include "TestSupport.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QObject>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

using namespace quillane::test;
namespace BusNames = quillane::BusNames;

Q_DECLARE_METATYPE(QList<PolkitRule>)

// The real polkitd on a private bus answers for a client by the rules a test gives it, asked
// the way the daemon asks: for the client's bus name, which polkit resolves to its user.
class TestScriptedPolkit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!canMount())
            QSKIP("needs root in a private mount namespace (tests/support/in-private-mounts)");
        m_bus = std::make_unique<SystemBus>();
        QVERIFY(m_bus->isUp());
        m_user = std::make_unique<TestUser>(m_dir.filePath(QStringLiteral("home")));
        QVERIFY(m_user->isValid());
        m_nobody = std::make_unique<TestUser>(m_dir.filePath(QStringLiteral("nobody")),
                                              QStringLiteral("nobody"));
        QVERIFY(m_nobody->isValid());
    }

    void cleanupTestCase() { m_bus.reset(); }

    void answersForTheCallersUser_data()
    {
        QTest::addColumn<QString>("client");
        QTest::addColumn<QList<PolkitRule>>("rules");
        QTest::addColumn<QString>("action");
        QTest::addColumn<bool>("authorized");

        const QString deleteItem = BusNames::deleteItemAction;
        const QString uninstall = BusNames::uninstallAction;
        const QString user = TestUser::defaultName;
        const QString nobody = QStringLiteral("nobody");
        const QList<PolkitRule> yes = {{user, true}};
        const QList<PolkitRule> noThenAnyone = {{user, false}, {QString(), true}};
        const QList<PolkitRule> uninstallOnly = {{user, true, uninstall}};

        QTest::newRow("allowed, delete an item") << user << yes << deleteItem << true;
        QTest::newRow("allowed, uninstall") << user << yes << uninstall << true;
        QTest::newRow("refused before a rule for anyone")
            << user << noThenAnyone << deleteItem << false;
        QTest::newRow("anyone else, allowed") << nobody << noThenAnyone << deleteItem << true;
        QTest::newRow("another user, not handled") << nobody << yes << deleteItem << false;
        QTest::newRow("another action, not handled")
            << user << uninstallOnly << deleteItem << false;
        QTest::newRow("the action of the rule") << user << uninstallOnly << uninstall << true;
    }

    void answersForTheCallersUser()
    {
        QFETCH(QString, client);
        QFETCH(QList<PolkitRule>, rules);
        QFETCH(QString, action);
        QFETCH(bool, authorized);

        ScriptedPolkit authority(*m_bus, rules);
        QVERIFY2(authority.isRunning(), qPrintable(authority.error()));

        // A client that stays connected until it is killed.
        ChildProcess process;
        (client == m_user->name() ? *m_user : *m_nobody)
            .start(process, QStringLiteral("gdbus"),
                   {QStringLiteral("monitor"), QStringLiteral("--system"), QStringLiteral("--dest"),
                    QStringLiteral("org.freedesktop.DBus")});
        QVERIFY(process.waitForStarted());
        const QString busName = m_bus->waitForConnectionOf(process.processId());
        QVERIFY2(!busName.isEmpty(), process.readAllStandardError().constData());

        const QDBusMessage reply = checkAuthorization(busName, action);
        QVERIFY2(reply.type() == QDBusMessage::ReplyMessage, qPrintable(reply.errorMessage()));
        bool isAuthorized = !authorized;
        bool isChallenge = false;
        const QDBusArgument result = reply.arguments().value(0).value<QDBusArgument>();
        result.beginStructure();
        result >> isAuthorized >> isChallenge;
        QCOMPARE(isAuthorized, authorized);
    }

    // Nothing of an authority outlives it: the next one on the bus owns the name afresh.
    void endsWithTheFixture()
    {
        {
            ScriptedPolkit authority(*m_bus, {});
            QVERIFY2(authority.isRunning(), qPrintable(authority.error()));
        }
        QVERIFY(!m_bus->hasOwner(BusNames::polkitService));
    }

private:
    // CheckAuthorization((sa{sv}) subject, s action, a{ss} details, u flags, s cancellation).
    QDBusMessage checkAuthorization(const QString& busName, const QString& action)
    {
        QDBusArgument subject;
        subject.beginStructure();
        subject << QStringLiteral("system-bus-name")
                << QVariantMap{{QStringLiteral("name"), busName}};
        subject.endStructure();
        QDBusArgument details;
        details.beginMap(QMetaType::fromType<QString>(), QMetaType::fromType<QString>());
        details.endMap();
        QDBusMessage call = QDBusMessage::createMethodCall(
            BusNames::polkitService, BusNames::polkitPath, BusNames::polkitInterface,
            QStringLiteral("CheckAuthorization"));
        constexpr uint allowUserInteraction = 1;
        call << QVariant::fromValue(subject) << action << QVariant::fromValue(details)
             << allowUserInteraction << QString();
        return m_bus->connection().call(call, QDBus::Block, 10000);
    }

    QTemporaryDir m_dir;
    std::unique_ptr<SystemBus> m_bus;
    std::unique_ptr<TestUser> m_user;
    std::unique_ptr<TestUser> m_nobody;
};

QTEST_GUILESS_MAIN(TestScriptedPolkit)
#include "tst_ScriptedPolkit.moc"
