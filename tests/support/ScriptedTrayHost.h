#pragma once

#include "Platform/BusNames.h"
#include "Platform/tray/DBusMenuExporter.h"
#include "Platform/tray/StatusNotifierItem.h"
#include "PrivateBus.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QMutex>
#include <QTest>
#include <QThread>

namespace quillane::test
{

// The part of a desktop panel that tray icons register with: it says a host shows them and
// records who registered. It answers on a thread of its own, as a panel in another process
// would, so that the application may wait for it.
class ScriptedWatcher : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)

public:
    explicit ScriptedWatcher(QObject* owner) : QDBusAbstractAdaptor(owner) {}
    bool hostRegistered() const { return true; }

    QStringList registered() const
    {
        QMutexLocker lock(&m_mutex);
        return m_registered;
    }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service)
    {
        QMutexLocker lock(&m_mutex);
        m_registered << service;
    }

Q_SIGNALS:
    void StatusNotifierHostRegistered();

private:
    mutable QMutex m_mutex;
    QStringList m_registered;
};

// The desktop's notification server: it records what it is asked to show.
class ScriptedNotificationServer : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Shown {
        QString application;
        QString icon;
        QString summary;
        QString body;
    };

    explicit ScriptedNotificationServer(QObject* owner) : QDBusAbstractAdaptor(owner) {}

    QList<Shown> shown;

public Q_SLOTS:
    uint Notify(const QString& application, uint replaces, const QString& icon,
                const QString& summary, const QString& body, const QStringList& actions,
                const QVariantMap& hints, int timeout)
    {
        (void)replaces;
        (void)actions;
        (void)hints;
        (void)timeout;
        shown.append({application, icon, summary, body});
        return static_cast<uint>(shown.size());
    }
};

// A private session bus with two connections to it: the application's and the panel's.
class SessionBus
{
public:
    ~SessionBus()
    {
        m_panelThread.quit();
        m_panelThread.wait();
    }

    // The panel's watcher on the bus; null when it could not be put there.
    ScriptedWatcher* startWatcher()
    {
        m_panelThread.start();
        m_watcherObject.moveToThread(&m_panelThread);
        ScriptedWatcher* watcher = nullptr;
        QMetaObject::invokeMethod(
            &m_watcherObject,
            [&] {
                watcher = new ScriptedWatcher(&m_watcherObject);
                if (!panelSide.registerObject(StatusNotifierHostWatcher::watcherPath,
                                              &m_watcherObject) ||
                    !panelSide.registerService(StatusNotifierHostWatcher::watcherService))
                    watcher = nullptr;
            },
            Qt::BlockingQueuedConnection);
        return watcher;
    }

    // The notification server on the panel's connection, answering in the test's own thread;
    // null when it could not be put there.
    ScriptedNotificationServer* startNotificationServer()
    {
        auto* server = new ScriptedNotificationServer(&m_notificationObject);
        if (!panelSide.registerObject(BusNames::notificationsPath, &m_notificationObject) ||
            !panelSide.registerService(BusNames::notificationsService))
            return nullptr;
        return server;
    }

    // Calls a method as the panel does and waits for the answer in the event loop (both ends
    // may live in the test's own thread). An invalid message when none came.
    QDBusMessage callAndWait(const QString& service, const QString& path, const QString& interface,
                             const QString& method, const QVariantList& arguments)
    {
        QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, method);
        call.setArguments(arguments);
        QDBusPendingCall pending = panelSide.asyncCall(call);
        if (!QTest::qWaitFor([&] { return pending.isFinished(); }, 10000))
            return {};
        return pending.reply();
    }

    QVariant property(const QString& service, const QString& path, const QString& interface,
                      const QString& name)
    {
        const QDBusMessage reply = callAndWait(service, path, BusNames::propertiesInterface,
                                               QStringLiteral("Get"), {interface, name});
        return reply.arguments().value(0).value<QDBusVariant>().variant();
    }

    // The menu an item publishes, as the panel reads it to draw it: its entries' ids and labels,
    // a separator as "-".
    QList<QPair<int, QString>> menuOf(const QString& item)
    {
        registerDBusMenuTypes();
        const auto path = property(item, BusNames::statusNotifierItemPath,
                                   BusNames::statusNotifierItemInterface, QStringLiteral("Menu"))
                              .value<QDBusObjectPath>()
                              .path();
        const QDBusMessage reply = callAndWait(item, path, BusNames::menuInterface,
                                               QStringLiteral("GetLayout"), {0, -1, QStringList()});
        QList<QPair<int, QString>> entries;
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2)
            return entries;
        const auto root = qdbus_cast<DBusMenuLayoutItem>(reply.arguments().at(1));
        for (const DBusMenuLayoutItem& child : root.children) {
            const bool separator = child.properties.value(QStringLiteral("type")).toString() ==
                                   QStringLiteral("separator");
            entries.append(
                {child.id, separator ? QStringLiteral("-")
                                     : child.properties.value(QStringLiteral("label")).toString()});
        }
        return entries;
    }

    // Sends the menu an event for one entry, as the panel does when the user picks it: alone,
    // or in a group (as xfce4-panel and GNOME's extension send them).
    QDBusMessage menuEvent(const QString& item, int id, const QString& event, bool grouped = false)
    {
        const QVariant data = QVariant::fromValue(QDBusVariant(0));
        if (grouped)
            return callAndWait(
                item, StatusNotifierItem::menuPath, BusNames::menuInterface,
                QStringLiteral("EventGroup"),
                {QVariant::fromValue(DBusMenuEventList{{id, event, QDBusVariant(0), 0}})});
        return callAndWait(item, StatusNotifierItem::menuPath, BusNames::menuInterface,
                           QStringLiteral("Event"), {id, event, data, uint(0)});
    }

    // Calls a method of an item as the panel does, without waiting (both ends may live in
    // the test's own thread).
    void callItem(const QString& item, const QString& method, const QVariantList& arguments)
    {
        QDBusMessage call = QDBusMessage::createMethodCall(
            item, BusNames::statusNotifierItemPath, BusNames::statusNotifierItemInterface, method);
        call.setArguments(arguments);
        panelSide.asyncCall(call);
    }

private:
    PrivateBus m_bus;

public:
    QDBusConnection appSide = m_bus.connect(QStringLiteral("app"));
    QDBusConnection panelSide = m_bus.connect(QStringLiteral("panel"));

private:
    QThread m_panelThread;
    QObject m_watcherObject;
    QObject m_notificationObject;
};

} // namespace quillane::test
