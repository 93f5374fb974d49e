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
        const QString folder = config.path() + QStringLiteral("/Quillane");
        QVERIFY(QDir().mkpath(folder));
        // Immutable: not even root may write there.
        QVERIFY(test::run(QStringLiteral("chattr"), {QStringLiteral("+i"), folder}));
        const auto writable = qScopeGuard([&] {
            test::run(QStringLiteral("chattr"), {QStringLiteral("-i"), folder});
        });
        SettingsUserDefaults defaults(folder + QStringLiteral("/Quillane.ini"));
        SettingsView view({base.observer, base.client, base.updater, defaults, base.alerts,
                           base.workspace, base.application, base.bundle, base.openSettings});
        view.show();
        const auto* warning = view.findChild<QLabel*>(QStringLiteral("storageProblem"));
        QVERIFY(warning && warning->isVisible());
        QVERIFY(warning->text().contains(folder));

        switchNamed(view, QStringLiteral("Ask before emptying trash"))->click();
        defaults.synchronize();
        QVERIFY(defaults.boolValue(Constant::deleteCheckSupressionKey)); // held for this run

        SettingsView usual(base);
        QVERIFY(!usual.findChild<QLabel*>(QStringLiteral("storageProblem")));
    }

    void confirmationSwitchesStoreTheirSuppression_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("otherKey");
        QTest::newRow("emptying") << "Ask before emptying trash"
                                  << "DeleteCheckSupression"
                                  << "QuitSuppression";
        QTest::newRow("quitting") << "Warn before quitting Quillane"
                                  << "QuitSuppression"
                                  << "DeleteCheckSupression";
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
        QVERIFY(box);
        QVERIFY(box->isChecked()); // nothing stored yet: ask and warn

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
        QCOMPARE(calls, (QStringList{QStringLiteral("activate ignoring"),
                                     QStringLiteral("activate ignoring")}));
        calls.clear();
        QVERIFY(bringToFront(setup));
        QVERIFY(bringToFront(view));
        QCOMPARE(calls, QStringList{QStringLiteral("activate ignoring")});
        calls.clear();

        view.setControlActiveState(State::Inactive);
        view.setControlActiveState(State::Inactive);
        QVERIFY(!view.isVisible());
        QVERIFY(setup.isVisible());
        QVERIFY(!calls.contains(QStringLiteral("hide")));
    }
};

QTEST_MAIN(TestSettingsView)
#include "tst_SettingsView.moc"
