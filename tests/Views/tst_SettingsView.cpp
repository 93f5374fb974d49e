#include "App/HelperLink.h"
#include "Helper/XPCClient.h"
#include "Platform/Constant.h"
#include "Platform/UserDefaults.h"
#include "Platform/linux/AutostartEntry.h"
#include "TestSupport.h"
#include "ViewHarness.h"
#include "Views/SettingsView.h"

#include <QCheckBox>
#include <QDir>
#include <QLabel>
#include <QScopeGuard>
#include <QTest>

using namespace quillane;
using namespace Qt::StringLiterals;
namespace fs = std::filesystem;
using State = SettingsView::ControlActiveState;

namespace
{

QCheckBox* switchNamed(const SettingsView& view, const QString& label)
{
    for (QCheckBox* box : view.findChildren<QCheckBox*>())
        if (box->text() == label)
            return box;
    return nullptr;
}

// Points XDG_CONFIG_HOME at the folder and returns it.
fs::path useConfigHome(const QTemporaryDir& folder)
{
    qputenv("XDG_CONFIG_HOME", folder.path().toLocal8Bit());
    return AutostartEntry::configHomeFromEnvironment();
}

// The helper link as the application wires it, with its start at login kept in a temporary
// configuration folder and no system bus.
struct RealLoginItem {
    explicit RealLoginItem(test::ViewHarness& harness)
        : previous(qgetenv("XDG_CONFIG_HOME")), entry(useConfigHome(config), "/usr/bin/quillane"),
          base(harness.services())
    {
    }
    ~RealLoginItem() { qputenv("XDG_CONFIG_HOME", previous); }

    // Makes the link, which reads the login item's state once, as the application does.
    ViewServices services(test::ViewHarness& harness)
    {
        link = std::make_unique<HelperLink>(harness.helper.scheduler, base.defaults, base.alerts,
                                            base.application, QDBusConnection(QString()));
        return {base.observer,  link->client(),   base.updater, base.defaults,    base.alerts,
                base.workspace, base.application, base.bundle,  base.openSettings};
    }

    QByteArray previous;
    QTemporaryDir config;
    AutostartEntry entry;
    ViewServices base;
    std::unique_ptr<HelperLink> link;
};

} // namespace

class TestSettingsView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Preferences that cannot be kept are said, and the switches still work for this run.
    void settingsThatCannotBeKeptAreSaid()
    {
        test::ViewHarness harness;
        const ViewServices base = harness.services();
        QTemporaryDir config;
        const QString folder = config.path() + u"/Quillane"_s;
        QVERIFY(QDir().mkpath(folder));
        // Immutable: not even root may write there.
        QVERIFY(test::run(u"chattr"_s, {u"+i"_s, folder}));
        const auto writable = qScopeGuard([&] { test::run(u"chattr"_s, {u"-i"_s, folder}); });
        SettingsUserDefaults defaults(folder + u"/Quillane.ini"_s);
        SettingsView view({base.observer, base.client, base.updater, defaults, base.alerts,
                           base.workspace, base.application, base.bundle, base.openSettings});
        view.show();
        const auto* warning = view.findChild<QLabel*>(u"storageProblem"_s);
        QVERIFY(warning && warning->isVisible());
        QVERIFY(warning->text().contains(folder));
        switchNamed(view, u"Ask before emptying trash"_s)->click();
        defaults.synchronize();
        QVERIFY(defaults.boolValue(Constant::deleteCheckSupressionKey)); // held for this run
        SettingsView usual(base);
        QVERIFY(!usual.findChild<QLabel*>(u"storageProblem"_s));
    }

    void confirmationSwitchesStoreTheirSuppression_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("otherKey");
        const QString empty = u"DeleteCheckSupression"_s, quit = u"QuitSuppression"_s;
        QTest::newRow("emptying") << u"Ask before emptying trash"_s << empty << quit;
        QTest::newRow("quitting") << u"Warn before quitting Quillane"_s << quit << empty;
    }
    void confirmationSwitchesStoreTheirSuppression()
    {
        QFETCH(QString, label);
        QFETCH(QString, key);
        QFETCH(QString, otherKey);
        test::ViewHarness harness;
        SettingsView view(harness.services());
        view.show();
        QCheckBox* box = switchNamed(view, label);
        QVERIFY(box && box->isChecked()); // nothing stored yet: ask and warn
        box->click();
        QVERIFY(harness.model.defaults.boolValue(key));
        QVERIFY(!harness.model.defaults.boolValue(otherKey));
        box->click();
        QVERIFY(!harness.model.defaults.boolValue(key));
        // Another window (the confirmation's own box) turns it off; the form shows it when it
        // is shown again.
        view.hide();
        harness.model.defaults.setBool(key, true);
        view.show();
        QVERIFY(!box->isChecked());
    }

    void loginSwitchWritesTheAutostartEntry()
    {
        test::ViewHarness harness;
        RealLoginItem login(harness);
        QVERIFY(login.entry.registerService().ok());
        const ViewServices services = login.services(harness);
        QVERIFY(services.client.loginItemActive());
        QVERIFY(login.entry.unregisterService().ok()); // gone behind the program's back
        // Shown while the client reports the item active: the switch moves to on, which adds
        // the entry again.
        SettingsView view(services);
        view.show();
        QVERIFY(view.launchOnLogin()->isChecked());
        QCOMPARE(login.entry.status(), ServiceHandle::Enabled);
        view.launchOnLogin()->click();
        QVERIFY(!fs::exists(login.entry.path()));
        QVERIFY(!services.client.loginItemActive());
        view.launchOnLogin()->click();
        QCOMPARE(login.entry.status(), ServiceHandle::Enabled);
        QVERIFY(services.client.loginItemActive());
    }

    void refusedLoginItemShowsOffWhenShownAgain()
    {
        test::ViewHarness harness;
        RealLoginItem login(harness);
        // A file where the autostart folder belongs: the entry cannot be written.
        test::writeFile(login.entry.path().parent_path());
        SettingsView view(login.services(harness));
        view.show();
        view.launchOnLogin()->click();
        QVERIFY(!login.link->client().loginItemActive());
        QVERIFY(view.launchOnLogin()->isChecked());
        view.hide();
        view.show();
        QVERIFY(!view.launchOnLogin()->isChecked());
    }

    // The application is brought forward while the form is in front and left alone while another
    // window of its own is or once the form is closed. When the application loses the focus, the
    // form hides itself and nothing else: the setup window stays.
    void formFollowsTheFocus()
    {
        test::ViewHarness harness;
        SettingsView view(harness.services());
        QWidget setup;
        const auto bringToFront = [](QWidget& window) {
            window.show();
            window.activateWindow();
            return QTest::qWaitForWindowActive(&window);
        };
        QStringList& calls = harness.application.calls;
        QVERIFY(bringToFront(view));
        QCOMPARE(calls, QStringList(2, u"activate ignoring"_s));
        calls.clear();
        QVERIFY(bringToFront(setup));
        QVERIFY(bringToFront(view));
        QCOMPARE(calls, QStringList{u"activate ignoring"_s});
        calls.clear();
        view.setControlActiveState(State::Inactive);
        view.setControlActiveState(State::Inactive);
        QVERIFY(!view.isVisible());
        QVERIFY(setup.isVisible());
        QVERIFY(!calls.contains(u"hide"_s));
    }
};

QTEST_MAIN(TestSettingsView)
#include "tst_SettingsView.moc"
