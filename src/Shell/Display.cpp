#include "Display.h"

#include "Platform/FileSystem.h"

#include <array>

namespace quillane
{

QString formatByteCount(std::uint64_t bytes)
{
    if (bytes == 1)
        return QStringLiteral("1 byte");
    if (bytes < 1000)
        return QStringLiteral("%1 bytes").arg(bytes);

    static const std::array units = {QStringLiteral("kB"), QStringLiteral("MB"),
                                     QStringLiteral("GB"), QStringLiteral("TB"),
                                     QStringLiteral("PB"), QStringLiteral("EB")};
    double value = static_cast<double>(bytes) / 1000.0;
    std::size_t unit = 0;
    // Round first, so that 999,950 bytes reads "1.0 MB" and not "1000.0 kB".
    while (unit + 1 < units.size() && value >= 999.95) {
        value /= 1000.0;
        ++unit;
    }
    return QStringLiteral("%1 %2").arg(value, 0, 'f', 1).arg(units[unit]);
}

QString displayText(std::string_view bytes)
{
    return QString::fromUtf8(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

QString displayPath(const std::filesystem::path& path)
{
    return displayText(path.native());
}

QString messageText(std::string_view bytes)
{
    return displayText(printable(bytes));
}

QString messagePath(const std::filesystem::path& path)
{
    return messageText(path.native());
}

} // namespace quillane
