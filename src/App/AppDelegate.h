#pragma once

namespace quillane
{

class ApplicationControl;
class UserDefaults;
class XPCClient;

// The work done once launching has finished.
class AppDelegate
{
public:
    AppDelegate(XPCClient& client, UserDefaults& defaults, ApplicationControl& application);

    void applicationDidFinishLaunching();

private:
    XPCClient& m_client;
    UserDefaults& m_defaults;
    ApplicationControl& m_application;
};

} // namespace quillane
