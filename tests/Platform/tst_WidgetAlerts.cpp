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
        QTest::addColumn<QString>("press"); // "Return", "d", or "click" on the second button
        QTest::addColumn<bool>("tick");
        QTest::addColumn<int>("button");
        QTest::newRow("Return takes the first") << "Return" << false << AlertAnswer::firstButton;
        QTest::newRow("Return, box ticked") << "Return" << true << AlertAnswer::firstButton;
        QTest::newRow("second button, box ticked") << "click" << true << AlertAnswer::secondButton;
        QTest::newRow("its key presses the second") << "d" << false << AlertAnswer::secondButton;
    }

    // The alert shows what was asked and answers with the button pressed and the state of the
    // check box.
    void answers()
    {
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
            } else if (press == QStringLiteral("d")) {
                QTest::keyClick(box->focusWidget(), Qt::Key_D); // where the user's keys go
            } else {
                for (QAbstractButton* candidate : box->buttons()) {
                    if (candidate->text() == QStringLiteral("Cancel"))
                        QTest::mouseClick(candidate, Qt::LeftButton);
                }
            }
            answered = !box->isVisible();
        });

        WidgetAlerts alerts;
        const AlertAnswer answer =
            alerts.runModal({QStringLiteral("Empty Trash?"),
                             QStringLiteral("It cannot be undone."),
                             {QStringLiteral("Empty"), QStringLiteral("Cancel")},
                             true,
                             QStringLiteral("d")});
        QVERIFY(answered);
        QCOMPARE(answer.button, button);
        QCOMPARE(answer.suppressed, tick);
    }
};

QTEST_MAIN(TestWidgetAlerts)
#include "tst_WidgetAlerts.moc"
