#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace quillane::test
{

// Makes the child die with the test process, even when the test is killed.
void dieWithParent(QProcess& process);

// A child process that dies with the test and is killed, not abandoned, with its object.
class ChildProcess : public QProcess
{
public:
    ChildProcess() { dieWithParent(*this); }
    ~ChildProcess() override
    {
        kill();
        waitForFinished();
    }
};

// A private dbus-daemon, started by the cases that need a bus and ended with its object.
class PrivateBus
{
public:
    enum Kind {
        // Anyone may own and call anything: for tests of a link itself.
        Open,
        // The system bus's default rules with the daemon's and polkit's policies, as installed.
        // While it lives, DBUS_SYSTEM_BUS_ADDRESS names it, so the children started meanwhile
        // find it as their system bus.
        System,
    };

    explicit PrivateBus(Kind kind = Open);
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    bool isUp() const { return m_connection.isConnected(); }
    QString address() const { return m_address; }
    // This process's own connection; as root it may stand in for the daemon.
    QDBusConnection connection() const { return m_connection; }
    // Another connection of this process, closed with the bus.
    QDBusConnection connect(const QString& name);
    bool hasOwner(const QString& name) const;
    // Ends the bus daemon, as when the system bus goes away.
    void stop();

private:
    ChildProcess m_daemon;
    QString m_address;
    QStringList m_connectionNames;
    QByteArray m_previousAddress;
    bool m_namesSystemBus = false;
    QDBusConnection m_connection{QString()};
};

} // namespace quillane::test
