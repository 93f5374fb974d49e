#include "PanelWindow.h"

#include "App/WindowFrame.h"

#include <QApplication>
#include <QCursor>
#include <QEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QTimer>

namespace quillane
{

namespace
{

// A click on the icon while the panel is open first takes the focus away, which closes the
// panel, and then arrives as an activation: within this time it means "close".
constexpr qint64 reopenGuardMs = 300;
constexpr int gap = 4;

} // namespace

PanelWindow::PanelWindow(QWidget* content) : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint)
{
    setWindowTitle(QStringLiteral("Quillane"));
    frameAround(this, content);
}

void PanelWindow::toggle(QPoint anchor)
{
    if (isVisible()) {
        hide();
        return;
    }
    if (m_sinceHidden.isValid() && m_sinceHidden.elapsed() < reopenGuardMs)
        return;
    popUp(anchor);
}

void PanelWindow::popUp(QPoint anchor)
{
    if (anchor.isNull())
        anchor = QCursor::pos();
    QScreen* screen = QGuiApplication::screenAt(anchor);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen)
        setScreen(screen); // the panel fits the room of the screen it opens on
    adjustSize();
    if (screen)
        move(placement(size(), anchor, screen->availableGeometry()));
    show();
    raise();
    activateWindow();
}

QPoint PanelWindow::placement(QSize panel, QPoint anchor, const QRect& available)
{
    QPoint topLeft(anchor.x() - panel.width() / 2, anchor.y() + gap);
    if (anchor.y() > available.center().y())
        topLeft.setY(anchor.y() - gap - panel.height());
    topLeft.setX(std::clamp(topLeft.x(), available.left(),
                            std::max(available.left(), available.right() + 1 - panel.width())));
    topLeft.setY(std::clamp(topLeft.y(), available.top(),
                            std::max(available.top(), available.bottom() + 1 - panel.height())));
    return topLeft;
}

void PanelWindow::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && !isActiveWindow() && isVisible()) {
        // Which window has the focus now is known once the activation has settled.
        QTimer::singleShot(0, this, &PanelWindow::closeUnlessOursIsActive);
    }
}

void PanelWindow::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    m_sinceHidden.start();
}

void PanelWindow::keyPressEvent(QKeyEvent* event)
{
    // Escape only closes, as a menu does; it never cancels an emptying or quits.
    if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier) {
        hide();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PanelWindow::closeUnlessOursIsActive()
{
    // A confirmation the panel opened is ours and modal: the panel stays behind it.
    if (isActiveWindow() || QApplication::activeModalWidget())
        return;
    hide();
}

} // namespace quillane
