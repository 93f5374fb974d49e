#include "WidgetApplication.h"

#include <QApplication>

namespace quillane
{

namespace
{

const char* const standsForTray = "quillaneStandsForTray";

// The windows the user works with: not popups, tooltips or menus, which close by themselves.
bool isOrdinaryWindow(const QWidget* widget)
{
    const Qt::WindowType type = widget->windowType();
    return widget->isWindow() && (type == Qt::Window || type == Qt::Dialog);
}

} // namespace

void WidgetApplication::markAsTray(QWidget* window)
{
    window->setProperty(standsForTray, true);
}

void WidgetApplication::terminate()
{
    // Ends the event loop; the application object's owner tidies up as main() returns.
    QCoreApplication::quit();
}

void WidgetApplication::activate(bool ignoringOtherApps)
{
    QWidget* window = QApplication::activeWindow();
    if (!window) {
        for (QWidget* candidate : QApplication::topLevelWidgets()) {
            if (candidate->isVisible() && isOrdinaryWindow(candidate))
                window = candidate;
        }
    }
    if (!window)
        return;
    window->raise();
    // A window manager with focus-stealing prevention may still only mark the window as
    // wanting attention; that is the desktop's call to make.
    if (ignoringOtherApps || QApplication::applicationState() == Qt::ApplicationActive)
        window->activateWindow();
}

void WidgetApplication::hide()
{
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (window->isVisible() && isOrdinaryWindow(window) &&
            !window->property(standsForTray).toBool()) {
            m_hidden.append(window);
            window->hide();
        }
    }
}

void WidgetApplication::show(bool ignoringOtherApps)
{
    const QList<QPointer<QWidget>> hidden = std::exchange(m_hidden, {});
    for (const QPointer<QWidget>& window : hidden) {
        if (window)
            window->show();
    }
    activate(ignoringOtherApps);
}

} // namespace quillane
