#pragma once

#include "Platform/tray/StatusNotifierItem.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusPendingCall>
#include <QMutex>
#include <QProcess>
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

// A private session bus with two connections to it: the application's and the panel's.
class SessionBus
{
public:
    SessionBus()
    {
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--config-file=" QUILLANE_TEST_BUS_CONFIG),
                        QStringLiteral("--print-address"), QStringLiteral("--nofork")});
        if (!m_daemon.waitForReadyRead(10000))
            return;
        const QString address = QString::fromLatin1(m_daemon.readLine().trimmed());
        appSide = QDBusConnection::connectToBus(address, QStringLiteral("app"));
        panelSide = QDBusConnection::connectToBus(address, QStringLiteral("panel"));
    }
    ~SessionBus()
    {
        m_panelThread.quit();
        m_panelThread.wait();
        QDBusConnection::disconnectFromBus(QStringLiteral("app"));
        QDBusConnection::disconnectFromBus(QStringLiteral("panel"));
        m_daemon.kill();
        m_daemon.waitForFinished();
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

    // Calls a method of an item as the panel does, without waiting (both ends may live in
    // the test's own thread).
    void callItem(const QString& item, const QString& method, const QVariantList& arguments)
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall(item, QStringLiteral("/StatusNotifierItem"),
                                           QStringLiteral("org.kde.StatusNotifierItem"), method);
        call.setArguments(arguments);
        panelSide.asyncCall(call);
    }

    QDBusConnection appSide{QString()};
    QDBusConnection panelSide{QString()};

private:
    QProcess m_daemon;
    QThread m_panelThread;
    QObject m_watcherObject;
};

} // namespace quillane::test
