#include "Platform/UserDefaults.h"
#include "Platform/VirtualScheduler.h"
#include "Platform/linux/PackageOrigin.h"
#include "Shell/Appcast.h"
#include "Shell/Updater.h"
#include "TestSupport.h"

#include <QNetworkReply>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

using namespace quillane;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{

const QByteArray sparkle = "http://www.andymatuschak.org/xml-namespaces/sparkle";
const QUrl releasePage(QStringLiteral("https://quillane.velmoric.com/releases/1.5"));
const QString upToDate = QStringLiteral("You’re up to date!");
const QString newVersion = QStringLiteral("A new version of Quillane is available!");
const QString checkFailed = QStringLiteral("Update Check Failed");
const QString question = QStringLiteral("Check for updates automatically?");

QByteArray rss(const QByteArray& items, const QByteArray& ns = sparkle)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<rss version=\"2.0\" xmlns:sparkle=\"" +
           ns + "\">\n<channel><title>Quillane</title>\n" + items + "</channel>\n</rss>\n";
}

// An item in the enclosure form.
QByteArray item(const QByteArray& build, const QByteArray& version = {},
                const QByteArray& link = releasePage.toEncoded())
{
    QByteArray enclosure = "<enclosure url=\"https://quillane.velmoric.com/quillane.tar.gz\"";
    if (!build.isNull())
        enclosure += " sparkle:version=\"" + build + "\"";
    if (!version.isNull())
        enclosure += " sparkle:shortVersionString=\"" + version + "\"";
    return "<item><title>Quillane</title><link>" + link + "</link>" + enclosure +
           " length=\"1\" type=\"application/octet-stream\"/></item>\n";
}

// Answers every request on loopback with one canned HTTP response; status 0: nothing listens.
class FeedServer
{
public:
    explicit FeedServer(const QByteArray& body, int status = 200)
        : m_response("HTTP/1.1 " + QByteArray::number(status) +
                     (status == 404 ? " Not Found" : " OK") +
                     "\r\nContent-Type: application/rss+xml\r\nContent-Length: " +
                     QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body)
    {
        m_server.listen(QHostAddress::LocalHost);
        url = QUrl(QStringLiteral("http://127.0.0.1:%1/appcast.xml").arg(m_server.serverPort()));
        if (status == 0)
            m_server.close();
        QObject::connect(&m_server, &QTcpServer::newConnection, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    if (!socket->peek(8192).contains("\r\n\r\n"))
                        return;
                    socket->readAll();
                    ++requests;
                    socket->write(m_response);
                    socket->disconnectFromHost();
                });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }

    QUrl url;
    int requests = 0;

private:
    QTcpServer m_server;
    QByteArray m_response;
};

// Each launch makes a new update checker over the same stored defaults and clock.
struct Launches {
    Updater& launch(const QUrl& feed, bool fromPackage = false)
    {
        BundleInfo bundle;
        bundle.buildVersion = QStringLiteral("5");
        bundle.shortVersion = QStringLiteral("1.4");
        updater = std::make_unique<Updater>(
            Updater::Services{alerts, workspace, defaults, scheduler, bundle, feed,
                              [fromPackage] { return fromPackage; }});
        updater->start();
        scheduler.runPending();
        return *updater;
    }
    QStringList titles() const
    {
        QStringList titles;
        for (const AlertRequest& shown : alerts.shown)
            titles << shown.title;
        return titles;
    }

    QTemporaryDir dir;
    test::ScriptedAlerts alerts;
    test::RecordingWorkspace workspace;
    SettingsUserDefaults defaults{dir.filePath(QStringLiteral("settings.ini"))};
    VirtualScheduler scheduler;
    std::unique_ptr<Updater> updater;
};

} // namespace

class TestUpdater : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void appcast_data()
    {
        QTest::addColumn<QByteArray>("feed");
        QTest::addColumn<quint64>("build");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QUrl>("page");
        QTest::addColumn<QString>("error"); // empty: the feed is read
        const QUrl notes(QStringLiteral("https://quillane.velmoric.com/notes/58.html"));
        const auto fails = [](const char* name, const QByteArray& feed, const char* error) {
            QTest::newRow(name) << feed << quint64(0) << QString() << QUrl()
                                << QString::fromLatin1(error);
        };

        QTest::newRow("attributes") << rss(item("57", "1.4.2")) << quint64(57)
                                    << QStringLiteral("1.4.2") << releasePage << QString();
        QTest::newRow("elements, release notes link")
            << rss("<item><sparkle:version> 58 </sparkle:version><sparkle:shortVersionString>1.5"
                   "</sparkle:shortVersionString><sparkle:releaseNotesLink>" +
                   notes.toEncoded() + "</sparkle:releaseNotesLink><enclosure url=\"x\"/></item>")
            << quint64(58) << QStringLiteral("1.5") << notes << QString();
        QTest::newRow("the highest build wherever it stands, with no version to show")
            << rss(item("12", "1.2") + item("140") + item("9", "1.1")) << quint64(140)
            << QStringLiteral("140") << releasePage << QString();
        QTest::newRow("items without a decimal build are passed over")
            << rss(item({}, "9.0") + item("3", "0.3") + item("1.2.3", "1.2.3") + item("+7") +
                   item("99999999999999999999999"))
            << quint64(3) << QStringLiteral("0.3") << releasePage << QString();
        QTest::newRow("another prefix for the namespace")
            << QByteArray("<rss xmlns:s=\"" + sparkle +
                          "\"><channel><item><enclosure s:version=\"4\" "
                          "s:shortVersionString=\"0.4\"/></item><item><s:version>7</s:version>"
                          "<s:shortVersionString>0.7</s:shortVersionString></item></channel></rss>")
            << quint64(7) << QStringLiteral("0.7") << QUrl() << QString();
        QTest::newRow("a link that is no web page")
            << rss(item("6", "0.6", "smb://quillane.velmoric.com/setup")) << quint64(6)
            << QStringLiteral("0.6") << QUrl() << QString();
        fails("another namespace", rss(item("6"), "http://example.com/other"), "no release");
        fails("a web page", "<html><body>Not here</body></html>", "not an RSS feed");
        fails("cut short", rss(item("9")).left(150), "not well-formed");
        fails("garbage after the feed", rss(item("9")) + "<rss>", "not well-formed");
        fails("empty", QByteArray(), "empty");
    }
    void appcast()
    {
        QFETCH(QByteArray, feed);
        QFETCH(QString, error);
        const Result<AppcastItem> newest = newestAppcastItem(feed);
        if (!error.isEmpty()) {
            QVERIFY(!newest);
            QVERIFY2(QString::fromStdString(newest.error()).contains(error),
                     newest.error().c_str());
            return;
        }
        QVERIFY2(newest, newest.error().c_str());
        QTEST(newest->build, "build");
        QTEST(newest->shortVersion, "version");
        QTEST(newest->releasePage, "page");
    }

    void checkForUpdates_data()
    {
        QTest::addColumn<int>("status"); // 0: no server
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("fromPackage");
        QTest::addColumn<int>("answer");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QStringList>("said"); // parts of the text
        const QByteArray newer = rss(item("4", "1.3") + item("6", "1.5"));
        const QString failed = QStringLiteral("could not be made");
        const QString ours = QStringLiteral("1.4 (5)");
        const QString theirs = QStringLiteral("1.5 (6)");

        QTest::newRow("newer, viewed")
            << 200 << newer << false << 1000 << newVersion << QStringList{theirs, ours};
        QTest::newRow("newer, later")
            << 200 << newer << false << 1001 << newVersion << QStringList{theirs, ours};
        QTest::newRow("newer, installed from a package")
            << 200 << newer << true << 1000 << newVersion
            << QStringList{theirs, QStringLiteral("package manager")};
        QTest::newRow("same build")
            << 200 << rss(item("5", "1.4")) << false << 1000 << upToDate << QStringList{ours};
        QTest::newRow("older build")
            << 200 << rss(item("4", "1.3")) << false << 1000 << upToDate << QStringList{ours};
        QTest::newRow("broken feed")
            << 200 << QByteArray("<rss><channel><item>") << false << 1000 << checkFailed
            << QStringList{failed, QStringLiteral("not well-formed")};
        QTest::newRow("HTTP 404") << 404 << QByteArray("gone") << false << 1000 << checkFailed
                                  << QStringList{failed, QStringLiteral("404 (Not Found)")};
        QTest::newRow("far too large")
            << 200 << QByteArray(rss(item("6")) + QByteArray(2 << 20, ' ')) << false << 1000
            << checkFailed << QStringList{failed, QStringLiteral("larger than")};
        QTest::newRow("no server") << 0 << QByteArray() << false << 1000 << checkFailed
                                   << QStringList{failed, QStringLiteral("refused")};
    }
    // A check the user asked for always says what it found; a newer version's first button
    // opens its release page. Asking again while a check runs joins that check.
    void checkForUpdates()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(bool, fromPackage);
        QFETCH(int, answer);
        QFETCH(QString, title);
        QFETCH(QStringList, said);
        FeedServer server(body, status);
        Launches app;
        app.alerts.answers = {answer};
        Updater& updater = app.launch(server.url, fromPackage);
        QSignalSpy finished(&updater, &Updater::checkFinished);

        updater.checkForUpdates();
        updater.checkForUpdates();
        QVERIFY(finished.wait(10000));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(server.requests, status ? 1 : 0);
        QCOMPARE(app.titles(), QStringList{title});
        const AlertRequest& shown = app.alerts.shown.front();
        for (const QString& part : said)
            QVERIFY2(shown.informativeText.contains(part), qPrintable(shown.informativeText));
        QCOMPARE(shown.informativeText.contains(QStringLiteral("package")), fromPackage);
        const bool offered = title == newVersion;
        QCOMPARE(shown.buttons,
                 (offered ? QStringList{QStringLiteral("View Release"), QStringLiteral("Later")}
                          : QStringList{QStringLiteral("OK")}));
        const bool viewed = offered && answer == AlertAnswer::firstButton;
        QCOMPARE(app.workspace.opened, viewed ? QList<QUrl>{releasePage} : QList<QUrl>{});
    }

    void automaticChecksQuestion_data()
    {
        QTest::addColumn<int>("answer");
        QTest::newRow("check automatically") << 1000;
        QTest::newRow("don't check") << 1001;
    }
    // The second launch asks once; only a yes brings a check a minute after each launch and
    // every day after.
    void automaticChecksQuestion()
    {
        QFETCH(int, answer);
        const bool agreed = answer == AlertAnswer::firstButton;
        FeedServer server(rss(item("5")));
        Launches app;
        app.alerts.answers = {answer};
        // A check starts at its tick; its request runs until the event loop takes it on.
        const auto checking = [&] {
            const auto replies = app.updater->findChildren<QNetworkReply*>();
            return std::ranges::count_if(replies, &QNetworkReply::isRunning) == 1;
        };
        const auto after = [&](std::chrono::seconds wait) {
            const int requestsBefore = server.requests;
            QSignalSpy finished(app.updater.get(), &Updater::checkFinished);
            app.scheduler.advance(wait - 1s);
            QVERIFY(!checking());
            app.scheduler.advance(1s);
            QCOMPARE(checking(), agreed);
            if (agreed)
                QVERIFY(finished.wait(10000));
            QCOMPARE(server.requests, requestsBefore + (agreed ? 1 : 0));
        };

        app.launch(server.url);
        QCOMPARE(app.titles(), QStringList{});
        app.scheduler.advance(24h);
        QVERIFY(!checking());

        app.launch(server.url);
        QCOMPARE(app.titles(), QStringList{question});
        QCOMPARE(
            app.alerts.shown.front().buttons,
            (QStringList{QStringLiteral("Check Automatically"), QStringLiteral("Don’t Check")}));
        after(1min);
        after(24h);
        app.launch(server.url);
        after(1min);
        after(24h);
        QCOMPARE(app.titles(), QStringList{question});
    }

    void dailyCheck_data()
    {
        QTest::addColumn<int>("status"); // 0: no server
        QTest::addColumn<QByteArray>("feed");
        QTest::addColumn<QStringList>("titles");
        QTest::addColumn<QString>("console"); // the start of the one line written, if any
        const QString error = QStringLiteral("Update Check Error: ");
        QTest::newRow("up to date") << 200 << rss(item("5")) << QStringList{} << QString();
        QTest::newRow("newer") << 200 << rss(item("6")) << QStringList{newVersion} << QString();
        QTest::newRow("broken feed") << 200 << QByteArray("<rss>") << QStringList{} << error;
        QTest::newRow("no server") << 0 << QByteArray() << QStringList{} << error;
    }
    // An unattended check speaks only of a newer version; a failure is one console line.
    void dailyCheck()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, feed);
        QFETCH(QString, console);
        FeedServer server(feed, status);
        Launches app;
        for (const char* key :
             {"UpdateLaunchedBefore", "UpdateAskedForAutomaticChecks", "UpdateAutomaticChecks"})
            app.defaults.setBool(QLatin1String(key), true);
        QSignalSpy finished(&app.launch(server.url), &Updater::checkFinished);
        test::ConsoleCapture lines;

        app.scheduler.advance(1min);
        QVERIFY(finished.wait(10000));
        QTEST(app.titles(), "titles");
        QCOMPARE(lines.lines().size(), console.isEmpty() ? 0u : 1u);
        QCOMPARE(lines.count(console.toStdString()), console.isEmpty() ? 0 : 1);
    }

    void packageOrigin_data()
    {
        QTest::addColumn<QString>("list");     // a file of the info folder; empty: no folder
        QTest::addColumn<QByteArray>("lines"); // @ROOT@ is the test's folder
        QTest::addColumn<bool>("fromPackage");
        const QString list = QStringLiteral("quillane.list");
        const QByteArray before = "/.\n/usr\n/usr/share/doc/quillane/copyright\n";
        QTest::newRow("listed") << list << QByteArray(before + "@ROOT@/usr/bin/quillane\n") << true;
        QTest::newRow("listed, with an architecture")
            << QStringLiteral("quillane:amd64.list")
            << QByteArray(before + "@ROOT@/usr/bin/quillane\n") << true;
        QTest::newRow("listed under another name of its folder")
            << list << QByteArray(before + "@ROOT@/bin/quillane\n") << true;
        QTest::newRow("another file of that name")
            << list << QByteArray(before + "@ROOT@/opt/quillane\n") << false;
        QTest::newRow("a longer name")
            << list << QByteArray("@ROOT@/usr/bin/quillane-daemon\n") << false;
        QTest::newRow("not a list of files") << QStringLiteral("quillane.md5sums")
                                             << QByteArray("@ROOT@/usr/bin/quillane\n") << false;
        QTest::newRow("no database") << QString() << QByteArray() << false;
    }
    void packageOrigin()
    {
        QFETCH(QString, list);
        QFETCH(QByteArray, lines);
        QTemporaryDir dir;
        const fs::path root = dir.path().toStdString();
        for (const char* file : {"usr/bin/quillane", "usr/bin/quillane-daemon", "opt/quillane"})
            test::writeFile(root / file);
        fs::create_directory_symlink("usr/bin", root / "bin");
        const fs::path info = root / "var/lib/dpkg/info";
        if (!list.isEmpty()) {
            test::writeFile(info / "other.list", "/usr/bin/other\n");
            test::writeFile(
                info / list.toStdString(),
                lines.replace("@ROOT@", QByteArray::fromStdString(root.native())).toStdString());
        }
        QTEST(installedFromPackage(root / "usr/bin/quillane", info), "fromPackage");
        // The package, by the name its package manager knows it by.
        QFETCH(bool, fromPackage);
        QCOMPARE(owningPackage(root / "usr/bin/quillane", info),
                 fromPackage ? std::optional<std::string>("quillane") : std::nullopt);
    }
};

QTEST_GUILESS_MAIN(TestUpdater)
#include "tst_Updater.moc"
