#include "UDisksLabels.h"

#include "Platform/BusNames.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <cstdio>
#include <sys/sysmacros.h>

namespace quillane
{

namespace
{

const QString service = BusNames::udisksService;
constexpr int answerTimeoutMs = 1000;

} // namespace

UDisksLabels::UDisksLabels(QDBusConnection bus, std::filesystem::path sysBlockFolder)
    : m_bus(std::move(bus)), m_sysBlock(std::move(sysBlockFolder))
{
}

std::string UDisksLabels::objectPathPart(std::string_view deviceName)
{
    std::string part;
    for (const char c : deviceName) {
        const bool plain =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (plain) {
            part += c;
        } else {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "_%02x", static_cast<unsigned char>(c));
            part += escaped;
        }
    }
    return part;
}

std::optional<std::string> UDisksLabels::label(dev_t device) const
{
    if (!m_bus.isConnected() || !m_bus.interface() ||
        !m_bus.interface()->isServiceRegistered(service).value())
        return std::nullopt;
    // The kernel's name of the device: sysfs links its number to its folder.
    std::error_code error;
    const auto link = std::filesystem::read_symlink(
        m_sysBlock / (std::to_string(major(device)) + ':' + std::to_string(minor(device))), error);
    if (error || link.filename().empty())
        return std::nullopt;

    QDBusMessage get = QDBusMessage::createMethodCall(
        service,
        BusNames::udisksBlockDevicesPath +
            QString::fromStdString(objectPathPart(link.filename().native())),
        BusNames::propertiesInterface, QStringLiteral("Get"));
    get << BusNames::udisksBlockInterface << QStringLiteral("IdLabel");
    const QDBusMessage reply = m_bus.call(get, QDBus::Block, answerTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    const QString label = reply.arguments().first().value<QDBusVariant>().variant().toString();
    if (label.isEmpty())
        return std::nullopt;
    return label.toStdString();
}

} // namespace quillane
