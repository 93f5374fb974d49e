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
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{

const QByteArray sparkle = "http://www.andymatuschak.org/xml-namespaces/sparkle";
const QUrl releasePage(u"https://quillane.velmoric.com/releases/1.5"_s);
const QString upToDate = u"You’re up to date!"_s;
const QString newVersion = u"A new version of Quillane is available!"_s;
const QString checkFailed = u"Update Check Failed"_s;
const QString question = u"Check for updates automatically?"_s;

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
struct FeedServer {
    explicit FeedServer(const QByteArray& body, int status = 200)
        : response("HTTP/1.1 " + QByteArray::number(status) +
                   (status == 404 ? " Not Found" : " OK") +
                   "\r\nContent-Type: application/rss+xml\r\nContent-Length: " +
                   QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body)
    {
        server.listen(QHostAddress::LocalHost);
        url = QUrl(u"http://127.0.0.1:%1/appcast.xml"_s.arg(server.serverPort()));
        if (status == 0)
            server.close();
        QObject::connect(&server, &QTcpServer::newConnection, [this] {
            while (QTcpSocket* socket = server.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    if (!socket->peek(8192).contains("\r\n\r\n"))
                        return;
                    socket->readAll();
                    ++requests;
                    socket->write(response);
                    socket->disconnectFromHost();
                });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }

    QByteArray response;
    QTcpServer server;
    QUrl url;
    int requests = 0;
};

// Each launch makes a new update checker over the same stored defaults and clock.
struct Launches {
    Updater& launch(const QUrl& feed, bool fromPackage = false)
    {
        BundleInfo bundle;
        bundle.buildVersion = u"5"_s;
        bundle.shortVersion = u"1.4"_s;
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
    SettingsUserDefaults defaults{dir.filePath(u"settings.ini"_s)};
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
        // an empty error: the feed is read
        test::columns<QByteArray, quint64, QString, QUrl, QString>("feed", "build", "version",
                                                                   "page", "error");
        const QUrl notes(u"https://quillane.velmoric.com/notes/58.html"_s);
        const auto reads = [](const char* name, const QByteArray& feed, quint64 build,
                              const char* version, const QUrl& page) {
            QTest::newRow(name) << feed << build << QString::fromUtf8(version) << page << QString();
        };
        const auto fails = [](const char* name, const QByteArray& feed, const char* error) {
            QTest::newRow(name) << feed << quint64(0) << QString() << QUrl()
                                << QString::fromLatin1(error);
        };
        reads("attributes", rss(item("57", "1.4.2")), 57, "1.4.2", releasePage);
        reads("elements, release notes link",
              rss("<item><sparkle:version> 58 </sparkle:version><sparkle:shortVersionString>1.5"
                  "</sparkle:shortVersionString><sparkle:releaseNotesLink>" +
                  notes.toEncoded() + "</sparkle:releaseNotesLink><enclosure url=\"x\"/></item>"),
              58, "1.5", notes);
        reads("the highest build wherever it stands, with no version to show",
              rss(item("12", "1.2") + item("140") + item("9", "1.1")), 140, "140", releasePage);
        reads("items without a decimal build are passed over",
              rss(item({}, "9.0") + item("3", "0.3") + item("1.2.3", "1.2.3") + item("+7") +
                  item("99999999999999999999999")),
              3, "0.3", releasePage);
        reads("another prefix for the namespace",
              "<rss xmlns:s=\"" + sparkle +
                  "\"><channel><item><enclosure s:version=\"4\" "
                  "s:shortVersionString=\"0.4\"/></item><item><s:version>7</s:version>"
                  "<s:shortVersionString>0.7</s:shortVersionString></item></channel></rss>",
              7, "0.7", QUrl());
        reads("a link that is no web page",
              rss(item("6", "0.6", "smb://quillane.velmoric.com/setup")), 6, "0.6", QUrl());
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
        // status 0: no server; said: parts of the text
        test::columns<int, QByteArray, bool, int, QString, QStringList>(
            "status", "body", "fromPackage", "answer", "title", "said");
        const QByteArray newer = rss(item("4", "1.3") + item("6", "1.5"));
        const QString failed = u"could not be made"_s;
        const QString ours = u"1.4 (5)"_s;
        const QString theirs = u"1.5 (6)"_s;
        QTest::newRow("newer, viewed")
            << 200 << newer << false << 1000 << newVersion << QStringList{theirs, ours};
        QTest::newRow("newer, later")
            << 200 << newer << false << 1001 << newVersion << QStringList{theirs, ours};
        QTest::newRow("newer, installed from a package")
            << 200 << newer << true << 1000 << newVersion
            << QStringList{theirs, u"package manager"_s};
        QTest::newRow("same build")
            << 200 << rss(item("5", "1.4")) << false << 1000 << upToDate << QStringList{ours};
        QTest::newRow("older build")
            << 200 << rss(item("4", "1.3")) << false << 1000 << upToDate << QStringList{ours};
        QTest::newRow("broken feed") << 200 << QByteArray("<rss><channel><item>") << false << 1000
                                     << checkFailed << QStringList{failed, u"not well-formed"_s};
        QTest::newRow("HTTP 404") << 404 << QByteArray("gone") << false << 1000 << checkFailed
                                  << QStringList{failed, u"404 (Not Found)"_s};
        QTest::newRow("far too large")
            << 200 << QByteArray(rss(item("6")) + QByteArray(2 << 20, ' ')) << false << 1000
            << checkFailed << QStringList{failed, u"larger than"_s};
        QTest::newRow("no server") << 0 << QByteArray() << false << 1000 << checkFailed
                                   << QStringList{failed, u"refused"_s};
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
        QCOMPARE(shown.informativeText.contains(u"package"_s), fromPackage);
        const bool offered = title == newVersion;
        QCOMPARE(shown.buttons,
                 (offered ? QStringList{u"View Release"_s, u"Later"_s} : QStringList{u"OK"_s}));
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
        QCOMPARE(app.alerts.shown.front().buttons,
                 (QStringList{u"Check Automatically"_s, u"Don’t Check"_s}));
        after(1min);
        after(24h);
        app.launch(server.url);
        after(1min);
        after(24h);
        QCOMPARE(app.titles(), QStringList{question});
    }

    void dailyCheck_data()
    {
        // status 0: no server; console: the start of the one line written, if any
        test::columns<int, QByteArray, QStringList, QString>("status", "feed", "titles", "console");
        const QString error = u"Update Check Error: "_s;
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
        // list: a file of the info folder, empty for no folder; @ROOT@ in lines: the test's folder
        test::columns<QString, QByteArray, bool>("list", "lines", "fromPackage");
        const QString list = u"quillane.list"_s;
        const QByteArray before = "/.\n/usr\n/usr/share/doc/quillane/copyright\n";
        const QByteArray listed = before + "@ROOT@/usr/bin/quillane\n";
        QTest::newRow("listed") << list << listed << true;
        QTest::newRow("listed, with an architecture") << u"quillane:amd64.list"_s << listed << true;
        QTest::newRow("listed under another name of its folder")
            << list << QByteArray(before + "@ROOT@/bin/quillane\n") << true;
        QTest::newRow("another file of that name")
            << list << QByteArray(before + "@ROOT@/opt/quillane\n") << false;
        QTest::newRow("a longer name")
            << list << QByteArray("@ROOT@/usr/bin/quillane-daemon\n") << false;
        QTest::newRow("not a list of files") << u"quillane.md5sums"_s << listed << false;
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
