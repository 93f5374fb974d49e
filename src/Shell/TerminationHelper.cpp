#include "TerminationHelper.h"

#include "Platform/Alerts.h"
#include "Platform/ApplicationControl.h"
#include "Platform/Constant.h"
#include "Platform/UserDefaults.h"

#include <QCoreApplication>

namespace quillane
{

void TerminationHelper::terminationCheck(UserDefaults& defaults, Alerts& alerts,
                                         ApplicationControl& application)
{
    defaults.synchronize();
    if (defaults.boolValue(Constant::quitSuppressionKey)) {
        application.terminate();
        return;
    }
    const AlertAnswer answer =
        alerts.runModal({QCoreApplication::translate("quillane::TerminationHelper",
                                                     "Are you sure you want to quit Quillane?"),
                         QCoreApplication::translate(
                             "quillane::TerminationHelper",
                             "Quitting will remove Quillane from your tray. Trash will empty for "
                             "all mounted volumes."),
                         {QCoreApplication::translate("quillane::TerminationHelper", "Quit"),
                          QCoreApplication::translate("quillane::TerminationHelper", "Cancel")},
                         true,
                         {},
                         /*cancelButton=*/1});
    if (answer.suppressed)
        defaults.setBool(Constant::quitSuppressionKey, true);
    if (answer.button == AlertAnswer::firstButton)
        application.terminate();
}

} // namespace quillane
