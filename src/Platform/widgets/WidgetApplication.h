#pragma once

#include "Platform/ApplicationControl.h"

#include <QList>
#include <QPointer>
#include <QWidget>

namespace quillane
{

// The running Qt application. Linux has no application-wide hide or taskbar switch, so the
// tray-only mode is the application's ordinary windows hidden, and showing it again brings
// back the windows that mode hid.
class WidgetApplication final : public ApplicationControl
{
public:
    void terminate() override;
    void activate(bool ignoringOtherApps) override;
    void hide() override;
    void show(bool ignoringOtherApps) override;

private:
    QList<QPointer<QWidget>> m_hidden;
};

} // namespace quillane
