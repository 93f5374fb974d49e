#pragma once

#include "Model/Volume.h"
#include "ViewServices.h"

#include <QString>
#include <QWidget>
#include <cstdint>
#include <optional>

class QLabel;
class QProgressBar;
class QPushButton;
class QStackedLayout;
class QToolButton;

namespace quillane
{

// One row of the panel: a trash location's icon and name, its item count and size (a progress
// bar in their place while its trash is being emptied), a button that empties it and one that shows
// the trash folder in the file manager. The row keeps its volume record for its whole life; a
// rebuilt list brings new rows.
class ListItem : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY(ListItem)

public:
    ListItem(const Volume& item, const ViewServices& services, QWidget* parent = nullptr);
    ~ListItem() override;

    const Volume& item() const { return m_item; }
    // "Calculating..." until the count and size are known, then the detail line.
    const QString& details() const { return m_details; }
    bool shouldShowProgress() const { return m_shouldShowProgress; }

    // The detail line for a count and a size: "1 item, 1.2 MB", "0 items, 0 bytes".
    static QString detailString(int itemCount, std::uint64_t size);

    // Asks first, unless the user turned the question off; then empties this trash from the
    // main queue, after the alert has closed.
    void askBeforeDeleting();
    // The Empty button: nothing while the count is unknown or zero, or another emptying runs.
    void emptyTrash();
    // The reveal button: the trash folder in the file manager, unless there is no folder to
    // show (no trash).
    void revealTrash();
    // A click on the name, or "Show Items" in the row's context menu: the window that lists
    // what the trash holds.
    void showItems();

Q_SIGNALS:
    void detailsChanged();

protected:
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void startDetails();
    void showDetails(int itemCount, std::uint64_t size);
    void progressChanged();
    void setShouldShowProgress(bool show);
    void updateEmptyButton();
    // Draws the buttons' symbols in the row's palette, the trash in red while it holds items.
    void updateSymbols();
    bool canReveal() const;

    Volume m_item;
    ViewServices m_services;
    QString m_name;
    QString m_details;
    bool m_detailsStarted = false;
    bool m_shouldShowProgress = false;
    std::optional<int> m_itemCount;

    QLabel* m_iconLabel;
    QLabel* m_nameLabel;
    QLabel* m_detailsLabel;
    QProgressBar* m_progressBar;
    QStackedLayout* m_detailsLine;
    QPushButton* m_emptyButton;
    QToolButton* m_revealButton;
};

} // namespace quillane
