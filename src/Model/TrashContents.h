#pragma once

#include "Platform/Platform.h"
#include "Platform/TrashItems.h"

#include <QAbstractTableModel>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace quillane
{

class FolderMonitor;

// The items of one trash, a row each: name, original location, deletion date and allocated
// size. The records are read on the contents queue and come to the main thread in batches, so the
// first rows show while the rest are still read; the sizes follow in a second pass. The model
// follows the trash folder: a change reads its names again and removes and adds only the rows
// that differ, so rows the user selected stay selected.
class TrashContents : public QAbstractTableModel
{
    Q_OBJECT
    Q_DISABLE_COPY(TrashContents)

public:
    enum Column { Name, OriginalLocation, Deleted, Size, ColumnCount };
    enum Role {
        // What a column sorts by: the name and location as text, the date as a QDateTime, the
        // size as a byte count (0 until it is known).
        SortRole = Qt::UserRole + 1,
        // The item's name in files/, its bytes as they are (QByteArray).
        NameBytesRole,
    };

    static constexpr std::size_t batchSize = 1000;

    // trashFolder is the trash's files/ folder; volumeTop the top folder of its volume, against
    // which relative original locations are read.
    TrashContents(std::filesystem::path trashFolder, std::filesystem::path volumeTop,
                  const Platform& platform, QObject* parent = nullptr);
    ~TrashContents() override;

    const std::filesystem::path& trashFolder() const { return m_trashFolder; }
    // Reads the trash from the start and watches it. Called once; later changes come by
    // themselves.
    void load();
    // Whether the first reading is over (every record is in, sizes may still come).
    bool isLoaded() const { return m_loaded; }
    // Why the trash could not be read the last time, or empty.
    const QString& error() const { return m_error; }

    const TrashRecord& record(int row) const
    {
        return m_items[static_cast<std::size_t>(row)].record;
    }
    std::optional<std::uint64_t> size(int row) const
    {
        return m_items[static_cast<std::size_t>(row)].size;
    }
    // The row of the item of that name, or -1.
    int rowOf(const std::string& name) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

Q_SIGNALS:
    // The first reading is over.
    void loaded();
    // A reading after a change is over and its rows are in.
    void refreshed();
    // Every row has its size, as far as it could be read.
    void sized();

private:
    struct Item {
        TrashRecord record;
        std::optional<std::uint64_t> size;
        QString name;     // as shown
        QString location; // as shown
    };
    struct Reading;

    // Called on the contents queue.
    static Item itemFor(TrashRecord&& record);
    void append(std::vector<Item>&& items);
    void setSizes(const std::vector<std::pair<std::string, std::uint64_t>>& sizes);
    void folderChanged();
    void refresh();
    void applyListing(const std::shared_ptr<const std::unordered_set<std::string>>& names,
                      const std::string& error);
    void removeRows(const std::vector<int>& rows);
    void reindexFrom(std::size_t first);
    // Reads the records and then the sizes of these names (all of them when none are given) on
    // the contents queue.
    void read(std::optional<std::vector<std::string>> names);
    void finishRefresh();

    std::filesystem::path m_trashFolder;
    std::filesystem::path m_volumeTop;
    Platform m_platform;
    std::vector<Item> m_items;
    std::unordered_map<std::string, int> m_rows; // by name
    std::unique_ptr<FolderMonitor> m_monitor;
    // Tells the contents queue that the model is gone; its readings stop at the next batch.
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
    bool m_loaded = false;
    bool m_refreshing = false;
    bool m_changedMeanwhile = false;
    QString m_error;
};

} // namespace quillane
