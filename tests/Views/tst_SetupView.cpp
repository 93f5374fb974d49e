#include "Platform/Constant.h"
#include "ViewHarness.h"
#include "Views/SetupView.h"

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
using namespace Qt::StringLiterals;
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
    if (page == Page::FullDiskAccess)
        return std::make_unique<FDAView>(services);
    if (page == Page::Helper)
        return std::make_unique<HelperView>(services);
    return std::make_unique<LoginItemView>(services);
}

// Lets a close that a page queued when it appeared take place.
void settle()
{
    QCoreApplication::processEvents();
}

} // namespace

Q_DECLARE_METATYPE(SetupView::Page)
Q_DECLARE_METATYPE(State)

class TestSetupView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pageFollowsTheState_data()
    {
        QTest::addColumn<State>("state");
        QTest::addColumn<Page>("page");
        QTest::addColumn<QSize>("size");
        const QSize fda(720, 800), step(600, 500);
        const auto row = [](const char* name, State state, Page page, QSize size) {
            QTest::newRow(name) << state << page << size;
        };
        row("no access", {false, false, false}, Page::FullDiskAccess, fda);
        row("no access, the rest done", {false, true, true}, Page::FullDiskAccess, fda);
        row("helper missing", {true, false, false}, Page::Helper, step);
        row("helper missing, login item active", {true, false, true}, Page::Helper, step);
        row("login item to offer", {true, true, false}, Page::LoginItem, step);
        row("all done", {true, true, true}, Page::None, QSize());
    }
    void pageFollowsTheState()
    {
        QFETCH(State, state);
        QFETCH(Page, page);
        QFETCH(QSize, size);
        test::ViewHarness harness;
        SetupView setup(servicesIn(harness, state));
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
        QTest::addColumn<State>("state");
        QTest::addColumn<bool>("closes");
        const auto row = [](const char* name, Page page, State state, bool closes) {
            QTest::newRow(name) << page << state << closes;
        };
        row("access, helper", Page::FullDiskAccess, {true, true, false}, true);
        row("access, no helper", Page::FullDiskAccess, {true, false, true}, false);
        row("helper, login item", Page::Helper, {true, true, true}, true);
        row("helper only", Page::Helper, {true, true, false}, false);
        row("login item only", Page::Helper, {true, false, true}, false);
        row("login item active", Page::LoginItem, {true, false, true}, true);
        row("login item inactive", Page::LoginItem, {true, true, false}, false);
    }
    void pageWithItsStepDoneClosesItsWindow()
    {
        QFETCH(Page, page);
        QFETCH(State, state);
        QFETCH(bool, closes);
        test::ViewHarness harness;
        QWidget window; // the page is the window's content, wherever the window puts it
        makePage(page, servicesIn(harness, state)).release()->setParent(&window);
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
            QVERIFY2(!test::spokenName(control).isEmpty(), control->metaObject()->className());
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
        const auto row = [](const char* name, const char* folder, uid_t owner, mode_t mode,
                            bool helper, const char* problem = "belongs to root, not to you",
                            const char* command = "sudo chown -R nobody: %1/.local/share/Trash") {
            QTest::newRow(name) << QString::fromLatin1(folder) << owner << mode << helper
                                << QString::fromLatin1(problem) << QString::fromLatin1(command);
        };
        row("trash of root", "Trash", 0, 0755, false);
        row("files of root, helper there", "Trash/files", 0, 0700, true);
        row("info of root", "Trash/info", 0, 0755, false);
        row("own files, no way in", "Trash/files", test::nobody, 0500, false,
            "has the permissions 0500", "chmod u+rwx %1/.local/share/Trash/files");
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
        FDAView view(servicesIn(harness, {true, helperRegistered}));
        const QString text = view.problemLabel()->text();
        QVERIFY2(text.contains(u"\u2018%1\u2019"_s.arg(QString::fromStdString(wrong.native()))) &&
                     text.contains(problem) && !text.contains(u"Mac"_s),
                 qPrintable(text));
        QVERIFY(view.commandField());
        QCOMPARE(view.commandField()->text(),
                 command.arg(QString::fromStdString(harness.model.home.native())));
        QVERIFY(view.commandField()->isReadOnly());
        QCOMPARE(view.repairButton() != nullptr, helperRegistered);
        if (!helperRegistered)
            return;
        // No daemon answers on the test bus: the page says the fix did not happen.
        view.repairButton()->click();
        QVERIFY(!view.repairButton()->isEnabled());
        QTRY_VERIFY(view.outcomeLabel()->text().startsWith(u"The helper could not fix it: "_s));
        QVERIFY(view.repairButton()->isEnabled());
    }

    // Shell words are quoted only when they need it, so the command reads as one would type it.
    void diagnosisQuotesTheFolder()
    {
        const std::string trash = "/home/o'neil/.local/share/Trash";
        TrashAccessProblem problem{TrashAccessProblem::Kind::Owner, trash, trash, 0, 0755, 0};
        QCOMPARE(FDAView::diagnose(problem, u"oneil"_s).command,
                 u"sudo chown -R oneil: '/home/o'\\''neil/.local/share/Trash'"_s);
        problem.kind = TrashAccessProblem::Kind::Other;
        problem.error = EACCES;
        const FDAView::Diagnosis confined = FDAView::diagnose(problem, u"oneil"_s);
        QVERIFY(confined.command.isEmpty());
        QVERIFY(confined.problem.contains(u"Permission denied"_s));
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
        QVERIFY(harness.model.defaults.boolValue(u"loginItemSupressed"_s));
        QCOMPARE(harness.helper.loginService->registers, 0);
        // Nothing changes on screen until the window is closed.
        settle();
        QCOMPARE(setup.currentPage(), page);
        QVERIFY(setup.isVisible());
    }
};

QTEST_MAIN(TestSetupView)
#include "tst_SetupView.moc"
