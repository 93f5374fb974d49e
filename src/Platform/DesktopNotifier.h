#pragma once

#include <QString>

namespace quillane
{

// A message the desktop shows for a moment beside everything else, such as the one that says an
// emptying has ended.
struct DesktopNotification {
    QString summary;
    QString body;
    QString iconName; // the icon theme's name
};

// Shows desktop notifications. Used on the main thread; returns at once. A desktop that cannot
// show one (no notification server) is no error the user hears of.
class DesktopNotifier
{
public:
    virtual ~DesktopNotifier() = default;
    virtual void notify(const DesktopNotification& notification) = 0;
};

} // namespace quillane
