#include "HelperHarness.h"
#include "Platform/BusNames.h"
#include "Platform/Constant.h"
#include "Platform/SystemLog.h"
#include "TestSupport.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace quillane;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace
{

const QString version = u"versionWithReply"_s;
const std::string invalidated =
    "[QuillaneClient] XPCClient: connection has been invalidated QuillaneClient";

// A scripted daemon whose registration the service manager already reports as enabled.
bool startEnabledDaemon(test::HelperHarness& helper, const QStringList& script)
{
    helper.scheduler.runPending(); // the read made at creation
    helper.daemonService->currentStatus = ServiceHandle::Enabled;
    helper.appService->updateStatus();
    helper.scheduler.runPending();
    return helper.startDaemon(script);
}

} // namespace

class TestXPCClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void buildNumbers_data()
    {
        test::columns<QString, qint64>("text", "build");
        QTest::newRow("plain") << u"42"_s << qint64(42);
        QTest::newRow("leading zeros") << u"0012"_s << qint64(12);
        QTest::newRow("one sign") << u"+7"_s << qint64(7);
        QTest::newRow("empty") << QString() << qint64(-1);
        QTest::newRow("sign alone") << u"-"_s << qint64(-1);
        QTest::newRow("two signs") << u"--3"_s << qint64(-1);
        QTest::newRow("letters") << u"12a"_s << qint64(-1);
        QTest::newRow("space") << u" 12"_s << qint64(-1);
    }
    void buildNumbers()
    {
        QFETCH(QString, text);
        QTEST(XPCClient::parseBuildNumber(text).value_or(-1), "build");
    }

    void versionReplies_data()
    {
        test::columns<QStringList, std::optional<QString>, QString, int>(
            "script", "appBuild", "shown", "buildErrorLines");
        const QStringList current{u"--version"_s, u"17"_s};
        const std::optional<QString> ours = u"17"_s;
        const QString unknown = u"unknown"_s;
        QTest::newRow("current") << current << ours << u"17"_s << 0;
        QTest::newRow("not a number")
            << QStringList{u"--version"_s, u"abc"_s} << ours << unknown << 0;
        QTest::newRow("absent") << QStringList() << ours << unknown << 0;
        QTest::newRow("no build of our own") << current << std::optional<QString>() << unknown << 1;
    }
    // A reply of any kind stops the retries; none of these asks for a new registration.
    void versionReplies()
    {
        QFETCH(QStringList, script);
        QFETCH(std::optional<QString>, appBuild);
        test::HelperHarness helper;
        QVERIFY(startEnabledDaemon(helper, script));
        test::ConsoleCapture console;
        XPCClient& client = helper.client(appBuild);
        QVERIFY(client.helperRegistered());
        client.start();
        QTRY_VERIFY(client.receivedReply());
        helper.scheduler.runPending();
        const int versionCalls = helper.calls(version);
        helper.scheduler.advance(22s);
        QTEST(client.helperBuildString(), "shown");
        QVERIFY(!client.shouldUpdate());
        QCOMPARE(client.retryCount(), qint64(0));
        QCOMPARE(helper.daemonService->registers, 0);
        QCOMPARE(helper.scheduler.pendingCount(), std::size_t(0)); // the retry timer is gone
        QCOMPARE(helper.calls(version), versionCalls);
        QTEST(console.count("Couldn't retrieve build number"), "buildErrorLines");
    }

    void silentDaemonTimesOutAfterThirtyRetries()
    {
        test::HelperHarness helper;
        QVERIFY(startEnabledDaemon(helper, {u"--silent"_s}));
        XPCClient& client = helper.client();
        helper.alerts.answers = {AlertAnswer::firstButton, AlertAnswer::secondButton};
        client.start();
        for (int retry = 1; retry <= 30; ++retry) {
            helper.scheduler.advance(2s);
            QCOMPARE(client.retryCount(), qint64(retry));
        }
        QVERIFY(helper.alerts.shown.empty());
        helper.scheduler.advance(2s); // the 31st retry
        QCOMPARE(helper.alerts.shown.size(), std::size_t(1));
        QCOMPARE(helper.alerts.shown[0].title, u"Start Quillane Helper timed out"_s);
        QCOMPARE(helper.alerts.shown[0].buttons, (QStringList{u"Keep Trying"_s, u"Quit"_s}));
        QCOMPARE(client.retryCount(), qint64(0)); // "Keep Trying" starts over
        // An enabled daemon needs no registration: retries only ask for its version.
        QCOMPARE(helper.daemonService->registers, 0);
        QCOMPARE(helper.daemonService->statusReads, 2);
        QTRY_VERIFY(helper.calls(version) >= 32);
        helper.scheduler.advance(62s);
        QCOMPARE(helper.alerts.shown.size(), std::size_t(2));
        QCOMPARE(helper.application.calls.count(u"terminate"_s), 1); // "Quit"
        helper.scheduler.advance(60s);
        QCOMPARE(helper.alerts.shown.size(), std::size_t(2)); // no timer outlives the alert
    }

    // An older daemon leaves by itself when idle and the bus starts the installed one: the client
    // only reads the status again and asks no one for anything.
    void olderDaemonNeedsNoRegistration()
    {
        test::HelperHarness helper;
        QVERIFY(startEnabledDaemon(helper, {u"--version"_s, u"15"_s}));
        XPCClient& client = helper.client(u"17"_s);
        const int reads = helper.daemonService->statusReads;
        client.start();
        QTRY_VERIFY(client.shouldUpdate());
        QCOMPARE(helper.daemonService->statusReads, reads + 1);
        helper.scheduler.runPending(); // stores the build and reads it once more
        QCOMPARE(client.helperBuildNumber(), qint64(15));
        QCOMPARE(client.helperBuildString(), u"15"_s);
        QTRY_COMPARE(helper.calls(version), 2);
        helper.scheduler.advance(499ms);
        QVERIFY(client.shouldUpdate());
        helper.scheduler.advance(1ms);
        QVERIFY(!client.shouldUpdate());
        helper.scheduler.advance(500ms); // the build is read again 1.0 s after the request
        QTRY_COMPARE(helper.calls(version), 3);
        QCOMPARE(helper.daemonService->registers, 0);
        QCOMPARE(helper.daemonService->unregisters, 0);
        QCOMPARE(helper.daemonService->statusReads, reads + 1);
    }

    void statusReply_data()
    {
        test::columns<QStringList, QString>("script", "status");
        QTest::newRow("answered") << QStringList{u"--status"_s, u"running"_s} << u"running"_s;
        QTest::newRow("absent") << QStringList() << u"checking"_s;
    }
    void statusReply()
    {
        QFETCH(QStringList, script);
        QFETCH(QString, status);
        test::HelperHarness helper;
        QVERIFY(helper.startDaemon(script));
        XPCClient& client = helper.client();
        client.xpcStatus(); // no connection yet: nothing is asked
        QCOMPARE(client.helperStatus(), u"checking"_s);
        client.updateBuild();
        client.xpcStatus();
        QTRY_COMPARE(helper.calls(u"replyStatusWithReply"_s), 1);
        QTRY_COMPARE(client.helperStatus(), status);
    }

    void uninstall_data()
    {
        test::columns<QString, bool>("reply", "accepted");
        QTest::newRow("accepted") << u"Uninstalling"_s << true;
        QTest::newRow("letter case differs") << u"uninstalling"_s << false;
    }
    void uninstall()
    {
        QFETCH(QString, reply);
        QFETCH(bool, accepted);
        test::HelperHarness helper;
        QVERIFY(helper.startDaemon({u"--uninstall-reply"_s, reply}));
        test::ConsoleCapture console;
        XPCClient& client = helper.client();
        client.uninstallQuillane();
        QTRY_VERIFY(client.uninstallerReplied());
        helper.scheduler.runPending();
        QVERIFY(helper.uninstallArguments().contains(u"/usr/bin/quillane"_s));
        QCOMPARE(helper.application.calls.count(u"terminate"_s), accepted ? 1 : 0);
        QCOMPARE(helper.loginService->unregisters, accepted ? 1 : 0);
        QCOMPARE(console.count("Uninstall Failed"), accepted ? 0 : 1);
    }

    // A packaged installation is the package manager's to remove: the daemon is never asked, and
    // where the package manager cannot, the user is given the command.
    void uninstallFromAPackage_data()
    {
        test::columns<bool, QString, int>("hasManager", "refusal", "terminations");
        QTest::newRow("removed") << true << QString() << 1;
        QTest::newRow("refused") << true << u"Not authorized"_s << 0;
        QTest::newRow("no package manager") << false << QString() << 0;
    }
    void uninstallFromAPackage()
    {
        QFETCH(bool, hasManager);
        QFETCH(QString, refusal);
        QFETCH(int, terminations);
        test::HelperHarness helper;
        QVERIFY(helper.startDaemon({u"--uninstall-reply"_s, u"Uninstalling"_s}));
        test::ScriptedPackageManager manager;
        manager.refusal = refusal.toStdString();
        helper.package = u"quillane"_s;
        helper.packageManager = hasManager ? &manager : nullptr;
        test::ConsoleCapture console;
        XPCClient& client = helper.client();
        client.uninstallQuillane();
        helper.scheduler.runPending();
        QCOMPARE(manager.removals, hasManager ? QStringList{u"quillane"_s} : QStringList());
        QCOMPARE(helper.application.calls.count(u"terminate"_s), terminations);
        QCOMPARE(helper.loginService->unregisters, terminations);
        QCOMPARE(helper.alerts.shown.size(), std::size_t(terminations ? 0 : 1));
        if (!terminations) {
            QVERIFY(helper.alerts.shown[0].informativeText.contains(u"sudo apt remove quillane"_s));
            QCOMPARE(console.count("Uninstall Failed: "), 1);
        }
        // A call on the same connection after it: the daemon answers in order.
        client.updateBuild();
        QTRY_COMPARE(helper.calls(version), 1);
        QCOMPARE(helper.calls(u"uninstall"_s), 0);
    }

    // The access page's fix: the daemon's answer comes back as done (nothing) or why not; polkit
    // may ask the user, since an administrator approves it.
    void repairHomeTrash_data()
    {
        test::columns<QStringList, std::optional<QString>>("script", "error");
        QTest::newRow("done") << QStringList() << std::optional<QString>();
        QTest::newRow("refused with a reason")
            << QStringList{u"--repair-answer"_s, u"not your trash"_s}
            << std::optional<QString>(u"not your trash"_s);
        QTest::newRow("not authorised") << QStringList{u"--repair-failure"_s, u"Not authorized"_s}
                                        << std::optional<QString>(u"Not authorized"_s);
    }
    void repairHomeTrash()
    {
        QFETCH(QStringList, script);
        test::HelperHarness helper;
        QVERIFY(helper.startDaemon(script));
        XPCClient& client = helper.client();
        std::optional<std::optional<QString>> outcome;
        client.repairHomeTrash([&](std::optional<QString> error) { outcome = error; });
        QTRY_VERIFY(outcome.has_value());
        QTEST(*outcome, "error");
        QCOMPARE(helper.calls(u"repairHomeTrash"_s), 1);
        QVERIFY(helper.repairWasInteractive());
    }

    // Items handed over together go in one batch; each is answered on its own. A daemon older
    // than batches gets them one at a time.
    void deleteReports_data()
    {
        test::columns<QStringList, QString, int, int>("script", "logLine", "notifications",
                                                      "singleCalls");
        QTest::newRow("removed") << QStringList() << u", Removed"_s << 3 << 0;
        QTest::newRow("refused") << QStringList{u"--delete-error"_s, u"Operation not permitted"_s}
                                 << u", Error Operation not permitted"_s << 0 << 0;
        QTest::newRow("a daemon without batches")
            << QStringList{u"--no-batches"_s} << u", Removed"_s << 3 << 3;
    }
    void deleteReports()
    {
        QFETCH(QStringList, script);
        QFETCH(QString, logLine);
        QFETCH(int, notifications);
        QFETCH(int, singleCalls);
        test::HelperHarness helper;
        QVERIFY(helper.startDaemon(script));
        test::SystemLogCapture log;
        XPCClient& client = helper.client();
        QSignalSpy removed(&client, &XPCClient::xpcDidDelete);
        const QByteArrayList items = {"/trash/files/a b", "/trash/files/c\nd", "/trash/files/-e"};
        for (const QByteArray& item : items)
            client.deleteFile(std::filesystem::path(item.toStdString()));
        client.deleteFile(std::nullopt); // nothing to hand over
        helper.scheduler.advance(10ms);
        for (const QByteArray& item : items)
            QTRY_VERIFY(log.has("URL: " + item.toStdString() + logLine.toStdString()));
        helper.scheduler.runPending();
        QCOMPARE(helper.calls(u"deleteFiles"_s), 1);
        QCOMPARE(helper.calls(u"deleteFile"_s), singleCalls);
        QCOMPARE(removed.size(), notifications);
        for (int i = 0; i < notifications; ++i)
            QCOMPARE(removed[i][0].value<std::filesystem::path>(), items[i].toStdString());
    }

    void postedVersionIsStored()
    {
        test::HelperHarness helper;
        QVERIFY(helper.startDaemon({u"--post-version"_s, u"21"_s}));
        XPCClient& client = helper.client();
        QSignalSpy changed(&client, &XPCClient::helperBuildStringChanged);
        client.updateBuild();
        QTRY_COMPARE(helper.calls(version), 1);
        QTRY_VERIFY((helper.scheduler.runPending(), changed.count() > 0));
        QCOMPARE(client.helperBuildString(), u"21"_s);
    }

    void vanishingDaemonInterruptsTheConnection()
    {
        test::HelperHarness helper;
        QVERIFY(helper.startDaemon({u"--exit-on-delete"_s}));
        test::SystemLogCapture log;
        XPCClient& client = helper.client();
        client.deleteFile(std::filesystem::path("/trash/files/x"));
        helper.scheduler.advance(10ms);
        QTRY_VERIFY(
            log.has("[QuillaneClient] XPCClient: connection has been interrupted QuillaneClient"));
        helper.scheduler.runPending();
        QVERIFY(!log.has("URL: /trash/files/x, Removed"));
    }

    void missingDaemonInvalidatesOnce()
    {
        test::HelperHarness helper; // no daemon on the bus, and none installed
        helper.bus();
        test::SystemLogCapture log;
        XPCClient& client = helper.client();
        helper.scheduler.runPending();
        QVERIFY(client.helperMissing());
        client.updateBuild();
        QTRY_VERIFY(log.has(invalidated));
        helper.scheduler.advance(60s);
        QCOMPARE(helper.daemonService->statusReads, 1); // read once, at creation
        QCOMPARE(helper.daemonService->registers, 0);
        QCOMPARE(helper.scheduler.pendingCount(), std::size_t(0));
    }

    void busGoingAwayInvalidatesAPendingCall()
    {
        test::HelperHarness helper;
        QVERIFY(helper.startDaemon({u"--silent"_s}));
        test::SystemLogCapture log;
        XPCClient& client = helper.client();
        client.updateBuild();
        QTRY_COMPARE(helper.calls(version), 1);
        helper.stopBus();
        QTRY_VERIFY(log.has(invalidated));
        QVERIFY(!client.receivedReply());
    }

    // Only a service manager that never answers keeps the wait going; one read at a time.
    void waitingForTheDaemonTimesOutAfterSixtyTicks()
    {
        test::HelperHarness helper;
        QVERIFY(helper.startDaemon({u"--silent"_s}));
        XPCClient& client = helper.client();
        helper.alerts.answers = {AlertAnswer::firstButton, AlertAnswer::secondButton};
        helper.scheduler.runPending();
        helper.registrationQueue.hold = true;
        const auto timeouts = [&] {
            return std::ranges::count(helper.alerts.shown,
                                      u"Registering Quillane Helper timed out"_s,
                                      &AlertRequest::title);
        };
        client.waitAndStart();
        helper.scheduler.advance(60s);
        QCOMPARE(timeouts(), 0);
        helper.scheduler.advance(1s); // the 61st tick
        QCOMPARE(timeouts(), 1);
        QCOMPARE(helper.registrationQueue.held.size(), std::size_t(1));
        QVERIFY(!helper.alerts.shown[0].informativeText.contains(u"Mac"_s));
    }

    void waitingEndsOnceTheDaemonIsEnabled()
    {
        test::HelperHarness helper;
        QVERIFY(helper.startDaemon({u"--version"_s, u"17"_s}));
        XPCClient& client = helper.client();
        helper.scheduler.runPending();
        const int reads = helper.daemonService->statusReads;
        client.waitAndStart();
        helper.scheduler.advance(3s);
        QVERIFY(client.helperMissing()); // read once, and then no more
        QCOMPARE(helper.daemonService->statusReads, reads + 1);
        helper.daemonService->currentStatus = ServiceHandle::Enabled;
        helper.scheduler.advance(60s);
        QCOMPARE(helper.daemonService->statusReads, reads + 1);
        QCOMPARE(helper.calls(version), 0);
        client.waitAndStart(); // the user asks again
        helper.scheduler.advance(1s);
        QVERIFY(!client.helperMissing());
        QVERIFY(client.helperRegistered());
        helper.scheduler.advance(1s); // this tick still starts the daemon, then waiting ends
        QTRY_VERIFY(client.receivedReply());
        const int starts = helper.calls(version);
        helper.scheduler.advance(90s);
        QVERIFY(helper.alerts.shown.empty());
        QVERIFY(helper.calls(version) <= starts + 2);
    }

    // No daemon installed (a build tree, an install under /usr/local): ten minutes of the first-run
    // guide read the real installation once at launch and once per press of the page's button,
    // say the daemon is missing once, and ask no one for a password.
    void tenMinutesOfOnboardingWithoutTheDaemon()
    {
        QTemporaryDir root; // nothing installed under it
        test::ConsoleCapture console;
        test::HelperHarness helper(std::filesystem::path(root.path().toStdString()));
        XPCClient& client = helper.client();
        client.xpcStatus(); // the launch
        if (client.helperRegistered())
            client.waitAndStart();
        for (int second = 0; second < 600; ++second) {
            if (second == 30 || second == 300)
                client.waitAndStart(); // the page's button
            helper.scheduler.advance(1s);
        }
        QCOMPARE(helper.daemonService->statusReads, 3);
        QCOMPARE(console.count("notFound"), 1);
        QVERIFY(client.helperMissing());
        QVERIFY(!client.helperRegistered());
        QVERIFY(helper.alerts.shown.empty());
        QCOMPARE(helper.scheduler.pendingCount(), std::size_t(0));
    }

    void loginItemFollowsTheSwitch()
    {
        test::HelperHarness helper;
        XPCClient& client = helper.client();
        QVERIFY(client.showLoginLaunchScreen());
        client.setLoginItemActive(true);
        client.toggleLoginItem();
        QCOMPARE(helper.loginService->registers, 1);
        QVERIFY(client.loginItemActive());
        QVERIFY(!client.showLoginLaunchScreen());
        client.setLoginItemActive(false);
        client.toggleLoginItem();
        QCOMPARE(helper.loginService->unregisters, 1);
        QVERIFY(!client.loginItemActive());
    }
};

QTEST_GUILESS_MAIN(TestXPCClient)
#include "tst_XPCClient.moc"
