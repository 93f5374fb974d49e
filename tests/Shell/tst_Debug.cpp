#include "Platform/Alerts.h"
#include "Platform/BundleInfo.h"
#include "Shell/Debug.h"
#include "TestSupport.h"

#include <QLocale>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>
#include <unistd.h>

using namespace quillane;
using namespace Qt::StringLiterals;
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

namespace
{

const QDateTime firstTime(QDate(2024, 3, 5), QTime(14, 7, 9));
const QDateTime secondTime(QDate(2025, 11, 30), QTime(8, 59, 0));
const std::string readError = "Error reading: File not found";
const std::string writeError = "Error writing content";

void write(const QString& text, const fs::path& home, const QDateTime& time = firstTime,
           std::optional<QString> buildVersion = u"417"_s)
{
    BundleInfo bundle;
    bundle.buildVersion = buildVersion;
    Debug::writeToFile(
        text, u"someone"_s, bundle,
        {[home](const QString&) { return std::optional(home); }, [time] { return time; }});
}

QByteArray entry(const QDateTime& time, const QString& text)
{
    return (QLocale::system().toString(time, QLocale::ShortFormat) + u" - |417| - "_s + text +
            u'\n')
        .toUtf8();
}

QByteArray contents(const fs::path& file)
{
    QFile read(QFile::decodeName(file.c_str()));
    return read.open(QIODevice::ReadOnly) ? read.readAll() : QByteArray();
}

} // namespace

class TestDebug : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void entries_data()
    {
        QTest::addColumn<QByteArray>("existing"); // null: no log yet
        QTest::addColumn<QString>("text");
        QTest::newRow("first entry") << QByteArray() << u"Volumes published"_s;
        QTest::newRow("multi-line text") << QByteArray() << u"one\ntwo\n  three"_s;
        QTest::newRow("separators, non-ASCII") << QByteArray() << u"Müll | - |x|"_s;
        QTest::newRow("old bytes kept") << QByteArray("old\n\xff\xfe no line feed") << QString();
    }
    // Each entry is one "<time> - |<build>| - <text>" line appended to what is there; a
    // missing log is said once and started.
    void entries()
    {
        QFETCH(QByteArray, existing);
        QFETCH(QString, text);
        QTemporaryDir dir;
        const fs::path home = dir.path().toStdString();
        const fs::path log = home / "Desktop/quillane_debug_log.txt";
        test::makeFolder(home / "Desktop");
        if (!existing.isNull())
            test::writeFile(log, existing.toStdString());
        const Lines reported = existing.isNull() ? Lines{readError} : Lines{};
        test::ConsoleCapture console;
        write(text, home);
        QCOMPARE(contents(log), existing + entry(firstTime, text));
        QCOMPARE(console.lines(), reported);
        write(u"again"_s, home, secondTime);
        QCOMPARE(contents(log), existing + entry(firstTime, text) + entry(secondTime, u"again"_s));
        QCOMPARE(console.lines(), reported);
    }

    // A build that does not know its version writes and says nothing.
    void withoutBuildVersion()
    {
        QTemporaryDir dir;
        const fs::path home = dir.path().toStdString();
        test::makeFolder(home / "Desktop");
        test::ConsoleCapture console;
        write(u"text"_s, home, firstTime, std::nullopt);
        QVERIFY(fs::is_empty(home / "Desktop"));
        QCOMPARE(console.lines(), Lines{});
    }

    void desktopFolder_data()
    {
        QTest::addColumn<QByteArray>("userDirs"); // null: none; @ROOT@ is the test's folder
        QTest::addColumn<QString>("desktop");
        QTest::newRow("no user-dirs.dirs") << QByteArray() << u"home/Desktop"_s;
        QTest::newRow("under $HOME")
            << QByteArray("XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n") << u"home/Schreibtisch"_s;
        QTest::newRow("absolute") << QByteArray("XDG_DESKTOP_DIR=\"@ROOT@/elsewhere\"")
                                  << u"elsewhere"_s;
        QTest::newRow("comments, other keys, escapes, the last one wins")
            << QByteArray("# XDG_DESKTOP_DIR=\"$HOME/commented\"\nXDG_MUSIC_DIR=\"$HOME/M\"\n"
                          "XDG_DESKTOP_DIR=\"$HOME/earlier\"\n"
                          "  XDG_DESKTOP_DIR=\"$HOME/Bureau \\\"2\\\"\"\n")
            << u"home/Bureau \"2\""_s;
    }
    void desktopFolder()
    {
        QFETCH(QByteArray, userDirs);
        QFETCH(QString, desktop);
        QTemporaryDir dir;
        const fs::path root = dir.path().toStdString();
        if (!userDirs.isNull())
            test::writeFile(root / "home/.config/user-dirs.dirs",
                            userDirs.replace("@ROOT@", root.c_str()).toStdString());
        test::makeFolder(root / desktop.toStdString());
        write(u"here"_s, root / "home");
        QCOMPARE(contents(root / desktop.toStdString() / "quillane_debug_log.txt"),
                 entry(firstTime, u"here"_s));
    }

    // A desktop folder the user may not write to: the failure is said and the old log stays
    // whole, although the log file itself is writable.
    void unwritableDesktop()
    {
        if (getuid() != 0)
            QSKIP("needs root, to write as nobody");
        QTemporaryDir dir;
        const fs::path home = dir.path().toStdString();
        const fs::path log = home / "Desktop/quillane_debug_log.txt";
        test::writeFile(log, "old entry\n");
        QCOMPARE(chmod(dir.path().toLocal8Bit().constData(), 0755), 0);
        QCOMPARE(chmod(log.c_str(), 0666), 0);
        const int exitCode = test::runAsUser(test::nobody, [&] {
            test::ConsoleCapture console;
            write(u"new"_s, home);
            return console.lines() == Lines{writeError} ? 0 : 1;
        });
        QCOMPARE(exitCode, 0);
        QCOMPARE(contents(log), QByteArray("old entry\n"));
        QCOMPARE(std::distance(fs::directory_iterator(home / "Desktop"), {}), 1);
    }

    void alert()
    {
        const QString message = u"The helper did not answer."_s;
        test::ScriptedAlerts alerts;
        Debug::alert(alerts, message);
        QCOMPARE(alerts.shown.size(), 1u);
        QCOMPARE(alerts.shown[0].title, u"Quillane Alert"_s);
        QCOMPARE(alerts.shown[0].informativeText, message);
        QCOMPARE(alerts.shown[0].buttons, QStringList{u"Ok"_s});
        QVERIFY(!alerts.shown[0].showsSuppressionButton);
    }
};

QTEST_GUILESS_MAIN(TestDebug)
#include "tst_Debug.moc"
