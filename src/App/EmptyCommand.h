#pragma once

#include <QString>

namespace quillane
{

// `quillane empty LOCATION [--yes]`: empties the trash of one location, named as
// `quillane list` shows it (its name, its location or its trash folder). Asks first unless
// told not to, shows progress on a terminal, hands what needs privilege to the helper daemon
// and waits for its reports. Returns the exit code: 0 once the emptying completed. With
// reportStalls, says at the end how long the main thread's event loop went without turning.
int runEmptyCommand(const QString& location, bool yes, bool reportStalls = false);

} // namespace quillane
