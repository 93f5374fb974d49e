#pragma once

#include "ViewServices.h"

#include <QScrollArea>
#include <QWidget>
#include <vector>

class QVBoxLayout;

namespace quillane
{

class EllipsisMenu;
class ListItem;

// The rows of the panel, one per trash location in the observer's order. A row stays while
// its volume record is listed; a record it has not seen gets a new row.
class RowStack : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY(RowStack)

public:
    explicit RowStack(const ViewServices& services, QWidget* parent = nullptr);

    const std::vector<ListItem*>& rows() const { return m_rows; }
    // Brings the rows in line with the observer's list.
    void refresh();
    // The height the first rows take in the column, spacing included.
    int heightOfRows(std::size_t count) const;

private:
    ViewServices m_services;
    QVBoxLayout* m_layout;
    std::vector<ListItem*> m_rows;
};

// The list for a few locations: the rows in a plain column.
class StandardView : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY(StandardView)

public:
    explicit StandardView(const ViewServices& services, QWidget* parent = nullptr);
    const std::vector<ListItem*>& rows() const { return m_stack->rows(); }

private:
    RowStack* m_stack;
};

// The list for many locations: the same column in a scroll area, as tall as the panel lets it
// be, with its scroll bar always shown.
class ScrollingView : public QScrollArea
{
    Q_OBJECT
    Q_DISABLE_COPY(ScrollingView)

public:
    explicit ScrollingView(const ViewServices& services, QWidget* parent = nullptr);
    const std::vector<ListItem*>& rows() const { return m_stack->rows(); }

    // As tall as the plain column of the most rows it holds: the panel stays that high.
    QSize sizeHint() const override;

private:
    RowStack* m_stack;
};

// The panel's content: a header with the product's name and the command menu, then the list of
// trash locations, a plain column for up to nine of them and a scrolling one for more.
class MenuView : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY(MenuView)

public:
    // The most locations the plain column shows.
    static constexpr std::size_t maximumStandardRows = 9;

    explicit MenuView(const ViewServices& services, QWidget* parent = nullptr);

    // The list shown now: a StandardView or a ScrollingView.
    QWidget* list() const { return m_list; }
    EllipsisMenu* ellipsisMenu() const { return m_menu; }

    // Always as wide as the panel; as tall as the header and the list want.
    QSize sizeHint() const override;

private:
    void chooseList();

    ViewServices m_services;
    QVBoxLayout* m_layout;
    EllipsisMenu* m_menu;
    QWidget* m_list = nullptr;
};

} // namespace quillane
