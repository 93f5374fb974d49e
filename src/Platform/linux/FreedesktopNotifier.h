#pragma once

#include "Platform/DesktopNotifier.h"

#include <QDBusConnection>
#include <QObject>

namespace quillane
{

// Desktop notifications through the notification server of the session bus
// (org.freedesktop.Notifications), as GNOME Shell, Plasma, xfce4-notifyd and the like show them.
// A call that fails, the server being absent or broken, leaves one debug line and nothing else.
class FreedesktopNotifier final : public QObject, public DesktopNotifier
{
    Q_OBJECT
    Q_DISABLE_COPY(FreedesktopNotifier)

public:
    FreedesktopNotifier(QDBusConnection sessionBus, QString applicationName,
                        QObject* parent = nullptr);

    void notify(const DesktopNotification& notification) override;

private:
    QDBusConnection m_bus;
    QString m_applicationName;
};

} // namespace quillane
