#pragma once

#include "Platform/BundleInfo.h"

#include <functional>

namespace quillane
{

class Alerts;
class ApplicationControl;
class Updater;
class UserDefaults;
class VolumeObserver;
class Workspace;
class XPCClient;

// The shared objects every view is given: the models it reads and calls, and the platform
// services it shows things through. The views keep no model data of their own.
struct ViewServices {
    VolumeObserver& observer;
    XPCClient& client;
    Updater& updater;
    UserDefaults& defaults;
    Alerts& alerts;
    Workspace& workspace;
    ApplicationControl& application;
    BundleInfo bundle;
    // Opens the settings window (or brings it forward).
    std::function<void()> openSettings;
};

} // namespace quillane
