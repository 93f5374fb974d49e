#pragma once

#include "TrayMenu.h"

#include <QDBusArgument>
#include <QDBusContext>
#include <QDBusVariant>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

namespace quillane
{

// The shapes of the menu protocol that StatusNotifier hosts read (com.canonical.dbusmenu).
// An item of the layout with the items below it: (ia{sv}av), each child in a variant.
struct DBusMenuLayoutItem {
    int id = 0;
    QVariantMap properties;
    QList<DBusMenuLayoutItem> children;
};
// One item's properties: (ia{sv}).
struct DBusMenuItemProperties {
    int id = 0;
    QVariantMap properties;
};
using DBusMenuItemPropertiesList = QList<DBusMenuItemProperties>;
// Something the user did to an item: (isvu).
struct DBusMenuEvent {
    int id = 0;
    QString eventId;
    QDBusVariant data;
    uint timestamp = 0;
};
using DBusMenuEventList = QList<DBusMenuEvent>;

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayoutItem& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayoutItem& item);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItemProperties& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItemProperties& item);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuEvent& event);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuEvent& event);

// Registers the types above with QtDBus; done by the exporter, and needed by a client too.
void registerDBusMenuTypes();

// A tray menu as a desktop's panel reads it over the bus and draws it itself: the menu is the
// root item (id 0) and its entries are the items 1 to n, in order. A "clicked" event runs the
// entry's command once the call has been answered, so that a command that opens a dialog does
// not keep the panel waiting.
class DBusMenuExporter : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_DISABLE_COPY(DBusMenuExporter)

public:
    explicit DBusMenuExporter(TrayMenu menu, QObject* parent = nullptr);

    // Read by the bus adaptor. Ids that name no item give nothing.
    // The entries never change, so neither does the layout.
    uint revision() const { return 1; }
    bool hasItem(int id) const;
    // hasItem(), and when there is no such item, the bus call being answered fails.
    bool checkItem(int id);
    DBusMenuLayoutItem layout(int id, int depth, const QStringList& propertyNames) const;
    QVariantMap properties(int id, const QStringList& propertyNames) const;
    // Runs the command of the item clicked; false when no item has that id.
    bool handleEvent(int id, const QString& eventId);

private:
    TrayMenu m_menu;
};

} // namespace quillane

Q_DECLARE_METATYPE(quillane::DBusMenuLayoutItem)
Q_DECLARE_METATYPE(quillane::DBusMenuItemProperties)
Q_DECLARE_METATYPE(quillane::DBusMenuEvent)
