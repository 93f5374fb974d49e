#include "Platform/Constant.h"
#include "Platform/UserDefaults.h"
#include "Shell/TerminationHelper.h"
#include "TestSupport.h"

#include <QTemporaryDir>
#include <QTest>

using namespace quillane;
using namespace Qt::StringLiterals;

class TestTerminationHelper : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void quitPaths_data()
    {
        QTest::addColumn<bool>("suppressed"); // stored before
        QTest::addColumn<int>("button");      // the answer, when asked
        QTest::addColumn<bool>("tick");       // the check box, when asked
        QTest::addColumn<bool>("asked");
        QTest::addColumn<bool>("quits");
        QTest::addColumn<bool>("suppressedAfter");
        const int quit = AlertAnswer::firstButton;
        const int cancel = AlertAnswer::secondButton;
        QTest::newRow("suppressed: quits at once")
            << true << quit << false << false << true << true;
        QTest::newRow("Return quits") << false << quit << false << true << true << false;
        QTest::newRow("Cancel stays") << false << cancel << false << true << false << false;
        QTest::newRow("box and Cancel: stays, stops asking")
            << false << cancel << true << true << false << true;
        QTest::newRow("box and Quit") << false << quit << true << true << true << true;
    }

    void quitPaths()
    {
        QFETCH(bool, suppressed);
        QFETCH(int, button);
        QFETCH(bool, tick);
        QFETCH(bool, asked);
        QTemporaryDir dir;
        SettingsUserDefaults defaults(dir.filePath(u"defaults.ini"_s));
        if (suppressed)
            defaults.setBool(Constant::quitSuppressionKey, true);
        test::ScriptedAlerts alerts;
        alerts.answers << button;
        alerts.ticks << tick;
        test::RecordingApplication application;
        TerminationHelper::terminationCheck(defaults, alerts, application);
        QCOMPARE(alerts.shown.size(), asked ? 1u : 0u);
        if (asked) {
            const AlertRequest& alert = alerts.shown.front();
            QCOMPARE(alert.title, u"Are you sure you want to quit Quillane?"_s);
            QCOMPARE(alert.informativeText,
                     QStringLiteral("Quitting will remove Quillane from your tray. Trash will "
                                    "empty for all mounted volumes."));
            QCOMPARE(alert.buttons, (QStringList{u"Quit"_s, u"Cancel"_s}));
            QVERIFY(alert.showsSuppressionButton);
        }
        QTEST(application.calls.contains(u"terminate"_s), "quits");
        // What the next quit reads, through a second store on the same file.
        SettingsUserDefaults reread(dir.filePath(u"defaults.ini"_s));
        QTEST(reread.boolValue(Constant::quitSuppressionKey), "suppressedAfter");
    }
};

QTEST_GUILESS_MAIN(TestTerminationHelper)
#include "tst_TerminationHelper.moc"
