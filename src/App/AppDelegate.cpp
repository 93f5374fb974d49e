#include "AppDelegate.h"

#include "Helper/XPCClient.h"
#include "Platform/ApplicationControl.h"
#include "Platform/Constant.h"
#include "Platform/UserDefaults.h"

namespace quillane
{

AppDelegate::AppDelegate(XPCClient& client, UserDefaults& defaults, ApplicationControl& application)
    : m_client(client), m_defaults(defaults), m_application(application)
{
}

void AppDelegate::applicationDidFinishLaunching()
{
    // Qt makes this object's owner the one that receives the launch; there is no delegate to
    // assign, and Qt windows are never merged into tabs, so there is no tabbing to turn off.
    m_application.activate(true);
    // Desktop session restore may relaunch us, but never with windows of an earlier run: the
    // stored value is there for a user who wants otherwise to override.
    m_defaults.registerDefault(Constant::quitAlwaysKeepsWindowsKey, false);
    m_client.xpcStatus();
    if (m_client.helperRegistered())
        m_client.waitAndStart();
}

} // namespace quillane
