#pragma once

#include "Platform/Result.h"

#include <QString>
#include <QStringList>
#include <QUrl>

namespace quillane
{

// The desktop's openers: a folder in the file manager, a web page in the browser, a mailto:
// link in the mail program, and programs started on their own.
class Workspace
{
public:
    virtual ~Workspace() = default;
    // Hands the address to the desktop's opener for it; false when nothing could open it.
    virtual bool open(const QUrl& url) = 0;
    // Starts the program without waiting for it; its process id, or why it could not start.
    virtual Result<qint64> launch(const QString& program, const QStringList& arguments) = 0;
};

} // namespace quillane
