#include "SettingsView.h"

#include "Helper/XPCClient.h"
#include "Platform/ApplicationControl.h"
#include "Platform/Constant.h"
#include "Platform/InvertedSetting.h"

#include <QCheckBox>
#include <QEvent>
#include <QGroupBox>
#include <QGuiApplication>
#include <QLabel>
#include <QShowEvent>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace quillane
{

SettingsView::SettingsView(const ViewServices& services, QWidget* parent)
    : QWidget(parent), m_services(services),
      m_askBeforeEmptying(new QCheckBox(tr("Ask before emptying trash"))),
      m_launchOnLogin(new QCheckBox(tr("Launch Quillane on login"))),
      m_warnBeforeQuitting(new QCheckBox(tr("Warn before quitting Quillane")))
{
    setFixedSize(windowSize);
    auto* group = new QGroupBox(this);
    auto* rows = new QVBoxLayout(group);
    rows->addWidget(m_askBeforeEmptying);
    rows->addWidget(m_launchOnLogin);
    rows->addWidget(m_warnBeforeQuitting);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(group);
    if (const QString problem = services.defaults.storageProblem(); !problem.isEmpty()) {
        auto* warning = new QLabel(problem, this);
        warning->setObjectName(QStringLiteral("storageProblem"));
        warning->setWordWrap(true);
        warning->setTextFormat(Qt::PlainText);
        layout->addWidget(warning);
    }
    layout->addStretch();

    connect(m_askBeforeEmptying, &QCheckBox::toggled, this, [this](bool ask) {
        InvertedSetting{m_services.defaults, Constant::deleteCheckSupressionKey}.set(ask);
    });
    connect(m_warnBeforeQuitting, &QCheckBox::toggled, this, [this](bool warn) {
        InvertedSetting{m_services.defaults, Constant::quitSuppressionKey}.set(warn);
    });
    connect(m_launchOnLogin, &QCheckBox::toggled, this, &SettingsView::loginItemActiveChanged);
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this,
            &SettingsView::followActivation);
}

void SettingsView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (event->spontaneous())
        return;
    // Another window may have changed the preferences since the form was last shown.
    {
        const QSignalBlocker askBlocker(m_askBeforeEmptying);
        const QSignalBlocker warnBlocker(m_warnBeforeQuitting);
        m_askBeforeEmptying->setChecked(
            InvertedSetting{m_services.defaults, Constant::deleteCheckSupressionKey}.value());
        m_warnBeforeQuitting->setChecked(
            InvertedSetting{m_services.defaults, Constant::quitSuppressionKey}.value());
    }
    // A position that differs from the last one runs the login-item steps, as a flip would.
    m_launchOnLogin->setChecked(m_services.client.loginItemActive());
    m_services.application.activate(true);
}

void SettingsView::loginItemActiveChanged(bool active)
{
    // A refused registration shows in the client; the switch keeps the position it was given
    // until the form is shown again.
    m_services.client.setLoginItemActive(active);
    m_services.client.toggleLoginItem();
}

bool SettingsView::event(QEvent* event)
{
    const bool handled = QWidget::event(event);
    switch (event->type()) {
    case QEvent::WindowActivate:
    case QEvent::WindowDeactivate:
    case QEvent::Hide:
        followActivation();
        break;
    default:
        break;
    }
    return handled;
}

SettingsView::ControlActiveState
SettingsView::controlActiveState(bool windowOpen, bool windowActive,
                                 Qt::ApplicationState applicationState)
{
    if (!windowOpen)
        return ControlActiveState::Other;
    if (windowActive)
        return ControlActiveState::Active;
    return applicationState == Qt::ApplicationActive ? ControlActiveState::Other
                                                     : ControlActiveState::Inactive;
}

void SettingsView::followActivation()
{
    setControlActiveState(
        controlActiveState(isVisible(), isActiveWindow(), QGuiApplication::applicationState()));
}

void SettingsView::setControlActiveState(ControlActiveState state)
{
    if (state == m_controlActiveState)
        return;
    m_controlActiveState = state;
    switch (state) {
    case ControlActiveState::Active:
        m_services.application.activate(true);
        break;
    case ControlActiveState::Inactive:
        // Only the settings go when another application takes the focus; the setup window
        // and the panel are the user's to close.
        window()->hide();
        break;
    case ControlActiveState::Other:
        break;
    }
}

} // namespace quillane
