#include "Platform/widgets/WidgetAlerts.h"

#include <QApplication>
#include <QCheckBox>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

using namespace quillane;

class TestWidgetAlerts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answers_data()
    {
        QTest::addColumn<QStringList>("buttons");
        QTest::addColumn<int>("cancelButton");
        QTest::addColumn<QString>("press"); // a key, "close" (the window's), or "click second"
        QTest::addColumn<bool>("tick");
        QTest::addColumn<int>("button");
        const QStringList emptying{QStringLiteral("Cancel"), QStringLiteral("Delete")};
        const QStringList quitting{QStringLiteral("Quit"), QStringLiteral("Cancel")};
        const QStringList timeout{QStringLiteral("Keep Trying"), QStringLiteral("Quit")};
        const int first = AlertAnswer::firstButton;
        const int second = AlertAnswer::secondButton;
        QTest::newRow("Return takes the first") << emptying << 0 << "Return" << false << first;
        QTest::newRow("Return, box ticked") << quitting << 1 << "Return" << true << first;
        QTest::newRow("second button, box ticked")
            << emptying << 0 << "click second" << true << second;
        QTest::newRow("its key presses the second") << emptying << 0 << "d" << false << second;
        QTest::newRow("Escape never deletes") << emptying << 0 << "Escape" << false << first;
        QTest::newRow("closing never deletes") << emptying << 0 << "close" << false << first;
        QTest::newRow("Escape never quits") << quitting << 1 << "Escape" << false << second;
        QTest::newRow("closing never quits") << quitting << 1 << "close" << false << second;
        QTest::newRow("Escape keeps trying") << timeout << 0 << "Escape" << false << first;
    }

    // The alert shows what was asked and answers with the button pressed and the state of the
    // check box; whatever backs out of it answers the button named for that.
    void answers()
    {
        QFETCH(QStringList, buttons);
        QFETCH(int, cancelButton);
        QFETCH(QString, press);
        QFETCH(bool, tick);
        QFETCH(int, button);

        bool answered = false;
        QTimer::singleShot(0, this, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            QVERIFY(box);
            QVERIFY(QTest::qWaitForWindowActive(box)); // keys reach the active window only
            // Never leave it up when a check fails.
            const auto close = qScopeGuard([box] {
                if (box->isVisible())
                    box->done(0);
            });
            QCOMPARE(box->windowTitle(), QStringLiteral("Empty Trash?"));
            QCOMPARE(box->informativeText(), QStringLiteral("It cannot be undone."));
            QCOMPARE(box->buttons().size(), 2);
            QVERIFY(box->checkBox() && !box->checkBox()->isChecked());
            QCOMPARE(box->checkBox()->text(), QStringLiteral("Do not show this message again"));

            if (tick)
                QTest::mouseClick(box->checkBox(), Qt::LeftButton, {},
                                  box->checkBox()->rect().center());
            if (press == QStringLiteral("Return")) {
                QTest::keyClick(box, Qt::Key_Return);
            } else if (press == QStringLiteral("Escape")) {
                QTest::keyClick(box->focusWidget(), Qt::Key_Escape);
            } else if (press == QStringLiteral("d")) {
                QTest::keyClick(box->focusWidget(), Qt::Key_D); // where the user's keys go
            } else if (press == QStringLiteral("close")) {
                box->close();
            } else {
                for (QAbstractButton* candidate : box->buttons()) {
                    if (candidate->text() == buttons.at(1))
                        QTest::mouseClick(candidate, Qt::LeftButton);
                }
            }
            answered = !box->isVisible();
        });

        WidgetAlerts alerts;
        const AlertAnswer answer =
            alerts.runModal({QStringLiteral("Empty Trash?"), QStringLiteral("It cannot be undone."),
                             buttons, true, QStringLiteral("d"), cancelButton,
                             /*destructiveButton=*/-1});
        QVERIFY(answered);
        QCOMPARE(answer.button, button);
        QCOMPARE(answer.suppressed, tick);
    }
};

QTEST_MAIN(TestWidgetAlerts)
#include "tst_WidgetAlerts.moc"
