#include "ListItem.h"

#include "ItemsWindow.h"
#include "Model/VolumeObserver.h"
#include "Pictures.h"
#include "Platform/Alerts.h"
#include "Platform/Constant.h"
#include "Platform/DisplayText.h"
#include "Platform/Scheduler.h"
#include "Platform/UserDefaults.h"
#include "Platform/VolumeNames.h"
#include "Platform/Workspace.h"

#include <QContextMenuEvent>
#include <QEvent>
#include <QFutureWatcher>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMouseEvent>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QShowEvent>
#include <QStackedLayout>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace quillane
{

namespace
{

constexpr int iconSide = 32;
constexpr int progressSteps = 1000;
// A slim bar, in the middle of the details line it stands in for.
constexpr int progressHeight = 6;
// The desktop's colour for a destructive action, for the trash icon of a trash with items.
const QColor emptyIconColour(0xe0, 0x1b, 0x24);

struct TrashSummary {
    int itemCount = 0;
    std::uint64_t size = 0;
};

// The folder's address with its name's bytes as they are, valid UTF-8 or not.
QUrl fileUrl(const std::filesystem::path& folder)
{
    const QByteArray bytes = QByteArray::fromStdString(folder.native());
    return QUrl::fromEncoded(QByteArrayLiteral("file://") + bytes.toPercentEncoding("/"));
}

QFont smallerFont(QFont font)
{
    font.setPointSizeF(font.pointSizeF() * 0.85);
    return font;
}

} // namespace

ListItem::ListItem(const Volume& item, const ViewServices& services, QWidget* parent)
    : QWidget(parent), m_item(item), m_services(services),
      m_name(displayText(item.name(services.observer.platform().volumeNames))),
      m_details(tr("Calculating..."))
{
    m_iconLabel = new QLabel(this);
    m_iconLabel->setObjectName(QStringLiteral("icon"));
    m_iconLabel->setFixedSize(iconSide, iconSide);
    m_iconLabel->setPixmap(
        iconFor(m_item.image(services.observer.platform().volumeNames), services.bundle)
            .pixmap(iconSide, iconSide));

    m_nameLabel = new QLabel(m_name, this);
    m_nameLabel->setObjectName(QStringLiteral("name"));
    m_nameLabel->setTextFormat(Qt::PlainText); // a volume's label is the user's text
    if (m_item.trashURL()) {
        m_nameLabel->setCursor(Qt::PointingHandCursor);
        m_nameLabel->setToolTip(tr("Show the items in this trash"));
        m_nameLabel->installEventFilter(this);
    } else {
        QPalette palette = m_nameLabel->palette();
        palette.setColor(QPalette::WindowText, QColor(Qt::gray));
        m_nameLabel->setPalette(palette);
    }

    m_detailsLabel = new QLabel(m_details, this);
    m_detailsLabel->setObjectName(QStringLiteral("details"));
    m_detailsLabel->setFont(smallerFont(m_detailsLabel->font()));

    m_progressBar = new QProgressBar(this);
    m_progressBar->setObjectName(QStringLiteral("progress"));
    m_progressBar->setRange(0, progressSteps);
    m_progressBar->setTextVisible(false);
    m_progressBar->setFixedHeight(progressHeight);
    m_progressBar->setVisible(false);
    m_progressBar->setAccessibleName(tr("Emptying the trash of %1").arg(m_name));

    m_emptyButton = new QPushButton(tr("Empty"), this);
    m_emptyButton->setObjectName(QStringLiteral("empty"));
    m_emptyButton->setEnabled(false); // until the count is known
    m_emptyButton->setAccessibleName(tr("Empty the trash of %1").arg(m_name));

    m_revealButton = new QToolButton(this);
    m_revealButton->setObjectName(QStringLiteral("reveal"));
    m_revealButton->setAutoRaise(true);
    m_revealButton->setToolTip(tr("Open Trash folder in the file manager"));
    m_revealButton->setAccessibleName(tr("Show the trash of %1").arg(m_name));
    m_revealButton->setEnabled(canReveal());
    updateSymbols();

    // The progress bar takes the details line's place while the trash empties, so that the row
    // keeps its height and the rows below it stay where they are.
    auto* barPlace = new QWidget(this);
    auto* bar = new QVBoxLayout(barPlace);
    bar->setContentsMargins(0, 0, 0, 0);
    bar->addWidget(m_progressBar, 0, Qt::AlignVCenter);
    m_detailsLine = new QStackedLayout;
    m_detailsLine->addWidget(m_detailsLabel);
    m_detailsLine->addWidget(barPlace);

    auto* text = new QVBoxLayout;
    text->addWidget(m_nameLabel);
    text->addLayout(m_detailsLine);

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(m_iconLabel);
    row->addLayout(text, 1);
    row->addWidget(m_emptyButton);
    row->addWidget(m_revealButton);

    connect(m_emptyButton, &QPushButton::clicked, this, &ListItem::emptyTrash);
    connect(m_revealButton, &QToolButton::clicked, this, &ListItem::revealTrash);
    connect(&services.observer, &VolumeObserver::progressChanged, this, &ListItem::progressChanged);
    connect(&services.observer, &VolumeObserver::emptyingChanged, this,
            &ListItem::updateEmptyButton);
}

ListItem::~ListItem() = default;

QString ListItem::detailString(int itemCount, std::uint64_t size)
{
    //: The detail line of a row: the item count, then the size.
    return tr("%1, %2").arg(tr("%Ln item(s)", nullptr, itemCount), formatByteCount(size));
}

void ListItem::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // The count and size are read once, when the row is first seen: a panel that stays closed
    // walks no trash, however often its list is rebuilt.
    if (!m_detailsStarted)
        startDetails();
}

void ListItem::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        updateSymbols();
}

void ListItem::updateSymbols()
{
    const BundleInfo& bundle = m_services.bundle;
    // The row's own palette: a change reaches the row before its buttons.
    const QPalette& palette = this->palette();
    const QIcon trash = iconFor(Picture::symbol("trash"), bundle);
    m_emptyButton->setIcon(m_itemCount.value_or(0) >= 1
                               ? tintedIcon(trash, emptyIconColour,
                                            palette.color(QPalette::Disabled, QPalette::ButtonText))
                               : symbolicIcon(trash, palette, QPalette::ButtonText));
    m_revealButton->setIcon(
        symbolicIcon(iconFor(Picture::symbol("rectangle.portrait.and.arrow.right"), bundle),
                     palette, QPalette::ButtonText));
}

void ListItem::startDetails()
{
    m_detailsStarted = true;
    // Counting and sizing read the file system and may take long: both run off the main
    // thread, and the watcher, which goes with the row, brings the result back to it.
    auto* watcher = new QFutureWatcher<TrashSummary>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        const TrashSummary summary = watcher->result();
        watcher->deleteLater();
        showDetails(summary.itemCount, summary.size);
    });
    watcher->setFuture(QtConcurrent::run([volume = m_item] {
        return TrashSummary{volume.itemCount(), volume.allocatedSize()};
    }));
}

void ListItem::showDetails(int itemCount, std::uint64_t size)
{
    m_itemCount = itemCount;
    m_details = detailString(itemCount, size);
    m_detailsLabel->setText(m_details);
    updateEmptyButton();
    updateSymbols();
    Q_EMIT detailsChanged();
}

void ListItem::progressChanged()
{
    const VolumeObserver& observer = m_services.observer;
    const double progress = observer.progress();
    const auto& active = observer.activeVolume();
    // No active volume reads as an absent trash folder, which equals another absent one.
    const std::optional<std::filesystem::path> activeTrash =
        active ? active->trashURL() : std::nullopt;
    if (progress > 0 && progress < 1 && m_item.trashURL() == activeTrash)
        setShouldShowProgress(true);
    if (progress >= 1)
        setShouldShowProgress(false);
    m_progressBar->setValue(qRound(progress * progressSteps));
}

void ListItem::setShouldShowProgress(bool show)
{
    m_shouldShowProgress = show;
    m_progressBar->setVisible(show);
    m_detailsLine->setCurrentIndex(show ? 1 : 0);
}

void ListItem::updateEmptyButton()
{
    // One trash is emptied at a time: while one is, no other can be started.
    const bool busy = m_services.observer.isEmptying();
    m_emptyButton->setEnabled(m_itemCount.value_or(0) >= 1 && !busy);
    m_emptyButton->setToolTip(busy ? tr("A trash is being emptied. Quillane empties "
                                        "one trash at a time.")
                                   : QString());
}

void ListItem::emptyTrash()
{
    if (m_itemCount.value_or(0) >= 1 && !m_services.observer.isEmptying())
        askBeforeDeleting();
}

void ListItem::askBeforeDeleting()
{
    // What is needed once the alert has closed is taken now: a list rebuilt while the alert is
    // open replaces this row, and the user's answer still holds for the location it showed.
    UserDefaults& defaults = m_services.defaults;
    Alerts& alerts = m_services.alerts;
    Scheduler& mainQueue = m_services.observer.platform().mainQueue;
    const auto emptyLater = [&mainQueue, observer = QPointer<VolumeObserver>(&m_services.observer),
                             item = m_item] {
        mainQueue.post([observer, item] {
            if (observer)
                observer->emptySelectedTrash(item);
        });
    };

    if (defaults.boolValue(Constant::deleteCheckSupressionKey)) {
        emptyLater();
        return;
    }
    const AlertAnswer answer = alerts.runModal(
        {tr("Are you sure you want to empty the trash for %1?").arg(m_name),
         tr("Clicking Delete will empty the trash for the selected volume. This action cannot be "
            "undone. \n\n This alert can be enabled or disabled in Settings."),
         {tr("Cancel"), tr("Delete")},
         true,
         //: The key that answers Delete.
         tr("d"),
         /*cancelButton=*/0,
         /*destructiveButton=*/1});
    if (answer.suppressed)
        defaults.setBool(Constant::deleteCheckSupressionKey, true);
    if (answer.button == AlertAnswer::secondButton)
        emptyLater();
}

bool ListItem::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_nameLabel && event->type() == QEvent::MouseButtonRelease &&
        static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton) {
        showItems();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void ListItem::contextMenuEvent(QContextMenuEvent* event)
{
    QMenu menu(this);
    QAction* show = menu.addAction(tr("Show Items"), this, &ListItem::showItems);
    show->setEnabled(m_item.trashURL().has_value());
    menu.exec(event->globalPos());
}

void ListItem::showItems()
{
    ItemsWindow::showItems(m_item, m_services);
}

bool ListItem::canReveal() const
{
    return m_item.trashURL().has_value();
}

void ListItem::revealTrash()
{
    if (!canReveal())
        return;
    m_services.workspace.open(fileUrl(*m_item.trashURL()));
}

} // namespace quillane
