#pragma once

#include "Platform/ServiceManager.h"

#include <QDBusConnection>
#include <QString>
#include <chrono>

namespace quillane
{

// The helper daemon's system unit, as systemd's manager on the system bus sees it.
//
// status() maps the unit file's state (GetUnitFileState) onto the four statuses:
//
//   enabled, enabled-runtime           Enabled: the unit starts with the system.
//   static, indirect, generated,       Enabled: there is nothing for us to enable. The unit has
//   transient, alias                   no install section of its own, or something else (a
//                                      generator, another unit, the bus) starts it, and it is
//                                      there whenever it is asked for.
//   disabled, linked, linked-runtime   NotRegistered: installed and loadable, not enabled;
//                                      registerService() is what changes that.
//   masked, masked-runtime             RequiresApproval: an administrator has forbidden the unit.
//                                      systemd refuses to enable a masked unit, so registering
//                                      again can never help; only an administrator unmasking it
//                                      can, which is this platform's approval.
//   bad, not-found, no such unit file  NotFound: nothing usable is installed.
//   no systemd on the bus, no bus,     NotFound: we cannot tell, and the application treats that
//   any other error or no answer       like a missing installation rather than failing.
//   a state this code does not know    UnrecognisedState, passed on so that the caller reports
//                                      it as a case it does not handle.
//
// Every call has a time limit, so a service manager that does not answer cannot hang the caller.
// registerService() and unregisterService() let polkit ask an administrator (interactive
// authorisation), so their limit leaves time to type a password.
class SystemdUnitService final : public ServiceHandle
{
public:
    static constexpr int UnrecognisedState = 4;

    explicit SystemdUnitService(QDBusConnection bus,
                                QString unit = QStringLiteral("quillane-daemon.service"));

    int status() const override;
    // Enables the unit file and reloads the manager.
    Result<bool> registerService() override;
    // Disables the unit file and reloads the manager.
    Result<bool> unregisterService() override;

    static int statusForUnitFileState(const QString& state);

private:
    QDBusConnection m_bus;
    QString m_unit;
};

} // namespace quillane
