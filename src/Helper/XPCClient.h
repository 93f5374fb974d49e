#pragma once

#include "Platform/BundleInfo.h"

#include <QByteArrayList>
#include <QDBusConnection>
#include <QObject>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

class TrashHelperProxy;

namespace quillane
{

class Alerts;
class ApplicationControl;
class HelperClientImpl;
class HelperConnection;
class PackageManager;
class RepeatingTimer;
class Scheduler;
class UserDefaults;
class VLAppService;

// The D-Bus client of the helper daemon on the system bus.
//
// The application's side of the link to the privileged helper daemon: starts it with timed
// retries, re-registers an older one, tracks its build for display, hands it items to remove
// and asks it to uninstall the application. Everything runs on the main thread: the bus
// delivers replies and callbacks there. One proxy and one watch on the daemon's name serve the
// client's whole life. Items to remove are gathered for a moment and sent in batches, each of
// which the daemon has polkit approve once; each item's outcome still comes back on its own.
class XPCClient : public QObject
{
    Q_OBJECT
    Q_PROPERTY(qint64 helperBuildNumber READ helperBuildNumber NOTIFY helperBuildNumberChanged)
    Q_PROPERTY(QString helperBuildString READ helperBuildString NOTIFY helperBuildStringChanged)
    Q_PROPERTY(bool helperRegistered READ helperRegistered NOTIFY helperRegisteredChanged)
    Q_PROPERTY(bool helperMissing READ helperMissing NOTIFY helperMissingChanged)
    Q_PROPERTY(bool loginItemActive READ loginItemActive WRITE setLoginItemActive NOTIFY
                   loginItemActiveChanged)
    Q_PROPERTY(
        bool showLoginLaunchScreen READ showLoginLaunchScreen NOTIFY showLoginLaunchScreenChanged)
    Q_PROPERTY(bool shouldOpenLoginItems READ shouldOpenLoginItems WRITE setShouldOpenLoginItems
                   NOTIFY shouldOpenLoginItemsChanged)

public:
    struct Services {
        QDBusConnection bus; // the system bus, where the daemon lives
        Scheduler& mainQueue;
        VLAppService& appService;
        UserDefaults& defaults;
        Alerts& alerts;
        ApplicationControl& application;
        BundleInfo bundle;
        // The package the application came from, if it did, and the package manager that
        // removes it: such an installation is uninstalled by its package manager, not the daemon.
        std::optional<QString> package = std::nullopt;
        PackageManager* packageManager = nullptr;
    };

    explicit XPCClient(Services services, QObject* parent = nullptr);
    ~XPCClient() override;

    void start();
    void authorize();
    void waitAndStart();
    void xpcStatus();
    // Queues the item for the next batch, sent once the main loop has turned and a moment passed.
    void deleteFile(const std::optional<std::filesystem::path>& url);
    void updateBuild();
    void uninstallQuillane();
    // Asks the daemon to give the user's home trash back to the user (owner and permissions),
    // which polkit has an administrator approve. done gets none once it is done, else why not.
    void repairHomeTrash(std::function<void(std::optional<QString> error)> done);
    void openLoginItems();
    void toggleLoginItem();
    void addToLoginItems();
    void removeFromLoginItems();

    qint64 helperBuildNumber() const { return m_helperBuildNumber; }
    QString helperBuildString() const { return m_helperBuildString; }
    bool helperRegistered() const { return m_helperRegistered; }
    // The last read of the daemon's status found it not installed (or forbidden). Nothing asks
    // again until the user does (waitAndStart()) or the status changes.
    bool helperMissing() const { return m_helperMissing; }
    bool loginItemActive() const { return m_loginItemActive; }
    void setLoginItemActive(bool active);
    bool showLoginLaunchScreen() const { return m_showLoginLaunchScreen; }
    bool shouldOpenLoginItems() const { return m_shouldOpenLoginItems; }
    void setShouldOpenLoginItems(bool open);

    const QString& helperStatus() const { return m_helperStatus; }
    bool uninstallerReplied() const { return m_uninstallerReplied; }
    bool shouldUpdate() const { return m_shouldUpdate; }
    bool receivedReply() const { return m_receivedReply; }
    qint64 retryCount() const { return m_retryCount; }

    // A build number: decimal digits with at most one leading sign ("0012" is 12).
    static std::optional<qint64> parseBuildNumber(const QString& text);

Q_SIGNALS:
    void helperBuildNumberChanged();
    void helperBuildStringChanged();
    void helperRegisteredChanged();
    void helperMissingChanged();
    void loginItemActiveChanged();
    void showLoginLaunchScreenChanged();
    void shouldOpenLoginItemsChanged();
    // The daemon left the bus while connected (it stopped, or was stopped). restartable: the
    // bus can start it again on the next call.
    void helperLeft(bool restartable);
    // The outcome of an item given to deleteFile(): the daemon removed it, or it stays (the
    // daemon refused or failed, or the item could not be sent).
    void xpcDidDelete(const std::filesystem::path& item);
    void xpcDeleteFailed(const std::filesystem::path& item, const QString& reason);

private:
    void connect();
    TrashHelperProxy* proxy() const;
    void retryTick();
    void handleVersionReply(const std::optional<QString>& reply);
    void storeBuild(const std::optional<QString>& reply);
    // Runs when the daemon's name leaves the system bus (the daemon ended or crashed).
    void connetionInterruptionHandler();
    void connectionInvalidationHandler();
    void setHelperBuildNumber(qint64 build);
    void setHelperRegistered(bool registered);
    void setHelperMissing(bool missing);
    void daemonStatusRead();
    void setShowLoginLaunchScreen(bool show);
    void runSoon(std::function<void()> task);
    void runAfter(std::chrono::milliseconds delay, std::function<void()> task);
    void showTimeoutAlert(const QString& title, std::function<void()> keepTrying);
    void removePackage(const QString& package);
    void sendDeletions();
    void sendOneByOne(const QByteArrayList& items);
    void deletionsFailed(const QByteArrayList& items, const QString& reason);
    void showRemovalCommand(const QString& package, const std::string& why);

    Services m_services;
    std::unique_ptr<HelperClientImpl> m_exported;
    std::unique_ptr<HelperConnection> m_connection;
    QString m_helperStatus = QStringLiteral("unknown");
    qint64 m_helperBuildNumber = 0;
    QString m_helperBuildString = QStringLiteral("unknown");
    bool m_uninstallerReplied = false;
    bool m_shouldUpdate = false;
    bool m_receivedReply = false;
    qint64 m_retryCount = 0;
    bool m_helperRegistered = false;
    bool m_helperMissing = false;
    // A status read found no daemon to start: the loops stop until the user asks again.
    bool m_daemonSettled = false;
    // Launch asked to start the daemon once its status, still being read, says it is there.
    bool m_startWhenRegistered = false;
    bool m_loginItemActive = false;
    bool m_showLoginLaunchScreen = true;
    bool m_shouldOpenLoginItems = false;
    std::unique_ptr<RepeatingTimer> m_retryTimer;
    std::unique_ptr<RepeatingTimer> m_waitTimer;
    QByteArrayList m_deletions; // items waiting for the next batch
};

} // namespace quillane
