#pragma once

namespace quillane
{

// What the model and the views may ask of the running application as a whole. All of it is
// called on the main thread.
class ApplicationControl
{
public:
    virtual ~ApplicationControl() = default;
    // Ends the application.
    virtual void terminate() = 0;
    // Brings the application's windows forward; with ignoringOtherApps, even over the window
    // the user is working in.
    virtual void activate(bool ignoringOtherApps) { (void)ignoringOtherApps; }
    // Hides every window of the application and takes it off the taskbar: the tray-only mode.
    virtual void hide() {}
    // Puts the application's windows back on the taskbar, then activates it.
    virtual void show(bool ignoringOtherApps) { activate(ignoringOtherApps); }
};

} // namespace quillane
