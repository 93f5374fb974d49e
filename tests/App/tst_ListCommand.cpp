#include "App/ListCommand.h"
#include "Shell/Translations.h"
#include "TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>
#include <unistd.h>

using namespace quillane;
namespace fs = std::filesystem;

namespace
{

// What du would call the allocated size of the regular files below a folder.
qint64 allocatedBytesOfFiles(const fs::path& folder)
{
    qint64 total = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        struct stat info {
        };
        if (lstat(entry.path().c_str(), &info) == 0 && S_ISREG(info.st_mode))
            total += static_cast<qint64>(info.st_blocks) * 512;
    }
    return total;
}

// What a program prints for a user with this home and no other data folder, with the
// environment's other changes given: its output, then its errors; or only its output, and
// "failed: " and its errors when it fails.
QByteArray runIn(const QString& home, const QString& program, const QStringList& arguments,
                 bool onlyOutput, const QList<std::pair<QString, QString>>& changes = {})
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), home);
    environment.remove(QStringLiteral("XDG_DATA_HOME"));
    for (const auto& [name, value] : changes)
        environment.insert(name, value);
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    const bool ok = process.waitForFinished(60000) && process.exitCode() == 0;
    if (!onlyOutput)
        return process.readAllStandardOutput() + process.readAllStandardError();
    return ok ? process.readAllStandardOutput() : "failed: " + process.readAllStandardError();
}

QString runIn(const QString& home, const QStringList& arguments,
              const QList<std::pair<QString, QString>>& changes = {})
{
    return QString::fromLocal8Bit(
        runIn(home, QStringLiteral(QUILLANE_EXECUTABLE), arguments, false, changes));
}

} // namespace

class TestListCommand : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { installTranslations(); }

    // The commands run without the widget, graphics, multimedia and network libraries: the
    // program that runs them does not load them (the tray application is a module of its own).
    void commandsLoadNoGuiLibrary_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("list") << QStringList{QStringLiteral("list")};
        QTest::newRow("list --json")
            << QStringList{QStringLiteral("list"), QStringLiteral("--json")};
        QTest::newRow("empty") << QStringList{QStringLiteral("empty"), QStringLiteral("/nowhere"),
                                              QStringLiteral("--yes")};
        QTest::newRow("help") << QStringList{QStringLiteral("--help")};
    }
    void commandsLoadNoGuiLibrary()
    {
        QFETCH(QStringList, arguments);
        QTemporaryDir home;
        const QString loaded =
            runIn(home.path(), arguments, {{QStringLiteral("LD_DEBUG"), QStringLiteral("libs")}});
        QVERIFY2(loaded.contains(QStringLiteral("libQt6Core.so")), qPrintable(loaded.left(2000)));
        for (const char* library : {"libQt6Widgets.so", "libQt6Gui.so", "libQt6Multimedia.so",
                                    "libQt6Svg.so", "libQt6Network.so", "quillane-windows.so"})
            QVERIFY2(!loaded.contains(QLatin1String(library)), library);
    }

    // The table is for people and reads in their language; the JSON is for scripts, holds one
    // object per location and does not change with the language.
    void tableFollowsTheLanguage_data()
    {
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<QString>("header");
        QTest::addColumn<QString>("counted");
        QTest::addColumn<QString>("missing");
        QTest::newRow("English") << QLocale(QLocale::English, QLocale::UnitedStates)
                                 << QStringLiteral("NAME TRASH") << QStringLiteral("1,234 1.2 MB")
                                 << QStringLiteral("(no trash folder)");
        QTest::newRow("German") << QLocale(QLocale::German, QLocale::Germany)
                                << QStringLiteral("NAME PAPIERKORB")
                                << QStringLiteral("1.234 1,2 MB")
                                << QStringLiteral("(kein Papierkorb-Ordner)");
    }
    void tableFollowsTheLanguage()
    {
        QFETCH(QLocale, locale);
        QFETCH(QString, header);
        QFETCH(QString, counted);
        QFETCH(QString, missing);
        const QLocale before;
        QLocale::setDefault(locale);
        installTranslations();
        const std::vector<LocationReport> reports = {
            {QStringLiteral("Stick"), QStringLiteral("volume"), QStringLiteral("/media/stick"),
             QStringLiteral("/media/stick/.Trash-1000/files"), 1234, 1234567},
            {QStringLiteral("Card"), QStringLiteral("volume"), QStringLiteral("/media/card"),
             std::nullopt, 0, 0},
        };
        const QStringList table = toTable(reports).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        const QJsonArray json = toJson(reports);
        QLocale::setDefault(before);
        installTranslations();

        QCOMPARE(table.size(), 3);
        // Columns are padded to their widest cell.
        QVERIFY2(table[0].simplified().startsWith(header), qPrintable(table[0]));
        QCOMPARE(table[1].indexOf(QStringLiteral("/media/stick/")),
                 table[0].indexOf(header.section(QLatin1Char(' '), 1)));
        QVERIFY2(table[1].simplified().endsWith(counted), qPrintable(table[1]));
        // Counts and sizes line up on the right.
        const QString count = counted.section(QLatin1Char(' '), 0, 0);
        QCOMPARE(table[1].indexOf(count) + count.size(),
                 table[2].indexOf(QStringLiteral(" 0 ")) + 2);
        QCOMPARE(table[1].size(), table[0].size());
        QVERIFY2(table[2].contains(missing), qPrintable(table[2]));
        QCOMPARE(json.size(), 2);
        const QJsonObject first = json[0].toObject();
        QCOMPARE(first.keys(), (QStringList{QStringLiteral("bytes"), QStringLiteral("items"),
                                            QStringLiteral("kind"), QStringLiteral("location"),
                                            QStringLiteral("name"), QStringLiteral("trash")}));
        QVERIFY(json[1].toObject()[QStringLiteral("trash")].isNull());
        QCOMPARE(first[QStringLiteral("items")].toInt(), 1234);
        QCOMPARE(first[QStringLiteral("bytes")].toInteger(), 1234567);
    }

    // The program takes the user's language from the environment, as any other on the desktop.
    void commandLineSpeaksTheUsersLanguage_data()
    {
        QTest::addColumn<QString>("variable");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("said");
        const QStringList list = {QStringLiteral("list")};
        const QStringList nowhere = {QStringLiteral("empty"), QStringLiteral("/nowhere/at/all"),
                                     QStringLiteral("--yes")};
        const auto row = [](const char* name, const char* variable, const char* value,
                            const QStringList& arguments, const char* said) {
            QTest::newRow(name) << QString::fromLatin1(variable) << QString::fromLatin1(value)
                                << arguments << QString::fromUtf8(said);
        };
        row("list, English", "LANG", "C.UTF-8", list, "NAME TRASH");
        row("list, LANG German", "LANG", "de_DE.UTF-8", list, "NAME PAPIERKORB");
        row("list, LANGUAGE German", "LANGUAGE", "de", list, "NAME PAPIERKORB");
        row("empty, English", "LANG", "C.UTF-8", nowhere,
            "quillane: no trash at \"/nowhere/at/all\": ");
        row("empty, German", "LANG", "de_DE.UTF-8", nowhere,
            "quillane: kein Papierkorb bei „/nowhere/at/all“: ");
        row("help, German", "LANG", "de_DE.UTF-8", {QStringLiteral("--help")},
            "Mit list: ein JSON-Array ausgeben.");
    }
    void commandLineSpeaksTheUsersLanguage()
    {
        QFETCH(QString, variable);
        QFETCH(QString, value);
        QFETCH(QStringList, arguments);
        QFETCH(QString, said);
        QTemporaryDir home;
        const QString output =
            runIn(home.path(), arguments,
                  {{QStringLiteral("LANG"), QStringLiteral("C.UTF-8")}, {variable, value}});
        QVERIFY2(output.simplified().contains(said), qPrintable(output));
    }

    // A USB stick's trash, filled by the desktop's own tools, as the command line reports it.
    void listsAMountedVolumeUntilItIsUnmounted()
    {
        if (!test::canMount())
            QSKIP("needs root in a private mount namespace");
        QTemporaryDir dir;
        const fs::path root = dir.path().toStdString();
        const fs::path home = root / "home";
        const fs::path stick = "/mnt/USB STICK";
        fs::create_directories(home);
        QVERIFY(test::mountExt4(root / "stick.img", stick, QStringLiteral("STICK")));

        test::writeFile(stick / "Photos" / "one.jpg", std::string(50000, 'p'));
        test::writeFile(stick / "Photos" / "nested" / "two.jpg", std::string(9000, 'q'));
        const std::string oddName = "caf\xe9 \xff.txt"; // Latin-1, not UTF-8
        test::writeFile(stick / oddName, std::string(7000, 'o'));
        test::writeFile(home / "notes.txt", "notes");

        const auto runTool = [&](const QString& program, const QStringList& arguments) {
            return runIn(QString::fromStdString(home.native()), program, arguments, true);
        };
        const auto argument = [](const fs::path& path) { return QFile::decodeName(path.c_str()); };
        // Arguments of a QProcess are text; the shell spells the Latin-1 name as bytes.
        for (const QStringList& command :
             {QStringList{QStringLiteral("trash-put"), argument(stick / "Photos")},
              QStringList{
                  QStringLiteral("bash"), QStringLiteral("-c"),
                  QStringLiteral("cd \"$1\" && gio trash -- \"$(printf 'caf\\351 \\377.txt')\""),
                  QStringLiteral("bash"), argument(stick)},
              QStringList{QStringLiteral("gio"), QStringLiteral("trash"),
                          argument(home / "notes.txt")}}) {
            const QByteArray output = runTool(command.first(), command.mid(1));
            QVERIFY2(!output.startsWith("failed"), output.constData());
        }

        const fs::path stickTrash = stick / (".Trash-" + std::to_string(getuid())) / "files";
        QVERIFY(fs::exists(stickTrash / oddName));

        const auto listed = [&] {
            const QByteArray output = runTool(QStringLiteral(QUILLANE_EXECUTABLE),
                                              {QStringLiteral("list"), QStringLiteral("--json")});
            return QJsonDocument::fromJson(output).array();
        };
        const auto indexOf = [](const QJsonArray& array, const QString& location) {
            for (qsizetype i = 0; i < array.size(); ++i)
                if (array[i].toObject()[QStringLiteral("location")].toString() == location)
                    return i;
            return qsizetype(-1);
        };

        const QJsonArray before = listed();
        const qsizetype homeRow = indexOf(before, QStringLiteral("/"));
        const qsizetype stickRow = indexOf(before, QString::fromStdString(stick.native()));
        QVERIFY2(homeRow >= 0 && stickRow > homeRow, QJsonDocument(before).toJson().constData());

        const QJsonObject homeVolume = before[homeRow].toObject();
        QCOMPARE(homeVolume[QStringLiteral("trash")].toString(),
                 QString::fromStdString((home / ".local/share/Trash/files").native()));
        QCOMPARE(homeVolume[QStringLiteral("items")].toInt(), 1);

        const QJsonObject volume = before[stickRow].toObject();
        QCOMPARE(volume[QStringLiteral("kind")].toString(), QStringLiteral("volume"));
        QCOMPARE(volume[QStringLiteral("trash")].toString(),
                 QString::fromStdString(stickTrash.native()));
        QCOMPARE(volume[QStringLiteral("items")].toInt(), 2);
        const qint64 expectedBytes = allocatedBytesOfFiles(stickTrash);
        QVERIFY(expectedBytes >= 66000);
        QCOMPARE(volume[QStringLiteral("bytes")].toInteger(), expectedBytes);

        QVERIFY(test::unmount(stick));
        QCOMPARE(indexOf(listed(), QString::fromStdString(stick.native())), qsizetype(-1));
    }
};

QTEST_GUILESS_MAIN(TestListCommand)
#include "tst_ListCommand.moc"
