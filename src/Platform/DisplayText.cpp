#include "DisplayText.h"

#include "FileSystem.h"

#include <QCoreApplication>
#include <QLocale>
#include <algorithm>
#include <cmath>

namespace quillane
{

QString formatByteCount(std::uint64_t bytes)
{
    if (bytes < 1000) {
        const int count = static_cast<int>(bytes);
        return QCoreApplication::translate("quillane::DisplayText", "%Ln byte(s)", nullptr, count);
    }
    // Qt picks the unit by the exact value and rounds after: 999,950 bytes would read
    // "1000.0 kB". Rounded first, it reads "1.0 MB", the size of the next unit's first step.
    const auto shown = static_cast<qint64>(std::min<std::uint64_t>(bytes, INT64_MAX));
    qint64 step = 1000;
    while (shown / step >= 1000)
        step *= 1000;
    const double tenths = std::round(static_cast<double>(shown) / static_cast<double>(step) * 10);
    const qint64 size = tenths >= 10000 ? step * 1000 : shown;
    return QLocale().formattedDataSize(size, 1, QLocale::DataSizeSIFormat);
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
