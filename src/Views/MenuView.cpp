#include "MenuView.h"

#include "EllipsisMenu.h"
#include "ListItem.h"
#include "Model/VolumeObserver.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QScrollBar>
#include <QVBoxLayout>
#include <algorithm>

namespace quillane
{

namespace
{

constexpr int panelWidth = 400;
constexpr int listBottomPadding = 5;

// A list is drawn on nothing of its own, so the panel's background shows through it.
void drawNoBackground(QWidget* widget)
{
    widget->setAutoFillBackground(false);
}

} // namespace

RowStack::RowStack(const ViewServices& services, QWidget* parent)
    : QWidget(parent), m_services(services), m_layout(new QVBoxLayout(this))
{
    m_layout->setContentsMargins(0, 0, 0, 0);
    drawNoBackground(this);
    refresh();
    // A rebuild clears the list at once and publishes the new one half a second later; the
    // rows follow the publications, so the panel does not collapse in between.
    connect(&services.observer, &VolumeObserver::listPublished, this, &RowStack::refresh);
}

void RowStack::refresh()
{
    std::vector<ListItem*> previous = std::move(m_rows);
    m_rows.clear();
    for (const Volume& volume : m_services.observer.volumes()) {
        const auto kept = std::ranges::find_if(
            previous, [&](const ListItem* row) { return row && row->item() == volume; });
        if (kept != previous.end()) {
            m_rows.push_back(*kept);
            *kept = nullptr;
        } else {
            m_rows.push_back(new ListItem(volume, m_services, this));
        }
    }
    for (ListItem* gone : previous) {
        if (!gone)
            continue;
        m_layout->removeWidget(gone);
        gone->hide();
        // Later, not now: the row may be showing its alert, in a nested event loop that this
        // rebuild runs in.
        gone->deleteLater();
    }
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        m_layout->removeWidget(m_rows[i]);
        m_layout->insertWidget(static_cast<int>(i), m_rows[i]);
        m_rows[i]->show();
    }
}

int RowStack::heightOfRows(std::size_t count) const
{
    count = std::min(count, m_rows.size());
    int height = 0;
    for (std::size_t i = 0; i < count; ++i)
        height += m_rows[i]->sizeHint().height();
    if (count > 1)
        height += static_cast<int>(count - 1) * m_layout->spacing();
    return height;
}

StandardView::StandardView(const ViewServices& services, QWidget* parent)
    : QWidget(parent), m_stack(new RowStack(services, this))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, listBottomPadding);
    layout->addWidget(m_stack);
    drawNoBackground(this);
}

ScrollingView::ScrollingView(const ViewServices& services, QWidget* parent)
    : QScrollArea(parent), m_stack(new RowStack(services))
{
    setFrameShape(QFrame::NoFrame);
    setWidgetResizable(true);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    setViewportMargins(0, 0, 0, listBottomPadding);
    setWidget(m_stack);
    // After setWidget, which gives the widget a background of its own.
    drawNoBackground(m_stack);
    drawNoBackground(viewport());
    drawNoBackground(this);
}

QSize ScrollingView::sizeHint() const
{
    const QMargins margins = viewportMargins();
    const int height = m_stack->heightOfRows(MenuView::maximumStandardRows) + 2 * frameWidth() +
                       margins.top() + margins.bottom();
    return {QScrollArea::sizeHint().width(), height};
}

MenuView::MenuView(const ViewServices& services, QWidget* parent)
    : QWidget(parent), m_services(services), m_layout(new QVBoxLayout(this))
{
    setFixedWidth(panelWidth);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);

    auto* title = new QLabel(QStringLiteral("Quillane"), this);
    title->setForegroundRole(QPalette::PlaceholderText);
    m_menu = new EllipsisMenu(services, this);
    auto* header = new QHBoxLayout;
    header->addWidget(title);
    header->addStretch();
    header->addWidget(m_menu);
    m_layout->addLayout(header);

    // Connected before any list exists, so a published list is sorted into the right view
    // before that view brings its rows in line.
    connect(&services.observer, &VolumeObserver::listPublished, this, &MenuView::chooseList);
    chooseList();
}

QSize MenuView::sizeHint() const
{
    return {panelWidth, QWidget::sizeHint().height()};
}

void MenuView::chooseList()
{
    const bool scrolling = m_services.observer.volumes().size() > maximumStandardRows;
    if (m_list && (qobject_cast<ScrollingView*>(m_list) != nullptr) == scrolling)
        return; // the list in place brings its own rows in line
    QWidget* next = scrolling ? static_cast<QWidget*>(new ScrollingView(m_services, this))
                              : new StandardView(m_services, this);
    if (m_list) {
        m_layout->replaceWidget(m_list, next);
        m_list->hide();
        // Its rows go with it later: one of them may be showing its alert right now.
        m_services.observer.disconnect(m_list);
        for (QObject* stack : m_list->findChildren<RowStack*>())
            m_services.observer.disconnect(stack);
        m_list->deleteLater();
    } else {
        m_layout->addWidget(next);
    }
    m_list = next;
    next->show(); // made after the panel was shown, it would stay hidden
    updateGeometry();
}

} // namespace quillane
