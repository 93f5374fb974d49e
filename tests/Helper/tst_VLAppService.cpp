#include "Helper/VLAppService.h"
#include "Platform/ServiceManager.h"
#include "Platform/VirtualScheduler.h"
#include "Platform/linux/DesktopLoginItemsSettings.h"
#include "TestSupport.h"

#include <QTest>
#include <climits>

using namespace quillane;

namespace
{

constexpr int noHandle = INT_MIN;
constexpr int Add = 0, Remove = 1, RemoveItem = 2, Unregister = 3; // operations

// A service whose daemon and login registrations (noHandle: none) fail with the given text when
// one is given.
struct Fixture {
    Fixture(int daemonStatus, int loginStatus, const std::string& failure = {},
            WorkQueue* queue = nullptr, VirtualScheduler* mainQueue = nullptr)
        : service(fake(daemon, daemonStatus, failure), fake(login, loginStatus, failure), settings,
                  queue ? *queue : inlineQueue, mainQueue ? *mainQueue : scheduler)
    {
        scheduler.runPending(); // the daemon's status, read at creation, is applied
    }
    static std::unique_ptr<ServiceHandle> fake(const std::shared_ptr<test::ServiceScript>& script,
                                               int status, const std::string& failure)
    {
        script->currentStatus = status;
        script->failure = failure;
        return status == noHandle ? nullptr : std::make_unique<test::ScriptedService>(script);
    }
    std::shared_ptr<test::ServiceScript> daemon = std::make_shared<test::ServiceScript>();
    std::shared_ptr<test::ServiceScript> login = std::make_shared<test::ServiceScript>();
    DesktopLoginItemsSettings settings{QString(), {}}; // never opened here
    InlineWorkQueue inlineQueue;
    VirtualScheduler scheduler;
    VLAppService service;
};

QByteArrayList lines(const test::ConsoleCapture& console)
{
    QByteArrayList result;
    for (const std::string& line : console.lines())
        result << QByteArray::fromStdString(line);
    return result;
}

} // namespace

class TestVLAppService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void statusSetsFlags_data()
    {
        // flags: grant, registered, open settings, login added; lines: the login item's status is
        // read at once, the daemon's comes from the work queue
        test::columns<int, int, QString, QByteArrayList>("daemonStatus", "loginStatus", "flags",
                                                         "lines");
        QTest::newRow("no handles")
            << noHandle << noHandle << "----" << QByteArrayList{"uh oh", "uh oh"};
        QTest::newRow("not registered")
            << 0 << 3 << "G---" << QByteArrayList{"login item notFound"};
        QTest::newRow("enabled") << 1 << 0 << "-R--" << QByteArrayList{"login item not registered"};
        QTest::newRow("requires approval") << 2 << 1 << "G-OL" << QByteArrayList{};
        QTest::newRow("not found")
            << 3 << 2 << "G---" << QByteArrayList{"login item requires approval??", "notFound"};
        QTest::newRow("unknown statuses")
            << 4 << -1 << "----" << QByteArrayList{"unsupported case", "unsupported case"};
        QTest::newRow("only a login item") << noHandle << 1 << "---L" << QByteArrayList{"uh oh"};
        QTest::newRow("only a daemon") << 1 << noHandle << "-R--" << QByteArrayList{"uh oh"};
    }
    void statusSetsFlags()
    {
        QFETCH(int, daemonStatus);
        QFETCH(int, loginStatus);
        test::ConsoleCapture console;
        Fixture fixture(daemonStatus, loginStatus);
        const VLAppService& service = fixture.service;
        const QString flags = QString(service.shouldGrantPrivilege() ? u'G' : u'-') +
                              (service.isRegistered() ? u'R' : u'-') +
                              (service.shouldOpenLoginItems() ? u'O' : u'-') +
                              (service.loginAdded() ? u'L' : u'-');
        QTEST(flags, "flags");
        QTEST(lines(console), "lines");
        QCOMPARE(service.serviceStatus().value_or(noHandle), daemonStatus);
        QCOMPARE(service.loginStatus().value_or(noHandle), loginStatus);
    }

    // Flags only go up: approval, once needed, is still asked for after the daemon is enabled.
    void flagsSurviveLaterStatuses()
    {
        Fixture fixture(ServiceHandle::RequiresApproval, ServiceHandle::Enabled);
        fixture.daemon->currentStatus = ServiceHandle::Enabled;
        fixture.login->currentStatus = ServiceHandle::NotRegistered;
        fixture.service.updateStatus();
        fixture.scheduler.runPending();
        fixture.daemon->currentStatus = ServiceHandle::NotFound;
        fixture.service.updateStatus();
        fixture.scheduler.runPending();
        QVERIFY(fixture.service.shouldOpenLoginItems());
        QVERIFY(fixture.service.isRegistered());
        QVERIFY(fixture.service.loginAdded());
        QCOMPARE(fixture.service.serviceStatus(), ServiceHandle::NotFound);
    }

    // Installing the daemon registered it: registering reads the status again, one read at a
    // time, asks the service manager for nothing, and says a status already said no more.
    void registerDaemon_data()
    {
        QTest::addColumn<int>("status");
        QTest::newRow("not registered") << 0;
        QTest::newRow("not found") << 3;
    }
    void registerDaemon()
    {
        QFETCH(int, status);
        Fixture fixture(status, ServiceHandle::Enabled);
        test::ConsoleCapture console;
        fixture.service.registerDaemon();
        fixture.service.registerDaemon(); // the first read is not applied yet
        fixture.scheduler.runPending();
        QCOMPARE(fixture.daemon->statusReads, 2); // the read at creation included
        QCOMPARE(fixture.daemon->registers, 0);
        QVERIFY(!fixture.service.isRegistered());
        QVERIFY(fixture.service.shouldGrantPrivilege());
        QCOMPARE(lines(console), QByteArrayList{});
    }

    // A status read still waiting for the service manager keeps what it needs alive, and its
    // answer is dropped once the service is gone.
    void statusReadOutlivesService()
    {
        test::HeldWorkQueue queue;
        VirtualScheduler mainQueue;
        test::ConsoleCapture console;
        auto fixture = std::make_unique<Fixture>(3, noHandle, std::string(), &queue, &mainQueue);
        const std::shared_ptr<test::ServiceScript> calls = fixture->daemon;
        fixture->service.registerDaemon();
        fixture->service.updateStatus();
        QCOMPARE(queue.held.size(), std::size_t(1)); // one read in flight, however often asked
        QVERIFY(fixture->service.daemonStatusPending());
        fixture.reset();
        QVERIFY(!calls->destroyed);
        console.clear();
        queue.held.front()();
        QCOMPARE(calls->statusReads, 1);
        mainQueue.runPending();
        QCOMPARE(lines(console), QByteArrayList{}); // nobody left to apply it
        queue.held.clear();
        QVERIFY(calls->destroyed);
    }

    void loginItemsAndUnregistering_data()
    {
        test::columns<int, QString, int, bool, bool, QByteArrayList>(
            "operation", "failure", "loginStatus", "returned", "loginAdded", "lines");
        const QByteArrayList none, failed{"Failed to add to login items"};
        QTest::newRow("add") << Add << "" << 0 << true << true << none;
        QTest::newRow("add fails") << Add << "denied" << 0 << false << false << failed;
        QTest::newRow("add, no handle") << Add << "" << noHandle << true << true << none;
        QTest::newRow("remove") << Remove << "" << 1 << true << false << none;
        QTest::newRow("remove fails") << Remove << "denied" << 1 << false << true << failed;
        QTest::newRow("remove item") << RemoveItem << "" << 1 << true << true << none;
        QTest::newRow("remove item fails")
            << RemoveItem << "denied" << 1 << true << true << QByteArrayList{"denied"};
        QTest::newRow("unregister") << Unregister << "" << 1 << true << true << none;
    }
    void loginItemsAndUnregistering()
    {
        QFETCH(int, operation);
        QFETCH(QString, failure);
        QFETCH(int, loginStatus);
        Fixture fixture(ServiceHandle::Enabled, loginStatus, failure.toStdString());
        test::ConsoleCapture console;
        bool returned = true;
        if (operation == Add)
            returned = fixture.service.addToLoginItems();
        else if (operation == Remove)
            returned = fixture.service.removeFromLoginItems();
        else if (operation == RemoveItem)
            fixture.service.removeLoginItem();
        else
            fixture.service.unregisterDaemon();
        QTEST(returned, "returned");
        QTEST(fixture.service.loginAdded(), "loginAdded");
        QTEST(lines(console), "lines");
        QVERIFY(fixture.service.isRegistered()); // unregistering changes no flag
        const int asked = fixture.login->registers + fixture.login->unregisters;
        QCOMPARE(asked, loginStatus == noHandle || operation == Unregister ? 0 : 1);
        QCOMPARE(fixture.daemon->unregisters, 0);
    }
};

QTEST_GUILESS_MAIN(TestVLAppService)
#include "tst_VLAppService.moc"
