#pragma once

#include "ItemRemoval.h"
#include "PolkitAuthority.h"
#include "RequestQueue.h"

#include <QByteArray>
#include <QDBusContext>
#include <QObject>
#include <QStringList>
#include <QThreadPool>
#include <QTimer>
#include <chrono>
#include <filesystem>
#include <optional>

namespace quillane::daemon
{

// What the daemon needs to know of its installation.
struct Installation {
    std::filesystem::path executable; // the application the uninstall request must name
    std::filesystem::path mountinfo = "/proc/self/mountinfo";
};

// How much the daemon takes on, and how long it stays without work.
struct DaemonLimits {
    RequestQueue::Limits waiting;
    int removalThreads = 4;
    std::chrono::milliseconds idleExit = std::chrono::minutes(1);
};

// The privileged helper: removes items from a caller's own trash folders that the caller's
// account cannot remove, gives a caller's home trash back to them, and accepts the uninstalling
// of this installation. Every request is checked before anything is touched: who asks (by the
// bus), what polkit says, and whether the path is an entry of one of the caller's trash folders.
// Items come one by one or in batches; a batch is one request, which polkit is asked about once,
// and each of its items is answered on its own. The thread that reads the bus never waits on a
// removal: removals run on worker threads, one user's at a time each.
class QuillaneDaemon : public QObject, protected QDBusContext
{
    Q_OBJECT

public:
    // The exit status that tells the service manager's stop step to remove the installation.
    static constexpr int uninstallAccepted = 3;

    QuillaneDaemon(QDBusConnection bus, Installation installation, DaemonLimits limits = {},
                   QObject* parent = nullptr);
    ~QuillaneDaemon() override;

    void install();
    QStringList uninstall(const QStringList& userName, const QStringList& appPath);
    void stop();
    QStringList replyStatusWithReply();
    QStringList versionWithReply();
    void deleteFile(const QByteArray& url);
    void deleteFiles(const QByteArrayList& urls);
    QStringList repairHomeTrash();

private:
    static constexpr qsizetype maxPathBytes = 4096;
    static constexpr qsizetype maxUserNameBytes = 256;

    // The uid behind the calling connection, or nothing when the bus will not say.
    std::optional<uid_t> callerUid() const;
    // Queues a request; false, with the request answered, when it cannot wait.
    void enqueue(uid_t uid, Request request);
    // Serves the user's current request: polkit first, then the work.
    void serve(uid_t uid);
    // The caller of a request, or nothing once the request is answered that it has none.
    std::optional<Caller> callerFor(uid_t uid, const Request& request);
    void removeOnWorker(uid_t uid, const Request& request);
    void repairOnWorker(uid_t uid, const Request& request);
    void finish(uid_t uid);
    void answer(const Request& request, const QString& error);
    void reportDeletion(const QString& caller, const QByteArray& url, const QString& error);
    void replyToUninstall(const QDBusMessage& call, const QString& reply);
    void replyToRepair(const QDBusMessage& call, const QString& error);
    void noteActivity();

    QDBusConnection m_bus;
    Installation m_installation;
    PolkitAuthority m_polkit;
    RequestQueue m_queue;
    QThreadPool m_workers;
    QTimer m_idle;
};

} // namespace quillane::daemon
