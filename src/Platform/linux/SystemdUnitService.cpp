#include "SystemdUnitService.h"

#include "Platform/BusNames.h"
#include "Platform/Constant.h"

#include <QDBusMessage>
#include <QFile>
#include <QStringList>
#include <sys/stat.h>
#include <utility>

namespace quillane
{

namespace
{

// Reading a state should take milliseconds; a manager that takes longer is treated as absent.
constexpr int queryTimeout = 3'000;

const QString defaultUnit = QStringLiteral("quillane-daemon.service");
const std::string policyFile = BusNames::polkitActionsFile.toStdString();

bool isFile(const std::filesystem::path& path)
{
    struct stat status {
    };
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// The first of the folders, under root, that holds the file.
std::optional<std::filesystem::path> findIn(const std::filesystem::path& root,
                                            std::initializer_list<const char*> folders,
                                            const std::string& name)
{
    for (const char* folder : folders) {
        std::filesystem::path path = root / folder / name;
        if (isFile(path))
            return path;
    }
    return std::nullopt;
}

std::string busName()
{
    return Constant::helperMachLabel.toStdString();
}

} // namespace

SystemdUnitService::SystemdUnitService(QDBusConnection bus, std::filesystem::path root)
    : m_bus(std::move(bus)), m_root(std::move(root))
{
}

std::optional<QString> SystemdUnitService::activatedUnit() const
{
    const auto activation = findIn(
        m_root, {"usr/share/dbus-1/system-services", "usr/local/share/dbus-1/system-services"},
        busName() + ".service");
    if (!activation)
        return std::nullopt;
    QFile file(QString::fromStdString(activation->native()));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QString key = QStringLiteral("SystemdService=");
    for (const QByteArray& raw : file.readAll().split('\n')) {
        const QString line = QString::fromUtf8(raw).trimmed();
        if (line.startsWith(key))
            return line.mid(key.size()).trimmed();
    }
    return defaultUnit;
}

int SystemdUnitService::status() const
{
    const std::optional<QString> unit = activatedUnit();
    if (!unit || unit->isEmpty() || unit->contains(u'/'))
        return NotFound;
    if (!findIn(m_root, {"usr/share/dbus-1/system.d", "etc/dbus-1/system.d"}, busName() + ".conf"))
        return NotFound;
    if (!findIn(m_root, {"usr/share/polkit-1/actions"}, policyFile))
        return NotFound;
    // An alias made by enabling a unit lives beside the unit files; either is a file to stat.
    if (!findIn(m_root,
                {"etc/systemd/system", "run/systemd/system", "usr/local/lib/systemd/system",
                 "lib/systemd/system", "usr/lib/systemd/system"},
                unit->toStdString()))
        return NotFound;

    QDBusMessage call = QDBusMessage::createMethodCall(
        BusNames::systemdService, BusNames::systemdPath, BusNames::systemdManagerInterface,
        QStringLiteral("GetUnitFileState"));
    call.setArguments({*unit});
    // Only reads: never lets polkit ask anyone anything.
    call.setInteractiveAuthorizationAllowed(false);
    const QDBusMessage reply = m_bus.call(call, QDBus::Block, queryTimeout);
    if (reply.type() == QDBusMessage::ReplyMessage)
        return statusForUnitFileState(reply.arguments().value(0).toString());
    // No systemd (or no bus): the bus runs the daemon itself, from the files.
    const QString error = reply.errorName();
    if (error == u"org.freedesktop.DBus.Error.ServiceUnknown" ||
        error == u"org.freedesktop.DBus.Error.NameHasNoOwner" ||
        error == u"org.freedesktop.DBus.Error.Disconnected" || !m_bus.isConnected())
        return Enabled;
    // systemd answered that it has no such unit, or did not answer in time.
    return NotFound;
}

Result<bool> SystemdUnitService::registerService()
{
    return Result<bool>::success(true);
}

Result<bool> SystemdUnitService::unregisterService()
{
    return Result<bool>::success(true);
}

int SystemdUnitService::statusForUnitFileState(const QString& state)
{
    static const QStringList loads = {
        QStringLiteral("enabled"),   QStringLiteral("enabled-runtime"),
        QStringLiteral("static"),    QStringLiteral("indirect"),
        QStringLiteral("generated"), QStringLiteral("transient"),
        QStringLiteral("alias"),     QStringLiteral("disabled"),
        QStringLiteral("linked"),    QStringLiteral("linked-runtime"),
    };
    static const QStringList masked = {QStringLiteral("masked"), QStringLiteral("masked-runtime")};
    static const QStringList missing = {QStringLiteral("bad"), QStringLiteral("not-found"),
                                        QString()};

    if (loads.contains(state))
        return Enabled;
    if (masked.contains(state))
        return RequiresApproval;
    if (missing.contains(state))
        return NotFound;
    return UnrecognisedState;
}

} // namespace quillane
