#include "SystemdUnitService.h"

#include <QDBusMessage>
#include <QStringList>
#include <utility>

namespace quillane
{

namespace
{

// Reading a state should take milliseconds; a manager that takes longer is treated as absent.
constexpr int queryTimeout = 3'000;
// Long enough for an administrator to read polkit's question and type a password.
constexpr int approvalTimeout = 120'000;

enum class Authorisation { None, MayAskAdministrator };

// One call to the manager, with a time limit so that a manager that does not answer cannot hang
// the caller.
QDBusMessage callManager(const QDBusConnection& bus, const QString& method,
                         const QVariantList& arguments, Authorisation authorisation = {})
{
    const bool interactive = authorisation == Authorisation::MayAskAdministrator;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.systemd1"), QStringLiteral("/org/freedesktop/systemd1"),
        QStringLiteral("org.freedesktop.systemd1.Manager"), method);
    call.setArguments(arguments);
    // Changing unit files needs an administrator; polkit asks one through the session's agent.
    call.setInteractiveAuthorizationAllowed(interactive);
    // Without a connection this answers at once with an error message; it never waits.
    return bus.call(call, QDBus::Block, interactive ? approvalTimeout : queryTimeout);
}

Result<bool> asResult(const QDBusMessage& reply)
{
    if (reply.type() != QDBusMessage::ErrorMessage)
        return Result<bool>::success(true);
    const QString message =
        reply.errorMessage().isEmpty() ? reply.errorName() : reply.errorMessage();
    return Result<bool>::failure(message.toStdString());
}

} // namespace

SystemdUnitService::SystemdUnitService(QDBusConnection bus, QString unit)
    : m_bus(std::move(bus)), m_unit(std::move(unit))
{
}

int SystemdUnitService::status() const
{
    const QDBusMessage reply = callManager(m_bus, QStringLiteral("GetUnitFileState"), {m_unit});
    // systemd answers a unit it has no file for with an error (FileNotFound or NoSuchUnit);
    // that, no manager and no bus all read as nothing installed.
    if (reply.type() != QDBusMessage::ReplyMessage)
        return NotFound;
    return statusForUnitFileState(reply.arguments().value(0).toString());
}

Result<bool> SystemdUnitService::registerService()
{
    const Result<bool> enabled =
        asResult(callManager(m_bus, QStringLiteral("EnableUnitFiles"),
                             {QStringList{m_unit}, /*runtime*/ false, /*force*/ false},
                             Authorisation::MayAskAdministrator));
    if (!enabled)
        return enabled;
    return asResult(
        callManager(m_bus, QStringLiteral("Reload"), {}, Authorisation::MayAskAdministrator));
}

Result<bool> SystemdUnitService::unregisterService()
{
    const Result<bool> disabled = asResult(callManager(m_bus, QStringLiteral("DisableUnitFiles"),
                                                       {QStringList{m_unit}, /*runtime*/ false},
                                                       Authorisation::MayAskAdministrator));
    if (!disabled)
        return disabled;
    return asResult(
        callManager(m_bus, QStringLiteral("Reload"), {}, Authorisation::MayAskAdministrator));
}

int SystemdUnitService::statusForUnitFileState(const QString& state)
{
    static const QStringList enabled = {
        QStringLiteral("enabled"),  QStringLiteral("enabled-runtime"), QStringLiteral("static"),
        QStringLiteral("indirect"), QStringLiteral("generated"),       QStringLiteral("transient"),
        QStringLiteral("alias"),
    };
    static const QStringList notRegistered = {QStringLiteral("disabled"), QStringLiteral("linked"),
                                              QStringLiteral("linked-runtime")};
    static const QStringList masked = {QStringLiteral("masked"), QStringLiteral("masked-runtime")};
    static const QStringList missing = {QStringLiteral("bad"), QStringLiteral("not-found")};

    if (enabled.contains(state))
        return Enabled;
    if (notRegistered.contains(state))
        return NotRegistered;
    if (masked.contains(state))
        return RequiresApproval;
    if (missing.contains(state))
        return NotFound;
    return UnrecognisedState;
}

} // namespace quillane
