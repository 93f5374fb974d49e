#include "StatusNotifierItem.h"

#include "DBusMenuExporter.h"
#include "Platform/BusNames.h"
#include "Platform/DBusStructure.h"

#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QImage>
#include <QtEndian>
#include <atomic>

namespace quillane
{

const QString StatusNotifierItem::menuPath = BusNames::menuPath;
const QString StatusNotifierHostWatcher::watcherService = BusNames::statusNotifierWatcherService;
const QString StatusNotifierHostWatcher::watcherPath = BusNames::statusNotifierWatcherPath;
const QString StatusNotifierHostWatcher::watcherInterface =
    BusNames::statusNotifierWatcherInterface;

namespace
{

const QString itemPath = BusNames::statusNotifierItemPath;
constexpr int replyTimeoutMs = 3000;

void registerTypes()
{
    static const bool registered = [] {
        qDBusRegisterMetaType<StatusIconPixmap>();
        qDBusRegisterMetaType<StatusIconPixmaps>();
        qDBusRegisterMetaType<StatusToolTip>();
        return true;
    }();
    (void)registered;
}

QPoint pointOrNull(int x, int y)
{
    // Hosts that know no position send 0, 0.
    return (x == 0 && y == 0) ? QPoint() : QPoint(x, y);
}

} // namespace

QDBusArgument& operator<<(QDBusArgument& argument, const StatusIconPixmap& pixmap)
{
    return writeStructure(argument, pixmap.width, pixmap.height, pixmap.pixels);
}

const QDBusArgument& operator>>(const QDBusArgument& argument, StatusIconPixmap& pixmap)
{
    return readStructure(argument, pixmap.width, pixmap.height, pixmap.pixels);
}

QDBusArgument& operator<<(QDBusArgument& argument, const StatusToolTip& toolTip)
{
    return writeStructure(argument, toolTip.iconName, toolTip.icon, toolTip.title, toolTip.text);
}

const QDBusArgument& operator>>(const QDBusArgument& argument, StatusToolTip& toolTip)
{
    return readStructure(argument, toolTip.iconName, toolTip.icon, toolTip.title, toolTip.text);
}

StatusIconPixmaps statusIconPixmaps(const QIcon& icon)
{
    StatusIconPixmaps pixmaps;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        const QImage image =
            icon.pixmap(size, size).toImage().convertToFormat(QImage::Format_ARGB32);
        if (image.isNull())
            continue;
        QByteArray pixels(static_cast<qsizetype>(image.sizeInBytes()), Qt::Uninitialized);
        const auto* from = reinterpret_cast<const quint32*>(image.constBits());
        auto* to = reinterpret_cast<quint32*>(pixels.data());
        for (qsizetype i = 0; i < image.width() * image.height(); ++i)
            to[i] = qToBigEndian(from[i]);
        pixmaps.append({image.width(), image.height(), pixels});
    }
    return pixmaps;
}

// The item's face on the bus. The host reads the properties and calls the methods.
class StatusNotifierItemAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(int WindowId READ windowId)
    Q_PROPERTY(QString IconThemePath READ none)
    Q_PROPERTY(QString IconName READ iconName)
    Q_PROPERTY(quillane::StatusIconPixmaps IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName READ none)
    Q_PROPERTY(quillane::StatusIconPixmaps OverlayIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionIconName READ none)
    Q_PROPERTY(quillane::StatusIconPixmaps AttentionIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionMovieName READ none)
    Q_PROPERTY(quillane::StatusToolTip ToolTip READ toolTip)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu)
    Q_PROPERTY(QDBusObjectPath Menu READ menu)

public:
    explicit StatusNotifierItemAdaptor(StatusNotifierItem* item)
        : QDBusAbstractAdaptor(item), m_item(item)
    {
        connect(item, &StatusNotifierItem::iconChanged, this, &StatusNotifierItemAdaptor::NewIcon);
    }

    QString category() const { return QStringLiteral("ApplicationStatus"); }
    QString id() const { return m_item->id(); }
    QString title() const { return m_item->title(); }
    QString status() const { return QStringLiteral("Active"); }
    int windowId() const { return 0; }
    QString none() const { return {}; }
    QString iconName() const { return m_item->iconName(); }
    StatusIconPixmaps iconPixmap() const { return m_item->pixmaps(); }
    StatusIconPixmaps noPixmaps() const { return {}; }
    StatusToolTip toolTip() const { return {{}, {}, m_item->title(), {}}; }
    // A click opens our panel; the menu is for the other button.
    bool itemIsMenu() const { return false; }
    QDBusObjectPath menu() const { return QDBusObjectPath(StatusNotifierItem::menuPath); }

public Q_SLOTS:
    void Activate(int x, int y) { Q_EMIT m_item->activated(pointOrNull(x, y)); }
    void SecondaryActivate(int x, int y) { Q_EMIT m_item->activated(pointOrNull(x, y)); }
    void ContextMenu(int x, int y) { Q_EMIT m_item->contextMenuRequested(pointOrNull(x, y)); }
    void Scroll(int delta, const QString& orientation)
    {
        (void)delta;
        (void)orientation;
    }

Q_SIGNALS:
    void NewTitle();
    void NewIcon();
    void NewAttentionIcon();
    void NewOverlayIcon();
    void NewToolTip();
    void NewStatus(const QString& status);

private:
    StatusNotifierItem* m_item;
};

StatusNotifierItem::StatusNotifierItem(QDBusConnection bus, QString id, QString title,
                                       QString iconName, QIcon icon, TrayMenu menu, QObject* parent)
    : QObject(parent), m_bus(std::move(bus)), m_id(std::move(id)), m_title(std::move(title)),
      m_iconName(std::move(iconName)), m_pixmaps(statusIconPixmaps(icon)),
      m_menu(new DBusMenuExporter(std::move(menu), this))
{
    registerTypes();
    new StatusNotifierItemAdaptor(this); // owned by this object
    static std::atomic<int> instances = 0;
    m_serviceName =
        BusNames::statusNotifierItemServicePattern.arg(QCoreApplication::applicationPid())
            .arg(++instances);
}

StatusNotifierItem::~StatusNotifierItem()
{
    if (m_exported) {
        m_bus.unregisterObject(menuPath);
        m_bus.unregisterObject(itemPath);
        m_bus.unregisterService(m_serviceName);
    }
}

bool StatusNotifierItem::registerWithWatcher()
{
    if (!m_bus.isConnected()) {
        m_error = QStringLiteral("no session bus");
        return false;
    }
    if (!m_exported) {
        if (!m_bus.registerObject(itemPath, this, QDBusConnection::ExportAdaptors)) {
            m_error = m_bus.lastError().message();
            return false;
        }
        if (!m_bus.registerObject(menuPath, m_menu, QDBusConnection::ExportAdaptors)) {
            m_error = m_bus.lastError().message();
            m_bus.unregisterObject(itemPath);
            return false;
        }
        if (!m_bus.registerService(m_serviceName)) {
            m_error = m_bus.lastError().message();
            m_bus.unregisterObject(menuPath);
            m_bus.unregisterObject(itemPath);
            return false;
        }
        m_exported = true;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        StatusNotifierHostWatcher::watcherService, StatusNotifierHostWatcher::watcherPath,
        StatusNotifierHostWatcher::watcherInterface, QStringLiteral("RegisterStatusNotifierItem"));
    call << m_serviceName;
    // The panel answers when it can; the application does not wait for it.
    auto* reply = new QDBusPendingCallWatcher(m_bus.asyncCall(call, replyTimeoutMs), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* answer) {
                answer->deleteLater();
                if (answer->isError()) {
                    m_error = answer->error().message();
                    Q_EMIT registrationFailed(m_error);
                }
            });
    m_error.clear();
    return true;
}

void StatusNotifierItem::setIcon(QString iconName, const QIcon& icon)
{
    m_iconName = std::move(iconName);
    m_pixmaps = statusIconPixmaps(icon);
    Q_EMIT iconChanged();
}

StatusNotifierHostWatcher::StatusNotifierHostWatcher(QDBusConnection bus, QObject* parent)
    : QObject(parent), m_bus(std::move(bus))
{
    if (!m_bus.isConnected())
        return;
    auto* serviceWatcher = new QDBusServiceWatcher(watcherService, m_bus,
                                                   QDBusServiceWatcher::WatchForRegistration |
                                                       QDBusServiceWatcher::WatchForUnregistration,
                                                   this);
    connect(serviceWatcher, &QDBusServiceWatcher::serviceRegistered, this, [this] {
        Q_EMIT watcherStarted();
        refresh();
    });
    connect(serviceWatcher, &QDBusServiceWatcher::serviceUnregistered, this,
            [this] { setHostAvailable(false); });
    for (const char* signal : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"}) {
        m_bus.connect(watcherService, watcherPath, watcherInterface, QLatin1String(signal), this,
                      SLOT(refresh()));
    }
    // At start-up the answer is needed before the first window is chosen.
    m_hostAvailable = hostIn(m_bus.call(hostQuestion(), QDBus::Block, replyTimeoutMs));
}

QDBusMessage StatusNotifierHostWatcher::hostQuestion()
{
    QDBusMessage get = QDBusMessage::createMethodCall(
        watcherService, watcherPath, BusNames::propertiesInterface, QStringLiteral("Get"));
    get << watcherInterface << QStringLiteral("IsStatusNotifierHostRegistered");
    return get;
}

bool StatusNotifierHostWatcher::hostIn(const QDBusMessage& reply)
{
    return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty() &&
           reply.arguments().first().value<QDBusVariant>().variant().toBool();
}

void StatusNotifierHostWatcher::refresh()
{
    auto* reply =
        new QDBusPendingCallWatcher(m_bus.asyncCall(hostQuestion(), replyTimeoutMs), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        call->deleteLater();
        setHostAvailable(hostIn(call->reply()));
    });
}

void StatusNotifierHostWatcher::setHostAvailable(bool available)
{
    if (available == m_hostAvailable)
        return;
    m_hostAvailable = available;
    Q_EMIT hostAvailableChanged(available);
}

} // namespace quillane

#include "StatusNotifierItem.moc"
