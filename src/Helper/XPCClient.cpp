#include "XPCClient.h"

#include "HelperClientAdaptor.h"
#include "HelperClientImpl.h"
#include "Platform/Alerts.h"
#include "Platform/ApplicationControl.h"
#include "Platform/BusNames.h"
#include "Platform/Console.h"
#include "Platform/Constant.h"
#include "Platform/PackageManager.h"
#include "Platform/Scheduler.h"
#include "Platform/ServiceManager.h"
#include "Platform/SystemLog.h"
#include "Platform/UserDefaults.h"
#include "TrashHelperProxy.h"
#include "VLAppService.h"

#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QDBusServiceWatcher>
#include <QPointer>
#include <pwd.h>
#include <unistd.h>

namespace quillane
{

using namespace std::chrono_literals;

namespace
{

constexpr auto startRetryInterval = 2000ms;
constexpr qint64 startRetryLimit = 30;
constexpr auto registrationWaitInterval = 1000ms;
constexpr int registrationWaitLimit = 60;
constexpr auto registerDelay = 500ms;
constexpr auto refreshBuildDelay = 1000ms;
const QString uninstallAccepted = QStringLiteral("Uninstalling");
constexpr int uninstallTimeoutMs = 6 * 60 * 1000;
// How long items handed over are gathered into one batch: the emptying hands them over as its
// workers find them, many within a few milliseconds.
constexpr auto deletionGathering = 2ms;
// A batch stays well within what the daemon lets one user have waiting (2 MiB).
constexpr qsizetype batchBytes = 512 * 1024;
QString timeoutText()
{
    return XPCClient::tr(
        "The Quillane helper is required for Quillane to function correctly. Restarting your "
        "computer and relaunching Quillane may address the issue.");
}

std::optional<QString> firstOf(const QStringList& values)
{
    return values.isEmpty() ? std::nullopt : std::optional(values.first());
}

QStringList present(const QString& value)
{
    return {value};
}

QString loginName()
{
    const passwd* entry = getpwuid(getuid());
    return entry && entry->pw_name ? QString::fromLocal8Bit(entry->pw_name) : QString();
}

} // namespace

// The connection to the daemon: a proxy for the daemon's object and a watch on the daemon's
// name, made once and kept for the client's life (calls go to whichever process owns the name,
// so a daemon started again needs no new one). The exported HelperClient is the client's own
// too, so that a report on its way is never dropped.
class HelperConnection
{
public:
    HelperConnection(const QDBusConnection& bus, std::function<void()> interrupted)
    {
        if (!bus.isConnected())
            return;
        m_proxy = std::make_unique<TrashHelperProxy>(Constant::helperMachLabel,
                                                     BusNames::daemonPath, bus);
        m_watcher = std::make_unique<QDBusServiceWatcher>(
            Constant::helperMachLabel, bus, QDBusServiceWatcher::WatchForUnregistration);
        QObject::connect(m_watcher.get(), &QDBusServiceWatcher::serviceUnregistered,
                         std::move(interrupted));
    }

    TrashHelperProxy* proxy() const { return m_proxy.get(); }

private:
    std::unique_ptr<TrashHelperProxy> m_proxy;
    std::unique_ptr<QDBusServiceWatcher> m_watcher;
};

XPCClient::XPCClient(Services services, QObject* parent)
    : QObject(parent), m_services(std::move(services))
{
    qDBusRegisterMetaType<QByteArrayList>(); // the paths of a batch
    if (m_services.bus.isConnected()) {
        m_exported = std::make_unique<HelperClientImpl>(m_services.mainQueue);
        new HelperClientAdaptor(m_exported.get()); // owned by the exported object
        m_services.bus.registerObject(BusNames::clientPath, m_exported.get(),
                                      QDBusConnection::ExportAdaptors);
        QObject::connect(m_exported.get(), &HelperClientImpl::versionPosted, this,
                         [this](const QString& version) { storeBuild(version); });
        QObject::connect(m_exported.get(), &HelperClientImpl::deleted, this,
                         [this](const QByteArray& url) { Q_EMIT xpcDidDelete(url.toStdString()); });
        QObject::connect(m_exported.get(), &HelperClientImpl::deleteFailed, this,
                         [this](const QByteArray& url, const QString& reason) {
                             Q_EMIT xpcDeleteFailed(url.toStdString(), reason);
                         });
    }
    QPointer<XPCClient> self(this);
    m_services.appService.setDaemonStatusListener([self] {
        if (self)
            self->daemonStatusRead();
    });
    m_helperRegistered = m_services.appService.isRegistered();
    m_loginItemActive = m_services.appService.loginAdded();
    if (m_services.defaults.boolValue(Constant::loginItemSupressedKey) || m_loginItemActive)
        m_showLoginLaunchScreen = false;
}

XPCClient::~XPCClient()
{
    m_services.appService.setDaemonStatusListener({});
    if (m_exported)
        m_services.bus.unregisterObject(BusNames::clientPath);
}

std::optional<qint64> XPCClient::parseBuildNumber(const QString& text)
{
    qsizetype digitsFrom =
        !text.isEmpty() && (text[0] == QLatin1Char('+') || text[0] == QLatin1Char('-')) ? 1 : 0;
    if (text.size() == digitsFrom)
        return std::nullopt;
    for (qsizetype i = digitsFrom; i < text.size(); ++i)
        if (text[i] < QLatin1Char('0') || text[i] > QLatin1Char('9'))
            return std::nullopt;
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    return ok ? std::optional(value) : std::nullopt;
}

void XPCClient::connect()
{
    if (proxy())
        return;
    QPointer<XPCClient> self(this);
    auto next = std::make_unique<HelperConnection>(m_services.bus, [self] {
        if (self)
            self->connetionInterruptionHandler();
    });
    m_connection = std::move(next);
}

TrashHelperProxy* XPCClient::proxy() const
{
    return m_connection ? m_connection->proxy() : nullptr;
}

namespace
{

// Calls onReply with the reply when there is one. A call that fails because the daemon or the
// bus is not there ends the connection; one that is never answered calls nothing.
void whenReplied(QDBusPendingCall call, QObject* context, std::function<void()> invalidated,
                 std::function<void(std::optional<QString>)> onReply,
                 std::function<void()> failed = {})
{
    auto* watcher = new QDBusPendingCallWatcher(call, context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                     [watcher, invalidated = std::move(invalidated), onReply = std::move(onReply),
                      failed = std::move(failed)] {
                         watcher->deleteLater();
                         const QDBusPendingReply<QStringList> reply = *watcher;
                         if (!reply.isError()) {
                             onReply(firstOf(reply.value()));
                             return;
                         }
                         if (failed)
                             failed();
                         switch (reply.error().type()) {
                         case QDBusError::ServiceUnknown:
                         case QDBusError::Disconnected:
                         case QDBusError::UnknownObject:
                             invalidated();
                             break;
                         default:
                             break;
                         }
                     });
}

} // namespace

void XPCClient::start()
{
    // A daemon that is not installed was said once; trying again is the user's call.
    if (m_daemonSettled)
        return;
    if (!m_helperRegistered)
        authorize();
    connect();
    TrashHelperProxy* helper = proxy();
    if (!helper) {
        Console::writeLine("no helper");
        return;
    }
    // One live retry timer: a newer start replaces the last one's.
    m_retryTimer = m_services.mainQueue.repeat(startRetryInterval, [this] { retryTick(); });
    whenReplied(
        helper->versionWithReply(), this, [this] { connectionInvalidationHandler(); },
        [this](const std::optional<QString>& reply) { handleVersionReply(reply); });
}

void XPCClient::runSoon(std::function<void()> task)
{
    runAfter(Scheduler::Duration::zero(), std::move(task));
}

void XPCClient::runAfter(Scheduler::Duration delay, std::function<void()> task)
{
    // Steps queued for later do nothing once the client is gone.
    m_services.mainQueue.postAfter(delay,
                                   [self = QPointer<XPCClient>(this), task = std::move(task)] {
                                       if (self)
                                           task();
                                   });
}

void XPCClient::retryTick()
{
    if (!m_receivedReply) {
        ++m_retryCount;
        m_services.appService.registerDaemon();
        start();
    } else {
        m_retryTimer.reset();
    }
    if (m_retryCount > startRetryLimit) {
        m_retryTimer.reset();
        runSoon([this] {
            showTimeoutAlert(XPCClient::tr("Start Quillane Helper timed out"), [this] {
                m_retryCount = 0;
                start();
            });
        });
    }
}

void XPCClient::showTimeoutAlert(const QString& title, std::function<void()> keepTrying)
{
    const AlertAnswer answer =
        m_services.alerts.runModal({title,
                                    timeoutText(),
                                    {XPCClient::tr("Keep Trying"), XPCClient::tr("Quit")},
                                    false,
                                    {},
                                    /*cancelButton=*/0});
    if (answer.button == AlertAnswer::firstButton)
        keepTrying();
    else
        m_services.application.terminate();
}

void XPCClient::handleVersionReply(const std::optional<QString>& reply)
{
    m_receivedReply = true;
    if (!m_services.bundle.buildVersion) {
        Console::writeLine("Couldn't retrieve build number");
        return;
    }
    const auto appBuild = parseBuildNumber(*m_services.bundle.buildVersion);
    const auto helperBuild = parseBuildNumber(reply.value_or(QString()));
    if (!appBuild || !helperBuild)
        return;
    runSoon([this, build = *helperBuild] {
        // An answer is the surest sign that the daemon is there.
        if (!m_helperRegistered)
            setHelperRegistered(true);
        setHelperBuildNumber(build);
        updateBuild();
    });
    if (*helperBuild < *appBuild) {
        m_shouldUpdate = true;
        authorize();
    }
}

void XPCClient::authorize()
{
    if (m_daemonSettled)
        return;
    if (m_shouldUpdate)
        m_services.appService.unregisterDaemon();
    runAfter(registerDelay, [this] {
        if (m_daemonSettled)
            return;
        m_services.appService.registerDaemon();
        runSoon([this] { setHelperRegistered(m_services.appService.isRegistered()); });
        if (m_shouldUpdate)
            m_shouldUpdate = false;
    });
    runAfter(refreshBuildDelay, [this] {
        if (!m_daemonSettled)
            updateBuild();
    });
}

void XPCClient::waitAndStart()
{
    // The user (or the launch) asks again: the next tick reads the status once more.
    m_daemonSettled = false;
    auto ticks = std::make_shared<int>(0);
    m_waitTimer = m_services.mainQueue.repeat(registrationWaitInterval, [this, ticks] {
        m_services.appService.updateStatus();
        if (m_services.appService.serviceStatus() == 1)
            m_waitTimer.reset(); // the rest of this tick still runs
        start();
        if (++*ticks > registrationWaitLimit) {
            m_waitTimer.reset();
            runSoon([this] {
                showTimeoutAlert(XPCClient::tr("Registering Quillane Helper timed out"),
                                 [this] { waitAndStart(); });
            });
        }
    });
}

void XPCClient::xpcStatus()
{
    if (m_services.appService.serviceStatus() == 1)
        setHelperRegistered(true);
    // The status is read off the main thread; once it is in, a registered daemon is started.
    else if (m_services.appService.daemonStatusPending())
        m_startWhenRegistered = true;
    m_helperStatus = QStringLiteral("checking");
    if (TrashHelperProxy* helper = proxy()) {
        whenReplied(
            helper->replyStatusWithReply(), this, [this] { connectionInvalidationHandler(); },
            [this](const std::optional<QString>& reply) {
                if (reply)
                    m_helperStatus = *reply;
            });
    }
}

void XPCClient::daemonStatusRead()
{
    const VLAppService& service = m_services.appService;
    if (service.isRegistered() && !m_helperRegistered)
        setHelperRegistered(true);
    const bool enabled = service.serviceStatus() == ServiceHandle::Enabled;
    setHelperMissing(!enabled);
    if (!enabled) {
        // Nothing here can install the daemon: every loop ends, and the page says what to do.
        m_daemonSettled = true;
        m_startWhenRegistered = false;
        m_waitTimer.reset();
        m_retryTimer.reset();
        return;
    }
    m_daemonSettled = false;
    if (std::exchange(m_startWhenRegistered, false))
        waitAndStart();
}

void XPCClient::connetionInterruptionHandler()
{
    SystemLog::write("[QuillaneClient] XPCClient: connection has been interrupted QuillaneClient");
    const QDBusReply<QStringList> activatable =
        m_services.bus.interface()->activatableServiceNames();
    Q_EMIT helperLeft(activatable.isValid() &&
                      activatable.value().contains(Constant::helperMachLabel));
}

void XPCClient::connectionInvalidationHandler()
{
    SystemLog::write("[QuillaneClient] XPCClient: connection has been invalidated QuillaneClient");
    if ((m_helperStatus == QStringLiteral("checking") ||
         m_helperStatus == QStringLiteral("unknown")) &&
        m_services.appService.shouldGrantPrivilege())
        authorize();
}

void XPCClient::deleteFile(const std::optional<std::filesystem::path>& url)
{
    if (!url)
        return;
    m_deletions << QByteArray::fromStdString(url->native());
    if (m_deletions.size() == 1)
        runAfter(deletionGathering, [this] { sendDeletions(); });
}

void XPCClient::sendDeletions()
{
    const QByteArrayList items = std::exchange(m_deletions, {});
    connect();
    TrashHelperProxy* helper = proxy();
    // Without a bus there is no one to ask: the items stay, and whoever waits on them is told.
    if (!helper || !m_services.bus.isConnected()) {
        deletionsFailed(items, XPCClient::tr("the system bus is not reachable"));
        return;
    }
    for (qsizetype first = 0; first < items.size();) {
        QByteArrayList batch;
        qsizetype bytes = 0;
        for (;
             first < items.size() && (batch.isEmpty() || bytes + items[first].size() <= batchBytes);
             ++first) {
            bytes += items[first].size();
            batch << items[first];
        }
        // The reply only says the batch was taken in; the outcomes come one by one. A daemon
        // older than batches takes the items one at a time.
        auto* watcher = new QDBusPendingCallWatcher(helper->deleteFiles(batch), this);
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, batch] {
            watcher->deleteLater();
            if (watcher->isError() && watcher->error().type() == QDBusError::UnknownMethod)
                sendOneByOne(batch);
        });
    }
}

void XPCClient::sendOneByOne(const QByteArrayList& items)
{
    if (TrashHelperProxy* helper = proxy())
        for (const QByteArray& item : items)
            helper->deleteFile(item);
}

void XPCClient::deletionsFailed(const QByteArrayList& items, const QString& reason)
{
    m_services.mainQueue.post(this, [this, items, reason] {
        for (const QByteArray& item : items)
            Q_EMIT xpcDeleteFailed(item.toStdString(), reason);
    });
}

void XPCClient::updateBuild()
{
    connect();
    if (TrashHelperProxy* helper = proxy()) {
        whenReplied(
            helper->versionWithReply(), this, [this] { connectionInvalidationHandler(); },
            [this](const std::optional<QString>& reply) { storeBuild(reply); });
    }
}

void XPCClient::storeBuild(const std::optional<QString>& reply)
{
    if (const auto build = parseBuildNumber(reply.value_or(QString())))
        setHelperBuildNumber(*build);
}

void XPCClient::uninstallQuillane()
{
    // The package manager owns a packaged installation's files: it removes them, never the daemon.
    if (m_services.package) {
        removePackage(*m_services.package);
        return;
    }
    connect();
    if (!m_services.bundle.executablePath) {
        SystemLog::write("Uninstall Failed");
        return;
    }
    TrashHelperProxy* helper = proxy();
    if (!helper)
        return;
    const QString appPath = QString::fromStdString(m_services.bundle.executablePath->native());
    // The daemon may wait minutes for an administrator's password before it answers.
    helper->setTimeout(uninstallTimeoutMs);
    const QDBusPendingCall call = helper->uninstall(present(loginName()), present(appPath));
    helper->setTimeout(-1);
    whenReplied(
        call, this, [this] { connectionInvalidationHandler(); },
        [this](const std::optional<QString>& reply) {
            m_uninstallerReplied = true;
            if (reply == uninstallAccepted) {
                m_services.appService.unregisterDaemon();
                m_services.appService.removeLoginItem();
                runSoon([this] { m_services.application.terminate(); });
            } else {
                Console::writeLine("Uninstall Failed");
            }
        },
        [] { Console::writeLine("Uninstall Failed"); });
}

void XPCClient::removePackage(const QString& package)
{
    if (!m_services.packageManager) {
        showRemovalCommand(package, "no package manager service runs here");
        return;
    }
    QPointer<XPCClient> self(this);
    m_services.packageManager->removePackage(package, [self, package](const Result<bool>& removed) {
        if (!self)
            return;
        self->m_uninstallerReplied = true;
        if (!removed) {
            self->showRemovalCommand(package, removed.error());
            return;
        }
        self->m_services.appService.removeLoginItem();
        self->runSoon([self] { self->m_services.application.terminate(); });
    });
}

void XPCClient::showRemovalCommand(const QString& package, const std::string& why)
{
    Console::writeLine("Uninstall Failed: ", why);
    m_services.alerts.runModal(
        {XPCClient::tr("Uninstall Failed"),
         XPCClient::tr("Quillane came with the package %1, which only the package manager "
                       "removes. Run this command in a terminal: sudo apt remove %1")
             .arg(package),
         {XPCClient::tr("OK")},
         false,
         {},
         /*cancelButton=*/0});
}

void XPCClient::repairHomeTrash(std::function<void(std::optional<QString>)> done)
{
    // A plain call rather than the generated proxy's, so that polkit may ask the user:
    //   repairHomeTrash() -> as error    (no error: the trash is the caller's again)
    // The daemon finds the caller's trash from the caller's own uid, never from the client.
    QDBusMessage call = QDBusMessage::createMethodCall(
        Constant::helperMachLabel, BusNames::daemonPath, BusNames::trashHelperInterface,
        QStringLiteral("repairHomeTrash"));
    call.setInteractiveAuthorizationAllowed(true);
    if (!m_services.bus.isConnected()) {
        done(XPCClient::tr("the system bus is not reachable"));
        return;
    }
    // An administrator may take minutes to answer polkit's question.
    auto* watcher =
        new QDBusPendingCallWatcher(m_services.bus.asyncCall(call, uninstallTimeoutMs), this);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, this,
                     [watcher, done = std::move(done)] {
                         watcher->deleteLater();
                         const QDBusPendingReply<QStringList> reply = *watcher;
                         if (reply.isError()) {
                             const QDBusError error = reply.error();
                             done(error.message().isEmpty() ? error.name() : error.message());
                             return;
                         }
                         done(firstOf(reply.value()));
                     });
}

void XPCClient::openLoginItems()
{
    m_services.appService.openLoginItems();
}

void XPCClient::toggleLoginItem()
{
    if (m_loginItemActive)
        addToLoginItems();
    else
        removeFromLoginItems();
}

void XPCClient::addToLoginItems()
{
    setLoginItemActive(m_services.appService.addToLoginItems());
    setShowLoginLaunchScreen(!m_loginItemActive);
}

void XPCClient::removeFromLoginItems()
{
    setLoginItemActive(!m_services.appService.removeFromLoginItems());
}

void XPCClient::setHelperBuildNumber(qint64 build)
{
    m_helperBuildNumber = build;
    Q_EMIT helperBuildNumberChanged();
    m_helperBuildString = QString::number(build);
    Q_EMIT helperBuildStringChanged();
}

void XPCClient::setHelperRegistered(bool registered)
{
    m_helperRegistered = registered;
    Q_EMIT helperRegisteredChanged();
}

void XPCClient::setHelperMissing(bool missing)
{
    if (missing == m_helperMissing)
        return;
    m_helperMissing = missing;
    Q_EMIT helperMissingChanged();
}

void XPCClient::setLoginItemActive(bool active)
{
    m_loginItemActive = active;
    Q_EMIT loginItemActiveChanged();
}

void XPCClient::setShowLoginLaunchScreen(bool show)
{
    m_showLoginLaunchScreen = show;
    Q_EMIT showLoginLaunchScreenChanged();
}

void XPCClient::setShouldOpenLoginItems(bool open)
{
    m_shouldOpenLoginItems = open;
    Q_EMIT shouldOpenLoginItemsChanged();
}

} // namespace quillane
