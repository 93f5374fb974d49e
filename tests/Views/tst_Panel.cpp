#include "Model/TrashContents.h"
#include "Model/VolumeObserver.h"
#include "Platform/Constant.h"
#include "Platform/FileSystem.h"
#include "Shell/Translations.h"
#include "TestSupport.h"
#include "ViewHarness.h"
#include "Views/EllipsisMenu.h"
#include "Views/ItemsWindow.h"
#include "Views/ListItem.h"
#include "Views/MenuView.h"
#include "Views/Pictures.h"

#include <QAccessible>
#include <QApplication>
#include <QContextMenuEvent>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QProgressBar>
#include <QScopeGuard>
#include <QScrollBar>
#include <QSignalSpy>
#include <QSortFilterProxyModel>
#include <QStyle>
#include <QTableView>
#include <QTest>
#include <QTimer>
#include <QUrlQuery>
#include <QWidgetAction>
#include <random>
#include <set>
#include <unistd.h>

using namespace quillane;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

Q_DECLARE_METATYPE(quillane::Picture)
Q_DECLARE_METATYPE(std::string)

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

QAbstractButton* button(QWidget& row, const char* name)
{
    return row.findChild<QAbstractButton*>(QString::fromLatin1(name));
}

// A dark style's colours, as Adwaita-Dark and Breeze Dark give them.
QPalette darkPalette()
{
    QPalette palette;
    const QColor background(0x24, 0x24, 0x24);
    const QColor text(0xee, 0xee, 0xee);
    const QColor dimmed(0x80, 0x80, 0x80);
    for (const auto role : {QPalette::Window, QPalette::Button, QPalette::Base})
        palette.setColor(role, background);
    for (const auto role : {QPalette::WindowText, QPalette::ButtonText, QPalette::Text}) {
        palette.setColor(role, text);
        palette.setColor(QPalette::Disabled, role, dimmed);
    }
    return palette;
}

// How many of a control's pixels stand out from the background it is drawn on.
int pixelsOffBackground(QWidget& control)
{
    const QImage image = control.grab().toImage();
    const int background = qGray(control.palette().color(QPalette::Window).rgb());
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (std::abs(qGray(image.pixel(x, y)) - background) > 96)
                ++count;
        }
    }
    return count;
}

// What a screen reader says a control is.
QString spokenName(QWidget* control)
{
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(control);
    return accessible ? accessible->text(QAccessible::Name) : QString();
}

std::vector<ListItem*> rowsOf(const MenuView& menu)
{
    if (auto* plain = qobject_cast<StandardView*>(menu.list()))
        return plain->rows();
    return qobject_cast<ScrollingView*>(menu.list())->rows();
}

// The program speaks a language for as long as this lives, then the one it spoke before.
class Speaking
{
public:
    explicit Speaking(const QLocale& locale)
    {
        QLocale::setDefault(locale);
        installTranslations();
    }
    ~Speaking()
    {
        QLocale::setDefault(m_before);
        installTranslations();
    }
    Q_DISABLE_COPY(Speaking)

private:
    const QLocale m_before;
};

// An item of the harness's home trash with its record; an empty record leaves it without one.
void trashItem(test::ViewHarness& harness, const std::string& name, const std::string& record,
               std::string_view bytes = "x")
{
    const fs::path trash = harness.model.homeTrash();
    test::writeFile(trash / name, bytes);
    if (!record.empty())
        test::writeFile(trash.parent_path() / "info" / (name + ".trashinfo"),
                        "[Trash Info]\n" + record);
}

std::string pathLine(const fs::path& path)
{
    return "Path=" + path.native() + "\nDeletionDate=2024-01-02T03:04:05\n";
}

// The window over the harness's home trash, with its first reading in.
std::unique_ptr<ItemsWindow> itemsWindow(test::ViewHarness& harness)
{
    auto window =
        std::make_unique<ItemsWindow>(Volume("/", harness.model.homeTrash()), harness.services());
    window->show();
    harness.model.scheduler.runPending();
    return window;
}

// The names shown, top to bottom.
QStringList shownNames(const ItemsWindow& window)
{
    QStringList names;
    const QAbstractItemModel* shown = window.table()->model();
    for (int row = 0; row < shown->rowCount(); ++row)
        names << shown->index(row, TrashContents::Name).data().toString();
    return names;
}

void selectNames(ItemsWindow& window, const QStringList& names)
{
    QTableView* table = window.table();
    table->clearSelection();
    const QAbstractItemModel* shown = table->model();
    for (int row = 0; row < shown->rowCount(); ++row) {
        if (names.contains(shown->index(row, TrashContents::Name).data().toString()))
            table->selectionModel()->select(shown->index(row, 0), QItemSelectionModel::Select |
                                                                      QItemSelectionModel::Rows);
    }
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
        const auto row = [](const char* name, const Picture& picture, const char* theme) {
            QTest::newRow(name) << picture << QString::fromLatin1(theme);
        };
        row("trash", Picture::symbol("trash"), "user-trash-symbolic");
        row("menu", Picture::symbol("ellipsis.circle"), "view-more-symbolic");
        row("reveal", Picture::symbol("rectangle.portrait.and.arrow.right"),
            "folder-open-symbolic");
        row("no volume", Picture::symbol("externaldrive"), "drive-harddisk");
        row("root is a disk, not a home", Picture::fileIcon("/"), "drive-harddisk");
        row("removable", Picture::fileIcon("/media/me/USB STICK"), "drive-removable-media");
        row("udisks", Picture::fileIcon("/run/media/me/CARD"), "drive-removable-media");
        row("name that only starts alike", Picture::fileIcon("/mediastore"), "drive-harddisk");
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
        test::writeFile(bundle.resourceFolder / "images/OneDrive.svg",
                        "<svg xmlns='http://www.w3.org/2000/svg' width='32' height='32'>"
                        "<rect width='32' height='32' fill='blue'/></svg>");
        QVERIFY(!iconFor(Picture::asset("OneDrive"), bundle).pixmap(32, 32).isNull());
        QVERIFY(iconFor(Picture::asset("Dropbox"), bundle).isNull());
    }

    // The symbols of the menu and reveal buttons are drawn in the style's text colour: they show
    // in light and dark styles, also when the style changes while they are on screen.
    void symbolsShowInEveryStyle_data()
    {
        QTest::addColumn<QList<bool>>("darkStyles");
        QTest::newRow("light, then dark") << QList<bool>{false, true};
        QTest::newRow("dark, then light") << QList<bool>{true, false};
    }

    void symbolsShowInEveryStyle()
    {
        QFETCH(QList<bool>, darkStyles);
        const QPalette original = QApplication::palette();
        const auto restore = qScopeGuard([&] { QApplication::setPalette(original); });
        const auto applyStyle = [&](bool dark) {
            QApplication::setPalette(dark ? darkPalette()
                                          : QApplication::style()->standardPalette());
        };
        applyStyle(darkStyles.first());
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        ListItem row(makeLocation(harness, "USB Stick", 1), services);
        EllipsisMenu menu(services);
        row.show();
        menu.show();
        for (const bool dark : darkStyles) {
            applyStyle(dark);
            QTRY_COMPARE(qGray(row.palette().color(QPalette::Window).rgb()) < 128, dark);
            for (QWidget* control :
                 {static_cast<QWidget*>(button(row, "reveal")), static_cast<QWidget*>(&menu)})
                QVERIFY2(pixelsOffBackground(*control) >= 8, qPrintable(control->objectName()));
        }
    }

    // Each control says what it acts on, so that a screen reader tells the rows apart.
    void controlsSayWhatTheyActOn()
    {
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        ListItem row(makeLocation(harness, "USB Stick", 1), services);
        QCOMPARE(spokenName(button(row, "empty")), QStringLiteral("Empty the trash of USB Stick"));
        QCOMPARE(spokenName(button(row, "reveal")), QStringLiteral("Show the trash of USB Stick"));
        QCOMPARE(spokenName(row.findChild<QProgressBar*>()),
                 QStringLiteral("Emptying the trash of USB Stick"));
        EllipsisMenu menu(services);
        QCOMPARE(spokenName(&menu), QStringLiteral("Menu"));

        // In a whole panel, no control goes unnamed and no two sound alike.
        mountVolumes(harness.model, 3);
        services.observer.updateVolumes();
        harness.model.settle();
        MenuView panel(services);
        std::set<QString> names;
        const auto controls = panel.findChildren<QAbstractButton*>();
        for (QAbstractButton* control : controls) {
            const QString name = spokenName(control);
            QVERIFY(!name.isEmpty());
            QVERIFY2(names.insert(name).second, qPrintable(name));
        }
        QVERIFY(rowsOf(panel).size() >= 3);
        QCOMPARE(names.size(), rowsOf(panel).size() * 2 + 1);
    }

    // Where the icon theme has no picture for a symbol, ours stands in.
    void symbolsWithoutATheme_data()
    {
        QTest::addColumn<std::string>("symbol");
        QTest::newRow("trash") << std::string("trash");
        QTest::newRow("menu") << std::string("ellipsis.circle");
        QTest::newRow("reveal") << std::string("rectangle.portrait.and.arrow.right");
    }

    void symbolsWithoutATheme()
    {
        QFETCH(std::string, symbol);
        const QStringList paths = QIcon::themeSearchPaths();
        const QString theme = QIcon::themeName();
        const QString fallback = QIcon::fallbackThemeName();
        const auto restore = qScopeGuard([&] {
            QIcon::setThemeSearchPaths(paths);
            QIcon::setThemeName(theme);
            QIcon::setFallbackThemeName(fallback);
        });
        QTemporaryDir noThemes;
        QIcon::setThemeSearchPaths({noThemes.path()});
        QIcon::setThemeName(QStringLiteral("none"));
        QIcon::setFallbackThemeName(QStringLiteral("none"));
        QVERIFY(QIcon::fromTheme(symbolIconName(symbol)).isNull());
        QVERIFY(!iconFor(Picture::symbol(symbol), BundleInfo::current()).pixmap(16, 16).isNull());
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
        int nineRows = 0;
        auto shown = std::size_t(counts.first());
        for (const int count : counts) {
            mountVolumes(harness.model, count);
            services.observer.updateVolumes();
            harness.model.scheduler.runPending(); // the rebuild clears the list at once,
            QCOMPARE(rowsOf(menu).size(), shown); // but the rows stay until the new one
            harness.model.settle();
            shown = std::size_t(count);
            QCOMPARE(services.observer.volumes().size(), std::size_t(count));
            QCOMPARE(qobject_cast<ScrollingView*>(menu.list()) != nullptr, count > 9);
            QCOMPARE(qobject_cast<StandardView*>(menu.list()) != nullptr, count <= 9);
            QVERIFY(menu.list()->isVisible());
            const auto rows = rowsOf(menu);
            QCOMPARE(rows.size(), std::size_t(count));
            for (std::size_t i = 0; i < rows.size(); ++i)
                QCOMPARE(rows[i]->item(), services.observer.volumes()[i]);
            if (count == 9)
                nineRows = menu.sizeHint().height();
            if (count == 10) { // the scrolling list is about nine rows high
                QCOMPARE(menu.sizeHint().height(), nineRows);
                menu.resize(menu.sizeHint());
                auto* scrolling = qobject_cast<ScrollingView*>(menu.list());
                QTRY_VERIFY(scrolling->verticalScrollBar()->maximum() > 0);
            }
        }
        // The same records published again keep their rows.
        const auto rows = rowsOf(menu);
        Q_EMIT services.observer.listPublished();
        QCOMPARE(rowsOf(menu), rows);
    }

    void progressShowsOnTheEmptiedTrashOnly_data()
    {
        QTest::addColumn<int>("items");
        QTest::addColumn<QList<bool>>("shown");
        QTest::newRow("one item") << 1 << QList<bool>{false, false, false};
        QTest::newRow("two items") << 2 << QList<bool>{true, false, false, false};
        QTest::newRow("four items") << 4 << QList<bool>{true, true, true, false, false, false};
    }

    void progressShowsOnTheEmptiedTrashOnly()
    {
        QFETCH(int, items);
        QFETCH(QList<bool>, shown);
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        VolumeObserver& observer = services.observer;
        const Volume emptied = makeLocation(harness, "emptied", items);
        ListItem active(emptied, services);
        active.show();
        // Another record of the same trash folder is the same trash; the others are not.
        ListItem sameTrash(Volume("/media/alias", emptied.trashURL()), services);
        ListItem other(makeLocation(harness, "other", 1), services);
        ListItem noTrash(Volume("/media/none"), services);
        other.show();
        QTRY_VERIFY(button(other, "empty")->isEnabled());

        const int rowHeight = active.sizeHint().height();
        QList<int> heights; // the row keeps its height while its bar comes and goes
        QList<bool> activeShown, sameShown;
        bool othersShown = false;
        bool otherCouldEmpty = false; // one emptying at a time
        connect(&observer, &VolumeObserver::progressChanged, this, [&] {
            heights << active.sizeHint().height();
            activeShown << active.shouldShowProgress();
            sameShown << sameTrash.shouldShowProgress();
            othersShown = othersShown || other.shouldShowProgress() || noTrash.shouldShowProgress();
            otherCouldEmpty = otherCouldEmpty || button(other, "empty")->isEnabled() ||
                              button(other, "empty")->toolTip().isEmpty();
        });
        QSignalSpy completed(&observer, &VolumeObserver::emptyingCompleted);
        observer.emptySelectedTrash(emptied);
        for (int i = 0; i < 10 && completed.isEmpty(); ++i)
            harness.model.scheduler.advance(500ms);
        QCOMPARE(completed.count(), 1);
        QCOMPARE(activeShown, shown);
        QCOMPARE(sameShown, shown);
        QCOMPARE(heights, QList<int>(heights.size(), rowHeight));
        QVERIFY(!othersShown);
        QVERIFY(!otherCouldEmpty);
        QVERIFY(button(other, "empty")->isEnabled());
        QCOMPARE(active.findChild<QProgressBar*>()->isHidden(), !active.shouldShowProgress());
    }

    void detailsAndEmptyButton_data()
    {
        QTest::addColumn<int>("items");
        QTest::addColumn<QString>("details");
        QTest::addColumn<bool>("suppressed");
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("ticked");
        QTest::addColumn<bool>("asked");
        QTest::addColumn<bool>("emptied");
        QTest::addColumn<bool>("suppressedAfter");
        constexpr int cancel = AlertAnswer::firstButton;
        constexpr int remove = AlertAnswer::secondButton;
        const QString none = QStringLiteral("0 items, 0 bytes");
        const QString one = QStringLiteral("1 item, 1.2 MB");
        const QString two = QStringLiteral("2 items, 2.5 MB");
        QTest::newRow("no items") << 0 << none << false << remove << false << false << false
                                  << false;
        QTest::newRow("not asking") << 2 << two << true << cancel << false << false << true << true;
        QTest::newRow("Return cancels")
            << 2 << two << false << cancel << false << true << false << false;
        QTest::newRow("ticked, then Cancel")
            << 2 << two << false << cancel << true << true << false << true;
        QTest::newRow("Delete") << 1 << one << false << remove << false << true << true << false;
        QTest::newRow("Escape cancels") << 1 << one << false << int(test::ScriptedAlerts::escape)
                                        << false << true << false << false;
    }

    void detailsAndEmptyButton()
    {
        QFETCH(int, items);
        QFETCH(QString, details);
        QFETCH(bool, suppressed);
        QFETCH(int, answer);
        QFETCH(bool, ticked);
        QFETCH(bool, asked);
        QFETCH(bool, emptied);
        QFETCH(bool, suppressedAfter);
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        const Volume volume = makeLocation(harness, "Backup Disk", items, 1234567);
        ListItem row(volume, services);
        QCOMPARE(row.details(), calculating);
        QVERIFY(!button(row, "empty")->isEnabled());
        row.show();
        QTRY_VERIFY(row.details() != calculating);
        QCOMPARE(row.findChild<QLabel*>(QStringLiteral("details"))->text(), details);
        QCOMPARE(button(row, "empty")->isEnabled(), items > 0);
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

    // Counts and sizes in the user's language: its plural forms, digit grouping and decimal mark,
    // in decimal units.
    void detailLineInTheUsersLanguage_data()
    {
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<int>("items");
        QTest::addColumn<qulonglong>("bytes");
        QTest::addColumn<QString>("details");
        const QLocale english(QLocale::English, QLocale::UnitedStates);
        const QLocale german(QLocale::German, QLocale::Germany);
        const auto row = [](const char* name, const QLocale& locale, int items, qulonglong bytes,
                            const char* details) {
            QTest::newRow(name) << locale << items << bytes << QString::fromUtf8(details);
        };
        row("English, one", english, 1, 1, "1 item, 1 byte");
        row("English, two", english, 2, 999, "2 items, 999 bytes");
        row("English, grouped", english, 1234, 999'950, "1,234 items, 1.0 MB");
        row("English, terabytes", english, 3, 1'500'000'000'000, "3 items, 1.5 TB");
        row("German, none", german, 0, 0, "0 Objekte, 0 Byte");
        row("German, one", german, 1, 1, "1 Objekt, 1 Byte");
        row("German, two", german, 2, 532, "2 Objekte, 532 Byte");
        row("German, grouped", german, 1234, 999'950, "1.234 Objekte, 1,0 MB");
        row("German, kilobytes", german, 21, 12'345, "21 Objekte, 12,3 kB");
    }

    void detailLineInTheUsersLanguage()
    {
        QFETCH(QLocale, locale);
        QFETCH(int, items);
        QFETCH(qulonglong, bytes);
        QFETCH(QString, details);
        const Speaking language(locale);
        QCOMPARE(ListItem::detailString(items, bytes), details);
    }

    void revealButton_data()
    {
        QTest::addColumn<bool>("hasTrash");
        QTest::newRow("trash folder") << true;
        QTest::newRow("no trash folder") << false;
    }

    void revealButton()
    {
        QFETCH(bool, hasTrash);
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        const fs::path trash = makeLocation(harness, "with space", 1).trashURL().value();
        ListItem row(Volume("/media/stick", hasTrash ? std::optional(trash) : std::nullopt),
                     services);
        row.show();
        QAbstractButton* reveal = button(row, "reveal");
        QCOMPARE(reveal->toolTip(), QStringLiteral("Open Trash folder in the file manager"));
        const bool opens = hasTrash;
        QCOMPARE(reveal->isEnabled(), opens);
        QTest::mouseClick(reveal, Qt::LeftButton);
        row.revealTrash();
        const QUrl url = QUrl::fromLocalFile(QString::fromStdString(trash.native()));
        QCOMPARE(harness.workspace.opened, opens ? QList<QUrl>(2, url) : QList<QUrl>());
    }

    void menuEntries()
    {
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        EllipsisMenu menu(services);
        QVERIFY(menu.maximumWidth() <= 30);
        QStringList texts;
        for (const QAction* action : menu.menu()->actions()) {
            QVERIFY(action->shortcut().isEmpty()); // the hints are text only
            texts << (action->isSeparator() ? QStringLiteral("-") : action->text());
        }
        texts.removeFirst(); // the helper's line, a widget of its own
        QCOMPARE(texts, (QStringList{QStringLiteral("About Quillane"), QStringLiteral("-"),
                                     QStringLiteral("Check for Updates...\tCtrl+U"),
                                     QStringLiteral("Settings...\tCtrl+,"),
                                     QStringLiteral("Contact Support..."),
                                     QStringLiteral("Uninstall Quillane..."), QStringLiteral("-"),
                                     QStringLiteral("Quit Quillane\tCtrl+Q")}));

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
        QVERIFY(about->text().contains(services.bundle.shortVersion));
        QVERIFY(about->text().contains(*services.bundle.buildVersion));

        QSignalSpy checked(&services.updater, &Updater::checkFinished);
        choose(3);
        QVERIFY(checked.wait(10000));
        choose(4);
        QCOMPARE(harness.settingsOpened, 1);
        choose(5);
        QCOMPARE(harness.workspace.opened.size(), 1);
        const QUrl mail = harness.workspace.opened.first();
        QCOMPARE(mail.scheme(), QStringLiteral("mailto"));
        QCOMPARE(mail.path(), QStringLiteral("support@velmoric.com"));
        const QUrlQuery query(mail);
        QCOMPARE(query.queryItemValue(QStringLiteral("subject"), QUrl::FullyDecoded),
                 QStringLiteral("Help with Velmoric's Quillane"));
        QCOMPARE(query.queryItemValue(QStringLiteral("body"), QUrl::FullyDecoded),
                 QStringLiteral("Hello! \n\n I have a question about Quillane:\n\n"));
        QVERIFY(!mail.toEncoded().contains(' ') && !mail.toEncoded().contains('\n'));
        choose(8); // hands over to the quit confirmation, which quits on its first button
        QCOMPARE(harness.helper.alerts.shown.back().title,
                 QStringLiteral("Are you sure you want to quit Quillane?"));
        QCOMPARE(harness.application.calls.last(), QStringLiteral("terminate"));
    }

    // The helper's line follows the daemon; uninstalling asks first and sends nothing on Cancel.
    void helperEntries()
    {
        test::ViewHarness harness;
        QVERIFY(harness.helper.startDaemon({QStringLiteral("--version"), QStringLiteral("42"),
                                            QStringLiteral("--uninstall-reply"),
                                            QStringLiteral("no")}));
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
        QCOMPARE(label->text(), QStringLiteral("Helper Running. Build: 42"));

        menu.uninstallApp(); // Return: the first button
        QCOMPARE(harness.helper.alerts.shown.size(), std::size_t(1));
        const AlertRequest& asked = harness.helper.alerts.shown[0];
        QCOMPARE(asked.title, QStringLiteral("Uninstalling Quillane"));
        QCOMPARE(asked.informativeText,
                 QStringLiteral("Are you sure that you want to uninstall Quillane?"));
        QCOMPARE(asked.buttons, (QStringList{QStringLiteral("Cancel"), QStringLiteral("OK")}));
        harness.helper.alerts.answers = {test::ScriptedAlerts::escape};
        menu.uninstallApp(); // Escape backs out too
        harness.helper.alerts.answers = {AlertAnswer::secondButton};
        menu.uninstallApp();
        QTRY_VERIFY(services.client.uninstallerReplied());
        // Calls arrive in order: had Cancel sent one, the daemon would have seen two.
        QCOMPARE(harness.helper.calls(QStringLiteral("uninstall")), 1);
    }

    // Sizes sort by bytes and dates by time, whatever their text says; typing in the table
    // searches.
    void itemsWindowSortsAndSearches()
    {
        test::ViewHarness harness;
        trashItem(harness, "beta", "DeletionDate=2024-11-02T08:00:00\n", std::string(9000, 'b'));
        trashItem(harness, "alpha", "DeletionDate=2024-02-10T08:00:00\n", std::string(120000, 'a'));
        trashItem(harness, "Gamma", "DeletionDate=2023-12-31T08:00:00\n", "g");
        const auto window = itemsWindow(harness);
        QCOMPARE(window->windowTitle(), window->windowTitle().trimmed());
        QVERIFY(window->table()->accessibleName().contains(QStringLiteral("trash")));
        QTRY_VERIFY(window->contents()->isLoaded());
        QCOMPARE(shownNames(*window).size(), 3);

        window->table()->sortByColumn(TrashContents::Size, Qt::AscendingOrder);
        QCOMPARE(shownNames(*window), (QStringList{QStringLiteral("Gamma"), QStringLiteral("beta"),
                                                   QStringLiteral("alpha")}));
        window->table()->sortByColumn(TrashContents::Deleted, Qt::AscendingOrder);
        QCOMPARE(shownNames(*window), (QStringList{QStringLiteral("Gamma"), QStringLiteral("alpha"),
                                                   QStringLiteral("beta")}));
        window->table()->sortByColumn(TrashContents::Name, Qt::AscendingOrder);
        QCOMPARE(shownNames(*window), (QStringList{QStringLiteral("alpha"), QStringLiteral("beta"),
                                                   QStringLiteral("Gamma")}));

        window->table()->setFocus();
        QTest::keyClicks(window->table(), QStringLiteral("GA"));
        QCOMPARE(window->searchField()->text(), QStringLiteral("GA"));
        QCOMPARE(shownNames(*window), QStringList{QStringLiteral("Gamma")});
        window->searchField()->clear();
        QCOMPARE(shownNames(*window).size(), 3);

        // Nothing to act on without a selection.
        auto* restore = window->findChild<QAbstractButton*>(QStringLiteral("restore"));
        auto* remove = window->findChild<QAbstractButton*>(QStringLiteral("delete"));
        QVERIFY(!restore->isEnabled() && !remove->isEnabled());
        QVERIFY(!restore->accessibleName().isEmpty() && !remove->accessibleName().isEmpty());
        selectNames(*window, {QStringLiteral("alpha"), QStringLiteral("beta")});
        QVERIFY(restore->isEnabled() && remove->isEnabled());

        // Tab leaves the table for the buttons, and Return presses the one with the focus.
        window->table()->setFocus();
        QTest::keyClick(window->table(), Qt::Key_Tab);
        QCOMPARE(window->focusWidget(), restore);
        // These have no record: the restore asks where to, and is told nowhere.
        const ItemsWindow::FolderChooser dialog = ItemsWindow::chooseFolder;
        const auto putBack = qScopeGuard([&] { ItemsWindow::chooseFolder = dialog; });
        QStringList asked;
        ItemsWindow::chooseFolder = [&](QWidget*, const QString& item) {
            asked << item;
            return std::optional<std::filesystem::path>();
        };
        QTest::keyClick(restore, Qt::Key_Return);
        QTRY_COMPARE(asked.size(), 2);

        // Escape closes the window, from the table as from the search field.
        window->table()->setFocus();
        QTest::keyClick(window->table(), Qt::Key_Escape);
        QVERIFY(!window->isVisible());
        window->show();
        QTest::keyClick(window->searchField(), Qt::Key_Escape);
        QVERIFY(!window->isVisible());
    }

    // A name already taken asks: Keep Both restores under a new name beside it, Skip and
    // Escape leave the item in the trash. A missing parent folder is made; an item without a
    // record goes where the user picks.
    void itemsWindowRestores_data()
    {
        QTest::addColumn<int>("answer");
        QTest::addColumn<bool>("keptBoth");
        QTest::newRow("keep both") << int(AlertAnswer::firstButton) << true;
        QTest::newRow("skip") << int(AlertAnswer::secondButton) << false;
        QTest::newRow("escape") << int(test::ScriptedAlerts::escape) << false;
    }

    void itemsWindowRestores()
    {
        QFETCH(int, answer);
        QFETCH(bool, keptBoth);
        test::ViewHarness harness;
        const fs::path root = harness.model.root.path().toStdString();
        test::writeFile(root / "docs/notes.txt", "mine");
        trashItem(harness, "notes.txt", pathLine(root / "docs/notes.txt"), "trashed");
        trashItem(harness, "deep", pathLine(root / "not/yet/there/deep"), "deep");
        // Its way back goes through a file: it fails, and says so in one alert at the end.
        trashItem(harness, "blocked", pathLine(root / "docs/notes.txt/blocked"), "blocked");
        trashItem(harness, "caf\xe9", "\x01garbage\xff\n", "no record");
        const auto window = itemsWindow(harness);
        QTRY_VERIFY(window->contents()->isLoaded());
        std::vector<QString> asked;
        const ItemsWindow::FolderChooser dialog = ItemsWindow::chooseFolder;
        ItemsWindow::chooseFolder = [&](QWidget*, const QString& item) {
            asked.push_back(item);
            return std::optional(root / "picked");
        };
        fs::create_directories(root / "picked");
        harness.helper.alerts.answers = {answer};
        selectNames(*window, {QStringLiteral("notes.txt"), QStringLiteral("deep"),
                              QStringLiteral("caf\uFFFD"), QStringLiteral("blocked")});
        QSignalSpy finished(window.get(), &ItemsWindow::restoresFinished);
        window->findChild<QAbstractButton*>(QStringLiteral("restore"))->click();
        QTRY_VERIFY((harness.model.scheduler.runPending(), finished.count() == 1));

        QCOMPARE(asked, std::vector<QString>{QStringLiteral("caf\uFFFD")});
        QCOMPARE(harness.helper.alerts.shown.size(), std::size_t(2)); // the name taken, the failure
        const AlertRequest& failed = harness.helper.alerts.shown[1];
        QVERIFY(failed.informativeText.startsWith(QStringLiteral("blocked (")));
        QCOMPARE(failed.informativeText.count(QLatin1Char('\n')), 0);
        QVERIFY(fs::exists(harness.model.homeTrash() / "blocked"));
        const AlertRequest& question = harness.helper.alerts.shown[0];
        QCOMPARE(question.buttons,
                 (QStringList{QStringLiteral("Keep Both"), QStringLiteral("Skip")}));
        QCOMPARE(question.cancelButton, 1);
        QCOMPARE(test::readFile(root / "docs/notes.txt"), std::string("mine"));
        QCOMPARE(test::readFile(root / "not/yet/there/deep"), std::string("deep"));
        QCOMPARE(test::readFile(root / "picked" / "caf\xe9"), std::string("no record"));
        const fs::path trash = harness.model.homeTrash();
        QCOMPARE(fs::exists(trash / "notes.txt"), !keptBoth);
        QVERIFY(!fs::exists(trash / "deep"));
        QVERIFY(!fs::exists(trash.parent_path() / "info/deep.trashinfo"));
        // The window follows: what went back leaves the list.
        QTRY_VERIFY_WITH_TIMEOUT((harness.model.scheduler.advance(1s),
                                  window->contents()->rowCount() == (keptBoth ? 1 : 2)),
                                 5000);
        ItemsWindow::chooseFolder = dialog;
        fs::remove_all(root / "picked"); // a name QTemporaryDir cannot remove
    }

    // Delete removes the chosen items only, with their records, after asking.
    void itemsWindowDeletesTheSelection_data()
    {
        QTest::addColumn<int>("answer");
        QTest::newRow("delete") << int(AlertAnswer::secondButton);
        QTest::newRow("escape") << int(test::ScriptedAlerts::escape);
    }

    void itemsWindowDeletesTheSelection()
    {
        QFETCH(int, answer);
        test::ViewHarness harness;
        const fs::path root = harness.model.root.path().toStdString();
        for (const char* name : {"one", "two", "three", "-dash"})
            trashItem(harness, name, pathLine(root / "from" / name));
        const auto window = itemsWindow(harness);
        QTRY_VERIFY(window->contents()->isLoaded());
        selectNames(*window, {QStringLiteral("two"), QStringLiteral("-dash")});
        harness.helper.alerts.answers = {answer};
        window->findChild<QAbstractButton*>(QStringLiteral("delete"))->click();
        QCOMPARE(harness.helper.alerts.shown.back().destructiveButton, 1);
        harness.model.scheduler.advance(2s);
        const bool deleted = answer == AlertAnswer::secondButton;
        const fs::path trash = harness.model.homeTrash();
        for (const std::string name : {"one", "three", "two", "-dash"}) {
            const bool kept = !deleted || name == "one" || name == "three";
            QCOMPARE(fs::exists(trash / name), kept);
            QCOMPARE(fs::exists(trash.parent_path() / "info" / (name + ".trashinfo")), kept);
        }
    }

    // The name opens the window of that trash, and a second click brings the same one forward.
    void rowNameShowsItems()
    {
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        trashItem(harness, "thing", pathLine("/x/thing"));
        ListItem row(Volume("/", harness.model.homeTrash()), services);
        row.show();
        auto* name = row.findChild<QLabel*>(QStringLiteral("name"));
        QTest::mouseClick(name, Qt::LeftButton);
        const auto windows = [] {
            QList<ItemsWindow*> found;
            for (QWidget* widget : QApplication::topLevelWidgets()) {
                if (auto* window = qobject_cast<ItemsWindow*>(widget);
                    window && window->isVisible())
                    found << window;
            }
            return found;
        };
        QCOMPARE(windows().size(), 1);
        QTest::mouseClick(name, Qt::LeftButton);
        QCOMPARE(windows().size(), 1);
        ItemsWindow* window = windows().first();
        QCOMPARE(window->trashFolder(), harness.model.homeTrash());
        harness.model.scheduler.runPending();
        QCOMPARE(shownNames(*window), QStringList{QStringLiteral("thing")});
        QVERIFY(harness.workspace.opened.isEmpty()); // the reveal button still opens the folder
        window->close();
        QTRY_VERIFY(windows().isEmpty());

        // The context menu's "Show Items" does the same.
        QTimer::singleShot(0, [] {
            auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            QVERIFY(menu);
            QCOMPARE(menu->actions().first()->text(), QStringLiteral("Show Items"));
            menu->actions().first()->trigger();
            menu->close();
        });
        QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(5, 5),
                                row.mapToGlobal(QPoint(5, 5)));
        QApplication::sendEvent(&row, &event);
        QTRY_COMPARE(windows().size(), 1);
        windows().first()->close();
    }
};

QTEST_MAIN(TestPanel)
#include "tst_Panel.moc"
