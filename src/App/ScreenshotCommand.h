#pragma once

#include <QString>
#include <QStringList>

namespace quillane
{

// The views `quillane --screenshot` can draw.
QStringList screenshotViews();

// `quillane --screenshot VIEW FILE.png`: draws one view of the application, filled from a
// staged set of trash locations of its own, into a PNG file. Returns the exit code.
int runScreenshotCommand(const QString& view, const QString& file);

} // namespace quillane
