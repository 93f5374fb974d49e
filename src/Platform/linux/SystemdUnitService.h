#pragma once

#include "Platform/ServiceManager.h"

#include <QDBusConnection>
#include <QString>
#include <filesystem>
#include <optional>

namespace quillane
{

// The helper daemon as this system has it installed. Installing the daemon is what registers it:
// the package (or `cmake --install` to /usr) puts four files where the system reads them, and
// the bus starts the daemon through systemd when a client first calls it. There is nothing to
// enable, so registerService() and unregisterService() change nothing and never ask anyone.
//
// status() is Enabled when all of these are there, under `root` ("/" but in tests):
//
//   the bus activation file    {usr/share,usr/local/share}/dbus-1/system-services/NAME.service
//   the bus policy             {usr/share,etc}/dbus-1/system.d/NAME.conf
//   the polkit actions         usr/share/polkit-1/actions/BusNames::polkitActionsFile
//   the systemd unit           the unit the activation file names (SystemdService=), in one of
//                              systemd's unit folders (etc, run, usr/local/lib, lib, usr/lib)
//
// and systemd, asked on the bus, has the unit: its unit file state is not "not-found" or "bad".
// A masked unit is RequiresApproval: an administrator forbade it, and only one can undo that.
// Without systemd on the bus (a container), the files are all there is to go by. Anything
// missing is NotFound. A state this code does not know is UnrecognisedState, passed on so that
// the caller reports it as a case it does not handle.
//
// status() may wait up to a few seconds for systemd: call it off the main thread.
class SystemdUnitService final : public ServiceHandle
{
public:
    static constexpr int UnrecognisedState = 4;

    explicit SystemdUnitService(QDBusConnection bus, std::filesystem::path root = "/");

    int status() const override;
    Result<bool> registerService() override;
    Result<bool> unregisterService() override;

    // The unit's file state as systemd says it, read as a status (NotFound for an empty text).
    static int statusForUnitFileState(const QString& state);
    // The unit the installed activation file names, or none when that file is missing.
    std::optional<QString> activatedUnit() const;

private:
    QDBusConnection m_bus;
    std::filesystem::path m_root;
};

} // namespace quillane
