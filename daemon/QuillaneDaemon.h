#pragma once

#include "CallerTrash.h"
#include "PolkitAuthority.h"

#include <QByteArray>
#include <QDBusContext>
#include <QObject>
#include <QStringList>
#include <deque>
#include <filesystem>
#include <map>
#include <vector>

namespace quillane::daemon
{

// What the daemon needs to know of its installation.
struct Installation {
    std::filesystem::path executable; // the application the uninstall request must name
    std::filesystem::path manifest;   // the files this installation put in place
    std::filesystem::path mountinfo = "/proc/self/mountinfo";
};

// The privileged helper: removes items from a caller's own trash folders that the caller's
// account cannot remove, and uninstalls this installation. Every request is checked before
// anything is touched: who asks (by the bus), what polkit says, and whether the path is an
// entry of one of the caller's trash folders.
class QuillaneDaemon : public QObject, protected QDBusContext
{
    Q_OBJECT

public:
    QuillaneDaemon(QDBusConnection bus, Installation installation, QObject* parent = nullptr);

    void install();
    QStringList uninstall(const QStringList& userName, const QStringList& appPath);
    void stop();
    QStringList replyStatusWithReply();
    QStringList versionWithReply();
    void deleteFile(const QByteArray& url);

private:
    struct Deletion {
        QByteArray url;
        uid_t uid;
    };
    static constexpr qsizetype maxPathBytes = 4096;
    static constexpr std::size_t maxWaitingCallers = 32;
    static constexpr std::size_t maxWaitingPerCaller = 10000;

    void deleteNext(const QString& caller);
    // The caller's trash the path is an entry of, on a local volume; or why it is none.
    Result<TrashPlace> placeOf(const std::filesystem::path& item, uid_t uid) const;
    // The uid behind the calling connection, or nothing when the bus will not say.
    std::optional<uid_t> callerUid() const;
    void reportDeletion(const QString& caller, const QByteArray& url, const QString& error);
    QString removeItem(const std::filesystem::path& item, uid_t uid) const;
    QString removeInstallation() const;

    QDBusConnection m_bus;
    Installation m_installation;
    PolkitAuthority m_polkit;
    std::map<QString, std::deque<Deletion>> m_waiting; // per caller; the first is in progress
};

} // namespace quillane::daemon
