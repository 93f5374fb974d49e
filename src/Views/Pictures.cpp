#include "Pictures.h"

#include <QDir>
#include <QFile>
#include <QIconEngine>
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

QPixmap tinted(QPixmap pixmap, const QColor& colour)
{
    if (pixmap.isNull())
        return pixmap;
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(QRectF(QPointF(0, 0), pixmap.deviceIndependentSize()), colour);
    painter.end();
    return pixmap;
}

// Draws another icon's shape in one colour per mode, at whatever size and pixel density it is
// asked for, so that the result is as sharp as the icon it comes from.
class TintedIconEngine final : public QIconEngine
{
public:
    TintedIconEngine(QIcon source, QColor colour, QColor disabledColour)
        : m_source(std::move(source)), m_colour(colour), m_disabledColour(disabledColour)
    {
    }

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override
    {
        const qreal ratio = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
        QPixmap image = pixmap((QSizeF(rect.size()) * ratio).toSize(), mode, state);
        if (image.isNull())
            return;
        image.setDevicePixelRatio(ratio);
        QRectF target(QPointF(0, 0), image.deviceIndependentSize());
        target.moveCenter(QRectF(rect).center());
        painter->drawPixmap(target.topLeft(), image);
    }

    // The size is in device pixels.
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        return tinted(m_source.pixmap(size, 1.0, QIcon::Normal, state),
                      mode == QIcon::Disabled ? m_disabledColour : m_colour);
    }

    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                         qreal /*scale*/) override
    {
        return pixmap(size, mode, state);
    }

    QSize actualSize(const QSize& size, QIcon::Mode /*mode*/, QIcon::State state) override
    {
        return m_source.actualSize(size, QIcon::Normal, state);
    }

    QList<QSize> availableSizes(QIcon::Mode /*mode*/, QIcon::State state) override
    {
        return m_source.availableSizes(QIcon::Normal, state);
    }

    QString iconName() override { return m_source.name(); }
    bool isNull() override { return m_source.isNull(); }
    QString key() const override { return QStringLiteral("quillane-tinted"); }
    QIconEngine* clone() const override { return new TintedIconEngine(*this); }

private:
    QIcon m_source;
    QColor m_colour;
    QColor m_disabledColour;
};

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
        if (name.isEmpty())
            return {};
        const auto file = bundle.resource("images/" + name.toStdString() + ".svg");
        return QIcon::fromTheme(name, file ? QIcon(QFile::decodeName(file->c_str())) : QIcon());
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

QIcon tintedIcon(const QIcon& icon, const QColor& colour, const QColor& disabledColour)
{
    if (icon.isNull())
        return icon;
    return QIcon(new TintedIconEngine(icon, colour, disabledColour));
}

QIcon symbolicIcon(const QIcon& symbol, const QPalette& palette, QPalette::ColorRole role)
{
    return tintedIcon(symbol, palette.color(QPalette::Active, role),
                      palette.color(QPalette::Disabled, role));
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
