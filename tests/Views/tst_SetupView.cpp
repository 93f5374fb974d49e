#include "Platform/Constant.h"
#include "ViewHarness.h"
#include "Views/SetupView.h"

#include <QAccessible>
#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <cstdlib>
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
    harness.helper.scheduler.runPending(); // the status read when the link was made
    if (state.helperRegistered)
        harness.helper.daemonService->currentStatus = ServiceHandle::Enabled;
    if (state.loginItemActive)
        harness.helper.loginService->currentStatus = ServiceHandle::Enabled;
    harness.helper.appService->updateStatus();
    harness.helper.scheduler.runPending();
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

// What a screen reader says a control is.
QString spokenName(QWidget* control)
{
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(control);
    return accessible ? accessible->text(QAccessible::Name) : QString();
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
        harness.helper.scheduler.runPending();
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

    void controlsAreNamedAndReturnPressesTheDefault_data()
    {
        QTest::addColumn<Page>("page");
        QTest::addColumn<bool>("copies");
        QTest::addColumn<int>("waits");
        QTest::addColumn<int>("registered");
        QTest::newRow("access") << Page::FullDiskAccess << true << 0 << 0;
        QTest::newRow("helper") << Page::Helper << false << 1 << 0;
        QTest::newRow("login item") << Page::LoginItem << false << 0 << 1;
    }
    void controlsAreNamedAndReturnPressesTheDefault()
    {
        QFETCH(Page, page);
        QFETCH(bool, copies);
        QFETCH(int, waits);
        QFETCH(int, registered);
        test::ViewHarness harness;
        const ViewServices services = servicesIn(harness, {false});
        const auto view = makePage(page, services);
        // Every button and field of a page has a name a screen reader can say.
        int controls = 0;
        for (QWidget* control : view->findChildren<QWidget*>()) {
            if (!qobject_cast<QAbstractButton*>(control) && !qobject_cast<QLineEdit*>(control))
                continue;
            ++controls;
            QVERIFY2(!spokenName(control).isEmpty(), control->metaObject()->className());
        }
        QVERIFY(controls >= 2);
        view->show();
        view->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(view.get()));
        QGuiApplication::clipboard()->clear();
        // Return is the default button's wherever the focus is.
        if (const auto buttons = view->findChildren<QPushButton*>(); buttons.size() > 1)
            buttons.last()->setFocus();
        const std::size_t pendingBefore = harness.helper.scheduler.pendingCount();

        QTest::keyClick(view.get(), Qt::Key_Return);
        // The access page copies its command; the helper page's asks again whether the helper
        // is there, and waits for it.
        const auto* command = view->findChild<QLineEdit*>();
        QCOMPARE(QGuiApplication::clipboard()->text(), copies ? command->text() : QString());
        QCOMPARE(harness.helper.scheduler.pendingCount(), pendingBefore + waits);
        QVERIFY(harness.workspace.launched.isEmpty()); // no page opens the desktop's settings
        QCOMPARE(harness.helper.loginItemsSettings.opened, 0);
        QCOMPARE(harness.helper.loginService->registers, registered);
        QCOMPARE(services.client.loginItemActive(), registered > 0);
        QVERIFY(!services.defaults.boolValue(Constant::loginItemSupressedKey));
        QTest::keyClick(view.get(), Qt::Key_Enter);
        QCOMPARE(harness.helper.loginService->registers, 2 * registered);
    }

    // A home trash that a file manager run with sudo left to root: the access page names the
    // folder, says what is wrong and gives the command that fixes it, and offers the helper's fix
    // only when the helper is there.
    void accessPageExplainsAForeignTrash_data()
    {
        QTest::addColumn<QString>("folder"); // the trash's folder at fault, below the home
        QTest::addColumn<uid_t>("owner");
        QTest::addColumn<mode_t>("mode");
        QTest::addColumn<bool>("helperRegistered");
        QTest::addColumn<QString>("problem");
        QTest::addColumn<QString>("command");
        const QString owned = QStringLiteral("belongs to root, not to you");
        const QString chown = QStringLiteral("sudo chown -R nobody: %1/.local/share/Trash");
        QTest::newRow("trash of root")
            << "Trash" << uid_t(0) << mode_t(0755) << false << owned << chown;
        QTest::newRow("files of root, helper there")
            << "Trash/files" << uid_t(0) << mode_t(0700) << true << owned << chown;
        QTest::newRow("info of root")
            << "Trash/info" << uid_t(0) << mode_t(0755) << false << owned << chown;
        QTest::newRow("own files, no way in")
            << "Trash/files" << test::nobody << mode_t(0500) << false
            << QStringLiteral("has the permissions 0500")
            << QStringLiteral("chmod u+rwx %1/.local/share/Trash/files");
    }
    void accessPageExplainsAForeignTrash()
    {
        QFETCH(QString, folder);
        QFETCH(uid_t, owner);
        QFETCH(mode_t, mode);
        QFETCH(bool, helperRegistered);
        QFETCH(QString, problem);
        QFETCH(QString, command);
        if (geteuid() != 0)
            QSKIP("giving a folder to root and the home to another user needs root");
        test::ViewHarness harness;
        harness.model.makeHomeTrash();
        const std::filesystem::path trash = harness.model.home / ".local/share";
        std::filesystem::create_directories(trash / "Trash/info");
        // The home and all in it are the user's, but for the one folder.
        QCOMPARE(std::system(("chown -R nobody: '" + harness.model.home.native() + "'").c_str()),
                 0);
        const std::filesystem::path wrong = trash / folder.toStdString();
        QCOMPARE(chown(wrong.c_str(), owner, owner), 0);
        QCOMPARE(chmod(wrong.c_str(), mode), 0);
        harness.helper.bus(); // on which no daemon answers
        const ViewServices services = servicesIn(harness, {true, helperRegistered});

        FDAView view(services);
        const QString home = QString::fromStdString(harness.model.home.native());
        QVERIFY2(view.problemLabel()->text().contains(
                     QStringLiteral("\u2018%1\u2019").arg(QString::fromStdString(wrong.native()))),
                 qPrintable(view.problemLabel()->text()));
        QVERIFY2(view.problemLabel()->text().contains(problem),
                 qPrintable(view.problemLabel()->text()));
        QVERIFY(!view.problemLabel()->text().contains(QStringLiteral("Mac")));
        QVERIFY(view.commandField());
        QCOMPARE(view.commandField()->text(), command.arg(home));
        QVERIFY(view.commandField()->isReadOnly());
        QCOMPARE(view.repairButton() != nullptr, helperRegistered);
        if (!helperRegistered)
            return;
        // No daemon answers on the test bus: the page says the fix did not happen.
        view.repairButton()->click();
        QVERIFY(!view.repairButton()->isEnabled());
        QTRY_VERIFY(view.outcomeLabel()->text().startsWith(
            QStringLiteral("The helper could not fix it: ")));
        QVERIFY(view.repairButton()->isEnabled());
    }

    // Shell words are quoted only when they need it, so the command reads as one would type it.
    void diagnosisQuotesTheFolder()
    {
        TrashAccessProblem problem{TrashAccessProblem::Kind::Owner,
                                   "/home/o'neil/.local/share/Trash",
                                   "/home/o'neil/.local/share/Trash",
                                   0,
                                   0755,
                                   0};
        const FDAView::Diagnosis diagnosis = FDAView::diagnose(problem, QStringLiteral("oneil"));
        QCOMPARE(diagnosis.command,
                 QStringLiteral("sudo chown -R oneil: '/home/o'\\''neil/.local/share/Trash'"));
        problem.kind = TrashAccessProblem::Kind::Other;
        problem.error = EACCES;
        const FDAView::Diagnosis confined = FDAView::diagnose(problem, QStringLiteral("oneil"));
        QVERIFY(confined.command.isEmpty());
        QVERIFY(confined.problem.contains(QStringLiteral("Permission denied")));
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
