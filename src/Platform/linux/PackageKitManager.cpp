#include "PackageKitManager.h"

#include "Platform/BusNames.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QPointer>
#include <memory>

namespace quillane
{

namespace
{

const QString service = BusNames::packageKitService;
const QString transactionInterface = BusNames::packageKitTransactionInterface;
constexpr qulonglong installedOnly = 1ULL << 2; // PK_FILTER_ENUM_INSTALLED
constexpr uint exitSuccess = 1;                 // PK_EXIT_ENUM_SUCCESS
// An administrator may take minutes to answer; removing takes some more.
constexpr int transactionTimeout = 10 * 60 * 1000;

// One PackageKit transaction: the method it runs, and the signals that report on it.
class Transaction : public QObject
{
    Q_OBJECT

public:
    Transaction(QDBusConnection bus, QString path, QObject* parent)
        : QObject(parent), m_bus(std::move(bus)), m_path(std::move(path))
    {
        for (const char* name : {"Package", "Finished", "ErrorCode"}) {
            const QString member = QString::fromLatin1(name);
            const char* slot = member == u"Package"    ? SLOT(package(uint, QString, QString))
                               : member == u"Finished" ? SLOT(finished(uint, uint))
                                                       : SLOT(errorCode(uint, QString));
            m_bus.connect(service, m_path, transactionInterface, member, this, slot);
        }
    }

    void run(const QString& method, const QVariantList& arguments)
    {
        QDBusMessage call =
            QDBusMessage::createMethodCall(service, m_path, transactionInterface, method);
        call.setArguments(arguments);
        call.setInteractiveAuthorizationAllowed(true);
        auto* watcher =
            new QDBusPendingCallWatcher(m_bus.asyncCall(call, transactionTimeout), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
            watcher->deleteLater();
            if (watcher->isError())
                end(Result<bool>::failure(watcher->error().message().toStdString()));
        });
    }

    std::function<void(const QString& packageId)> onPackage;
    std::function<void(Result<bool>)> onEnd;

private Q_SLOTS:
    void package(uint, const QString& packageId, const QString&)
    {
        if (onPackage)
            onPackage(packageId);
    }
    void finished(uint exit, uint)
    {
        end(exit == exitSuccess
                ? Result<bool>::success(true)
                : Result<bool>::failure(m_error.isEmpty() ? "the package manager stopped"
                                                          : m_error.toStdString()));
    }
    void errorCode(uint, const QString& details) { m_error = details; }

private:
    void end(Result<bool> result)
    {
        if (!onEnd)
            return;
        const auto done = std::exchange(onEnd, {});
        deleteLater();
        done(std::move(result));
    }

    QDBusConnection m_bus;
    QString m_path;
    QString m_error;
};

} // namespace

PackageKitManager::PackageKitManager(QDBusConnection bus, QObject* parent)
    : QObject(parent), m_bus(std::move(bus))
{
}

void PackageKitManager::removePackage(const QString& name, std::function<void(Result<bool>)> done)
{
    // A transaction's steps go one after the other; each is started by the last one's end.
    const auto newTransaction = [this](std::function<void(Transaction*)> use,
                                       std::function<void(Result<bool>)> failed) {
        const QDBusMessage call = QDBusMessage::createMethodCall(
            service, BusNames::packageKitPath, service, QStringLiteral("CreateTransaction"));
        auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this,
                [this, watcher, use = std::move(use), failed = std::move(failed)] {
                    watcher->deleteLater();
                    const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
                    if (reply.isError()) {
                        failed(Result<bool>::failure(reply.error().message().toStdString()));
                        return;
                    }
                    use(new Transaction(m_bus, reply.value().path(), this));
                });
    };

    auto packageId = std::make_shared<QString>();
    newTransaction(
        [name, packageId, done, newTransaction](Transaction* resolve) {
            resolve->onPackage = [packageId](const QString& id) { *packageId = id; };
            resolve->onEnd = [name, packageId, done, newTransaction](Result<bool> resolved) {
                if (!resolved) {
                    done(resolved);
                    return;
                }
                if (packageId->isEmpty()) {
                    done(Result<bool>::failure("the package " + name.toStdString() +
                                               " is not installed"));
                    return;
                }
                newTransaction(
                    [packageId, done](Transaction* remove) {
                        remove->onEnd = done;
                        remove->run(QStringLiteral("RemovePackage"),
                                    {qulonglong(0), QStringList{*packageId}, false, false});
                    },
                    done);
            };
            resolve->run(QStringLiteral("Resolve"), {installedOnly, QStringList{name}});
        },
        done);
}

} // namespace quillane

#include "PackageKitManager.moc"
