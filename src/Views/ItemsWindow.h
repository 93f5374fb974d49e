#pragma once

#include "Model/Volume.h"
#include "Platform/TrashItems.h"
#include "ViewServices.h"

#include <QWidget>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

class QLabel;
class QLineEdit;
class QPushButton;
class QSortFilterProxyModel;
class QTableView;

namespace quillane
{

class TrashContents;

// The items of one trash in a window of their own: a table that sorts by every column, a search
// field that filters by name as the user types, and two actions on the selected items. Restore
// puts each back where it came from; Delete removes them the way an emptying does, with the
// helper for what the user may not remove. The window follows the trash as it changes.
class ItemsWindow : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY(ItemsWindow)

public:
    // Where an item with no usable record goes back to: a folder the user picks, none to leave
    // it in the trash. The file dialog, unless a test answers instead.
    using FolderChooser =
        std::function<std::optional<std::filesystem::path>(QWidget* parent, const QString& item)>;
    static FolderChooser chooseFolder;

    // Shows the window of that volume's trash, bringing forward the one already open.
    static ItemsWindow* showItems(const Volume& volume, const ViewServices& services);

    ItemsWindow(const Volume& volume, const ViewServices& services, QWidget* parent = nullptr);
    ~ItemsWindow() override;

    const std::filesystem::path& trashFolder() const { return m_trashFolder; }
    TrashContents* contents() const { return m_contents; }
    QTableView* table() const { return m_table; }
    QLineEdit* searchField() const { return m_search; }

    // The buttons' actions on the selected rows.
    void restoreSelected();
    void deleteSelected();

Q_SIGNALS:
    // A restore the user started has ended, its questions and its failures told.
    void restoresFinished();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    struct Restore {
        std::string name;
        QString shownName;
        std::filesystem::path destination;
    };
    using RestoreOutcomes = std::vector<std::pair<Restore, RestoreResult>>;

    std::vector<int> selectedRows() const;
    void selectionChanged();
    void updateStatus();
    // Runs the restores on the contents queue, then `done` on the main thread.
    void runRestores(std::vector<Restore> restores, RestoreCollision onCollision,
                     std::function<void(RestoreOutcomes)> done);
    void restoresDone(RestoreOutcomes outcomes, QStringList failures, bool lastRound);
    void fitToScreen();

    Volume m_volume;
    ViewServices m_services;
    std::filesystem::path m_trashFolder;
    QString m_name;
    bool m_restoring = false;
    TrashContents* m_contents;
    QSortFilterProxyModel* m_proxy;
    QLineEdit* m_search;
    QTableView* m_table;
    QLabel* m_status;
    QPushButton* m_restoreButton;
    QPushButton* m_deleteButton;
};

} // namespace quillane
