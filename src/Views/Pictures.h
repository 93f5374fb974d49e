#pragma once

#include "Model/Picture.h"
#include "Platform/BundleInfo.h"

#include <QColor>
#include <QIcon>
#include <QSize>
#include <QString>
#include <filesystem>
#include <string>

namespace quillane
{

// The icon a Picture stands for: a symbol maps to the freedesktop icon theme's name for it, an
// asset to our own image in the resources, a file icon to the desktop's icon for that place.
// What cannot be found gives an empty icon.
QIcon iconFor(const Picture& picture, const BundleInfo& bundle);

// The icon theme's name for one of the symbols the views use; empty for any other symbol.
QString symbolIconName(const std::string& symbol);

// The theme's icon for a volume's folder: removable media where desktops mount them (below
// /media and /run/media), else a fixed disk. The root folder is the system disk, not a home.
QString volumeIconName(const std::filesystem::path& path);

// A copy of the icon drawn in one colour at one size, for symbolic icons that carry a meaning
// in their colour. Its disabled look is made from it as usual.
QIcon tintedIcon(const QIcon& icon, const QColor& colour, QSize size);

// Where the platform names no real icon theme (offscreen, or bare X11 without a desktop), theme
// icons would all come out empty: use Adwaita when it is installed.
void ensureIconTheme();

} // namespace quillane
