#include "Model/VolumeObserver.h"
#include "Platform/Constant.h"
#include "Platform/FileSystem.h"
#include "TestSupport.h"
#include "ViewHarness.h"
#include "Views/EllipsisMenu.h"
#include "Views/ListItem.h"
#include "Views/MenuView.h"
#include "Views/Pictures.h"
#include "Views/Translations.h"

#include <QApplication>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>
#include <QUrlQuery>
#include <QWidgetAction>
#include <random>
#include <unistd.h>

using namespace quillane;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

Q_DECLARE_METATYPE(quillane::Picture)

namespace
{

const QString calculating = QStringLiteral("Calculating...");

// A trash location of its own below the temporary root, holding this many items of this size.
// The bytes do not repeat, so no file system stores them in less space than they take.
Volume makeLocation(test::ViewHarness& harness, const std::string& name, int items,
                    std::size_t bytes = 1)
{
    const fs::path volume = fs::path(harness.model.root.path().toStdString()) / name;
    const fs::path files = volume / (".Trash-" + std::to_string(getuid())) / "files";
    fs::create_directories(files);
    std::mt19937 random(42);
    for (int i = 0; i < items; ++i) {
        std::string content(bytes, '\0');
        for (char& c : content)
            c = static_cast<char>(random());
        test::writeFile(files / ("item " + std::to_string(i)), content);
    }
    return Volume(volume, files);
}

// A mount table of this many volumes, none of them with a trash folder.
void mountVolumes(test::ModelHarness& model, int count)
{
    std::vector<std::tuple<std::string, std::string, std::string>> entries;
    for (int i = 0; i < count; ++i)
        entries.emplace_back("/media/volume " + std::to_string(i), "ext4", "rw");
    model.setMounts(entries);
}

void showAndCount(ListItem& row)
{
    row.show();
    QTRY_VERIFY(row.details() != calculating);
}

QAbstractButton* button(QWidget& row, const char* name)
{
    return row.findChild<QAbstractButton*>(QString::fromLatin1(name));
}

std::vector<ListItem*> rowsOf(const MenuView& menu)
{
    if (auto* plain = qobject_cast<StandardView*>(menu.list()))
        return plain->rows();
    return qobject_cast<ScrollingView*>(menu.list())->rows();
}

} // namespace

class TestPanel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        installTranslations();
        ensureIconTheme();
    }

    void pictures_data()
    {
        QTest::addColumn<Picture>("picture");
        QTest::addColumn<QString>("themeName");
        QTest::newRow("trash") << Picture::symbol("trash") << QStringLiteral("user-trash-symbolic");
        QTest::newRow("menu") << Picture::symbol("ellipsis.circle")
                              << QStringLiteral("view-more-symbolic");
        QTest::newRow("reveal") << Picture::symbol("rectangle.portrait.and.arrow.right")
                                << QStringLiteral("folder-open-symbolic");
        QTest::newRow("no volume")
            << Picture::symbol("externaldrive") << QStringLiteral("drive-harddisk");
        QTest::newRow("root is a disk, not a home")
            << Picture::fileIcon("/") << QStringLiteral("drive-harddisk");
        QTest::newRow("removable")
            << Picture::fileIcon("/media/me/USB STICK") << QStringLiteral("drive-removable-media");
        QTest::newRow("udisks") << Picture::fileIcon("/run/media/me/CARD")
                                << QStringLiteral("drive-removable-media");
        QTest::newRow("name that only starts alike")
            << Picture::fileIcon("/mediastore") << QStringLiteral("drive-harddisk");
    }

    void pictures()
    {
        QFETCH(Picture, picture);
        QFETCH(QString, themeName);
        const QIcon icon = iconFor(picture, BundleInfo::current());
        QCOMPARE(icon.name(), themeName);
        QVERIFY(!icon.pixmap(32, 32).isNull());
    }

    void assetsComeFromTheResources()
    {
        QTemporaryDir resources;
        BundleInfo bundle;
        bundle.resourceFolder = resources.path().toStdString();
        test::writeFile(bundle.resourceFolder / "images/iCloud.svg",
                        "<svg xmlns='http://www.w3.org/2000/svg' width='32' height='32'>"
                        "<rect width='32' height='32' fill='blue'/></svg>");
        QVERIFY(!iconFor(Picture::asset("iCloud"), bundle).pixmap(32, 32).isNull());
        QVERIFY(iconFor(Picture::asset("Dropbox"), bundle).isNull());
    }

    void listSwitchesAtTenLocations_data()
    {
        QTest::addColumn<QList<int>>("counts");
        QTest::newRow("none, then nine") << QList<int>{0, 9};
        QTest::newRow("nine, ten and back") << QList<int>{9, 10, 9};
        QTest::newRow("twelve, then one") << QList<int>{12, 1};
    }

    void listSwitchesAtTenLocations()
    {
        QFETCH(QList<int>, counts);
        test::ViewHarness harness;
        mountVolumes(harness.model, counts.first());
        const ViewServices services = harness.services();
        MenuView menu(services);
        menu.show();
        QCOMPARE(menu.width(), 400);
        for (const int count : counts) {
            mountVolumes(harness.model, count);
            services.observer.updateVolumes();
            harness.model.settle();
            QCOMPARE(services.observer.volumes().size(), std::size_t(count));
            QCOMPARE(qobject_cast<ScrollingView*>(menu.list()) != nullptr, count > 9);
            QCOMPARE(qobject_cast<StandardView*>(menu.list()) != nullptr, count <= 9);
            QVERIFY(menu.list()->isVisible());
            const auto rows = rowsOf(menu);
            QCOMPARE(rows.size(), std::size_t(count));
            for (std::size_t i = 0; i < rows.size(); ++i)
                QCOMPARE(rows[i]->item(), services.observer.volumes()[i]);
        }
        // The same records published again keep their rows.
        const auto rows = rowsOf(menu);
        Q_EMIT services.observer.volumesChanged();
        QCOMPARE(rowsOf(menu), rows);
    }

    void scrollingPanelIsAboutNineRowsHigh()
    {
        test::ViewHarness harness;
        mountVolumes(harness.model, 9);
        const ViewServices services = harness.services();
        MenuView menu(services);
        menu.show();
        const int nineRows = menu.sizeHint().height();
        mountVolumes(harness.model, 14);
        services.observer.updateVolumes();
        harness.model.settle();
        auto* scrolling = qobject_cast<ScrollingView*>(menu.list());
        QVERIFY(scrolling);
        QCOMPARE(menu.sizeHint().height(), nineRows);
        menu.resize(menu.sizeHint());
        QTRY_VERIFY(scrolling->verticalScrollBar()->maximum() > 0);
    }

    void detailLine_data()
    {
        QTest::addColumn<int>("items");
        QTest::addColumn<QString>("details");
        QTest::newRow("none") << 0 << QStringLiteral("0 items, 0 bytes");
        QTest::newRow("one") << 1 << QStringLiteral("1 item, 1.2 MB");
        QTest::newRow("two") << 2 << QStringLiteral("2 items, 2.5 MB");
    }

    void detailLine()
    {
        QFETCH(int, items);
        QFETCH(QString, details);
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        ListItem row(makeLocation(harness, "volume", items, 1234567), services);
        QCOMPARE(row.details(), calculating);
        QVERIFY(!button(row, "empty")->isEnabled());
        showAndCount(row);
        QCOMPARE(row.details(), details);
        QCOMPARE(row.findChild<QLabel*>(QStringLiteral("details"))->text(), details);
        QCOMPARE(button(row, "empty")->isEnabled(), items > 0);
    }

    void progressShowsOnTheEmptiedTrashOnly_data()
    {
        QTest::addColumn<int>("items");
        QTest::addColumn<QList<double>>("published");
        QTest::addColumn<QList<bool>>("shown");
        QTest::newRow("one item") << 1 << QList<double>{1, 1, 0}
                                  << QList<bool>{false, false, false};
        QTest::newRow("two items")
            << 2 << QList<double>{0.5, 1, 1, 0} << QList<bool>{true, false, false, false};
        QTest::newRow("four items") << 4 << QList<double>{0.25, 0.5, 0.75, 1, 1, 0}
                                    << QList<bool>{true, true, true, false, false, false};
    }

    void progressShowsOnTheEmptiedTrashOnly()
    {
        QFETCH(int, items);
        QFETCH(QList<double>, published);
        QFETCH(QList<bool>, shown);
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        VolumeObserver& observer = services.observer;
        const Volume emptied = makeLocation(harness, "emptied", items);
        ListItem active(emptied, services);
        // Another record of the same trash folder is the same trash; the others are not.
        ListItem sameTrash(Volume("/media/alias", emptied.trashURL()), services);
        ListItem other(makeLocation(harness, "other", 1), services);
        ListItem noTrash(Volume("/media/none"), services);

        QList<double> values;
        QList<bool> activeShown, sameShown;
        bool othersShown = false;
        connect(&observer, &VolumeObserver::progressChanged, this, [&] {
            values << observer.progress();
            activeShown << active.shouldShowProgress();
            sameShown << sameTrash.shouldShowProgress();
            othersShown = othersShown || other.shouldShowProgress() || noTrash.shouldShowProgress();
        });
        QSignalSpy completed(&observer, &VolumeObserver::emptyingCompleted);
        observer.emptySelectedTrash(emptied);
        for (int i = 0; i < 10 && completed.isEmpty(); ++i)
            harness.model.scheduler.advance(500ms);
        QCOMPARE(completed.count(), 1);
        QCOMPARE(values, published);
        QCOMPARE(activeShown, shown);
        QCOMPARE(sameShown, shown);
        QVERIFY(!othersShown);
        QCOMPARE(active.findChild<QProgressBar*>()->isHidden(), !active.shouldShowProgress());
    }

    void emptyButton_data()
    {
        QTest::addColumn<int>("items");
        QTest::addColumn<bool>("suppressed");
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("ticked");
        QTest::addColumn<bool>("asked");
        QTest::addColumn<bool>("emptied");
        QTest::addColumn<bool>("suppressedAfter");
        constexpr int cancel = AlertAnswer::firstButton;
        constexpr int remove = AlertAnswer::secondButton;
        QTest::newRow("no items") << 0 << false << remove << false << false << false << false;
        QTest::newRow("not asking") << 2 << true << cancel << false << false << true << true;
        QTest::newRow("Return cancels") << 2 << false << cancel << false << true << false << false;
        QTest::newRow("ticked, then Cancel")
            << 2 << false << cancel << true << true << false << true;
        QTest::newRow("Delete") << 2 << false << remove << false << true << true << false;
    }

    void emptyButton()
    {
        QFETCH(int, items);
        QFETCH(bool, suppressed);
        QFETCH(int, answer);
        QFETCH(bool, ticked);
        QFETCH(bool, asked);
        QFETCH(bool, emptied);
        QFETCH(bool, suppressedAfter);
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        const Volume volume = makeLocation(harness, "Backup Disk", items);
        ListItem row(volume, services);
        showAndCount(row);
        harness.model.defaults.setBool(Constant::deleteCheckSupressionKey, suppressed);
        harness.helper.alerts.answers = {answer};
        harness.helper.alerts.ticks = {ticked};

        QTest::mouseClick(button(row, "empty"), Qt::LeftButton);
        const auto& shown = harness.helper.alerts.shown;
        QCOMPARE(shown.size(), std::size_t(asked ? 1 : 0));
        if (asked) {
            QCOMPARE(shown[0].title,
                     QStringLiteral("Are you sure you want to empty the trash for Backup Disk?"));
            QCOMPARE(shown[0].informativeText,
                     QStringLiteral("Clicking Delete will empty the trash for the selected "
                                    "volume. This action cannot be undone. \n\n This alert can "
                                    "be enabled or disabled in Settings."));
            QCOMPARE(shown[0].buttons,
                     (QStringList{QStringLiteral("Cancel"), QStringLiteral("Delete")}));
            QCOMPARE(shown[0].secondButtonKey, QStringLiteral("d"));
            QVERIFY(shown[0].showsSuppressionButton);
        }
        // Emptying starts from the main queue, never from within the click.
        QCOMPARE(int(listDirectory(*volume.trashURL())->size()), items);
        harness.model.scheduler.runPending();
        QCOMPARE(listDirectory(*volume.trashURL())->empty(), emptied || items == 0);
        QCOMPARE(harness.model.defaults.boolValue(Constant::deleteCheckSupressionKey),
                 suppressedAfter);
    }

    void revealButton_data()
    {
        QTest::addColumn<bool>("iCloud");
        QTest::addColumn<bool>("hasTrash");
        QTest::newRow("trash folder") << false << true;
        QTest::newRow("iCloud Drive") << true << true;
        QTest::newRow("no trash folder") << false << false;
    }

    void revealButton()
    {
        QFETCH(bool, iCloud);
        QFETCH(bool, hasTrash);
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        const fs::path trash = makeLocation(harness, "with space", 1).trashURL().value();
        const fs::path place = iCloud ? VolumeObserver::iCloudDriveFolder(harness.model.home)
                                      : fs::path("/media/stick");
        ListItem row(Volume(place, hasTrash ? std::optional(trash) : std::nullopt), services);
        row.show();
        QAbstractButton* reveal = button(row, "reveal");
        QCOMPARE(reveal->toolTip(), QStringLiteral("Open Trash folder in the file manager"));
        const bool opens = hasTrash && !iCloud;
        QCOMPARE(reveal->isEnabled(), opens);
        QTest::mouseClick(reveal, Qt::LeftButton);
        row.revealTrash();
        const QList<QUrl> expected{QUrl::fromLocalFile(QString::fromStdString(trash.native())),
                                   QUrl::fromLocalFile(QString::fromStdString(trash.native()))};
        QCOMPARE(harness.workspace.opened, opens ? expected : QList<QUrl>());
    }

    void helperLine()
    {
        test::ViewHarness harness;
        QVERIFY(harness.helper.startDaemon({QStringLiteral("--version"), QStringLiteral("42")}));
        harness.helper.daemonService->currentStatus = ServiceHandle::Enabled;
        harness.helper.appService->updateStatus();
        const ViewServices services = harness.services();
        EllipsisMenu menu(services);
        const auto* line = qobject_cast<QWidgetAction*>(menu.menu()->actions().first());
        QVERIFY(line);
        const auto* label = qobject_cast<QLabel*>(line->defaultWidget());
        QCOMPARE(label->text(), QStringLiteral("Helper not running"));

        services.client.start();
        QTRY_VERIFY(services.client.receivedReply());
        harness.helper.scheduler.runPending();
        QCOMPARE(menu.helperInfoString(), QStringLiteral("Helper Running. Build: 42"));
        QCOMPARE(label->text(), menu.helperInfoString());
    }

    void menuEntries()
    {
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        EllipsisMenu menu(services);
        QVERIFY(menu.maximumWidth() <= 30);
        const auto hinted = [](const char* label, const char* keys) {
            return QString::fromUtf8(label) + QLatin1Char('\t') +
                   QKeySequence(QString::fromLatin1(keys)).toString(QKeySequence::NativeText);
        };
        QStringList texts;
        for (const QAction* action : menu.menu()->actions()) {
            QVERIFY(action->shortcut().isEmpty()); // the hints are text only
            texts << (action->isSeparator() ? QStringLiteral("-") : action->text());
        }
        texts.removeFirst(); // the helper's line, a widget of its own
        QCOMPARE(texts,
                 (QStringList{QStringLiteral("About Quillane"), QStringLiteral("-"),
                              hinted("Check for Updates...", "Ctrl+U"),
                              hinted("Settings...", "Ctrl+,"), QStringLiteral("Contact Support..."),
                              QStringLiteral("Uninstall Quillane..."), QStringLiteral("-"),
                              hinted("Quit Quillane", "Ctrl+Q")}));
        QVERIFY(texts[3].endsWith(QStringLiteral("Ctrl+,")));

        const auto choose = [&](int index) { menu.menu()->actions().at(index)->trigger(); };
        choose(1);
        QCOMPARE(harness.application.calls, QStringList{QStringLiteral("activate ignoring")});
        QMessageBox* about = nullptr;
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (auto* box = qobject_cast<QMessageBox*>(window); box && box->isVisible())
                about = box;
        }
        QVERIFY(about);
        QVERIFY(!about->isModal());
        QCOMPARE(about->text(), EllipsisMenu::aboutText(services.bundle));
        QVERIFY(about->text().contains(services.bundle.shortVersion));
        QVERIFY(about->text().contains(*services.bundle.buildVersion));

        QSignalSpy checked(&services.updater, &Updater::checkFinished);
        choose(3);
        QVERIFY(checked.wait(10000));
        choose(4);
        QCOMPARE(harness.settingsOpened, 1);
        choose(8); // hands over to the quit confirmation, which quits on its first button
        QCOMPARE(harness.helper.alerts.shown.back().title,
                 QStringLiteral("Are you sure you want to quit Quillane?"));
        QCOMPARE(harness.application.calls.last(), QStringLiteral("terminate"));
    }

    void supportMail()
    {
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        EllipsisMenu menu(services);
        menu.menu()->actions().at(5)->trigger();
        QCOMPARE(harness.workspace.opened.size(), 1);
        const QUrl url = harness.workspace.opened.first();
        QCOMPARE(url.scheme(), QStringLiteral("mailto"));
        QCOMPARE(url.path(), QStringLiteral("support@velmoric.com"));
        const QUrlQuery query(url);
        QCOMPARE(query.queryItemValue(QStringLiteral("subject"), QUrl::FullyDecoded),
                 QStringLiteral("Help with Velmoric's Quillane"));
        QCOMPARE(query.queryItemValue(QStringLiteral("body"), QUrl::FullyDecoded),
                 QStringLiteral("Hello! \n\n I have a question about Quillane:\n\n"));
        const QByteArray encoded = url.toEncoded();
        QVERIFY(!encoded.contains(' ') && !encoded.contains('\n'));
    }

    void uninstallAsksFirst()
    {
        test::ViewHarness harness;
        QVERIFY(harness.helper.startDaemon(
            {QStringLiteral("--uninstall-reply"), QStringLiteral("no")}));
        const ViewServices services = harness.services();
        EllipsisMenu menu(services);
        menu.uninstallApp(); // Return: the first button
        QCOMPARE(harness.helper.alerts.shown.size(), std::size_t(1));
        const AlertRequest& asked = harness.helper.alerts.shown[0];
        QCOMPARE(asked.title, QStringLiteral("Uninstalling Quillane"));
        QCOMPARE(asked.informativeText,
                 QStringLiteral("Are you sure that you want to uninstall Quillane?"));
        QCOMPARE(asked.buttons, (QStringList{QStringLiteral("Cancel"), QStringLiteral("OK")}));

        harness.helper.alerts.answers = {AlertAnswer::secondButton};
        menu.uninstallApp();
        QTRY_VERIFY(services.client.uninstallerReplied());
        // Calls arrive in order: had Cancel sent one, the daemon would have seen two.
        QCOMPARE(harness.helper.calls(QStringLiteral("uninstall")), 1);
    }
};

QTEST_MAIN(TestPanel)
#include "tst_Panel.moc"
