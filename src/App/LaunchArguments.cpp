#include "LaunchArguments.h"

namespace quillane
{

namespace
{

// Qt's own options (QGuiApplication, QApplication and the X11 platform) and the session
// manager's, without their leading dash.
const QStringList optionsWithValue = {
    QStringLiteral("session"),
    QStringLiteral("name"),
    QStringLiteral("platform"),
    QStringLiteral("platformpluginpath"),
    QStringLiteral("platformtheme"),
    QStringLiteral("plugin"),
    QStringLiteral("qwindowgeometry"),
    QStringLiteral("qwindowicon"),
    QStringLiteral("qwindowtitle"),
    QStringLiteral("display"),
    QStringLiteral("geometry"),
    QStringLiteral("title"),
    QStringLiteral("icon"),
    QStringLiteral("style"),
    QStringLiteral("stylesheet"),
    QStringLiteral("qmljsdebugger"),
};
const QStringList flags = {
    QStringLiteral("reverse"), QStringLiteral("widgetcount"), QStringLiteral("nograb"),
    QStringLiteral("dograb"),  QStringLiteral("sync"),
};

} // namespace

bool isTrayLaunch(const QStringList& arguments)
{
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        QString option = arguments[i];
        if (option.startsWith(QLatin1String("--")))
            option.remove(0, 2);
        else if (option.startsWith(u'-'))
            option.remove(0, 1);
        else
            return false;
        if (flags.contains(option))
            continue;
        if (const qsizetype equals = option.indexOf(u'='); equals > 0) {
            if (!optionsWithValue.contains(option.left(equals)))
                return false;
            continue;
        }
        // An option without its value is not one the desktop gave.
        if (!optionsWithValue.contains(option) || i + 1 >= arguments.size())
            return false;
        ++i;
    }
    return true;
}

} // namespace quillane
