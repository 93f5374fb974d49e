#include "SetupView.h"

#include "Helper/XPCClient.h"
#include "Model/VolumeObserver.h"
#include "Platform/Console.h"
#include "Platform/Constant.h"
#include "Platform/DisplayText.h"
#include "Platform/Platform.h"
#include "Platform/TrashLocator.h"
#include "Platform/UserDefaults.h"
#include "Platform/Workspace.h"

#include <QClipboard>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QShortcut>
#include <QShowEvent>
#include <QSvgRenderer>
#include <QVBoxLayout>
#include <cstring>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

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

QString userName(uid_t uid)
{
    const passwd* entry = getpwuid(uid);
    return entry && entry->pw_name ? QString::fromLocal8Bit(entry->pw_name) : QString::number(uid);
}

// A word the shell takes as it is, whatever bytes it holds.
QString shellQuoted(const QString& word)
{
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_./:@%+=,-]+$"));
    if (plain.match(word).hasMatch())
        return word;
    QString quoted = word;
    quoted.replace(u'\'', QStringLiteral("'\\''"));
    return u'\'' + quoted + u'\'';
}

QString shellQuoted(const std::filesystem::path& path)
{
    return shellQuoted(QString::fromLocal8Bit(path.native()));
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

QLabel* SetupPage::addText(const QString& text, const QMargins& padding)
{
    QLabel* label = makeLabel(text, bodySize, this);
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignLeading | Qt::AlignTop);
    label->setContentsMargins(padding);
    m_column->addWidget(label);
    return label;
}

QLineEdit* SetupPage::addCommand(const QString& command, QPushButton** copyButton)
{
    auto* row = new QHBoxLayout;
    auto* field = new QLineEdit(command, this);
    field->setReadOnly(true);
    field->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    field->setCursorPosition(0);
    field->setAccessibleName(tr("Command to run in a terminal"));
    QPushButton* copy = makeButton(tr("Copy"), true);
    copy->setAccessibleName(tr("Copy the command"));
    connect(copy, &QPushButton::clicked, field,
            [field] { QGuiApplication::clipboard()->setText(field->text()); });
    row->addWidget(field, 1);
    row->addWidget(copy);
    m_column->addLayout(row);
    if (copyButton)
        *copyButton = copy;
    return field;
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
    addLargeTitle(tr("Welcome to Quillane"), 10, 10);
    addText(tr("The Quillane app can be used to empty the trash on each volume "
               "individually. Click the Quillane icon in your desktop's panel, and "
               "empty the trash for individual volumes."),
            QMargins(0, 0, 0, 20));
    const QMargins margins = column()->contentsMargins();
    addPicture(QStringLiteral("WelcomeExample"),
               QSize(pageSize.width() - margins.left() - margins.right(), 280));
    addTitle(tr("Quillane requires access to your trash"), 10);

    // The trash belongs to whoever owns the home it is in.
    const Platform& platform = m_services.observer.platform();
    struct stat home {
    };
    const uid_t user = ::stat(platform.home.c_str(), &home) == 0 ? home.st_uid : getuid();
    const Diagnosis diagnosis =
        diagnose(findTrashAccessProblem(platform.trash.homeTrashFolder(), user), userName(user));
    QString text = tr("To have access to empty your trash, Quillane needs to be able "
                      "to list your trash folder. ") +
                   diagnosis.problem;
    if (!diagnosis.command.isEmpty())
        text += tr(" To fix it, run this command in a terminal, then quit and reopen "
                   "Quillane:");
    m_problem = addText(text, QMargins(15, 0, 15, 15));

    QPushButton* copy = nullptr;
    if (!diagnosis.command.isEmpty())
        m_command = addCommand(diagnosis.command, &copy);
    column()->addStretch();

    // The helper can do the same fix, once an administrator approves.
    if (!diagnosis.command.isEmpty() && m_services.client.helperRegistered()) {
        m_repair = makeButton(tr("Fix It with the Quillane Helper"), false);
        column()->addWidget(m_repair, 0, Qt::AlignHCenter);
        connect(m_repair, &QPushButton::clicked, this, [this] {
            m_repair->setEnabled(false);
            m_outcome->setText(tr("Waiting for an administrator's approval…"));
            QPointer<FDAView> self(this);
            m_services.client.repairHomeTrash([self](const std::optional<QString>& error) {
                if (!self)
                    return;
                self->m_repair->setEnabled(error.has_value());
                self->m_outcome->setText(
                    error ? tr("The helper could not fix it: %1").arg(*error)
                          : tr("Your trash folder is yours again. Quit and reopen "
                               "Quillane to empty your trash."));
            });
        });
    }
    m_outcome = addText(QString(), QMargins(15, 0, 15, 0));

    if (copy) {
        setDefaultButton(copy);
    } else {
        QPushButton* close = makeButton(tr("Close"), false);
        column()->addWidget(close, 0, Qt::AlignHCenter);
        setDefaultButton(close);
        connect(close, &QPushButton::clicked, this, [this] { window()->close(); });
    }
}

bool FDAView::stepDone() const
{
    return m_services.observer.fdaGranted() && m_services.client.helperRegistered();
}

FDAView::Diagnosis FDAView::diagnose(const std::optional<TrashAccessProblem>& problem,
                                     const QString& user)
{
    if (!problem)
        return {tr("It can now: quit and reopen Quillane."), QString()};
    const QString folder = displayPath(problem->folder);
    switch (problem->kind) {
    case TrashAccessProblem::Kind::Owner:
        return {tr("The folder ‘%1’ belongs to %2, not to you, as happens "
                   "when a file manager was run with sudo.")
                    .arg(folder, userName(problem->owner)),
                QStringLiteral("sudo chown -R %1: %2")
                    .arg(shellQuoted(user), shellQuoted(problem->trash))};
    case TrashAccessProblem::Kind::Mode:
        return {tr("The folder ‘%1’ has the permissions %2, which keep you "
                   "out of it.")
                    .arg(folder, QStringLiteral("%1").arg(problem->mode, 4, 8, QLatin1Char('0'))),
                QStringLiteral("chmod u+rwx %1").arg(shellQuoted(problem->folder))};
    case TrashAccessProblem::Kind::Other:
        break;
    }
    return {tr("The folder ‘%1’ cannot be listed (%2). A confinement "
               "profile, such as AppArmor's, may keep Quillane out of it: allow "
               "Quillane to read it there, then quit and reopen Quillane.")
                .arg(folder, QString::fromLocal8Bit(std::strerror(problem->error))),
            QString()};
}

HelperView::HelperView(const ViewServices& services, QWidget* parent) : SetupPage(services, parent)
{
    addLargeTitle(tr("Quillane Needs Authorization"), 0, 20);
    addText(
        tr("Sometimes, your trash might contain items that require extra permission to delete. To "
           "grant this permission, install the Quillane helper, which comes with the Quillane "
           "package. Install the package with this command, then click Check Again:"));
    addCommand(installCommand(m_services.bundle.shortVersion));
    column()->addStretch();
    QPushButton* check = makeButton(tr("Check Again"), true);
    column()->addWidget(check, 0, Qt::AlignHCenter);
    setDefaultButton(check);
    connect(check, &QPushButton::clicked, this, [this] { m_services.client.waitAndStart(); });
}

QString HelperView::installCommand(const QString& version)
{
    return QStringLiteral("sudo apt install ./quillane_%1_amd64.deb").arg(version);
}

bool HelperView::stepDone() const
{
    return m_services.client.helperRegistered() && m_services.client.loginItemActive();
}

LoginItemView::LoginItemView(const ViewServices& services, QWidget* parent)
    : SetupPage(services, parent)
{
    addLargeTitle(tr("One Last Thing..."), 0, 20);
    addText(tr("To make sure Quillane is ready when you need it, take a moment to add "
               "Quillane to the 'Startup Applications' list. Click the button below to launch "
               "Quillane at every startup."));
    addPicture(QStringLiteral("LoginItem"));
    column()->addStretch();

    auto* buttons = new QHBoxLayout;
    QPushButton* launch = makeButton(tr("Launch Quillane at Startup"), true);
    m_noThanks = makeButton(tr("No Thanks"), true);
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
