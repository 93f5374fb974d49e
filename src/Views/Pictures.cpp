#include "Pictures.h"

#include <QDir>
#include <QFile>
#include <QPainter>
#include <QPixmap>
#include <QStandardPaths>
#include <QStringList>
#include <algorithm>
#include <array>
#include <utility>

namespace quillane
{

namespace
{

// The symbols the views draw, by the names the model and the views use for them.
constexpr std::array<std::pair<std::string_view, const char*>, 5> symbolNames = {{
    {"externaldrive", "drive-harddisk"},
    {"user-home", "user-home"},
    {"ellipsis.circle", "view-more-symbolic"},
    {"trash", "user-trash-symbolic"},
    {"rectangle.portrait.and.arrow.right", "folder-open-symbolic"},
}};

const QString fallbackTheme = QStringLiteral("Adwaita");

bool isBelow(const std::filesystem::path& path, const std::filesystem::path& folder)
{
    auto inner = path.begin();
    for (const auto& part : folder) {
        if (inner == path.end() || *inner != part)
            return false;
        ++inner;
    }
    return true;
}

bool themeInstalled(const QString& name)
{
    const QStringList folders = QIcon::themeSearchPaths();
    return std::any_of(folders.begin(), folders.end(), [&](const QString& folder) {
        return QFile::exists(folder + QLatin1Char('/') + name + QStringLiteral("/index.theme"));
    });
}

} // namespace

QString symbolIconName(const std::string& symbol)
{
    for (const auto& [name, themeName] : symbolNames) {
        if (name == symbol)
            return QString::fromLatin1(themeName);
    }
    return {};
}

QString volumeIconName(const std::filesystem::path& path)
{
    if (isBelow(path, "/media") || isBelow(path, "/run/media"))
        return QStringLiteral("drive-removable-media");
    return QStringLiteral("drive-harddisk");
}

QIcon iconFor(const Picture& picture, const BundleInfo& bundle)
{
    switch (picture.kind) {
    case Picture::Kind::Symbol: {
        const QString name = symbolIconName(picture.name);
        return name.isEmpty() ? QIcon() : QIcon::fromTheme(name);
    }
    case Picture::Kind::Asset:
        if (const auto file = bundle.resource("images/" + picture.name + ".svg"))
            return QIcon(QFile::decodeName(file->c_str()));
        return {};
    case Picture::Kind::FileIcon:
        return QIcon::fromTheme(volumeIconName(picture.path));
    }
    return {};
}

QIcon tintedIcon(const QIcon& icon, const QColor& colour, QSize size)
{
    QPixmap pixmap = icon.pixmap(size);
    if (pixmap.isNull())
        return icon;
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(QRectF(QPointF(0, 0), pixmap.deviceIndependentSize()), colour);
    painter.end();
    return QIcon(pixmap);
}

void ensureIconTheme()
{
    const QString theme = QIcon::themeName();
    if (!theme.isEmpty() && theme != QStringLiteral("hicolor"))
        return;
    // Such platforms may not say where themes lie either: the desktop's standard places.
    QStringList folders = QIcon::themeSearchPaths();
    QStringList standard =
        QStandardPaths::locateAll(QStandardPaths::GenericDataLocation, QStringLiteral("icons"),
                                  QStandardPaths::LocateDirectory);
    standard << QDir::homePath() + QStringLiteral("/.icons");
    for (const QString& folder : standard) {
        if (!folders.contains(folder))
            folders << folder;
    }
    QIcon::setThemeSearchPaths(folders);
    if (!themeInstalled(fallbackTheme))
        return;
    QIcon::setThemeName(fallbackTheme);
    QIcon::setFallbackThemeName(fallbackTheme);
}

} // namespace quillane
