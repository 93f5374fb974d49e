#include "DBusMenuExporter.h"

#include "Platform/DBusStructure.h"

#include <QDBusAbstractAdaptor>
#include <QDBusMetaType>
#include <QGuiApplication>
#include <QTimer>

namespace quillane
{

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayoutItem& item)
{
    argument.beginStructure();
    argument << item.id << item.properties;
    argument.beginArray(QMetaType::fromType<QDBusVariant>());
    for (const DBusMenuLayoutItem& child : item.children)
        argument << QDBusVariant(QVariant::fromValue(child));
    argument.endArray();
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayoutItem& item)
{
    argument.beginStructure();
    argument >> item.id >> item.properties;
    item.children.clear();
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant wrapped;
        argument >> wrapped;
        DBusMenuLayoutItem child;
        wrapped.variant().value<QDBusArgument>() >> child;
        item.children.append(child);
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItemProperties& item)
{
    return writeStructure(argument, item.id, item.properties);
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItemProperties& item)
{
    return readStructure(argument, item.id, item.properties);
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuEvent& event)
{
    return writeStructure(argument, event.id, event.eventId, event.data, event.timestamp);
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuEvent& event)
{
    return readStructure(argument, event.id, event.eventId, event.data, event.timestamp);
}

void registerDBusMenuTypes()
{
    static const bool registered = [] {
        qDBusRegisterMetaType<DBusMenuLayoutItem>();
        qDBusRegisterMetaType<DBusMenuItemProperties>();
        qDBusRegisterMetaType<DBusMenuItemPropertiesList>();
        qDBusRegisterMetaType<DBusMenuEvent>();
        qDBusRegisterMetaType<DBusMenuEventList>();
        return true;
    }();
    (void)registered;
}

// The menu's face on the bus. QtDBus finds a parameter's type by its name: the lists are spelt
// out, as their aliases are no names it knows. Version 3 of the protocol: properties at their
// default values (a standard, enabled, visible item) are left out, as hosts expect.
class DBusMenuAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version READ version)
    Q_PROPERTY(QString TextDirection READ textDirection)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath)

public:
    explicit DBusMenuAdaptor(DBusMenuExporter* menu) : QDBusAbstractAdaptor(menu), m_menu(menu) {}

    uint version() const { return 3; }
    QString textDirection() const
    {
        return QGuiApplication::isRightToLeft() ? QStringLiteral("rtl") : QStringLiteral("ltr");
    }
    QString status() const { return QStringLiteral("normal"); }
    QStringList iconThemePath() const { return {}; }

public Q_SLOTS:
    uint GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                   quillane::DBusMenuLayoutItem& layout)
    {
        if (!knownItem(parentId))
            return 0;
        layout = m_menu->layout(parentId, recursionDepth, propertyNames);
        return m_menu->revision();
    }

    QList<quillane::DBusMenuItemProperties> GetGroupProperties(const QList<int>& ids,
                                                               const QStringList& propertyNames)
    {
        DBusMenuItemPropertiesList found;
        for (const int id : ids) {
            if (m_menu->hasItem(id)) // the protocol skips unknown ids here
                found.append({id, m_menu->properties(id, propertyNames)});
        }
        return found;
    }

    QDBusVariant GetProperty(int id, const QString& name)
    {
        if (!knownItem(id))
            return {};
        return QDBusVariant(m_menu->properties(id, {name}).value(name));
    }

    void Event(int id, const QString& eventId, const QDBusVariant& data, uint timestamp)
    {
        (void)data;
        (void)timestamp;
        if (!m_menu->handleEvent(id, eventId))
            knownItem(id);
    }

    QList<int> EventGroup(const QList<quillane::DBusMenuEvent>& events)
    {
        QList<int> unknown;
        for (const DBusMenuEvent& event : events) {
            if (!m_menu->handleEvent(event.id, event.eventId))
                unknown.append(event.id);
        }
        return unknown;
    }

    // Our entries never change on their own before the menu opens.
    bool AboutToShow(int id)
    {
        knownItem(id);
        return false;
    }

    QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors)
    {
        for (const int id : ids) {
            if (!m_menu->hasItem(id))
                idErrors.append(id);
        }
        return {};
    }

    // Part of the interface hosts subscribe to; our entries never change, so none is sent.
Q_SIGNALS:
    void ItemsPropertiesUpdated(const QList<quillane::DBusMenuItemProperties>& updatedProps,
                                const QList<quillane::DBusMenuItemProperties>& removedProps);
    void LayoutUpdated(uint revision, int parent);
    void ItemActivationRequested(int id, uint timestamp);

private:
    bool knownItem(int id) { return m_menu->checkItem(id); }

    DBusMenuExporter* m_menu;
};

namespace
{

// Hosts read "_" as the mark of an access key, as GTK does; ours have none.
QString hostLabel(const QString& label)
{
    QString escaped = label;
    return escaped.replace(QLatin1Char('_'), QStringLiteral("__"));
}

QVariantMap selected(QVariantMap properties, const QStringList& names)
{
    if (names.isEmpty())
        return properties;
    for (auto it = properties.begin(); it != properties.end();) {
        if (names.contains(it.key()))
            ++it;
        else
            it = properties.erase(it);
    }
    return properties;
}

} // namespace

DBusMenuExporter::DBusMenuExporter(TrayMenu menu, QObject* parent)
    : QObject(parent), m_menu(std::move(menu))
{
    registerDBusMenuTypes();
    new DBusMenuAdaptor(this); // owned by this object
}

bool DBusMenuExporter::hasItem(int id) const
{
    return id >= 0 && static_cast<std::size_t>(id) <= m_menu.size();
}

bool DBusMenuExporter::checkItem(int id)
{
    if (hasItem(id))
        return true;
    if (calledFromDBus())
        sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("No menu item %1").arg(id));
    return false;
}

QVariantMap DBusMenuExporter::properties(int id, const QStringList& propertyNames) const
{
    QVariantMap all;
    if (id == 0) {
        all.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
    } else if (hasItem(id)) {
        const TrayMenuEntry& entry = m_menu[static_cast<std::size_t>(id) - 1];
        if (entry.isSeparator())
            all.insert(QStringLiteral("type"), QStringLiteral("separator"));
        else
            all.insert(QStringLiteral("label"), hostLabel(entry.label));
    }
    return selected(all, propertyNames);
}

DBusMenuLayoutItem DBusMenuExporter::layout(int id, int depth,
                                            const QStringList& propertyNames) const
{
    DBusMenuLayoutItem item{id, properties(id, propertyNames), {}};
    // Only the root has items below it; a depth of -1 means all levels.
    if (id == 0 && depth != 0) {
        for (std::size_t i = 1; i <= m_menu.size(); ++i)
            item.children.append(
                {static_cast<int>(i), properties(static_cast<int>(i), propertyNames), {}});
    }
    return item;
}

bool DBusMenuExporter::handleEvent(int id, const QString& eventId)
{
    if (!hasItem(id))
        return false;
    if (id == 0 || eventId != QLatin1String("clicked"))
        return true; // opened, closed, hovered: nothing to do
    const std::function<void()> trigger = m_menu[static_cast<std::size_t>(id) - 1].trigger;
    if (trigger)
        QTimer::singleShot(0, this, trigger);
    return true;
}

} // namespace quillane

#include "DBusMenuExporter.moc"
