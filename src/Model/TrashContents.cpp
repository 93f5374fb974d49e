#include "TrashContents.h"

#include "FolderMonitor.h"
#include "Platform/DisplayText.h"
#include "Platform/FileSystem.h"
#include "Platform/Scheduler.h"

#include <QLocale>
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace quillane
{

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace
{

// Changes come an entry at a time (an emptying brings thousands): they are read together once
// they have settled this long.
constexpr auto changeDelay = 200ms;
// Removing many scattered rows one range at a time costs more than starting afresh.
constexpr std::size_t mostRangesRemoved = 100;

} // namespace

TrashContents::TrashContents(fs::path trashFolder, fs::path volumeTop, const Platform& platform,
                             QObject* parent)
    : QAbstractTableModel(parent), m_trashFolder(std::move(trashFolder)),
      m_volumeTop(std::move(volumeTop)), m_platform(platform)
{
}

TrashContents::~TrashContents()
{
    if (m_monitor)
        m_monitor->stopMonitoring();
}

void TrashContents::load()
{
    if (m_monitor)
        return;
    m_monitor = std::make_unique<FolderMonitor>(m_trashFolder, m_platform);
    m_monitor->folderDidChange = [this] { folderChanged(); };
    m_monitor->startMonitoring();
    m_refreshing = true; // the first reading; changes meanwhile wait for it
    read(std::nullopt);
}

int TrashContents::rowOf(const std::string& name) const
{
    const auto found = m_rows.find(name);
    return found == m_rows.end() ? -1 : found->second;
}

int TrashContents::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_items.size());
}

int TrashContents::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant TrashContents::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const Item& item = m_items[static_cast<std::size_t>(index.row())];
    switch (role) {
    case Qt::DisplayRole:
    case SortRole: {
        // Names and locations sort as shown; dates and sizes by their values.
        const bool sorting = role == SortRole;
        switch (index.column()) {
        case Name:
            return item.name;
        case OriginalLocation:
            return item.location;
        case Deleted:
            if (sorting)
                return item.record.deletionDate;
            return item.record.deletionDate.isValid()
                       ? QLocale().toString(item.record.deletionDate.toLocalTime(),
                                            QLocale::ShortFormat)
                       : QString();
        case Size:
            if (sorting)
                return QVariant::fromValue<qulonglong>(item.size.value_or(0));
            return item.size ? formatByteCount(*item.size) : QString();
        default:
            return {};
        }
    }
    case NameBytesRole:
        return QByteArray::fromStdString(item.record.name);
    case Qt::ToolTipRole:
        if (index.column() == OriginalLocation && !item.record.originalPath)
            return tr("The record of this item is missing or unreadable.");
        return {};
    case Qt::TextAlignmentRole:
        if (index.column() == Size)
            return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
        return {};
    default:
        return {};
    }
}

QVariant TrashContents::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case Name:
        return tr("Name");
    case OriginalLocation:
        return tr("Original Location");
    case Deleted:
        return tr("Deleted");
    case Size:
        return tr("Size");
    default:
        return {};
    }
}

void TrashContents::read(std::optional<std::vector<std::string>> names)
{
    const bool first = !names;
    const std::weak_ptr<bool> alive = m_alive;
    Scheduler& mainQueue = m_platform.mainQueue;
    m_platform.contentsQueue.async([this, alive, first, names = std::move(names), &mainQueue,
                                    folder = m_trashFolder, top = m_volumeTop] {
        std::vector<std::string> read;
        const auto deliver = [&](std::vector<TrashRecord>&& batch) {
            // What the rows show is worked out here, not on the main thread.
            std::vector<Item> items;
            items.reserve(batch.size());
            for (TrashRecord& record : batch) {
                read.push_back(record.name);
                items.push_back(itemFor(std::move(record)));
            }
            mainQueue.post([this, alive, items = std::move(items)]() mutable {
                if (alive.lock())
                    append(std::move(items));
            });
            return !alive.expired();
        };

        std::string error;
        const int trashFd = open(folder.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (trashFd < 0) {
            error = describeErrno(folder.parent_path().native(), errno);
        } else if (first) {
            error = listTrashRecords(trashFd, top, batchSize, deliver);
        } else {
            std::vector<TrashRecord> batch;
            for (const std::string& name : *names) {
                batch.push_back(readTrashRecord(trashFd, name, top));
                if (batch.size() >= batchSize && !deliver(std::exchange(batch, {})))
                    break;
            }
            if (!batch.empty())
                deliver(std::move(batch));
        }
        if (trashFd >= 0)
            close(trashFd);
        mainQueue.post([this, alive, first, error] {
            if (!alive.lock())
                return;
            m_error = messageText(error);
            if (first) {
                m_loaded = true;
                m_refreshing = false;
                Q_EMIT loaded();
                if (std::exchange(m_changedMeanwhile, false))
                    folderChanged();
                return;
            }
            finishRefresh();
        });

        // The sizes come second: walking a large trashed folder must not hold up the rows.
        std::vector<std::pair<std::string, std::uint64_t>> sizes;
        const auto deliverSizes = [&] {
            mainQueue.post([this, alive, sizes = std::exchange(sizes, {})] {
                if (alive.lock())
                    setSizes(sizes);
            });
        };
        for (const std::string& name : read) {
            if (alive.expired())
                return;
            if (const auto size = allocatedSizeOfEntry(folder / name))
                sizes.emplace_back(name, *size);
            if (sizes.size() >= batchSize)
                deliverSizes();
        }
        deliverSizes();
        mainQueue.post([this, alive] {
            if (alive.lock())
                Q_EMIT sized();
        });
    });
}

TrashContents::Item TrashContents::itemFor(TrashRecord&& record)
{
    QString name = messageText(record.name);
    QString location = record.originalPath ? messagePath(*record.originalPath) : tr("Unknown");
    return {std::move(record), std::nullopt, std::move(name), std::move(location)};
}

void TrashContents::append(std::vector<Item>&& items)
{
    // An item read twice (a change while it was being read) keeps its first row.
    std::erase_if(items, [this](const Item& item) { return m_rows.contains(item.record.name); });
    if (items.empty())
        return;
    const int first = rowCount();
    beginInsertRows({}, first, first + static_cast<int>(items.size()) - 1);
    for (Item& item : items) {
        m_rows.emplace(item.record.name, static_cast<int>(m_items.size()));
        m_items.push_back(std::move(item));
    }
    endInsertRows();
}

void TrashContents::setSizes(const std::vector<std::pair<std::string, std::uint64_t>>& sizes)
{
    int top = rowCount();
    int bottom = -1;
    for (const auto& [name, size] : sizes) {
        const int row = rowOf(name);
        if (row < 0)
            continue;
        m_items[static_cast<std::size_t>(row)].size = size;
        top = std::min(top, row);
        bottom = std::max(bottom, row);
    }
    if (bottom >= top)
        Q_EMIT dataChanged(index(top, Size), index(bottom, Size));
}

void TrashContents::folderChanged()
{
    if (m_refreshing) {
        m_changedMeanwhile = true;
        return;
    }
    m_refreshing = true;
    const std::weak_ptr<bool> alive = m_alive;
    m_platform.mainQueue.postAfter(changeDelay, [this, alive] {
        if (alive.lock())
            refresh();
    });
}

void TrashContents::refresh()
{
    // Only the names are read here; the records of new ones follow.
    const std::weak_ptr<bool> alive = m_alive;
    m_platform.contentsQueue.async(
        [this, alive, folder = m_trashFolder, &mainQueue = m_platform.mainQueue] {
            auto names = std::make_shared<std::unordered_set<std::string>>();
            std::string error;
            if (const auto listing = listDirectory(folder)) {
                for (const std::string& name : *listing) {
                    if (!isSkippedTrashEntry(name))
                        names->insert(name);
                }
            } else {
                error = listing.error();
            }
            mainQueue.post(
                [this, alive,
                 names = std::shared_ptr<const std::unordered_set<std::string>>(std::move(names)),
                 error] {
                    if (alive.lock())
                        applyListing(names, error);
                });
        });
}

void TrashContents::applyListing(
    const std::shared_ptr<const std::unordered_set<std::string>>& names, const std::string& error)
{
    // A trash that can no longer be read (its volume went) shows nothing, and says why.
    std::vector<int> gone;
    for (std::size_t row = 0; row < m_items.size(); ++row) {
        if (!error.empty() || !names->contains(m_items[row].record.name))
            gone.push_back(static_cast<int>(row));
    }
    removeRows(gone);
    std::vector<std::string> added;
    for (const std::string& name : *names) {
        if (!m_rows.contains(name))
            added.push_back(name);
    }
    if (!error.empty() || added.empty()) {
        m_error = messageText(error);
        finishRefresh();
        return;
    }
    read(std::move(added));
}

void TrashContents::removeRows(const std::vector<int>& rows)
{
    if (rows.empty())
        return;
    for (const int row : rows)
        m_rows.erase(m_items[static_cast<std::size_t>(row)].record.name);
    // Contiguous runs, from the last: each removal leaves the rows above it where they were.
    std::vector<std::pair<int, int>> runs;
    for (const int row : rows) {
        if (!runs.empty() && runs.back().second + 1 == row)
            runs.back().second = row;
        else
            runs.emplace_back(row, row);
    }
    if (runs.size() > mostRangesRemoved) {
        beginResetModel();
        std::vector<Item> kept;
        kept.reserve(m_items.size() - rows.size());
        std::size_t next = 0;
        for (std::size_t row = 0; row < m_items.size(); ++row) {
            if (next < rows.size() && rows[next] == static_cast<int>(row))
                ++next;
            else
                kept.push_back(std::move(m_items[row]));
        }
        m_items = std::move(kept);
        reindexFrom(0);
        endResetModel();
        return;
    }
    for (auto run = runs.rbegin(); run != runs.rend(); ++run) {
        beginRemoveRows({}, run->first, run->second);
        m_items.erase(m_items.begin() + run->first, m_items.begin() + run->second + 1);
        endRemoveRows();
    }
    reindexFrom(static_cast<std::size_t>(runs.front().first));
}

void TrashContents::reindexFrom(std::size_t first)
{
    for (std::size_t row = first; row < m_items.size(); ++row)
        m_rows[m_items[row].record.name] = static_cast<int>(row);
}

void TrashContents::finishRefresh()
{
    if (!m_refreshing)
        return;
    m_refreshing = false;
    Q_EMIT refreshed();
    if (std::exchange(m_changedMeanwhile, false))
        folderChanged();
}

} // namespace quillane
