#include "WindowFrame.h"

#include <QEvent>
#include <QPointer>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <QVBoxLayout>
#include <QWidget>
#include <QWindow>
#include <algorithm>

namespace quillane
{

namespace
{

// Holds a view at its own size, up to the room its window has on the screen, and scrolls what
// goes past that. Its size hint is what the window takes.
class ScreenFittingArea final : public QScrollArea
{
public:
    explicit ScreenFittingArea(QWidget* content)
    {
        setFrameShape(QFrame::NoFrame);
        setWidgetResizable(true);
        setWidget(content);
        // The window's own background shows through, as it did around the bare view.
        content->setAutoFillBackground(false);
        viewport()->setAutoFillBackground(false);
        // A view that asks for another size tells its parent, the viewport.
        content->installEventFilter(this);
        viewport()->installEventFilter(this);
    }

    QSize sizeHint() const override
    {
        const QWidget* content = widget();
        QSize fitted = content->sizeHint()
                           .expandedTo(content->minimumSize())
                           .boundedTo(content->maximumSize());
        if (!fitted.isValid())
            fitted = content->size();
        const QSize room = roomOnScreen();
        const int bar = style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, this);
        // A scroll bar takes room beside the view, across the way it scrolls.
        if (fitted.height() > room.height())
            fitted = {fitted.width() + bar, room.height()};
        if (fitted.width() > room.width())
            fitted = {room.width(), std::min(fitted.height() + bar, room.height())};
        return fitted.boundedTo(room);
    }

    QSize minimumSizeHint() const override { return {}; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::LayoutRequest)
            updateGeometry();
        return QScrollArea::eventFilter(watched, event);
    }

    void showEvent(QShowEvent* event) override
    {
        QScrollArea::showEvent(event);
        // The room follows the screen the window is on, and what the desktop's bars leave of it.
        QWindow* handle = window()->windowHandle();
        if (!handle || handle == m_handle)
            return;
        m_handle = handle;
        connect(handle, &QWindow::screenChanged, this, &ScreenFittingArea::followScreen);
        followScreen(handle->screen());
    }

private:
    QSize roomOnScreen() const
    {
        const QScreen* screen = window()->screen();
        if (!screen)
            return {QWIDGETSIZE_MAX, QWIDGETSIZE_MAX};
        // The frame the desktop draws around the window, once it is known.
        const QWidget* frame = window();
        const QSize decoration = frame->frameGeometry().size() - frame->geometry().size();
        return screen->availableGeometry().size() - decoration;
    }

    void followScreen(QScreen* screen)
    {
        disconnect(m_screenArea);
        if (screen)
            m_screenArea = connect(screen, &QScreen::availableGeometryChanged, this,
                                   [this] { updateGeometry(); });
        updateGeometry();
    }

    QPointer<QWindow> m_handle;
    QMetaObject::Connection m_screenArea;
};

} // namespace

void frameAround(QWidget* window, QWidget* content)
{
    auto* layout = new QVBoxLayout(window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->addWidget(new ScreenFittingArea(content));
}

} // namespace quillane
