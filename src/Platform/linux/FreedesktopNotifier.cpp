#include "FreedesktopNotifier.h"

#include "Platform/BusNames.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDebug>
#include <QVariantMap>

namespace quillane
{

namespace
{

constexpr int replyTimeoutMs = 5000;
constexpr int serverDecidesHowLong = -1;

} // namespace

FreedesktopNotifier::FreedesktopNotifier(QDBusConnection sessionBus, QString applicationName,
                                         QObject* parent)
    : QObject(parent), m_bus(std::move(sessionBus)), m_applicationName(std::move(applicationName))
{
}

void FreedesktopNotifier::notify(const DesktopNotification& notification)
{
    if (!m_bus.isConnected()) {
        qDebug("No notification shown: there is no session bus");
        return;
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(BusNames::notificationsService, BusNames::notificationsPath,
                                       BusNames::notificationsInterface, QStringLiteral("Notify"));
    // The desktop entry lets the server group our notifications under the application.
    const QVariantMap hints{
        {QStringLiteral("desktop-entry"), QStringLiteral("com.velmoric.Quillane")}};
    call << m_applicationName << uint(0) << notification.iconName << notification.summary
         << notification.body << QStringList() << hints << serverDecidesHowLong;
    auto* reply = new QDBusPendingCallWatcher(m_bus.asyncCall(call, replyTimeoutMs), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this, [](QDBusPendingCallWatcher* answer) {
        answer->deleteLater();
        if (answer->isError())
            qDebug().noquote() << "No notification shown:" << answer->error().message();
    });
}

} // namespace quillane
