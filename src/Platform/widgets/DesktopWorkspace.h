#pragma once

#include "Platform/Workspace.h"

namespace quillane
{

// The desktop's openers as Qt reaches them: xdg-open and the portal behind QDesktopServices,
// and programs started detached.
class DesktopWorkspace final : public Workspace
{
public:
    bool open(const QUrl& url) override;
    Result<qint64> launch(const QString& program, const QStringList& arguments) override;
};

} // namespace quillane
