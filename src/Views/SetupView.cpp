#include "SetupView.h"

#include "Helper/XPCClient.h"
#include "Model/VolumeObserver.h"
#include "Platform/Console.h"
#include "Platform/Constant.h"
#include "Platform/UserDefaults.h"
#include "Platform/Workspace.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QShortcut>
#include <QShowEvent>
#include <QSvgRenderer>
#include <QVBoxLayout>

namespace quillane
{

namespace
{

// Text sizes in the same unit as the pages, the frames and the pictures (logical pixels), so that
// a desktop's font scaling cannot push a page's content past its fixed size. At the usual 96 dpi
// the titles read as a desktop's large title (22 pt) and title (about 17 pt).
constexpr int largeTitleSize = 29;
constexpr int titleSize = 22;
constexpr int bodySize = 14;
// The height of a button of the large control size.
constexpr int largeControlHeight = 34;

QFont sizedFont(QFont font, int pixelSize)
{
    font.setPixelSize(pixelSize);
    return font;
}

QLabel* makeLabel(const QString& text, int pixelSize, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setFont(sizedFont(label->font(), pixelSize));
    label->setTextFormat(Qt::PlainText);
    return label;
}

} // namespace

SetupPage::SetupPage(const ViewServices& services, QWidget* parent)
    : QWidget(parent), m_services(services), m_column(new QVBoxLayout(this))
{
    m_column->setAlignment(Qt::AlignHCenter);
}

void SetupPage::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // A window brought back from being minimised shows the same page again; it does not appear
    // anew.
    if (event->spontaneous() || !stepDone())
        return;
    // Closed once showing has finished: a window must not be hidden from inside its own show.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (isVisible())
                window()->close();
        },
        Qt::QueuedConnection);
}

void SetupPage::addLargeTitle(const QString& text, int paddingAbove, int paddingBelow)
{
    QLabel* label = makeLabel(text, largeTitleSize, this);
    label->setContentsMargins(0, paddingAbove, 0, paddingBelow);
    m_column->addWidget(label, 0, Qt::AlignHCenter);
}

void SetupPage::addTitle(const QString& text, int paddingBelow)
{
    QLabel* label = makeLabel(text, titleSize, this);
    label->setContentsMargins(0, 0, 0, paddingBelow);
    m_column->addWidget(label, 0, Qt::AlignHCenter);
}

void SetupPage::addText(const QString& text, const QMargins& padding)
{
    QLabel* label = makeLabel(text, bodySize, this);
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignLeading | Qt::AlignTop);
    label->setContentsMargins(padding);
    m_column->addWidget(label);
}

void SetupPage::addPicture(const QString& name, std::optional<QSize> frame)
{
    auto* label = new QLabel(this);
    label->setAlignment(Qt::AlignCenter);
    if (frame)
        label->setFixedHeight(frame->height());
    m_column->addWidget(label, 0, frame ? Qt::Alignment() : Qt::AlignHCenter);

    const auto file = m_services.bundle.resource("images/" + name.toStdString() + ".svg");
    if (!file)
        return;
    QSvgRenderer renderer(QString::fromStdString(file->native()));
    if (!renderer.isValid() || renderer.defaultSize().isEmpty())
        return;
    QSize size = renderer.defaultSize();
    if (frame)
        size = size.scaled(*frame, Qt::KeepAspectRatio);

    // Drawn for the screen's pixel density, so that the picture is as sharp as the text.
    const qreal ratio = devicePixelRatioF();
    QPixmap pixmap(size * ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    renderer.render(&painter);
    painter.end();
    pixmap.setDevicePixelRatio(ratio);
    label->setPixmap(pixmap);
    if (!frame)
        label->setFixedSize(size);
}

QPushButton* SetupPage::makeButton(const QString& text, bool bodyText)
{
    auto* button = new QPushButton(text, this);
    if (bodyText)
        button->setFont(sizedFont(button->font(), bodySize));
    button->setMinimumHeight(largeControlHeight);
    button->setMinimumWidth(button->sizeHint().width() + 2 * largeControlHeight / 3);
    return button;
}

void SetupPage::setDefaultButton(QPushButton* button)
{
    m_defaultButton = button;
    // QPushButton presses its default button on Return only inside a dialog; the setup window is
    // a plain window, so the page binds the keys itself, whichever control has the focus.
    button->setDefault(true);
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter}) {
        auto* shortcut = new QShortcut(QKeySequence(key), this);
        shortcut->setContext(Qt::WindowShortcut);
        connect(shortcut, &QShortcut::activated, button, &QPushButton::click);
    }
}

FDAView::FDAView(const ViewServices& services, QWidget* parent) : SetupPage(services, parent)
{
    addLargeTitle(QStringLiteral("Welcome to Quillane"), 10, 10);
    addText(QStringLiteral("The Quillane app can be used to empty the trash on each volume "
                           "individually. Click the Quillane icon in your desktop's panel, and "
                           "empty the trash for individual volumes."),
            QMargins(0, 0, 0, 20));
    const QMargins margins = column()->contentsMargins();
    addPicture(QStringLiteral("WelcomeExample"),
               QSize(pageSize.width() - margins.left() - margins.right(), 280));
    addTitle(QStringLiteral("Quillane requires Full Disk Access"), 10);
    addText(QStringLiteral(
                "To have access to empty your trash, Quillane needs Full Disk Access. To grant "
                "Full Disk Access, Click on the \u2018Open Security and Privacy\u2019 button below "
                "which will launch the desktop's settings. Toggle the switch for the Quillane "
                "application to the right to grant Full Disk access as displayed below. You will "
                "be prompted to quit Quillane to grant Full Disk Access, click on the Quit & "
                "Reopen button."),
            QMargins(15, 0, 15, 15));
    addPicture(QStringLiteral("FDAExample"));
    column()->addStretch();
    QPushButton* open = makeButton(QStringLiteral("Open Security and Privacy"), false);
    column()->addWidget(open, 0, Qt::AlignHCenter);
    setDefaultButton(open);
    connect(open, &QPushButton::clicked, this, &FDAView::openFDA);
}

bool FDAView::stepDone() const
{
    return m_services.observer.fdaGranted() && m_services.client.helperRegistered();
}

std::optional<SettingsCommand> FDAView::privacySettings(const QString& currentDesktop)
{
    for (const QString& desktop : currentDesktop.split(u':', Qt::SkipEmptyParts)) {
        // GNOME's privacy settings hold its file history and trash page: the place where the
        // desktop decides what is kept of the user's files.
        if (desktop.compare(QLatin1String("GNOME"), Qt::CaseInsensitive) == 0)
            return SettingsCommand{QStringLiteral("gnome-control-center"),
                                   {QStringLiteral("privacy")}};
        // KDE has no page that grants a program access to files (its Flatpak permissions cover
        // sandboxed applications only, which we are not). Its privacy page for files is Recent
        // Files, the counterpart of GNOME's file history, so that is where we send the user.
        if (desktop.compare(QLatin1String("KDE"), Qt::CaseInsensitive) == 0)
            return SettingsCommand{QStringLiteral("systemsettings"),
                                   {QStringLiteral("kcm_recentFiles")}};
    }
    return std::nullopt;
}

void FDAView::openFDA()
{
    const auto command = privacySettings(qEnvironmentVariable("XDG_CURRENT_DESKTOP"));
    if (!command) {
        Console::writeLine("FDA Error: ", "no privacy settings on this desktop");
    } else if (const Result<qint64> started =
                   m_services.workspace.launch(command->program, command->arguments);
               !started) {
        Console::writeLine("FDA Error: ", started.error());
    }
    window()->close();
}

HelperView::HelperView(const ViewServices& services, QWidget* parent) : SetupPage(services, parent)
{
    addLargeTitle(QStringLiteral("Quillane Needs Authorization"), 0, 20);
    addText(QStringLiteral(
        "Sometimes, your trash might contain items that require extra permission to delete. To "
        "grant this permission, allow 'Quillane Helper' to run in the background when your "
        "desktop asks for an administrator's password."));
    addPicture(QStringLiteral("AllowInBackground"));
    column()->addStretch();
    QPushButton* open = makeButton(QStringLiteral("Open Login Items"), true);
    column()->addWidget(open, 0, Qt::AlignHCenter);
    setDefaultButton(open);
    connect(open, &QPushButton::clicked, this, [this] {
        m_services.client.openLoginItems();
        m_services.client.waitAndStart();
    });
}

bool HelperView::stepDone() const
{
    return m_services.client.helperRegistered() && m_services.client.loginItemActive();
}

LoginItemView::LoginItemView(const ViewServices& services, QWidget* parent)
    : SetupPage(services, parent)
{
    addLargeTitle(QStringLiteral("One Last Thing..."), 0, 20);
    addText(QStringLiteral(
        "To make sure Quillane is ready when you need it, take a moment to add "
        "Quillane to the 'Startup Applications' list. Click the button below to launch "
        "Quillane at every startup."));
    addPicture(QStringLiteral("LoginItem"));
    column()->addStretch();

    auto* buttons = new QHBoxLayout;
    QPushButton* launch = makeButton(QStringLiteral("Launch Quillane at Startup"), true);
    m_noThanks = makeButton(QStringLiteral("No Thanks"), true);
    buttons->addWidget(launch, 0, Qt::AlignVCenter);
    buttons->addWidget(m_noThanks, 0, Qt::AlignVCenter);
    column()->addLayout(buttons);
    column()->setAlignment(buttons, Qt::AlignHCenter);
    setDefaultButton(launch);

    connect(launch, &QPushButton::clicked, this, [this] { m_services.client.addToLoginItems(); });
    connect(m_noThanks, &QPushButton::clicked, this, [this] {
        m_services.client.setLoginItemActive(true);
        m_services.defaults.setBool(Constant::loginItemSupressedKey, true);
    });
}

bool LoginItemView::stepDone() const
{
    return m_services.client.loginItemActive();
}

SetupView::SetupView(const ViewServices& services, QWidget* parent)
    : QWidget(parent), m_services(services)
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    connect(&m_services.observer, &VolumeObserver::fdaGrantedChanged, this, &SetupView::choosePage);
    connect(&m_services.client, &XPCClient::helperRegisteredChanged, this, &SetupView::choosePage);
    connect(&m_services.client, &XPCClient::loginItemActiveChanged, this, &SetupView::choosePage);
    connect(&m_services.client, &XPCClient::showLoginLaunchScreenChanged, this,
            &SetupView::choosePage);
    choosePage();
}

SetupView::Page SetupView::pageFor(bool fdaGranted, bool helperRegistered,
                                   bool showLoginLaunchScreen)
{
    if (!fdaGranted)
        return Page::FullDiskAccess;
    if (!helperRegistered)
        return Page::Helper;
    return showLoginLaunchScreen ? Page::LoginItem : Page::None;
}

void SetupView::choosePage()
{
    const Page next =
        pageFor(m_services.observer.fdaGranted(), m_services.client.helperRegistered(),
                m_services.client.showLoginLaunchScreen());
    if (next == m_page && (m_current || next == Page::None))
        return;

    if (m_current) {
        // The change may come from a button of this very page, whose click is still running.
        m_current->hide();
        layout()->removeWidget(m_current);
        m_current->deleteLater();
        m_current = nullptr;
    }
    m_page = next;

    QSize size;
    switch (next) {
    case Page::FullDiskAccess:
        m_current = new FDAView(m_services, this);
        size = FDAView::pageSize;
        break;
    case Page::Helper:
        m_current = new HelperView(m_services, this);
        size = HelperView::pageSize;
        break;
    case Page::LoginItem:
        m_current = new LoginItemView(m_services, this);
        size = LoginItemView::pageSize;
        break;
    case Page::None:
        break;
    }

    if (!m_current) {
        // Nothing left to show: the window is no longer held to a page's size.
        setMinimumSize(0, 0);
        setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
        return;
    }
    m_current->setFixedSize(size);
    setFixedSize(size);
    layout()->addWidget(m_current);
    // A page that replaces another while the window is open appears now, and runs its check.
    if (isVisible())
        m_current->show();
}

} // namespace quillane
