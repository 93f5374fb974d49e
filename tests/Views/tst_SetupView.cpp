#include "Platform/Constant.h"
#include "ViewHarness.h"
#include "Views/SetupView.h"

#include <QLayout>
#include <QPushButton>
#include <QTest>
#include <sys/fsuid.h>
#include <sys/stat.h>

using namespace quillane;
using Page = SetupView::Page;

namespace
{

// What the models report when the guide is opened.
struct State {
    bool fdaGranted = true;
    bool helperRegistered = false;
    bool loginItemActive = false; // an active login item also means the last page is not offered
};

// Starts the models in the given state and returns the services for a view.
ViewServices servicesIn(test::ViewHarness& harness, State state)
{
    if (!state.fdaGranted) {
        // A home trash the user may not read is what the access check takes for missing access.
        harness.model.makeHomeTrash();
        chmod(harness.model.root.path().toLocal8Bit().constData(), 0755);
        chmod(harness.model.homeTrash().c_str(), 0);
        // Root reads it all the same: check it as another user, for this thread's file access only.
        const bool asRoot = geteuid() == 0;
        if (asRoot)
            setfsuid(test::nobody);
        harness.model.start();
        if (asRoot)
            setfsuid(0);
    }
    if (state.helperRegistered)
        harness.helper.daemonService->currentStatus = ServiceHandle::Enabled;
    if (state.loginItemActive)
        harness.helper.loginService->currentStatus = ServiceHandle::Enabled;
    harness.helper.appService->updateStatus();
    return harness.services();
}

std::unique_ptr<SetupPage> makePage(Page page, const ViewServices& services)
{
    switch (page) {
    case Page::FullDiskAccess:
        return std::make_unique<FDAView>(services);
    case Page::Helper:
        return std::make_unique<HelperView>(services);
    case Page::LoginItem:
        return std::make_unique<LoginItemView>(services);
    case Page::None:
        break;
    }
    return nullptr;
}

// Lets a close that a page queued when it appeared take place.
void settle()
{
    QCoreApplication::processEvents();
}

} // namespace

Q_DECLARE_METATYPE(SetupView::Page)

class TestSetupView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pageFollowsTheState_data()
    {
        QTest::addColumn<bool>("fdaGranted");
        QTest::addColumn<bool>("helperRegistered");
        QTest::addColumn<bool>("loginItemActive");
        QTest::addColumn<Page>("page");
        QTest::addColumn<QSize>("size");
        const QSize fda(720, 800);
        const QSize step(600, 500);
        QTest::newRow("no access") << false << false << false << Page::FullDiskAccess << fda;
        QTest::newRow("no access, the rest done")
            << false << true << true << Page::FullDiskAccess << fda;
        QTest::newRow("helper missing") << true << false << false << Page::Helper << step;
        QTest::newRow("helper missing, login item active")
            << true << false << true << Page::Helper << step;
        QTest::newRow("login item to offer") << true << true << false << Page::LoginItem << step;
        QTest::newRow("all done") << true << true << true << Page::None << QSize();
    }
    void pageFollowsTheState()
    {
        QFETCH(bool, fdaGranted);
        QFETCH(bool, helperRegistered);
        QFETCH(bool, loginItemActive);
        QFETCH(Page, page);
        QFETCH(QSize, size);
        test::ViewHarness harness;
        const ViewServices services =
            servicesIn(harness, {fdaGranted, helperRegistered, loginItemActive});
        SetupView setup(services);
        setup.show();
        settle();

        QCOMPARE(setup.page(), page);
        QVERIFY(setup.isVisible()); // none of these pages finds its step done
        if (page == Page::None) {
            QVERIFY(!setup.currentPage());
            return;
        }
        QCOMPARE(setup.size(), size);
        QCOMPARE(setup.minimumSize(), setup.maximumSize());
        QCOMPARE(setup.currentPage()->size(), size);
        QVERIFY(setup.currentPage()->isVisible());
        // Everything on the page fits in its fixed size, with the text wrapped at its width.
        QVERIFY(setup.currentPage()->layout()->totalHeightForWidth(size.width()) <= size.height());
    }

    void helperRegisteredWhileOpenMovesOn_data()
    {
        QTest::addColumn<bool>("loginItemActive");
        QTest::addColumn<bool>("activatedOnTheHelperPage");
        QTest::addColumn<Page>("page");
        QTest::newRow("login item to offer") << false << false << Page::LoginItem;
        QTest::newRow("login item active") << true << false << Page::None;
        // The login page appears with its step done, runs its check and closes the window.
        QTest::newRow("activated meanwhile") << false << true << Page::LoginItem;
    }
    void helperRegisteredWhileOpenMovesOn()
    {
        QFETCH(bool, loginItemActive);
        QFETCH(bool, activatedOnTheHelperPage);
        QFETCH(Page, page);
        test::ViewHarness harness;
        const ViewServices services = servicesIn(harness, {true, false, loginItemActive});
        SetupView setup(services);
        setup.show();
        QCOMPARE(setup.page(), Page::Helper);
        if (activatedOnTheHelperPage)
            services.client.setLoginItemActive(true); // no page appears: nothing is checked
        settle();
        QVERIFY(setup.isVisible());

        harness.helper.daemonService->currentStatus = ServiceHandle::Enabled;
        harness.helper.appService->updateStatus();
        services.client.xpcStatus();
        QCOMPARE(setup.page(), page);
        if (activatedOnTheHelperPage) {
            QTRY_VERIFY(!setup.isVisible());
            return;
        }
        settle();
        QVERIFY(setup.isVisible());
        if (page == Page::LoginItem)
            QVERIFY(setup.currentPage()->isVisible());
    }

    void pageWithItsStepDoneClosesItsWindow_data()
    {
        QTest::addColumn<Page>("page");
        QTest::addColumn<bool>("helperRegistered");
        QTest::addColumn<bool>("loginItemActive");
        QTest::addColumn<bool>("closes");
        QTest::newRow("access, helper") << Page::FullDiskAccess << true << false << true;
        QTest::newRow("access, no helper") << Page::FullDiskAccess << false << true << false;
        QTest::newRow("helper, login item") << Page::Helper << true << true << true;
        QTest::newRow("helper only") << Page::Helper << true << false << false;
        QTest::newRow("login item only") << Page::Helper << false << true << false;
        QTest::newRow("login item active") << Page::LoginItem << false << true << true;
        QTest::newRow("login item inactive") << Page::LoginItem << true << false << false;
    }
    void pageWithItsStepDoneClosesItsWindow()
    {
        QFETCH(Page, page);
        QFETCH(bool, helperRegistered);
        QFETCH(bool, loginItemActive);
        QFETCH(bool, closes);
        test::ViewHarness harness;
        // The page is the window's content, wherever the window puts it.
        QWidget window;
        makePage(page, servicesIn(harness, {true, helperRegistered, loginItemActive}))
            .release()
            ->setParent(&window);
        window.show();
        settle();
        QCOMPARE(window.isVisible(), !closes);
    }

    void returnPressesTheDefaultButton_data()
    {
        QTest::addColumn<Page>("page");
        QTest::addColumn<int>("launched");
        QTest::addColumn<int>("loginItemsOpened");
        QTest::addColumn<int>("registered");
        QTest::newRow("access") << Page::FullDiskAccess << 1 << 0 << 0;
        QTest::newRow("helper") << Page::Helper << 0 << 1 << 0;
        QTest::newRow("login item") << Page::LoginItem << 0 << 0 << 1;
    }
    void returnPressesTheDefaultButton()
    {
        QFETCH(Page, page);
        QFETCH(int, launched);
        QFETCH(int, loginItemsOpened);
        QFETCH(int, registered);
        qputenv("XDG_CURRENT_DESKTOP", "GNOME");
        test::ViewHarness harness;
        const ViewServices services = servicesIn(harness, {});
        const auto view = makePage(page, services);
        view->show();
        view->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(view.get()));
        // Return is the default button's wherever the focus is.
        if (const auto buttons = view->findChildren<QPushButton*>(); buttons.size() > 1)
            buttons.last()->setFocus();
        const std::size_t pendingBefore = harness.helper.scheduler.pendingCount();

        QTest::keyClick(view.get(), Qt::Key_Return);
        QCOMPARE(harness.workspace.launched.size(), launched);
        QCOMPARE(harness.helper.loginItemsSettings.opened, loginItemsOpened);
        // Opening the login items begins waiting for the helper's approval.
        QCOMPARE(harness.helper.scheduler.pendingCount(), pendingBefore + loginItemsOpened);
        QCOMPARE(harness.helper.loginService->registers, registered);
        QCOMPARE(services.client.loginItemActive(), registered > 0);
        QVERIFY(!services.defaults.boolValue(Constant::loginItemSupressedKey));
        if (page == Page::FullDiskAccess)
            QTRY_VERIFY(!view->isVisible());
        QTest::keyClick(view.get(), Qt::Key_Enter);
        QCOMPARE(harness.helper.loginService->registers, 2 * registered);
    }

    void openFDAStartsThePrivacySettings_data()
    {
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QString>("launchError");
        QTest::addColumn<QStringList>("launched");
        QTest::addColumn<QString>("line");
        const QStringList gnome{QStringLiteral("gnome-control-center"), QStringLiteral("privacy")};
        const QStringList kde{QStringLiteral("systemsettings"), QStringLiteral("kcm_recentFiles")};
        QTest::newRow("GNOME") << "GNOME" << QString() << gnome << QString();
        QTest::newRow("GNOME, most specific first")
            << "ubuntu:gnome" << QString() << gnome << QString();
        QTest::newRow("KDE, not installed")
            << "KDE"
            << "systemsettings: not found" << kde << "FDA Error: systemsettings: not found";
        QTest::newRow("XFCE") << "XFCE" << QString() << QStringList()
                              << "FDA Error: no privacy settings on this desktop";
        QTest::newRow("unset") << "" << QString() << QStringList()
                               << "FDA Error: no privacy settings on this desktop";
    }
    void openFDAStartsThePrivacySettings()
    {
        QFETCH(QString, desktop);
        QFETCH(QString, launchError);
        QFETCH(QStringList, launched);
        QFETCH(QString, line);
        qputenv("XDG_CURRENT_DESKTOP", desktop.toUtf8());
        test::ViewHarness harness;
        harness.workspace.launchError = launchError;
        FDAView view(servicesIn(harness, {}));
        view.show();
        test::ConsoleCapture console;
        view.defaultButton()->click();
        QCOMPARE(harness.workspace.launched,
                 launched.isEmpty() ? QList<QStringList>() : QList<QStringList>{launched});
        QCOMPARE(console.count("FDA Error: "), line.isEmpty() ? 0 : 1);
        QVERIFY(line.isEmpty() || console.has(line.toStdString()));
        QVERIFY(!view.isVisible()); // closed in every case
    }

    void noThanksIsRemembered()
    {
        test::ViewHarness harness;
        const ViewServices services = servicesIn(harness, {true, true, false});
        SetupView setup(services);
        setup.show();
        auto* page = qobject_cast<LoginItemView*>(setup.currentPage());
        QVERIFY(page);

        page->noThanksButton()->click();
        QVERIFY(services.client.loginItemActive());
        QVERIFY(harness.model.defaults.boolValue(QStringLiteral("loginItemSupressed")));
        QCOMPARE(harness.helper.loginService->registers, 0);
        // Nothing changes on screen until the window is closed.
        settle();
        QCOMPARE(setup.currentPage(), page);
        QVERIFY(setup.isVisible());
    }
};

QTEST_MAIN(TestSetupView)
#include "tst_SetupView.moc"
