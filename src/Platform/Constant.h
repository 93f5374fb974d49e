#pragma once

#include <QString>

namespace quillane::Constant
{

// The helper daemon's well-known name on the system bus.
inline const QString helperMachLabel = QStringLiteral("com.velmoric.QuillaneDaemon");
inline const QString helperObjectPath = QStringLiteral("/com/velmoric/QuillaneDaemon");
// Where the application exports its HelperClient on its own connection.
inline const QString clientObjectPath = QStringLiteral("/com/velmoric/QuillaneClient");
// The in-process notification for an item the daemon removed; its object is the item's path.
inline const QString xpcDeleteName = QStringLiteral("xpcDidDelete");
// The in-process notification for an item the daemon refused or failed to remove; its object
// is the item's path, its "error" the reason.
inline const QString xpcDeleteFailedName = QStringLiteral("xpcDeleteFailed");
inline const QString deleteErrorKey = QStringLiteral("error");
// The in-process notification of a version the daemon posted, under "helperVersion".
inline const QString helperVersionUpdatedName = QStringLiteral("HelperVersionUpdated");
inline const QString helperVersionKey = QStringLiteral("helperVersion");

// The user's stored preferences. Stored data depends on these keys letter for letter, "Supression"
// with one p included.
inline const QString deleteCheckSupressionKey = QStringLiteral("DeleteCheckSupression");
inline const QString quitSuppressionKey = QStringLiteral("QuitSuppression");
inline const QString loginItemSupressedKey = QStringLiteral("loginItemSupressed");
inline const QString showDropboxKey = QStringLiteral("ShowDropbox");
inline const QString quitAlwaysKeepsWindowsKey = QStringLiteral("NSQuitAlwaysKeepsWindows");

} // namespace quillane::Constant
