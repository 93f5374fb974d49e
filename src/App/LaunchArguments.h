#pragma once

#include <QStringList>

namespace quillane
{

// Whether a start with these arguments (the program's name left out) is the tray application's:
// none at all, or only what the desktop and Qt give any application. A session manager restores
// us with "-session ID" (and X11 desktops add "-name NAME"); Qt reads its own ("-platform xcb",
// "-reverse", ...) in either "-" or "--" spelling, with the value apart or after "=". Anything
// else is a command for the command line.
bool isTrayLaunch(const QStringList& arguments);

} // namespace quillane
