#pragma once

#include <QElapsedTimer>
#include <QPoint>
#include <QWidget>

namespace quillane
{

// The borderless panel that opens next to the tray icon and closes when the user turns to
// another application or presses Escape. Alerts the panel opens itself keep it open. On Wayland a
// window cannot place itself, so there the compositor decides where it appears.
class PanelWindow : public QWidget
{
    Q_OBJECT

public:
    explicit PanelWindow(QWidget* content);

    // Opens the panel next to the point the tray icon was clicked at (the cursor when the
    // host gave none), or closes it when it is open: a click on the icon toggles it.
    void toggle(QPoint anchor);
    void popUp(QPoint anchor);

    // Where a panel of this size goes for a click at anchor on a screen with this free area:
    // below a click in the upper half, above one in the lower half, always inside the area.
    static QPoint placement(QSize panel, QPoint anchor, const QRect& available);

protected:
    void changeEvent(QEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void closeUnlessOursIsActive();

    QElapsedTimer m_sinceHidden;
};

} // namespace quillane
