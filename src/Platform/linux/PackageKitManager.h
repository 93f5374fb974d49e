#pragma once

#include "Platform/PackageManager.h"

#include <QDBusConnection>
#include <QObject>

namespace quillane
{

// PackageKit on the system bus: resolves the installed package by name, then removes it in a
// second transaction (never with packages that depend on it). PackageKit asks polkit, which asks
// an administrator. Without PackageKit on the bus (and nothing to start it) it fails at once.
class PackageKitManager final : public QObject, public PackageManager
{
    Q_OBJECT

public:
    explicit PackageKitManager(QDBusConnection bus, QObject* parent = nullptr);

    void removePackage(const QString& name, std::function<void(Result<bool>)> done) override;

private:
    QDBusConnection m_bus;
};

} // namespace quillane
