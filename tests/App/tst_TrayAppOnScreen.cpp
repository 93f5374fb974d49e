#include "App/TrashApp.h"
#include "Model/VolumeObserver.h"
#include "Platform/DisplayText.h"
#include "Platform/FileSystem.h"
#include "Platform/UserDefaults.h"
#include "ScriptedTrayHost.h"
#include "Shell/Translations.h"
#include "TestSupport.h"
#include "Views/ListItem.h"
#include "Views/Pictures.h"

#include <QApplication>
#include <QMessageBox>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace quillane;
namespace fs = std::filesystem;

namespace
{

const fs::path volume = "/mnt/quillane-e2e";

// A user who has launched Quillane before and answered the update question, so that no
// question stands between the test and the panel.
void settleUser()
{
    SettingsUserDefaults defaults;
    for (const char* key : {"UpdateLaunchedBefore", "UpdateAskedForAutomaticChecks"})
        defaults.setBool(QLatin1String(key), true);
    defaults.setBool(QStringLiteral("UpdateAutomaticChecks"), false);
    defaults.synchronize();
}

ListItem* rowFor(const QWidget* window, const fs::path& location)
{
    if (!window)
        return nullptr;
    for (ListItem* row : window->findChildren<ListItem*>()) {
        if (row->item().volPath() == location)
            return row;
    }
    return nullptr;
}

} // namespace

// The tray application as a user meets it on an X server without a tray: its panel opens as a
// window of its own, lists a real mounted volume, and empties that volume's trash from the
// row's button, through the real confirmation.
class TestTrayAppOnScreen : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Where the desktop has a tray, the icon is in it, and a click opens the panel next to the
    // click; a second click closes it. The tray's own menu, as the panel reads and draws it,
    // holds the panel's commands, each run by its entry.
    void trayOpensThePanelAndRunsTheCommands()
    {
        if (qEnvironmentVariable("QT_QPA_PLATFORM") != QStringLiteral("xcb"))
            QSKIP("needs Xvfb");
        settleUser();
        test::SessionBus bus;
        test::ScriptedWatcher* watcher = bus.startWatcher();
        QVERIFY(watcher);

        TrashApp app(bus.appSide);
        app.launch();
        QVERIFY(!app.panelWindow()); // there is a tray: no window stands for it
        QTRY_COMPARE(watcher->registered().size(), 1);
        const QString item = watcher->registered().first();

        bus.callItem(item, QStringLiteral("Activate"), {640, 10});
        QTRY_VERIFY(app.trayPanel() && app.trayPanel()->isVisible());
        const QRect panel = app.trayPanel()->frameGeometry();
        QCOMPARE(panel.top(), 14); // just below the click, on a screen with no bar of its own
        QCOMPARE(panel.center().x(), 640 - 1 + panel.width() % 2);
        QCOMPARE(panel.width(), 400);
        bus.callItem(item, QStringLiteral("Activate"), {640, 10});
        QTRY_VERIFY(!app.trayPanel()->isVisible());

        const QList<QPair<int, QString>> expected{{1, QStringLiteral("Open Quillane")},
                                                  {2, QStringLiteral("-")},
                                                  {3, QStringLiteral("Check for Updates...")},
                                                  {4, QStringLiteral("Settings...")},
                                                  {5, QStringLiteral("-")},
                                                  {6, QStringLiteral("Quit Quillane")}};
        QCOMPARE(bus.menuOf(item), expected);
        bus.menuEvent(item, 1, QStringLiteral("clicked"));
        QTRY_VERIFY(app.trayPanel()->isVisible());
        QVERIFY(!app.settingsWindow());
        bus.menuEvent(item, 4, QStringLiteral("clicked"));
        QTRY_VERIFY(app.settingsWindow() && app.settingsWindow()->isVisible());
        app.settingsWindow()->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(app.settingsWindow()));
        QTest::keyClick(app.settingsWindow(), Qt::Key_Escape); // closing it loses nothing
        QTRY_VERIFY(!app.settingsWindow());
    }

    void emptiesAVolumeFromThePanelWindow()
    {
        if (!test::canMount() || qEnvironmentVariable("QT_QPA_PLATFORM") != QStringLiteral("xcb"))
            QSKIP("needs root in a private mount namespace, and Xvfb");

        QTemporaryDir images;
        QVERIFY(test::mountExt4(images.filePath(QStringLiteral("e2e.img")).toStdString(), volume));
        const auto unmount = qScopeGuard([] { test::unmount(volume); });
        const fs::path trash = volume / ".Trash-0";
        for (int i = 0; i < 150; ++i) {
            const std::string name = "file " + std::to_string(i);
            test::writeFile(trash / "files" / name, std::string(3000, 'x'));
            test::writeFile(trash / "info" / (name + ".trashinfo"),
                            "[Trash Info]\nPath=/" + name + "\nDeletionDate=2026-11-23T10:00:00\n");
        }

        settleUser();
        const auto expectedFreed = allocatedSizeOfDirectory(trash / "files");
        QVERIFY(expectedFreed);
        test::SessionBus bus; // with the desktop's notification server, and no tray
        test::ScriptedNotificationServer* notifications = bus.startNotificationServer();
        QVERIFY(notifications);
        TrashApp app(bus.appSide);
        app.launch();
        QVERIFY(app.panelWindow()); // no tray on a bare X server
        QTRY_VERIFY(app.panelWindow()->isVisible());
        QTRY_VERIFY_WITH_TIMEOUT(rowFor(app.panelWindow(), volume), 20000);
        QTRY_COMPARE_WITH_TIMEOUT(
            rowFor(app.panelWindow(), volume)->details().section(QLatin1Char(','), 0, 0),
            QStringLiteral("150 items"), 20000);

        bool sawProgressBar = false;
        connect(&app.observer(), &VolumeObserver::progressChanged, this, [&] {
            if (ListItem* row = rowFor(app.panelWindow(), volume))
                sawProgressBar |=
                    row->findChild<QProgressBar*>(QStringLiteral("progress"))->isVisible();
        });
        QString asked;
        QTimer answer;
        connect(&answer, &QTimer::timeout, this, [&] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                asked = box->text();
                QTest::keyClick(box, Qt::Key_D);
            }
        });
        answer.start(50);

        ListItem* row = rowFor(app.panelWindow(), volume);
        QTest::mouseClick(row->findChild<QPushButton*>(QStringLiteral("empty")), Qt::LeftButton);
        QVERIFY(asked.startsWith(QStringLiteral("Are you sure you want to empty the trash for ")));

        QTRY_VERIFY_WITH_TIMEOUT(
            rowFor(app.panelWindow(), volume) &&
                rowFor(app.panelWindow(), volume)->details().startsWith(QStringLiteral("0 items")),
            30000);
        QVERIFY(sawProgressBar);
        QCOMPARE(listDirectory(trash / "files")->size(), 0u);
        QCOMPARE(listDirectory(trash / "info")->size(), 0u);

        // The desktop is told, beside the sound.
        QTRY_COMPARE(notifications->shown.size(), 1);
        const QString name = messageText(
            rowFor(app.panelWindow(), volume)->item().name(app.observer().platform().volumeNames));
        QCOMPARE(notifications->shown[0].summary, QStringLiteral("Emptied the trash of ") + name);
        QCOMPARE(notifications->shown[0].body,
                 formatByteCount(*expectedFreed) + QStringLiteral(" freed"));
        QCOMPARE(notifications->shown[0].application, QStringLiteral("Quillane"));
        QCOMPARE(notifications->shown[0].icon, QStringLiteral("user-trash"));
    }
};

int main(int argc, char* argv[])
{
    // A real X server of the test's own, without a desktop and so without a tray.
    QProcess xvfb;
    QTemporaryDir session;
    if (!QStandardPaths::findExecutable(QStringLiteral("Xvfb")).isEmpty()) {
        xvfb.start(QStringLiteral("Xvfb"),
                   {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-nolisten"),
                    QStringLiteral("tcp"), QStringLiteral("-screen"), QStringLiteral("0"),
                    QStringLiteral("1280x800x24")});
        if (xvfb.waitForReadyRead(20000)) {
            qputenv("DISPLAY", ":" + xvfb.readLine().trimmed());
            qputenv("QT_QPA_PLATFORM", "xcb");
        }
    }
    // A user of the test's own: home, settings and runtime folder, and no session bus.
    for (const char* folder : {"home", "config", "data", "runtime"})
        QDir(session.path()).mkpath(QString::fromLatin1(folder));
    QFile::setPermissions(session.filePath(QStringLiteral("runtime")),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    qputenv("HOME", session.filePath(QStringLiteral("home")).toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", session.filePath(QStringLiteral("config")).toLocal8Bit());
    qputenv("XDG_DATA_HOME", session.filePath(QStringLiteral("data")).toLocal8Bit());
    qputenv("XDG_RUNTIME_DIR", session.filePath(QStringLiteral("runtime")).toLocal8Bit());
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/quillane-test-bus");

    int result = 0;
    {
        QApplication application(argc, argv);
        QApplication::setQuitOnLastWindowClosed(false);
        installTranslations();
        ensureIconTheme();
        TestTrayAppOnScreen test;
        result = QTest::qExec(&test, argc, argv);
    }
    xvfb.terminate();
    xvfb.waitForFinished();
    return result;
}

#include "tst_TrayAppOnScreen.moc"
