#pragma once

#include "Model/Picture.h"
#include "Platform/BundleInfo.h"

#include <QColor>
#include <QIcon>
#include <QPalette>
#include <QSize>
#include <QString>
#include <filesystem>
#include <string>

namespace quillane
{

// The icon a Picture stands for: a symbol maps to the freedesktop icon theme's name for it (our
// own drawing of it in the resources where the theme has none), an asset to our own image in the
// resources, a file icon to the desktop's icon for that place. What cannot be found gives an
// empty icon.
QIcon iconFor(const Picture& picture, const BundleInfo& bundle);

// The icon theme's name for one of the symbols the views use; empty for any other symbol.
QString symbolIconName(const std::string& symbol);

// The theme's icon for a volume's folder: removable media where desktops mount them (below
// /media and /run/media), else a fixed disk. The root folder is the system disk, not a home.
QString volumeIconName(const std::filesystem::path& path);

// The icon's shape drawn in one colour at every size, and in disabledColour when disabled: for
// symbolic icons, which carry no colour of their own.
QIcon tintedIcon(const QIcon& icon, const QColor& colour, const QColor& disabledColour);

// A symbolic icon drawn in a colour of the palette it is shown with. Icon themes draw their
// symbols dark, for light backgrounds, and Qt does not recolour them as GTK does: drawn as they
// are, they vanish in a dark style. A widget draws it again when its palette changes.
QIcon symbolicIcon(const QIcon& symbol, const QPalette& palette, QPalette::ColorRole role);

// Where the platform names no real icon theme (offscreen, or bare X11 without a desktop), theme
// icons would all come out empty: use Adwaita when it is installed.
void ensureIconTheme();

} // namespace quillane
