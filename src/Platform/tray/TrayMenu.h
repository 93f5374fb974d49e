#pragma once

#include <QString>
#include <functional>
#include <vector>

namespace quillane
{

// One entry of the tray icon's menu, whichever toolkit or host draws it: a command with its
// label, or a separator line.
struct TrayMenuEntry {
    QString label; // empty for a separator
    std::function<void()> trigger;

    bool isSeparator() const { return label.isEmpty(); }
    static TrayMenuEntry separator() { return {}; }
};

using TrayMenu = std::vector<TrayMenuEntry>;

} // namespace quillane
