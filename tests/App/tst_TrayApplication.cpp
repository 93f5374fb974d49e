#include "App/AppDelegate.h"
#include "App/LaunchArguments.h"
#include "App/PanelWindow.h"
#include "App/RunningInstance.h"
#include "App/TrashApp.h"
#include "App/TrayIcon.h"
#include "App/WindowFrame.h"
#include "HelperHarness.h"
#include "Model/VolumeObserver.h"
#include "Platform/BusNames.h"
#include "Platform/VolumeNames.h"
#include "Platform/linux/FreedesktopNotifier.h"
#include "Platform/tray/StatusNotifierItem.h"
#include "ScriptedTrayHost.h"
#include "Shell/Translations.h"
#include "ViewHarness.h"
#include "Views/MenuView.h"
#include "Views/SettingsView.h"
#include "Views/SetupView.h"

#include <QDBusAbstractAdaptor>
#include <QDBusInterface>
#include <QDBusReply>
#include <QLocalSocket>
#include <QPixmap>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtConcurrent>
#include <filesystem>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace quillane;
using namespace std::chrono_literals;

namespace
{

QPixmap filled(Qt::GlobalColor colour)
{
    QPixmap picture(22, 22);
    picture.fill(colour);
    return picture;
}

// What the tray host reads of the item's properties.
QVariant itemProperty(test::SessionBus& bus, const QString& item, const char* name)
{
    return bus.property(item, BusNames::statusNotifierItemPath,
                        BusNames::statusNotifierItemInterface, QString::fromLatin1(name));
}

// The item an icon registered with the host, once it has (empty when it never does).
QString registeredItem(const test::ScriptedWatcher* watcher)
{
    return QTest::qWaitFor([&] { return watcher->registered().size() == 1; })
               ? watcher->registered().first()
               : QString();
}

// The debug lines written while it lives.
struct DebugCapture {
    DebugCapture()
    {
        lines().clear();
        previous = qInstallMessageHandler(
            [](QtMsgType type, const QMessageLogContext&, const QString& message) {
                if (type == QtDebugMsg)
                    lines() << message;
            });
    }
    ~DebugCapture() { qInstallMessageHandler(previous); }
    static QStringList& lines()
    {
        static QStringList captured;
        return captured;
    }
    QtMessageHandler previous;
};

} // namespace

class TestTrayApplication : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { installTranslations(); }

    void panelPlacement_data()
    {
        QTest::addColumn<QPoint>("click");
        QTest::addColumn<QPoint>("topLeft");
        // A 400x300 panel on a 1920x1080 screen whose top 30 pixels are the desktop's bar.
        QTest::newRow("top bar: below it") << QPoint(1000, 15) << QPoint(800, 30);
        QTest::newRow("below the click") << QPoint(1000, 200) << QPoint(800, 204);
        QTest::newRow("bottom bar: above the click") << QPoint(1000, 1070) << QPoint(800, 766);
        QTest::newRow("right corner: kept on screen") << QPoint(1910, 15) << QPoint(1520, 30);
        QTest::newRow("left corner: kept on screen") << QPoint(5, 1070) << QPoint(0, 766);
    }

    void panelPlacement()
    {
        QFETCH(QPoint, click);
        QFETCH(QPoint, topLeft);
        QCOMPARE(PanelWindow::placement(QSize(400, 300), click, QRect(0, 30, 1920, 1050)), topLeft);
    }

    // The views keep their own sizes where the screen has room for them, and otherwise shrink
    // to the screen's free area and scroll, however large the scale makes them.
    void windowsFitTheScreen_data()
    {
        QTest::addColumn<QString>("view");
        QTest::addColumn<QSize>("size"); // an empty height: as tall as the view wants
        QTest::newRow("access page") << QStringLiteral("access") << FDAView::pageSize;
        QTest::newRow("helper page") << QStringLiteral("helper") << HelperView::pageSize;
        QTest::newRow("login page") << QStringLiteral("login") << LoginItemView::pageSize;
        QTest::newRow("settings") << QStringLiteral("settings") << SettingsView::windowSize;
        QTest::newRow("panel") << QStringLiteral("panel") << QSize(400, 0);
        QTest::newRow("panel of twelve") << QStringLiteral("panel of twelve") << QSize(400, 0);
    }

    void windowsFitTheScreen()
    {
        QFETCH(QString, view);
        QFETCH(QSize, size);
        test::ViewHarness harness;
        if (view == QStringLiteral("panel of twelve")) {
            std::vector<std::tuple<std::string, std::string, std::string>> mounts;
            for (int i = 0; i < 12; ++i)
                mounts.emplace_back("/media/volume " + std::to_string(i), "ext4", "rw");
            harness.model.setMounts(mounts);
        }
        const ViewServices services = harness.services();
        harness.model.settle();

        QWidget* content = nullptr;
        if (view == QStringLiteral("access"))
            content = new FDAView(services);
        else if (view == QStringLiteral("helper"))
            content = new HelperView(services);
        else if (view == QStringLiteral("login"))
            content = new LoginItemView(services);
        else if (view == QStringLiteral("settings"))
            content = new SettingsView(services);
        else
            content = new MenuView(services);
        if (auto* page = qobject_cast<SetupPage*>(content))
            page->setFixedSize(size); // as the setup window holds its pages

        const QRect room = QGuiApplication::primaryScreen()->availableGeometry();
        std::unique_ptr<QWidget> window;
        if (view.startsWith(QStringLiteral("panel"))) {
            auto panel = std::make_unique<PanelWindow>(content);
            panel->popUp(room.bottomRight()); // a tray in the screen's corner
            window = std::move(panel);
        } else {
            window = std::make_unique<QWidget>();
            frameAround(window.get(), content);
            window->show();
        }
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QCoreApplication::processEvents();
        if (size.height() == 0)
            size.setHeight(content->sizeHint().height());

        const QRect frame = window->frameGeometry();
        QCOMPARE(room.united(frame), room); // within the screen
        // Nothing is cut off: the view keeps its size, and what is not in sight can be
        // scrolled to.
        QCOMPARE(content->size(), size);
        auto* area = window->findChild<QScrollArea*>(QString(), Qt::FindDirectChildrenOnly);
        QVERIFY(area);
        QVERIFY(area->viewport()->width() + area->horizontalScrollBar()->maximum() >=
                content->width());
        QVERIFY(area->viewport()->height() + area->verticalScrollBar()->maximum() >=
                content->height());
        // Where it fits, the window is the view's own size.
        const QSize decoration = frame.size() - window->size();
        if (size.width() + decoration.width() <= room.width() &&
            size.height() + decoration.height() <= room.height())
            QCOMPARE(window->size(), size);
    }

    // A window follows its view as the view changes size, as the setup window does from one
    // page to the next.
    void windowFollowsItsView()
    {
        QWidget window;
        auto* content = new QWidget;
        content->setFixedSize(300, 200);
        frameAround(&window, content);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QCOMPARE(window.size(), QSize(300, 200));
        content->setFixedSize(200, 100);
        QTRY_COMPARE(window.size(), QSize(200, 100));
        content->setFixedSize(500, 400);
        QTRY_COMPARE(window.size(), QSize(500, 400));
    }

    // Escape closes the panel wherever the focus is in it, and presses nothing.
    void escapeClosesThePanel_data()
    {
        QTest::addColumn<bool>("onButton");
        QTest::newRow("on the panel") << false;
        QTest::newRow("on a button") << true;
    }

    void escapeClosesThePanel()
    {
        QFETCH(bool, onButton);
        auto* content = new QWidget;
        auto* button = new QPushButton(QStringLiteral("Empty"), content);
        int clicks = 0;
        connect(button, &QPushButton::clicked, this, [&] { ++clicks; });
        PanelWindow panel(content);
        panel.popUp(QPoint(100, 100));
        QVERIFY(panel.isVisible());
        QWidget* target = onButton ? static_cast<QWidget*>(button) : &panel;
        QTest::keyClick(target, Qt::Key_Tab); // other keys leave it open
        QVERIFY(panel.isVisible());
        QTest::keyClick(target, Qt::Key_Escape);
        QVERIFY(!panel.isVisible());
        QCOMPARE(clicks, 0);
    }

    // A second launch finds the first and asks it to come forward.
    void secondLaunchBringsTheFirstForward()
    {
        QTemporaryDir dir;
        const QString name = dir.filePath(QStringLiteral("quillane.socket"));
        RunningInstance first(name);
        QCOMPARE(first.askRunningToShow(), RunningInstance::Answer::NoInstance);
        QVERIFY(first.listen());
        QSignalSpy shows(&first, &RunningInstance::showRequested);

        // The second launch blocks on its question, as a starting program does.
        QFuture<RunningInstance::Answer> second =
            QtConcurrent::run([name] { return RunningInstance(name).askRunningToShow(); });
        QTRY_VERIFY(second.isFinished());
        QCOMPARE(second.result(), RunningInstance::Answer::Shown);
        QCOMPARE(shows.count(), 1);
    }

    // A socket file left by an instance that crashed does not stop the next one.
    void staleSocketIsTakenOver()
    {
        QTemporaryDir dir;
        const QByteArray path = dir.filePath(QStringLiteral("quillane.socket")).toLocal8Bit();
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.constData(), sizeof(address.sun_path) - 1);
        QCOMPARE(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        ::close(fd); // bound, never listened: no one answers on it

        RunningInstance instance(QString::fromLocal8Bit(path));
        QVERIFY2(instance.listen(), qPrintable(instance.error()));
    }

    // The icon appears when a tray host turns up after the start, a click reaches us with the
    // place it was made at, and the icon changes as the trash does.
    void trayIconAppearsWithALateHost()
    {
        test::SessionBus bus;
        QVERIFY(bus.appSide.isConnected());

        TrayIcon tray{{QStringLiteral("user-trash"), QIcon(filled(Qt::red))}, {}, bus.appSide};
        QSignalSpy appeared(&tray, &TrayIcon::appeared);
        QSignalSpy clicks(&tray, &TrayIcon::clicked);
        QVERIFY(!tray.start()); // no host, and no X11 tray off screen
        QVERIFY(!tray.isShown());

        test::ScriptedWatcher* watcher = bus.startWatcher();
        QVERIFY(watcher);

        QTRY_COMPARE(appeared.count(), 1);
        QVERIFY(tray.isShown());

        // What the panel reads and does with the item it was told of.
        const QString item = registeredItem(watcher);
        QCOMPARE(itemProperty(bus, item, "Id").toString(), QStringLiteral("quillane"));
        QCOMPARE(itemProperty(bus, item, "ItemIsMenu").toBool(), false);
        QVERIFY(itemProperty(bus, item, "IconPixmap").isValid());
        QCOMPARE(itemProperty(bus, item, "IconName").toString(), QStringLiteral("user-trash"));

        // The host says where in the display's pixels; at twice the scale, that is half as far
        // in the units windows are placed in.
        bus.callItem(item, QStringLiteral("Activate"), {640, 12});
        QTRY_COMPARE(clicks.count(), 1);
        const qreal scale = QGuiApplication::primaryScreen()->devicePixelRatio();
        QCOMPARE(clicks.first().first().toPoint(), QPoint(qRound(640 / scale), qRound(12 / scale)));

        // The icon says whether the trash holds items: the host hears of each change and reads
        // the theme's name for the new icon.
        m_newIcons = 0;
        QVERIFY(bus.panelSide.connect(item, BusNames::statusNotifierItemPath,
                                      BusNames::statusNotifierItemInterface,
                                      QStringLiteral("NewIcon"), this, SLOT(countNewIcon())));
        int changes = 0;
        for (const QString& name :
             {QStringLiteral("user-trash-full"), QStringLiteral("user-trash")}) {
            tray.setPicture({name, QIcon(filled(++changes == 1 ? Qt::blue : Qt::red))});
            QTRY_COMPARE(m_newIcons, changes);
            QCOMPARE(itemProperty(bus, item, "IconName").toString(), name);
        }
    }

    // The tray item publishes its menu; the panel reads it in order and draws it itself, and
    // the entry the user picks runs its command once.
    void trayMenuIsReadAndPickedOverTheBus_data()
    {
        QTest::addColumn<int>("id");
        QTest::addColumn<QString>("event");
        QTest::addColumn<bool>("grouped");
        QTest::addColumn<QStringList>("ran");
        QTest::addColumn<bool>("error");
        const QString clicked = QStringLiteral("clicked");
        const QStringList open{QStringLiteral("open")};
        const QStringList quit{QStringLiteral("quit")};
        QTest::newRow("first entry clicked") << 1 << clicked << false << open << false;
        QTest::newRow("last entry clicked") << 4 << clicked << false << quit << false;
        QTest::newRow("clicked, in a group") << 1 << clicked << true << open << false;
        QTest::newRow("hovered runs nothing")
            << 3 << QStringLiteral("hovered") << false << QStringList() << false;
        QTest::newRow("separator clicked") << 2 << clicked << false << QStringList() << false;
        QTest::newRow("the menu itself opened")
            << 0 << QStringLiteral("opened") << true << QStringList() << false;
        QTest::newRow("no such entry") << 5 << clicked << false << QStringList() << true;
    }

    void trayMenuIsReadAndPickedOverTheBus()
    {
        QFETCH(int, id);
        QFETCH(QString, event);
        QFETCH(bool, grouped);
        QFETCH(QStringList, ran);
        QFETCH(bool, error);
        test::SessionBus bus;
        test::ScriptedWatcher* watcher = bus.startWatcher();
        QVERIFY(watcher);
        QStringList commands;
        TrayMenu menu{{QStringLiteral("Open"), [&] { commands << QStringLiteral("open"); }},
                      TrayMenuEntry::separator(),
                      {QStringLiteral("Set_up..."), [&] { commands << QStringLiteral("setup"); }},
                      {QStringLiteral("Quit"), [&] { commands << QStringLiteral("quit"); }}};
        TrayIcon tray{{QStringLiteral("user-trash"), QIcon(filled(Qt::red))}, menu, bus.appSide};
        QVERIFY(tray.start());
        const QString item = registeredItem(watcher);
        const QList<QPair<int, QString>> expected{{1, QStringLiteral("Open")},
                                                  {2, QStringLiteral("-")},
                                                  // "_" alone marks an access key for the host
                                                  {3, QStringLiteral("Set__up...")},
                                                  {4, QStringLiteral("Quit")}};
        QCOMPARE(bus.menuOf(item), expected);
        QCOMPARE(bus.property(item, StatusNotifierItem::menuPath, BusNames::menuInterface,
                              QStringLiteral("Version"))
                     .toUInt(),
                 3u);

        const QDBusMessage reply = bus.menuEvent(item, id, event, grouped);
        QCOMPARE(reply.type(), error ? QDBusMessage::ErrorMessage : QDBusMessage::ReplyMessage);
        QTest::qWait(50); // a command runs after the answer: let any that would run, run
        QCOMPARE(commands, ran);
    }

    // What the desktop is told when an emptying ends: only an emptying that removed something,
    // with the name shown safely and the space it gave back.
    void emptyingNotification_data()
    {
        QTest::addColumn<int>("ending");
        QTest::addColumn<QString>("volumeName");
        QTest::addColumn<qint64>("freed"); // -1: not known
        QTest::addColumn<int>("chosen");   // -1: the whole trash
        QTest::addColumn<QString>("summary");
        QTest::addColumn<QString>("body");
        using Ending = EmptyingResult::Ending;
        const auto row = [](const char* tag, Ending ending, const char* name, qint64 freed,
                            int chosen, const char* summary, const char* body) {
            QTest::newRow(tag) << int(ending) << QString::fromUtf8(name) << freed << chosen
                               << QString::fromUtf8(summary) << QString::fromUtf8(body);
        };
        const char* stick = "USB Stick";
        const char* emptied = "Emptied the trash of USB Stick";
        row("completed", Ending::Completed, stick, 1'234'000'000, -1, emptied, "1.2 GB freed");
        row("size not known", Ending::Completed, stick, -1, -1, emptied, "");
        row("a newline in the name", Ending::Completed, "USB\nStick", 999, -1,
            "Emptied the trash of USB\\nStick", "999 bytes freed");
        row("one item chosen", Ending::Completed, stick, 4096, 1,
            "Deleted 1 item from the trash of USB Stick", "4.1 kB freed");
        row("three items chosen", Ending::Completed, stick, 4096, 3,
            "Deleted 3 items from the trash of USB Stick", "4.1 kB freed");
        row("nothing to remove", Ending::NothingToRemove, stick, 0, -1, "", "");
        row("not started", Ending::NotStarted, stick, 0, -1, "", "");
        row("stopped", Ending::Stopped, stick, 0, -1, "", "");
    }

    void emptyingNotification()
    {
        QFETCH(int, ending);
        QFETCH(QString, volumeName);
        QFETCH(qint64, freed);
        QFETCH(int, chosen);
        QFETCH(QString, summary);
        QFETCH(QString, body);
        const test::CountedNames names(volumeName.toStdString());
        EmptyingResult result;
        result.volume = Volume(std::filesystem::path("/media/stick"),
                               std::filesystem::path("/media/stick/.Trash-0/files"));
        result.ending = static_cast<EmptyingResult::Ending>(ending);
        if (freed >= 0)
            result.freedBytes = static_cast<std::uint64_t>(freed);
        if (chosen >= 0)
            result.chosenItems = static_cast<std::size_t>(chosen);
        const auto notification = TrashApp::notificationFor(result, names);
        QCOMPARE(notification.has_value(), !summary.isEmpty());
        if (!notification)
            return;
        QCOMPARE(notification->summary, summary);
        QCOMPARE(notification->body, body);
        QCOMPARE(notification->iconName, QStringLiteral("user-trash"));
    }

    // Without a notification server, a debug line is all that is said.
    void notificationWithoutAServerIsQuiet()
    {
        test::SessionBus bus;
        QVERIFY(bus.appSide.isConnected());
        DebugCapture debug;
        FreedesktopNotifier notifier(bus.appSide, QStringLiteral("Quillane"));
        notifier.notify(
            {QStringLiteral("Emptied the trash of Home"), QString(), QStringLiteral("user-trash")});
        QTRY_COMPARE(DebugCapture::lines().size(), 1);
        QVERIFY2(DebugCapture::lines()[0].startsWith(QStringLiteral("No notification shown: ")),
                 qPrintable(DebugCapture::lines()[0]));
    }

    // Without a session bus the application goes on without one and says so once; it starts
    // no bus of its own, which would outlive it.
    void runsWithoutASessionBus()
    {
        QTemporaryDir home;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        environment.remove(QStringLiteral("DISPLAY"));
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        environment.insert(QStringLiteral("HOME"), home.path());
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), home.path());
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path() + QStringLiteral("/c"));
        environment.remove(QStringLiteral("XDG_DATA_HOME"));
        QProcess app;
        app.setProcessEnvironment(environment);
        app.start(QStringLiteral(QUILLANE_EXECUTABLE), QStringList());
        QByteArray output;
        QTRY_VERIFY_WITH_TIMEOUT((output += app.readAllStandardOutput()).contains("session bus"),
                                 20000);
        QTest::qWait(500);
        output += app.readAllStandardOutput();
        app.terminate();
        QVERIFY(app.waitForFinished(10000));
        QCOMPARE(output.count("There is no session bus"), 1);

        // Anything started on its behalf would carry its home in its environment.
        const QByteArray mark = "HOME=" + QFile::encodeName(home.path()) + '\0';
        QStringList left;
        for (const auto& process : std::filesystem::directory_iterator("/proc")) {
            QFile variables(QString::fromStdString((process.path() / "environ").native()));
            if (variables.open(QIODevice::ReadOnly) && variables.readAll().contains(mark))
                left << QString::fromStdString(process.path().filename().native());
        }
        QVERIFY2(left.isEmpty(), qPrintable(left.join(u' ')));
    }

    // A session restore and Qt's own arguments start the tray application; anything else is a
    // command for the command line.
    void launchArguments_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("tray");
        const auto row = [](const char* name, std::initializer_list<const char*> words, bool tray) {
            QStringList arguments;
            for (const char* word : words)
                arguments << QString::fromLatin1(word);
            QTest::newRow(name) << arguments << tray;
        };
        row("none", {}, true);
        row("session restore", {"-session", "10d3f5b2a7000163"}, true);
        row("session and name", {"-session", "10d3f", "-name", "quillane"}, true);
        row("Qt's own, double dash", {"--platform", "xcb", "-reverse"}, true);
        row("value after =", {"-session=10d3f"}, true);
        row("session without its ID", {"-session"}, false);
        row("a command", {"list"}, false);
        row("help", {"--help"}, false);
        row("session, then a command", {"-session", "x", "list"}, false);
        row("unknown option", {"-sessions", "x"}, false);
    }
    void launchArguments()
    {
        QFETCH(QStringList, arguments);
        QTEST(isTrayLaunch(arguments), "tray");
    }

    void launchSequence_data()
    {
        QTest::addColumn<int>("daemonStatus");
        QTest::addColumn<bool>("starts");
        QTest::newRow("registered: the connection starts") << int(ServiceHandle::Enabled) << true;
        QTest::newRow("not registered: only the status")
            << int(ServiceHandle::NotRegistered) << false;
    }

    void launchSequence()
    {
        QFETCH(int, daemonStatus);
        QFETCH(bool, starts);

        test::HelperHarness helper;
        QVERIFY(helper.startDaemon({QStringLiteral("--version"), QStringLiteral("17")}));
        helper.daemonService->currentStatus = daemonStatus;
        helper.scheduler.runPending();
        helper.appService->updateStatus(); // read when the application starts, applied later
        XPCClient& client = helper.client();
        QTemporaryDir dir;
        SettingsUserDefaults defaults(dir.filePath(QStringLiteral("defaults.ini")));
        test::RecordingApplication application;

        AppDelegate(client, defaults, application).applicationDidFinishLaunching();

        QCOMPARE(application.calls, QStringList{QStringLiteral("activate ignoring")});
        QCOMPARE(client.helperStatus(), QStringLiteral("checking"));
        QVERIFY(!client.helperRegistered()); // the status is not in yet
        helper.scheduler.runPending();
        // Waiting for the helper is a repeating step on the main queue, there only when started.
        QCOMPARE(helper.scheduler.pendingCount() > 0, starts);
        QCOMPARE(client.helperRegistered(), starts);
        if (starts) {
            helper.scheduler.advance(2s);
            QTRY_VERIFY(helper.calls(QStringLiteral("versionWithReply")) > 0);
        }
    }

public Q_SLOTS:
    void countNewIcon() { ++m_newIcons; }

private:
    int m_newIcons = 0;
};

QTEST_MAIN(TestTrayApplication)
#include "tst_TrayApplication.moc"
