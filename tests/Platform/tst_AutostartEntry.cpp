#include "Platform/linux/AutostartEntry.h"
#include "Platform/linux/DesktopLoginItemsSettings.h"
#include "PlatformTestSupport.h"

#include <QFile>
#include <QTest>
#include <sys/stat.h>

using namespace quillane;
namespace fs = std::filesystem;

namespace
{

fs::path pathOf(const QTemporaryDir& dir)
{
    return dir.path().toStdString();
}

QString readAll(const fs::path& path)
{
    QFile file(QString::fromStdString(path.native()));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

} // namespace

class TestAutostartEntry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The entry is read back by GLib's desktop entry parser, the one GNOME's session uses, which
    // starts the program named in Exec. GLib is lenient about escapes inside quotes, hence the
    // exact Exec text as well (@ stands for the program's folder).
    void registerWritesAnEntryTheDesktopStarts_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("exec");
        QTest::newRow("plain") << "quillane"
                               << "@/quillane";
        // No '%': GLib looks for the program before it turns the entry's %% back into %.
        QTest::newRow("reserved characters")
            << R"(Quillane's "tray" $HOME a\b (1);`x` ~|&<>*?#)"
            << "\"@/Quillane's \\\\\"tray\\\\\" \\\\$HOME a\\\\\\\\b (1);\\\\`x\\\\` ~|&<>*?#\"";
    }
    void registerWritesAnEntryTheDesktopStarts()
    {
        QFETCH(QString, program);
        QTemporaryDir dir;
        const fs::path config = pathOf(dir) / "config";
        const fs::path executable = pathOf(dir) / "bin" / program.toStdString();
        test::writeFile(executable, "#!/bin/sh\nprintf %s \"$0\" > \"${0%/*}/started\"\n");
        fs::permissions(executable, fs::perms::owner_all);
        AutostartEntry entry(config, executable);
        QCOMPARE(entry.status(), ServiceHandle::NotRegistered);

        const Result<bool> registered = entry.registerService();
        QVERIFY2(registered.ok(), registered.error().c_str());
        QCOMPARE(entry.path(), config / "autostart" / "quillane.desktop");
        QCOMPARE(entry.status(), ServiceHandle::Enabled);
        QFETCH(QString, exec);
        exec.replace(u'@', QString::fromStdString(executable.parent_path()));
        QVERIFY2(readAll(entry.path()).contains(QStringLiteral("\nExec=") + exec + u'\n'),
                 qPrintable(exec));
        QVERIFY(test::run(QStringLiteral("gio"),
                          {QStringLiteral("launch"), QString::fromStdString(entry.path())}));
        QTRY_COMPARE(readAll(executable.parent_path() / "started"),
                     QString::fromStdString(executable.native()));

        QVERIFY(entry.unregisterService().ok());
        QVERIFY(!fs::exists(entry.path()));
        QCOMPARE(entry.status(), ServiceHandle::NotRegistered);
        QVERIFY(entry.unregisterService().ok()); // already gone
    }

    void entriesSwitchedOff_data()
    {
        QTest::addColumn<QByteArray>("keys");
        QTest::addColumn<int>("status");
        QTest::newRow("on") << QByteArray("Hidden=false\n") << int(ServiceHandle::Enabled);
        QTest::newRow("hidden") << QByteArray("Hidden=true\n") << int(ServiceHandle::NotRegistered);
        QTest::newRow("spaced") << QByteArray(" Hidden = true\n")
                                << int(ServiceHandle::NotRegistered);
        QTest::newRow("GNOME off")
            << QByteArray("X-GNOME-Autostart-enabled=false\n") << int(ServiceHandle::NotRegistered);
        QTest::newRow("in another group")
            << QByteArray("[Desktop Action x]\nHidden=true\n") << int(ServiceHandle::Enabled);
    }
    void entriesSwitchedOff()
    {
        QFETCH(QByteArray, keys);
        QTemporaryDir dir;
        AutostartEntry entry(pathOf(dir), "/bin/true");
        test::writeFile(entry.path(),
                        ("[Desktop Entry]\nType=Application\nExec=q\n" + keys).toStdString());
        QTEST(entry.status(), "status");
    }

    // Run as an unprivileged user in folders that user may not change.
    void failuresSayWhere_data()
    {
        QTest::addColumn<QString>("existing"); // what root made beforehand
        QTest::addColumn<bool>("registering");
        QTest::addColumn<QString>("named"); // the place the message names
        QTest::newRow("config folder") << "" << true << "config/autostart";
        QTest::newRow("autostart folder") << "autostart" << true << "quillane.desktop";
        QTest::newRow("removing") << "entry" << false << "quillane.desktop";
    }
    void failuresSayWhere()
    {
        if (getuid() != 0)
            QSKIP("needs root to run as another user");
        QFETCH(QString, existing);
        QFETCH(bool, registering);
        QTemporaryDir dir;
        QVERIFY(chmod(dir.path().toLocal8Bit(), 0755) == 0);
        const fs::path config = pathOf(dir) / "config";
        AutostartEntry entry(config, "/usr/bin/quillane");
        test::makeFolder(config);
        if (existing == u"autostart")
            test::makeFolder(entry.path().parent_path());
        if (existing == u"entry")
            QVERIFY(entry.registerService().ok());
        const int before = entry.status();

        const std::string error = test::inChild(test::nobody, [&] {
            const Result<bool> result =
                registering ? entry.registerService() : entry.unregisterService();
            return result.ok() ? std::string("succeeded") : result.error();
        });
        QFETCH(QString, named);
        QVERIFY2(QString::fromStdString(error).contains(named + u':'), error.c_str());
        QCOMPARE(entry.status(), before);
    }

    void settingsCommand_data()
    {
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("command"); // empty: nothing to run
        const char* rows[][4] = {
            // name, XDG_CURRENT_DESKTOP, installed programs, what runs
            {"GNOME", "ubuntu:GNOME", "gnome-session-properties gnome-tweaks xdg-open",
             "gnome-session-properties"},
            {"GNOME, Tweaks only", "GNOME", "gnome-tweaks xdg-open", "gnome-tweaks"},
            {"GNOME, neither", "GNOME", "xdg-open", "xdg-open autostart"},
            {"KDE", "KDE", "kcmshell6 systemsettings", "systemsettings kcm_autostart"},
            {"XFCE, any case", "xfce", "xfce4-session-settings", "xfce4-session-settings"},
            {"other desktop", "sway", "gnome-session-properties xdg-open", "xdg-open autostart"},
            {"nothing installed", "", "", ""},
        };
        for (const auto& row : rows)
            QTest::newRow(row[0]) << row[1] << row[2] << row[3];
    }
    void settingsCommand()
    {
        QFETCH(QString, desktop);
        QFETCH(QString, installed);
        const auto found = [&](const QString& name) {
            return installed.split(u' ').contains(name) ? QStringLiteral("/usr/bin/") + name
                                                        : QString();
        };
        const auto command =
            DesktopLoginItemsSettings::chooseCommand(desktop, found, QStringLiteral("autostart"));
        QStringList words;
        if (command)
            words << command->program.mid(9) << command->arguments;
        QTEST(words.join(u' '), "command");
    }
};

QTEST_GUILESS_MAIN(TestAutostartEntry)
#include "tst_AutostartEntry.moc"
