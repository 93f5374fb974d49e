#pragma once

#include "Model/Picture.h"
#include "Platform/BundleInfo.h"

#include <QIcon>

namespace quillane
{

// The icon a Picture stands for: a symbol maps to the freedesktop icon theme's name for it, an
// asset to our own image in the resources, a file icon to the desktop's icon for that place.
QIcon iconFor(const Picture& picture, const BundleInfo& bundle);

} // namespace quillane
