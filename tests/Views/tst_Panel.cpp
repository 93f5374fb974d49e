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

#include <QApplication>
#include <QContextMenuEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QProgressBar>
#include <QScopeGuard>
#include <QScrollBar>
#include <QSignalSpy>
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
using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

Q_DECLARE_METATYPE(quillane::Picture)

namespace
{

const QString calculating = u"Calculating..."_s;

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

QAbstractButton* button(QWidget& parent, const char* name)
{
    return parent.findChild<QAbstractButton*>(QString::fromLatin1(name));
}

// A dark style's colours, as Adwaita-Dark and Breeze Dark give them.
QPalette darkPalette()
{
    QPalette palette;
    for (const auto role : {QPalette::Window, QPalette::Button, QPalette::Base})
        palette.setColor(role, QColor(0x24, 0x24, 0x24));
    for (const auto role : {QPalette::WindowText, QPalette::ButtonText, QPalette::Text}) {
        palette.setColor(role, QColor(0xee, 0xee, 0xee));
        palette.setColor(QPalette::Disabled, role, QColor(0x80, 0x80, 0x80));
    }
    return palette;
}

// How many of a control's pixels stand out from the background it is drawn on.
int pixelsOffBackground(QWidget& control)
{
    const QImage image = control.grab().toImage();
    const int background = qGray(control.palette().color(QPalette::Window).rgb());
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            count += std::abs(qGray(image.pixel(x, y)) - background) > 96;
    return count;
}

std::vector<ListItem*> rowsOf(const MenuView& menu)
{
    if (auto* plain = qobject_cast<StandardView*>(menu.list()))
        return plain->rows();
    return qobject_cast<ScrollingView*>(menu.list())->rows();
}

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

// The folder dialog answers with this until the guard returned goes.
auto answerFolderDialog(ItemsWindow::FolderChooser chooser)
{
    return qScopeGuard([before = std::exchange(ItemsWindow::chooseFolder, chooser)] {
        ItemsWindow::chooseFolder = before;
    });
}

template <typename Window = ItemsWindow> QList<Window*> visibleWindows()
{
    QList<Window*> found;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (auto* window = qobject_cast<Window*>(widget); window && window->isVisible())
            found << window;
    }
    return found;
}

// A click on a row's Empty button: the row's items, what the settings and the user say, and
// whether it asks, empties and asks no more.
struct EmptyClick {
    int items;
    bool suppressed;
    int answer;
    bool ticked, asked, emptied, suppressedAfter;
};

} // namespace

Q_DECLARE_METATYPE(EmptyClick)

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

    // Where the icon theme has no picture for a symbol, ours stands in.
    void symbolsWithoutATheme()
    {
        const QStringList paths = QIcon::themeSearchPaths();
        const QString theme = QIcon::themeName(), fallback = QIcon::fallbackThemeName();
        const auto restore = qScopeGuard([&] {
            QIcon::setThemeSearchPaths(paths);
            QIcon::setThemeName(theme);
            QIcon::setFallbackThemeName(fallback);
        });
        QTemporaryDir noThemes;
        QIcon::setThemeSearchPaths({noThemes.path()});
        QIcon::setThemeName(u"none"_s);
        QIcon::setFallbackThemeName(u"none"_s);
        for (const std::string symbol :
             {"trash", "ellipsis.circle", "rectangle.portrait.and.arrow.right"}) {
            QVERIFY(QIcon::fromTheme(symbolIconName(symbol)).isNull());
            QVERIFY2(
                !iconFor(Picture::symbol(symbol), BundleInfo::current()).pixmap(16, 16).isNull(),
                symbol.c_str());
        }
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
            for (QWidget* control : std::initializer_list<QWidget*>{button(row, "reveal"), &menu})
                QVERIFY2(pixelsOffBackground(*control) >= 8, qPrintable(control->objectName()));
        }
    }

    // Each control says what it acts on, so that a screen reader tells the rows apart.
    void controlsSayWhatTheyActOn()
    {
        test::ViewHarness harness;
        const ViewServices services = harness.services();
        ListItem row(makeLocation(harness, "USB Stick", 1), services);
        QCOMPARE(test::spokenName(button(row, "empty")), u"Empty the trash of USB Stick"_s);
        QCOMPARE(test::spokenName(button(row, "reveal")), u"Show the trash of USB Stick"_s);
        QCOMPARE(test::spokenName(row.findChild<QProgressBar*>()),
                 u"Emptying the trash of USB Stick"_s);
        EllipsisMenu menu(services);
        QCOMPARE(test::spokenName(&menu), u"Menu"_s);
        // In a whole panel, no control goes unnamed and no two sound alike.
        mountVolumes(harness.model, 3);
        services.observer.updateVolumes();
        harness.model.settle();
        MenuView panel(services);
        std::set<QString> names;
        for (QAbstractButton* control : panel.findChildren<QAbstractButton*>()) {
            const QString name = test::spokenName(control);
            QVERIFY(!name.isEmpty());
            QVERIFY2(names.insert(name).second, qPrintable(name));
        }
        QVERIFY(rowsOf(panel).size() >= 3);
        QCOMPARE(names.size(), rowsOf(panel).size() * 2 + 1);
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
        QAbstractButton* otherEmpty = button(other, "empty");
        QTRY_VERIFY(otherEmpty->isEnabled());
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
            otherCouldEmpty =
                otherCouldEmpty || otherEmpty->isEnabled() || otherEmpty->toolTip().isEmpty();
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
        QVERIFY(otherEmpty->isEnabled());
        QCOMPARE(active.findChild<QProgressBar*>()->isHidden(), !active.shouldShowProgress());
    }

    void detailsAndEmptyButton_data()
    {
        QTest::addColumn<EmptyClick>("click");
        constexpr int cancel = AlertAnswer::firstButton, remove = AlertAnswer::secondButton;
        QTest::newRow("no items") << EmptyClick{0, false, remove, false, false, false, false};
        QTest::newRow("not asking") << EmptyClick{2, true, cancel, false, false, true, true};
        QTest::newRow("Return cancels") << EmptyClick{2, false, cancel, false, true, false, false};
        QTest::newRow("ticked, Cancel") << EmptyClick{2, false, cancel, true, true, false, true};
        QTest::newRow("Delete") << EmptyClick{1, false, remove, false, true, true, false};
        QTest::newRow("Escape cancels")
            << EmptyClick{1, false, test::ScriptedAlerts::escape, false, true, false, false};
    }
    void detailsAndEmptyButton()
    {
        QFETCH(const EmptyClick, click);
        const auto [items, suppressed, answer, ticked, asked, emptied, suppressedAfter] = click;
        const QString details[] = {u"0 items, 0 bytes"_s, u"1 item, 1.2 MB"_s,
                                   u"2 items, 2.5 MB"_s};
        test::ViewHarness harness;
        const Volume volume = makeLocation(harness, "Backup Disk", items, 1234567);
        ListItem row(volume, harness.services());
        QAbstractButton* empty = button(row, "empty");
        QCOMPARE(row.details(), calculating);
        QVERIFY(!empty->isEnabled());
        row.show();
        QTRY_VERIFY(row.details() != calculating);
        QCOMPARE(row.findChild<QLabel*>(u"details"_s)->text(), details[items]);
        QCOMPARE(empty->isEnabled(), items > 0);
        harness.model.defaults.setBool(Constant::deleteCheckSupressionKey, suppressed);
        harness.helper.alerts.answers = {answer};
        harness.helper.alerts.ticks = {ticked};
        QTest::mouseClick(empty, Qt::LeftButton);
        const auto& shown = harness.helper.alerts.shown;
        QCOMPARE(shown.size(), std::size_t(asked ? 1 : 0));
        if (asked) {
            QCOMPARE(shown[0].title,
                     u"Are you sure you want to empty the trash for Backup Disk?"_s);
            QCOMPARE(
                shown[0].informativeText,
                u"Clicking Delete will empty the trash for the selected volume. This action "
                u"cannot be undone. \n\n This alert can be enabled or disabled in Settings."_s);
            QCOMPARE(shown[0].buttons, (QStringList{u"Cancel"_s, u"Delete"_s}));
            QCOMPARE(shown[0].secondButtonKey, u"d"_s);
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
        const QLocale before;
        const auto restore = qScopeGuard([&] {
            QLocale::setDefault(before);
            installTranslations();
        });
        QLocale::setDefault(locale);
        installTranslations();
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
        const fs::path trash = makeLocation(harness, "with space", 1).trashURL().value();
        ListItem row(Volume("/media/stick", hasTrash ? std::optional(trash) : std::nullopt),
                     harness.services());
        row.show();
        QAbstractButton* reveal = button(row, "reveal");
        QCOMPARE(reveal->toolTip(), u"Open Trash folder in the file manager"_s);
        QCOMPARE(reveal->isEnabled(), hasTrash);
        QTest::mouseClick(reveal, Qt::LeftButton);
        row.revealTrash();
        const QUrl url = QUrl::fromLocalFile(QString::fromStdString(trash.native()));
        QCOMPARE(harness.workspace.opened, hasTrash ? QList<QUrl>(2, url) : QList<QUrl>());
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
            texts << (action->isSeparator() ? u"-"_s : action->text());
        }
        texts.removeFirst(); // the helper's line, a widget of its own
        QCOMPARE(texts,
                 (QStringList{u"About Quillane"_s, u"-"_s, u"Check for Updates...\tCtrl+U"_s,
                              u"Settings...\tCtrl+,"_s, u"Contact Support..."_s,
                              u"Uninstall Quillane..."_s, u"-"_s, u"Quit Quillane\tCtrl+Q"_s}));
        const auto choose = [&](int index) { menu.menu()->actions().at(index)->trigger(); };
        choose(1);
        QCOMPARE(harness.application.calls, QStringList{u"activate ignoring"_s});
        const auto boxes = visibleWindows<QMessageBox>();
        QVERIFY(!boxes.isEmpty());
        QMessageBox* about = boxes.last();
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
        QCOMPARE(mail.scheme(), u"mailto"_s);
        QCOMPARE(mail.path(), u"support@velmoric.com"_s);
        const QUrlQuery query(mail);
        QCOMPARE(query.queryItemValue(u"subject"_s, QUrl::FullyDecoded),
                 u"Help with Velmoric's Quillane"_s);
        QCOMPARE(query.queryItemValue(u"body"_s, QUrl::FullyDecoded),
                 u"Hello! \n\n I have a question about Quillane:\n\n"_s);
        QVERIFY(!mail.toEncoded().contains(' ') && !mail.toEncoded().contains('\n'));
        choose(8); // hands over to the quit confirmation, which quits on its first button
        QCOMPARE(harness.helper.alerts.shown.back().title,
                 u"Are you sure you want to quit Quillane?"_s);
        QCOMPARE(harness.application.calls.last(), u"terminate"_s);
    }

    // The helper's line follows the daemon; uninstalling asks first and sends nothing on Cancel.
    void helperEntries()
    {
        test::ViewHarness harness;
        QVERIFY(
            harness.helper.startDaemon({u"--version"_s, u"42"_s, u"--uninstall-reply"_s, u"no"_s}));
        harness.helper.daemonService->currentStatus = ServiceHandle::Enabled;
        harness.helper.appService->updateStatus();
        const ViewServices services = harness.services();
        EllipsisMenu menu(services);
        const auto* line = qobject_cast<QWidgetAction*>(menu.menu()->actions().first());
        QVERIFY(line);
        const auto* label = qobject_cast<QLabel*>(line->defaultWidget());
        QCOMPARE(label->text(), u"Helper not running"_s);
        services.client.start();
        QTRY_VERIFY(services.client.receivedReply());
        harness.helper.scheduler.runPending();
        QCOMPARE(label->text(), u"Helper Running. Build: 42"_s);
        menu.uninstallApp(); // Return: the first button
        QCOMPARE(harness.helper.alerts.shown.size(), std::size_t(1));
        const AlertRequest& asked = harness.helper.alerts.shown[0];
        QCOMPARE(asked.title, u"Uninstalling Quillane"_s);
        QCOMPARE(asked.informativeText, u"Are you sure that you want to uninstall Quillane?"_s);
        QCOMPARE(asked.buttons, (QStringList{u"Cancel"_s, u"OK"_s}));
        harness.helper.alerts.answers = {test::ScriptedAlerts::escape};
        menu.uninstallApp(); // Escape backs out too
        harness.helper.alerts.answers = {AlertAnswer::secondButton};
        menu.uninstallApp();
        QTRY_VERIFY(services.client.uninstallerReplied());
        // Calls arrive in order: had Cancel sent one, the daemon would have seen two.
        QCOMPARE(harness.helper.calls(u"uninstall"_s), 1);
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
        QTableView* table = window->table();
        QCOMPARE(window->windowTitle(), window->windowTitle().trimmed());
        QVERIFY(table->accessibleName().contains(u"trash"_s));
        QTRY_VERIFY(window->contents()->isLoaded());
        QCOMPARE(shownNames(*window).size(), 3);
        const std::pair<int, QStringList> orders[] = {
            {TrashContents::Size, {u"Gamma"_s, u"beta"_s, u"alpha"_s}},
            {TrashContents::Deleted, {u"Gamma"_s, u"alpha"_s, u"beta"_s}},
            {TrashContents::Name, {u"alpha"_s, u"beta"_s, u"Gamma"_s}}};
        for (const auto& [column, names] : orders) {
            table->sortByColumn(column, Qt::AscendingOrder);
            QCOMPARE(shownNames(*window), names);
        }
        table->setFocus();
        QTest::keyClicks(table, u"GA"_s);
        QCOMPARE(window->searchField()->text(), u"GA"_s);
        QCOMPARE(shownNames(*window), QStringList{u"Gamma"_s});
        window->searchField()->clear();
        QCOMPARE(shownNames(*window).size(), 3);
        // Nothing to act on without a selection.
        QAbstractButton* restore = button(*window, "restore");
        QAbstractButton* remove = button(*window, "delete");
        QVERIFY(!restore->isEnabled() && !remove->isEnabled());
        QVERIFY(!restore->accessibleName().isEmpty() && !remove->accessibleName().isEmpty());
        selectNames(*window, {u"alpha"_s, u"beta"_s});
        QVERIFY(restore->isEnabled() && remove->isEnabled());
        // Tab leaves the table for the buttons, and Return presses the one with the focus.
        table->setFocus();
        QTest::keyClick(table, Qt::Key_Tab);
        QCOMPARE(window->focusWidget(), restore);
        // These have no record: the restore asks where to, and is told nowhere.
        QStringList asked;
        const auto dialog = answerFolderDialog([&](QWidget*, const QString& item) {
            asked << item;
            return std::optional<fs::path>();
        });
        QTest::keyClick(restore, Qt::Key_Return);
        QTRY_COMPARE(asked.size(), 2);
        // Escape closes the window, from the table as from the search field.
        table->setFocus();
        QTest::keyClick(table, Qt::Key_Escape);
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
        const fs::path trash = harness.model.homeTrash();
        test::writeFile(root / "docs/notes.txt", "mine");
        trashItem(harness, "notes.txt", pathLine(root / "docs/notes.txt"), "trashed");
        trashItem(harness, "deep", pathLine(root / "not/yet/there/deep"), "deep");
        // Its way back goes through a file: it fails, and says so in one alert at the end.
        trashItem(harness, "blocked", pathLine(root / "docs/notes.txt/blocked"), "blocked");
        trashItem(harness, "caf\xe9", "\x01garbage\xff\n", "no record");
        const auto window = itemsWindow(harness);
        QTRY_VERIFY(window->contents()->isLoaded());
        std::vector<QString> asked;
        const auto dialog = answerFolderDialog([&](QWidget*, const QString& item) {
            asked.push_back(item);
            return std::optional(root / "picked");
        });
        fs::create_directories(root / "picked");
        const auto cleanUp = qScopeGuard([&] { fs::remove_all(root / "picked"); }); // non-UTF-8
        harness.helper.alerts.answers = {answer};
        selectNames(*window, {u"notes.txt"_s, u"deep"_s, u"caf\uFFFD"_s, u"blocked"_s});
        QSignalSpy finished(window.get(), &ItemsWindow::restoresFinished);
        button(*window, "restore")->click();
        QTRY_VERIFY((harness.model.scheduler.runPending(), finished.count() == 1));
        QCOMPARE(asked, std::vector<QString>{u"caf\uFFFD"_s});
        QCOMPARE(harness.helper.alerts.shown.size(), std::size_t(2)); // the name taken, the failure
        const AlertRequest& failed = harness.helper.alerts.shown[1];
        QVERIFY(failed.informativeText.startsWith(u"blocked ("_s));
        QCOMPARE(failed.informativeText.count(QLatin1Char('\n')), 0);
        QVERIFY(fs::exists(trash / "blocked"));
        const AlertRequest& question = harness.helper.alerts.shown[0];
        QCOMPARE(question.buttons, (QStringList{u"Keep Both"_s, u"Skip"_s}));
        QCOMPARE(question.cancelButton, 1);
        QCOMPARE(test::readFile(root / "docs/notes.txt"), std::string("mine"));
        QCOMPARE(test::readFile(root / "not/yet/there/deep"), std::string("deep"));
        QCOMPARE(test::readFile(root / "picked" / "caf\xe9"), std::string("no record"));
        QCOMPARE(fs::exists(trash / "notes.txt"), !keptBoth);
        QVERIFY(!fs::exists(trash / "deep"));
        QVERIFY(!fs::exists(trash.parent_path() / "info/deep.trashinfo"));
        // The window follows: what went back leaves the list.
        QTRY_VERIFY_WITH_TIMEOUT((harness.model.scheduler.advance(1s),
                                  window->contents()->rowCount() == (keptBoth ? 1 : 2)),
                                 5000);
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
        selectNames(*window, {u"two"_s, u"-dash"_s});
        harness.helper.alerts.answers = {answer};
        button(*window, "delete")->click();
        QCOMPARE(harness.helper.alerts.shown.back().destructiveButton, 1);
        harness.model.scheduler.advance(2s);
        const fs::path trash = harness.model.homeTrash();
        for (const std::string name : {"one", "three", "two", "-dash"}) {
            const bool kept =
                answer != AlertAnswer::secondButton || name == "one" || name == "three";
            QCOMPARE(fs::exists(trash / name), kept);
            QCOMPARE(fs::exists(trash.parent_path() / "info" / (name + ".trashinfo")), kept);
        }
    }

    // The name opens the window of that trash, and a second click brings the same one forward.
    void rowNameShowsItems()
    {
        test::ViewHarness harness;
        trashItem(harness, "thing", pathLine("/x/thing"));
        ListItem row(Volume("/", harness.model.homeTrash()), harness.services());
        row.show();
        auto* name = row.findChild<QLabel*>(u"name"_s);
        QTest::mouseClick(name, Qt::LeftButton);
        QCOMPARE(visibleWindows().size(), 1);
        QTest::mouseClick(name, Qt::LeftButton);
        QCOMPARE(visibleWindows().size(), 1);
        ItemsWindow* window = visibleWindows().first();
        QCOMPARE(window->trashFolder(), harness.model.homeTrash());
        harness.model.scheduler.runPending();
        QCOMPARE(shownNames(*window), QStringList{u"thing"_s});
        QVERIFY(harness.workspace.opened.isEmpty()); // the reveal button still opens the folder
        window->close();
        QTRY_VERIFY(visibleWindows().isEmpty());
        // The context menu's "Show Items" does the same.
        QTimer::singleShot(0, [] {
            auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            QVERIFY(menu);
            QCOMPARE(menu->actions().first()->text(), u"Show Items"_s);
            menu->actions().first()->trigger();
            menu->close();
        });
        QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(5, 5),
                                row.mapToGlobal(QPoint(5, 5)));
        QApplication::sendEvent(&row, &event);
        QTRY_COMPARE(visibleWindows().size(), 1);
        visibleWindows().first()->close();
    }
};

QTEST_MAIN(TestPanel)
#include "tst_Panel.moc"
