#pragma once

#include "BusNames.h"

#include <QString>

namespace quillane::Constant
{

// The helper daemon's well-known name on the system bus.
inline const QString helperMachLabel = BusNames::daemonService;

// The user's stored preferences. Stored data depends on these keys letter for letter, "Supression"
// with one p included.
inline const QString deleteCheckSupressionKey = QStringLiteral("DeleteCheckSupression");
inline const QString quitSuppressionKey = QStringLiteral("QuitSuppression");
inline const QString loginItemSupressedKey = QStringLiteral("loginItemSupressed");
inline const QString showDropboxKey = QStringLiteral("ShowDropbox");
inline const QString quitAlwaysKeepsWindowsKey = QStringLiteral("NSQuitAlwaysKeepsWindows");

} // namespace quillane::Constant
