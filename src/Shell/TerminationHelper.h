#pragma once

namespace quillane
{

class Alerts;
class ApplicationControl;
class UserDefaults;

// The one way the user quits: asks first unless "QuitSuppression" is set, and stores the
// suppression when the alert's check box is ticked, whichever button ended it.
class TerminationHelper
{
public:
    static void terminationCheck(UserDefaults& defaults, Alerts& alerts,
                                 ApplicationControl& application);
};

} // namespace quillane
