#pragma once

#include "Platform/ApplicationControl.h"

#include <QList>
#include <QPointer>
#include <QWidget>

namespace quillane
{

// The running Qt application. Linux has no application-wide hide or taskbar switch, so the
// tray-only mode is the application's ordinary windows hidden, and showing it again brings
// back the windows that mode hid. A window marked as standing for the tray (the panel's own
// window on a desktop without one) is never hidden: it is what the user reaches us by.
class WidgetApplication final : public ApplicationControl
{
public:
    static void markAsTray(QWidget* window);

    void terminate() override;
    void activate(bool ignoringOtherApps) override;
    void hide() override;
    void show(bool ignoringOtherApps) override;

private:
    QList<QPointer<QWidget>> m_hidden;
};

} // namespace quillane
