#pragma once

#include "Views/ViewServices.h"

#include <QSize>
#include <QWidget>

class QCheckBox;

namespace quillane
{

// The settings window's content: switches for the confirmation before emptying, the start at
// login and the warning before quitting. While the window is in front the application has a
// taskbar entry of its own; when the user turns to another application it goes back to being a
// tray icon alone.
class SettingsView final : public QWidget
{
    Q_OBJECT

public:
    static constexpr QSize windowSize{300, 200};

    // Where the settings window stands, as the application's presence follows it.
    enum class ControlActiveState { Active, Inactive, Other };

    explicit SettingsView(const ViewServices& services, QWidget* parent = nullptr);

    // In front when the window is active; Inactive when the whole application went to the
    // background while the window is open; Other otherwise (another window of ours is in front,
    // or the window is closed).
    static ControlActiveState controlActiveState(bool windowOpen, bool windowActive,
                                                 Qt::ApplicationState applicationState);
    // Acts on a change of standing: Active brings the application forward, ignoring other
    // applications; Inactive hides this window only. A standing that did not change does nothing.
    void setControlActiveState(ControlActiveState state);

    QCheckBox* askBeforeEmptying() const { return m_askBeforeEmptying; }
    QCheckBox* launchOnLogin() const { return m_launchOnLogin; }
    QCheckBox* warnBeforeQuitting() const { return m_warnBeforeQuitting; }

protected:
    bool event(QEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void loginItemActiveChanged(bool active);
    void followActivation();

    const ViewServices m_services;
    QCheckBox* m_askBeforeEmptying;
    QCheckBox* m_launchOnLogin;
    QCheckBox* m_warnBeforeQuitting;
    ControlActiveState m_controlActiveState = ControlActiveState::Other;
};

} // namespace quillane
