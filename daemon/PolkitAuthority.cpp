#include "PolkitAuthority.h"

#include "Platform/BusNames.h"
#include "Platform/DBusStructure.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

namespace quillane::daemon
{

namespace
{

// Long enough for an administrator to type a password.
constexpr int authorizationTimeoutMs = 5 * 60 * 1000;
constexpr uint allowUserInteraction = 1;

// polkit's subject: ("system-bus-name", {"name": <busName>}).
struct Subject {
    QString busName;
};

QDBusArgument& operator<<(QDBusArgument& argument, const Subject& subject)
{
    argument.beginStructure();
    argument << QStringLiteral("system-bus-name");
    argument.beginMap(QMetaType::fromType<QString>(), QMetaType::fromType<QDBusVariant>());
    argument.beginMapEntry();
    argument << QStringLiteral("name") << QDBusVariant(subject.busName);
    argument.endMapEntry();
    argument.endMap();
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, Subject&)
{
    return argument; // never received
}

// polkit's result: (is_authorized, is_challenge, details).
struct AuthorizationResult {
    bool authorized = false;
    bool challenge = false;
    QMap<QString, QString> details;
};

QDBusArgument& operator<<(QDBusArgument& argument, const AuthorizationResult& result)
{
    return writeStructure(argument, result.authorized, result.challenge, result.details);
}

const QDBusArgument& operator>>(const QDBusArgument& argument, AuthorizationResult& result)
{
    return readStructure(argument, result.authorized, result.challenge, result.details);
}

} // namespace

} // namespace quillane::daemon

Q_DECLARE_METATYPE(quillane::daemon::Subject)
Q_DECLARE_METATYPE(quillane::daemon::AuthorizationResult)

namespace quillane::daemon
{

void PolkitAuthority::check(const QString& busName, const QString& actionId, QObject* context,
                            Answer answer)
{
    static const bool registered = [] {
        qDBusRegisterMetaType<Subject>();
        qDBusRegisterMetaType<AuthorizationResult>();
        qDBusRegisterMetaType<QMap<QString, QString>>();
        return true;
    }();
    Q_UNUSED(registered);

    QDBusMessage call = QDBusMessage::createMethodCall(
        BusNames::polkitService, BusNames::polkitPath, BusNames::polkitInterface,
        QStringLiteral("CheckAuthorization"));
    call << QVariant::fromValue(Subject{busName}) << actionId
         << QVariant::fromValue(QMap<QString, QString>()) << allowUserInteraction << QString();

    auto* watcher =
        new QDBusPendingCallWatcher(m_bus.asyncCall(call, authorizationTimeoutMs), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                     [watcher, answer = std::move(answer)] {
                         watcher->deleteLater();
                         const QDBusPendingReply<AuthorizationResult> reply = *watcher;
                         if (reply.isError()) {
                             answer(false, QStringLiteral("polkit: ") + reply.error().message());
                             return;
                         }
                         answer(reply.value().authorized, {});
                     });
}

} // namespace quillane::daemon
