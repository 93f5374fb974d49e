#include "TrayIcon.h"

#include "Platform/Console.h"
#include "Platform/tray/StatusNotifierItem.h"

#include <QCursor>
#include <QGuiApplication>
#include <QMenu>
#include <QScreen>
#include <QSystemTrayIcon>

namespace quillane
{

namespace
{

// A StatusNotifier host says where it was clicked in the display's own pixels; windows are
// placed in Qt's units, which a scale factor makes larger. A screen keeps its top-left corner
// in both.
QPoint fromDevicePixels(QPoint point)
{
    if (point.isNull())
        return point;
    for (const QScreen* screen : QGuiApplication::screens()) {
        const QRect area = screen->geometry();
        const qreal ratio = screen->devicePixelRatio();
        if (QRect(area.topLeft(), area.size() * ratio).contains(point))
            return area.topLeft() + (point - area.topLeft()) / ratio;
    }
    return point;
}

} // namespace

TrayIcon::TrayIcon(TrayPicture picture, TrayMenu menu, QDBusConnection sessionBus, QObject* parent)
    : QObject(parent), m_picture(std::move(picture)), m_menu(std::move(menu)),
      m_bus(std::move(sessionBus)), m_hosts(std::make_unique<StatusNotifierHostWatcher>(m_bus))
{
    connect(m_hosts.get(), &StatusNotifierHostWatcher::hostAvailableChanged, this,
            [this](bool available) {
                if (available && !isShown() && showStatusNotifierItem())
                    Q_EMIT appeared();
            });
    // A restarted panel forgets its items.
    connect(m_hosts.get(), &StatusNotifierHostWatcher::watcherStarted, this, [this] {
        if (m_item)
            m_item->registerWithWatcher();
    });
}

TrayIcon::~TrayIcon() = default;

bool TrayIcon::start()
{
    if (m_hosts->hostAvailable() && showStatusNotifierItem())
        return true;
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        return false;
    m_systemTray = std::make_unique<QSystemTrayIcon>(themedIcon());
    m_systemTray->setToolTip(QStringLiteral("Quillane"));
    connect(m_systemTray.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                const QRect icon = m_systemTray->geometry();
                const QPoint anchor =
                    icon.isValid() ? QPoint(icon.center().x(), icon.bottom()) : QCursor::pos();
                // A double click arrives after its first click has already opened the panel.
                if (reason == QSystemTrayIcon::Context)
                    popUpMenu(anchor);
                else if (reason != QSystemTrayIcon::DoubleClick)
                    Q_EMIT clicked(anchor);
            });
    m_systemTray->show();
    return true;
}

bool TrayIcon::isShown() const
{
    return m_item || (m_systemTray && m_systemTray->isVisible());
}

void TrayIcon::setPicture(TrayPicture picture)
{
    m_picture = std::move(picture);
    if (m_item)
        m_item->setIcon(m_picture.iconName, themedIcon());
    if (m_systemTray)
        m_systemTray->setIcon(themedIcon());
}

QIcon TrayIcon::themedIcon() const
{
    return QIcon::fromTheme(m_picture.iconName, m_picture.fallback);
}

bool TrayIcon::showStatusNotifierItem()
{
    auto item = std::make_unique<StatusNotifierItem>(m_bus, QStringLiteral("quillane"),
                                                     QStringLiteral("Quillane"), m_picture.iconName,
                                                     themedIcon(), m_menu);
    if (!item->registerWithWatcher()) {
        Console::writeLine("Tray Error: " + item->error().toStdString());
        return false;
    }
    connect(item.get(), &StatusNotifierItem::registrationFailed, this,
            [](const QString& error) { Console::writeLine("Tray Error: ", error.toStdString()); });
    connect(item.get(), &StatusNotifierItem::activated, this,
            [this](QPoint anchor) { Q_EMIT clicked(fromDevicePixels(anchor)); });
    connect(item.get(), &StatusNotifierItem::contextMenuRequested, this,
            [this](QPoint anchor) { popUpMenu(fromDevicePixels(anchor)); });
    m_item = std::move(item);
    m_systemTray.reset();
    return true;
}

void TrayIcon::popUpMenu(QPoint anchor)
{
    auto* menu = new QMenu;
    menu->setAttribute(Qt::WA_DeleteOnClose);
    for (const TrayMenuEntry& entry : m_menu) {
        if (entry.isSeparator())
            menu->addSeparator();
        else
            menu->addAction(entry.label, this, entry.trigger);
    }
    menu->popup(anchor.isNull() ? QCursor::pos() : anchor);
}

} // namespace quillane
