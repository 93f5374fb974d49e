#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <functional>

namespace quillane::daemon
{

// Asks polkit whether the client behind a bus name may perform an action, letting polkit ask
// an administrator for their password where the action's rules say so.
class PolkitAuthority
{
public:
    // error: empty when polkit answered.
    using Answer = std::function<void(bool authorized, const QString& error)>;

    explicit PolkitAuthority(QDBusConnection bus) : m_bus(std::move(bus)) {}

    void check(const QString& busName, const QString& actionId, QObject* context, Answer answer);

private:
    QDBusConnection m_bus;
};

} // namespace quillane::daemon
