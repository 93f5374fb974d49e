#include "ItemsWindow.h"

#include "Model/TrashContents.h"
#include "Model/VolumeObserver.h"
#include "Platform/Alerts.h"
#include "Platform/DisplayText.h"
#include "Platform/Scheduler.h"
#include "Platform/VolumeNames.h"

#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QSortFilterProxyModel>
#include <QStyle>
#include <QTableView>
#include <QVBoxLayout>
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <map>
#include <memory>
#include <set>
#include <unistd.h>

namespace quillane
{

namespace fs = std::filesystem;

namespace
{

constexpr QSize preferredSize(760, 480);

// The open windows, one per trash folder.
std::map<fs::path, QPointer<ItemsWindow>>& openWindows()
{
    static std::map<fs::path, QPointer<ItemsWindow>> windows;
    return windows;
}

} // namespace

ItemsWindow::FolderChooser ItemsWindow::chooseFolder =
    [](QWidget* parent, const QString& item) -> std::optional<fs::path> {
    const QString folder = QFileDialog::getExistingDirectory(
        parent, ItemsWindow::tr("Choose where to restore “%1”").arg(item), QString(),
        QFileDialog::ShowDirsOnly);
    if (folder.isEmpty())
        return std::nullopt;
    return fs::path(QFile::encodeName(folder).toStdString());
};

ItemsWindow* ItemsWindow::showItems(const Volume& volume, const ViewServices& services)
{
    if (!volume.trashURL())
        return nullptr;
    QPointer<ItemsWindow>& window = openWindows()[*volume.trashURL()];
    if (!window) {
        window = new ItemsWindow(volume, services);
        window->setAttribute(Qt::WA_DeleteOnClose);
    }
    window->show();
    window->raise();
    window->activateWindow();
    return window;
}

ItemsWindow::ItemsWindow(const Volume& volume, const ViewServices& services, QWidget* parent)
    : QWidget(parent, Qt::Window), m_volume(volume), m_services(services),
      m_trashFolder(volume.trashURL().value_or(fs::path())),
      m_name(displayText(volume.name(services.observer.platform().volumeNames)))
{
    setWindowTitle(tr("Trash of %1").arg(m_name));

    m_contents = new TrashContents(m_trashFolder, volume.volPath().value_or(fs::path("/")),
                                   services.observer.platform(), this);
    m_proxy = new QSortFilterProxyModel(this);
    m_proxy->setSourceModel(m_contents);
    m_proxy->setSortRole(TrashContents::SortRole);
    m_proxy->setSortCaseSensitivity(Qt::CaseInsensitive);
    m_proxy->setFilterKeyColumn(TrashContents::Name);
    m_proxy->setFilterCaseSensitivity(Qt::CaseInsensitive);

    m_search = new QLineEdit(this);
    m_search->setObjectName(QStringLiteral("search"));
    m_search->setPlaceholderText(tr("Search"));
    m_search->setClearButtonEnabled(true);
    m_search->setAccessibleName(tr("Search the trash of %1").arg(m_name));

    m_table = new QTableView(this);
    m_table->setObjectName(QStringLiteral("items"));
    m_table->setModel(m_proxy);
    m_table->setAccessibleName(tr("Items in the trash of %1").arg(m_name));
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setShowGrid(false);
    // Tab leaves the table for the buttons, as everywhere else in a window.
    m_table->setTabKeyNavigation(false);
    m_table->setWordWrap(false);
    m_table->verticalHeader()->hide();
    // Rows of one height: the table then never measures 100,000 rows to lay them out.
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    m_table->horizontalHeader()->setStretchLastSection(false);
    m_table->horizontalHeader()->setSectionResizeMode(TrashContents::OriginalLocation,
                                                      QHeaderView::Stretch);
    m_table->setColumnWidth(TrashContents::Name, 220);
    // Wide enough for the longest date and size the locale writes, measured once on samples.
    const QFontMetrics metrics = m_table->fontMetrics();
    const int padding =
        4 * m_table->style()->pixelMetric(QStyle::PM_HeaderMargin, nullptr, m_table);
    m_table->setColumnWidth(
        TrashContents::Deleted,
        metrics.horizontalAdvance(QLocale().toString(QDateTime(QDate(2026, 12, 28), QTime(22, 58)),
                                                     QLocale::ShortFormat)) +
            padding);
    m_table->setColumnWidth(TrashContents::Size,
                            metrics.horizontalAdvance(QLocale().formattedDataSize(
                                888'800'000, 1, QLocale::DataSizeSIFormat)) +
                                padding);
    // In the order the trash lists them until the user picks a column: sorting while the rows
    // still come in would move them under the user's eyes.
    m_table->horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    m_table->setSortingEnabled(true);
    m_table->installEventFilter(this);

    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("status"));
    m_restoreButton = new QPushButton(tr("Restore"), this);
    m_restoreButton->setObjectName(QStringLiteral("restore"));
    m_restoreButton->setAccessibleName(tr("Restore the selected items"));
    m_deleteButton = new QPushButton(tr("Delete"), this);
    m_deleteButton->setObjectName(QStringLiteral("delete"));
    m_deleteButton->setAccessibleName(tr("Delete the selected items"));

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_status, 1);
    buttons->addWidget(m_restoreButton);
    buttons->addWidget(m_deleteButton);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_search);
    layout->addWidget(m_table, 1);
    layout->addLayout(buttons);

    connect(m_search, &QLineEdit::textChanged, m_proxy,
            &QSortFilterProxyModel::setFilterFixedString);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ItemsWindow::selectionChanged);
    connect(m_proxy, &QAbstractItemModel::rowsInserted, this, &ItemsWindow::updateStatus);
    connect(m_proxy, &QAbstractItemModel::rowsRemoved, this, &ItemsWindow::selectionChanged);
    connect(m_proxy, &QAbstractItemModel::modelReset, this, &ItemsWindow::selectionChanged);
    connect(m_contents, &TrashContents::loaded, this, &ItemsWindow::updateStatus);
    connect(m_contents, &TrashContents::refreshed, this, &ItemsWindow::updateStatus);
    connect(m_restoreButton, &QPushButton::clicked, this, &ItemsWindow::restoreSelected);
    connect(m_deleteButton, &QPushButton::clicked, this, &ItemsWindow::deleteSelected);

    selectionChanged();
    fitToScreen();
    m_contents->load();
}

ItemsWindow::~ItemsWindow()
{
    auto& windows = openWindows();
    if (const auto it = windows.find(m_trashFolder); it != windows.end() && it->second == this)
        windows.erase(it);
}

void ItemsWindow::fitToScreen()
{
    // As big as it likes to be where the screen has room, and never bigger than the screen.
    QSize size = preferredSize;
    if (const QScreen* screen = this->screen())
        size = size.boundedTo(screen->availableGeometry().size() * 9 / 10);
    resize(size);
}

void ItemsWindow::keyPressEvent(QKeyEvent* event)
{
    // The table and the search field pass Escape on: it closes the window wherever the focus is.
    if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier) {
        close();
        return;
    }
    // A window is no dialog, so its buttons have no default: Return presses the one that has
    // the focus, as Space does.
    const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (auto* button = qobject_cast<QPushButton*>(focusWidget()); enter && button) {
        if (button->isEnabled())
            button->click();
        return;
    }
    QWidget::keyPressEvent(event);
}

bool ItemsWindow::eventFilter(QObject* watched, QEvent* event)
{
    // Typing in the table searches: the letters go to the search field, which takes the focus.
    if (watched == m_table && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        const QString text = key->text();
        const bool typed =
            !text.isEmpty() && text.at(0).isPrint() && !text.at(0).isSpace() &&
            (key->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) == 0;
        if (typed) {
            m_search->setFocus(Qt::ShortcutFocusReason);
            m_search->insert(text);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

std::vector<int> ItemsWindow::selectedRows() const
{
    std::vector<int> rows;
    for (const QModelIndex& index : m_table->selectionModel()->selectedRows())
        rows.push_back(m_proxy->mapToSource(index).row());
    std::ranges::sort(rows);
    return rows;
}

void ItemsWindow::selectionChanged()
{
    const bool any = m_table->selectionModel()->hasSelection();
    m_restoreButton->setEnabled(any && !m_restoring);
    m_deleteButton->setEnabled(any);
    updateStatus();
}

void ItemsWindow::updateStatus()
{
    if (!m_contents->error().isEmpty()) {
        m_status->setText(m_contents->error());
        return;
    }
    const int shown = m_proxy->rowCount();
    const int all = m_contents->rowCount();
    QString text = shown == all
                       ? tr("%Ln item(s)", nullptr, all)
                       : tr("%1 of %Ln item(s)", nullptr, all).arg(QLocale().toString(shown));
    if (!m_contents->isLoaded())
        text += QStringLiteral(" …");
    m_status->setText(text);
}

void ItemsWindow::deleteSelected()
{
    std::set<std::string> names;
    for (const int row : selectedRows())
        names.insert(m_contents->record(row).name);
    if (names.empty())
        return;
    const int count = static_cast<int>(names.size());
    const AlertAnswer answer = m_services.alerts.runModal(
        {tr("Are you sure you want to delete %n item(s) from the trash of %1?", nullptr, count)
             .arg(m_name),
         tr("This action cannot be undone."),
         {tr("Cancel"), tr("Delete")},
         false,
         //: The key that answers Delete.
         tr("d"),
         /*cancelButton=*/0,
         /*destructiveButton=*/1});
    if (answer.button != AlertAnswer::secondButton)
        return;
    // Handed over once the alert has closed, as the panel's emptying is.
    m_services.observer.platform().mainQueue.post(
        [observer = QPointer<VolumeObserver>(&m_services.observer), volume = m_volume,
         names = std::move(names)]() mutable {
            if (observer)
                observer->emptySelectedTrash(volume, std::move(names));
        });
}

void ItemsWindow::restoreSelected()
{
    if (m_restoring)
        return;
    std::vector<Restore> restores;
    for (const int row : selectedRows()) {
        const TrashRecord& record = m_contents->record(row);
        Restore restore{record.name, displayText(record.name), {}};
        if (record.originalPath) {
            restore.destination = *record.originalPath;
        } else {
            // Without a record there is no telling where it was: the user says where it goes.
            const auto folder = chooseFolder(this, messageText(record.name));
            if (!folder)
                continue;
            restore.destination = *folder / record.name;
        }
        restores.push_back(std::move(restore));
    }
    if (restores.empty())
        return;
    m_restoring = true;
    selectionChanged();
    runRestores(std::move(restores), RestoreCollision::Report,
                [this](RestoreOutcomes outcomes) { restoresDone(std::move(outcomes), {}, false); });
}

void ItemsWindow::runRestores(std::vector<Restore> restores, RestoreCollision onCollision,
                              std::function<void(RestoreOutcomes)> done)
{
    const Platform& platform = m_services.observer.platform();
    platform.contentsQueue.async([restores = std::move(restores), onCollision,
                                  done = std::move(done), folder = m_trashFolder,
                                  &mainQueue = platform.mainQueue,
                                  self = QPointer<const QObject>(this)] {
        RestoreOutcomes outcomes;
        const int trashFd = open(folder.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const int openError = errno;
        for (const Restore& restore : restores) {
            RestoreResult result;
            if (trashFd < 0)
                result.error = describeErrno(folder.parent_path().native(), openError);
            else
                result =
                    restoreTrashedItem(trashFd, restore.name, restore.destination, onCollision);
            outcomes.emplace_back(restore, std::move(result));
        }
        if (trashFd >= 0)
            ::close(trashFd);
        mainQueue.post(
            self, [done, outcomes = std::move(outcomes)]() mutable { done(std::move(outcomes)); });
    });
}

void ItemsWindow::restoresDone(RestoreOutcomes outcomes, QStringList failures, bool lastRound)
{
    std::vector<Restore> keepBoth;
    for (auto& [restore, result] : outcomes) {
        switch (result.status) {
        case RestoreResult::Status::Restored:
        case RestoreResult::Status::Skipped:
            break;
        case RestoreResult::Status::NameTaken: {
            // Escape skips: the question never puts anything where something already is.
            const AlertAnswer answer = m_services.alerts.runModal(
                {tr("An item named “%1” already exists in %2.")
                     .arg(messagePath(restore.destination.filename()),
                          messagePath(restore.destination.parent_path())),
                 tr("Keep both, restoring this one under a new name, or skip it and leave it in "
                    "the trash?"),
                 {tr("Keep Both"), tr("Skip")},
                 false,
                 {},
                 /*cancelButton=*/1});
            if (answer.button == AlertAnswer::firstButton)
                keepBoth.push_back(std::move(restore));
            break;
        }
        case RestoreResult::Status::Failed:
            failures << QStringLiteral("%1 (%2)").arg(messageText(restore.name),
                                                      messageText(result.error));
            break;
        }
    }
    if (!keepBoth.empty() && !lastRound) {
        runRestores(std::move(keepBoth), RestoreCollision::KeepBoth,
                    [this, failures](RestoreOutcomes more) {
                        restoresDone(std::move(more), failures, true);
                    });
        return;
    }
    if (!failures.isEmpty())
        m_services.alerts.runModal(
            {tr("%n item(s) could not be restored.", nullptr, static_cast<int>(failures.size())),
             failures.join(QLatin1Char('\n')),
             {tr("OK")},
             false,
             {},
             /*cancelButton=*/0,
             /*destructiveButton=*/-1});
    m_restoring = false;
    selectionChanged();
    Q_EMIT restoresFinished();
}

} // namespace quillane
