#include "EllipsisMenu.h"

#include "Helper/XPCClient.h"
#include "Pictures.h"
#include "Platform/Alerts.h"
#include "Platform/ApplicationControl.h"
#include "Platform/Workspace.h"
#include "Shell/TerminationHelper.h"
#include "Shell/Updater.h"

#include <QApplication>
#include <QEvent>
#include <QKeySequence>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QStyle>
#include <QUrlQuery>
#include <QWidgetAction>

namespace quillane
{

namespace
{

constexpr int buttonWidth = 30;
constexpr int symbolSide = 16;

// A hint shown at the right of an entry, as menus show shortcuts; the menu binds no key to it.
QString withHint(const QString& label, const char* keys)
{
    return label + QLatin1Char('\t') +
           QKeySequence(QString::fromLatin1(keys)).toString(QKeySequence::NativeText);
}

} // namespace

EllipsisMenu::EllipsisMenu(const ViewServices& services, QWidget* parent)
    : QToolButton(parent), m_services(services)
{
    // The ellipsis as text where no picture of it can be found; a button that only shows a
    // symbol needs a name for those who cannot see it.
    setText(QStringLiteral("\u22ef"));
    setAccessibleName(tr("Menu"));
    updateSymbol();
    setIconSize(QSize(symbolSide, symbolSide));
    setAutoRaise(true);
    setMaximumWidth(buttonWidth);
    setPopupMode(QToolButton::InstantPopup);
    setStyleSheet(QStringLiteral("QToolButton::menu-indicator { image: none; width: 0px; }"));

    auto* menu = new QMenu(this);

    // The helper's state: a caption line that does nothing when chosen.
    m_helperInfo = new QLabel(menu);
    QFont caption = m_helperInfo->font();
    caption.setPointSizeF(caption.pointSizeF() * 0.85);
    m_helperInfo->setFont(caption);
    m_helperInfo->setContentsMargins(
        style()->pixelMetric(QStyle::PM_MenuHMargin, nullptr, menu) + 8, 4, 8, 4);
    auto* helperLine = new QWidgetAction(menu);
    helperLine->setDefaultWidget(m_helperInfo);
    menu->addAction(helperLine);
    updateHelperInfo();

    connect(menu->addAction(tr("About Quillane")), &QAction::triggered, this,
            &EllipsisMenu::showAbout);
    menu->addSeparator();
    connect(menu->addAction(withHint(tr("Check for Updates..."), "Ctrl+U")), &QAction::triggered,
            this, &EllipsisMenu::checkForUpdates);
    connect(menu->addAction(withHint(tr("Settings..."), "Ctrl+,")), &QAction::triggered, this,
            &EllipsisMenu::openSettings);
    connect(menu->addAction(tr("Contact Support...")), &QAction::triggered, this,
            &EllipsisMenu::contactSupport);
    connect(menu->addAction(tr("Uninstall Quillane...")), &QAction::triggered, this,
            &EllipsisMenu::uninstallApp);
    menu->addSeparator();
    connect(menu->addAction(withHint(tr("Quit Quillane"), "Ctrl+Q")), &QAction::triggered, this,
            &EllipsisMenu::quitTrash);
    setMenu(menu);

    connect(&services.client, &XPCClient::helperBuildStringChanged, this,
            &EllipsisMenu::updateHelperInfo);
}

EllipsisMenu::~EllipsisMenu()
{
    delete m_about;
}

void EllipsisMenu::changeEvent(QEvent* event)
{
    QToolButton::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        updateSymbol();
}

void EllipsisMenu::updateSymbol()
{
    const QIcon symbol = iconFor(Picture::symbol("ellipsis.circle"), m_services.bundle);
    setIcon(symbolicIcon(symbol, palette(), QPalette::ButtonText));
    setToolButtonStyle(symbol.isNull() ? Qt::ToolButtonTextOnly : Qt::ToolButtonIconOnly);
}

QString EllipsisMenu::helperInfoString() const
{
    const QString build = m_services.client.helperBuildString();
    if (build == QStringLiteral("unknown"))
        return tr("Helper not running");
    return tr("Helper Running. Build: %1").arg(build);
}

void EllipsisMenu::updateHelperInfo()
{
    m_helperInfo->setText(helperInfoString());
}

QString EllipsisMenu::aboutText(const BundleInfo& bundle)
{
    QString text = tr("Quillane\nVersion %1").arg(bundle.shortVersion);
    if (bundle.buildVersion)
        text += QStringLiteral(" (") + *bundle.buildVersion + QLatin1Char(')');
    return text;
}

void EllipsisMenu::showAbout()
{
    m_services.application.activate(true);
    if (!m_about) {
        // Not modal: the panel and the tray keep working while it is open.
        m_about = new QMessageBox(QMessageBox::NoIcon, tr("About Quillane"),
                                  aboutText(m_services.bundle), QMessageBox::Ok);
        m_about->setAttribute(Qt::WA_DeleteOnClose);
        const QIcon icon = QApplication::windowIcon();
        if (!icon.isNull())
            m_about->setIconPixmap(icon.pixmap(64, 64));
        m_about->setModal(false);
    }
    m_about->show();
    m_about->raise();
    m_about->activateWindow();
}

void EllipsisMenu::checkForUpdates()
{
    m_services.updater.checkForUpdates();
}

void EllipsisMenu::openSettings()
{
    if (m_services.openSettings)
        m_services.openSettings();
}

QUrl EllipsisMenu::supportMailUrl()
{
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("subject"), QStringLiteral("Help with Velmoric's Quillane"));
    query.addQueryItem(QStringLiteral("body"),
                       QStringLiteral("Hello! \n\n I have a question about Quillane:\n\n"));
    QUrl url;
    url.setScheme(QStringLiteral("mailto"));
    url.setPath(QStringLiteral("support@velmoric.com"));
    url.setQuery(query);
    return url;
}

void EllipsisMenu::contactSupport()
{
    const QUrl url = supportMailUrl();
    if (url.isValid())
        m_services.workspace.open(url);
}

void EllipsisMenu::uninstallApp()
{
    const AlertAnswer answer =
        m_services.alerts.runModal({tr("Uninstalling Quillane"),
                                    tr("Are you sure that you want to uninstall Quillane?"),
                                    {tr("Cancel"), tr("OK")},
                                    false,
                                    {},
                                    /*cancelButton=*/0,
                                    /*destructiveButton=*/1});
    if (answer.button == AlertAnswer::secondButton)
        m_services.client.uninstallQuillane();
}

void EllipsisMenu::quitTrash()
{
    TerminationHelper::terminationCheck(m_services.defaults, m_services.alerts,
                                        m_services.application);
}

} // namespace quillane
