#pragma once

#include <QDBusConnection>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace quillane
{

// Filesystem labels as udisks, the desktop's disk service, reports them on the system bus: the
// IdLabel property of the block device's object. Nothing when udisks does not run (it is not
// started for this), does not know the device, or does not answer within a second.
class UDisksLabels
{
public:
    explicit UDisksLabels(QDBusConnection bus,
                          std::filesystem::path sysBlockFolder = "/sys/dev/block");

    std::optional<std::string> label(dev_t device) const;

    // A kernel device name as udisks spells it in an object path: letters and digits stay,
    // every other byte is "_" and two hex digits ("dm-0" is "dm_2d0").
    static std::string objectPathPart(std::string_view deviceName);

private:
    QDBusConnection m_bus;
    std::filesystem::path m_sysBlock;
};

} // namespace quillane
