#include "QuillaneDaemon.h"

#include "CallerTrash.h"
#include "HelperClientProxy.h"
#include "Platform/BuildInfo.h"
#include "Platform/FileSystem.h"
#include "Platform/SafeRemoval.h"
#include "Platform/SystemLog.h"
#include "Platform/linux/ProcMountTable.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QTimer>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <pwd.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace quillane::daemon
{

namespace fs = std::filesystem;

namespace
{

const QString deleteAction = QStringLiteral("com.velmoric.quillane.delete-item");
const QString uninstallAction = QStringLiteral("com.velmoric.quillane.uninstall");
const QString clientPath = QStringLiteral("/com/velmoric/QuillaneClient");

std::optional<fs::path> homeOf(uid_t uid)
{
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || !found ||
        !found->pw_dir)
        return std::nullopt;
    return withoutTrailingSlash(fs::path(found->pw_dir));
}

std::vector<MountEntry> mountTable(const fs::path& mountinfo)
{
    std::ifstream file(mountinfo, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return ProcMountTable::parse(text.str());
}

// Log text from a caller: control bytes escaped, and not without end.
std::string printable(const QByteArray& bytes)
{
    std::string text;
    for (const char c : bytes.left(512)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f || byte == '\\') {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
            text += escaped;
        } else {
            text += c;
        }
    }
    return bytes.size() > 512 ? text + "..." : text;
}

// Folders of the caller's part of a trash: real folders (the walk never follows a link) that
// the caller owns; a shared .Trash must carry the sticky bit instead, as it is root's.
FolderCheck callerOwns(uid_t uid, bool sharedTrash)
{
    return [uid, sharedTrash](const struct stat& folder, std::string_view component, std::size_t) {
        if (sharedTrash && component == ".Trash")
            return (folder.st_mode & S_ISVTX) != 0;
        return folder.st_uid == uid;
    };
}

QString errnoText(const std::string& error)
{
    return QString::fromStdString(error);
}

} // namespace

QuillaneDaemon::QuillaneDaemon(QDBusConnection bus, Installation installation, QObject* parent)
    : QObject(parent), m_bus(bus), m_installation(std::move(installation)), m_polkit(bus)
{
}

std::optional<uid_t> QuillaneDaemon::callerUid() const
{
    const QDBusReply<uint> uid = m_bus.interface()->serviceUid(message().service());
    return uid.isValid() ? std::optional<uid_t>(uid.value()) : std::nullopt;
}

void QuillaneDaemon::install()
{
    // Installing is the package's and the service manager's work; nothing is left to do here.
    SystemLog::write("install requested: nothing to do");
}

void QuillaneDaemon::stop()
{
    // Only root may stop the daemon; the bus starts it again on the next request anyway.
    if (callerUid() == 0u)
        QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
}

QStringList QuillaneDaemon::replyStatusWithReply()
{
    return {QStringLiteral("Quillane helper running, build %1").arg(BuildInfo::buildNumber)};
}

QStringList QuillaneDaemon::versionWithReply()
{
    return {QString::number(BuildInfo::buildNumber)};
}

void QuillaneDaemon::deleteFile(const QByteArray& url)
{
    const QString caller = message().service();
    const auto uid = callerUid();
    if (!uid) {
        reportDeletion(caller, url, QStringLiteral("the caller could not be identified"));
        return;
    }
    // What can be refused without asking anyone is refused at once, so that no request waits
    // on an administrator for nothing.
    if (url.size() > maxPathBytes) {
        reportDeletion(caller, url, QStringLiteral("the path is too long"));
        return;
    }
    if (const auto place = placeOf(url.toStdString(), *uid); !place) {
        reportDeletion(caller, url, QString::fromStdString(place.error()));
        return;
    }
    // One request of a caller at a time, in order; the bus allows only so many unanswered
    // calls, and a caller who leaves polkit's question open must not hold up everyone else.
    auto queue = m_waiting.find(caller);
    if (queue == m_waiting.end()) {
        if (m_waiting.size() >= maxWaitingCallers) {
            reportDeletion(caller, url, QStringLiteral("too many callers are waiting; try again"));
            return;
        }
        queue = m_waiting.emplace(caller, std::deque<Deletion>()).first;
    }
    if (queue->second.size() >= maxWaitingPerCaller) {
        reportDeletion(caller, url, QStringLiteral("too many requests are waiting; try again"));
        return;
    }
    queue->second.push_back({url, *uid});
    if (queue->second.size() == 1)
        deleteNext(caller);
}

void QuillaneDaemon::deleteNext(const QString& caller)
{
    const auto queue = m_waiting.find(caller);
    if (queue == m_waiting.end())
        return;
    if (queue->second.empty()) {
        m_waiting.erase(queue);
        return;
    }
    const Deletion request = queue->second.front();
    m_polkit.check(
        caller, deleteAction, this, [this, caller, request](bool authorized, const QString& error) {
            if (!authorized)
                reportDeletion(caller, request.url,
                               error.isEmpty() ? QStringLiteral("not authorized") : error);
            else
                reportDeletion(caller, request.url,
                               removeItem(request.url.toStdString(), request.uid));
            if (const auto done = m_waiting.find(caller); done != m_waiting.end()) {
                done->second.pop_front();
                deleteNext(caller);
            }
        });
}

void QuillaneDaemon::reportDeletion(const QString& caller, const QByteArray& url,
                                    const QString& error)
{
    SystemLog::write("deleteFile " + printable(url) + ": " +
                     (error.isEmpty() ? std::string("removed") : printable(error.toUtf8())));
    HelperClientProxy client(caller, clientPath, m_bus);
    client.deleteResultWithUrl(url, error.isEmpty() ? QStringList() : QStringList{error});
}

Result<TrashPlace> QuillaneDaemon::placeOf(const fs::path& item, uid_t uid) const
{
    const auto home = homeOf(uid);
    const auto mounts = mountTable(m_installation.mountinfo);
    std::vector<fs::path> points;
    for (const MountEntry& mount : mounts)
        points.push_back(mount.mountPoint);
    auto place = findCallerTrash(item, uid, home.value_or(fs::path()), points);
    if (!place)
        return place;
    // A volume whose files live elsewhere (a network share, a user's own filesystem) is no
    // place for root to remove things: it could hang the daemon or hide what it touches.
    const auto mount = std::ranges::find(mounts, place->anchor, &MountEntry::mountPoint);
    if (place->anchor != home && mount != mounts.end() &&
        (!mount->local || mount->fsType.starts_with("fuse") || mount->fsType == "autofs"))
        return Result<TrashPlace>::failure(place->anchor.native() + ": not a local volume");
    return place;
}

QString QuillaneDaemon::removeItem(const fs::path& item, uid_t uid) const
{
    // Looked up again: the mounts may have changed while the request waited on polkit.
    const auto place = placeOf(item, uid);
    if (!place)
        return errnoText(place.error());

    // Above the anchor, links are the administrator's; from it on, nothing is followed.
    const UniqueFd anchor =
        UniqueFd::adopt(open(place->anchor.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!anchor)
        return errnoText(describeErrno(place->anchor.native(), errno));
    const FolderCheck check = callerOwns(uid, place->sharedTrash);
    const auto trash = openBeneath(anchor.get(), place->trashFolder, check);
    if (!trash)
        return errnoText(trash.error());
    const auto files = openBeneath(trash->get(), "files", check);
    if (!files)
        return errnoText(files.error());
    if (const auto removed = removeEntry(files->get(), place->itemName); !removed)
        return errnoText(removed.error());

    // The record goes only after the item: a failed removal never leaves an item without one.
    if (const auto info = openBeneath(trash->get(), "info", check)) {
        const std::string record = place->itemName + ".trashinfo";
        struct stat entry {
        };
        if (fstatat(info->get(), record.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0 &&
            (S_ISREG(entry.st_mode) || S_ISLNK(entry.st_mode)) &&
            unlinkat(info->get(), record.c_str(), 0) != 0)
            return errnoText(describeErrno(record, errno));
    }
    return {};
}

QStringList QuillaneDaemon::uninstall(const QStringList& userName, const QStringList& appPath)
{
    Q_UNUSED(userName);
    const QString caller = message().service();
    const QString path = appPath.value(0);
    if (path.toStdString() != m_installation.executable.native())
        return {QStringLiteral("Refused: %1 is not this installation's application").arg(path)};
    setDelayedReply(true);
    const QDBusMessage request = message();
    m_polkit.check(
        caller, uninstallAction, this, [this, request](bool authorized, const QString& error) {
            if (!authorized) {
                m_bus.send(request.createReply(QStringList{
                    error.isEmpty() ? QStringLiteral("Refused: not authorized") : error}));
                return;
            }
            m_bus.send(request.createReply(QStringList{QStringLiteral("Uninstalling")}));
            const QString failure = removeInstallation();
            SystemLog::write("uninstall: " +
                             (failure.isEmpty() ? std::string("done") : failure.toStdString()));
            QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
        });
    return {};
}

QString QuillaneDaemon::removeInstallation() const
{
    // Only what the manifest lists, one file or link at a time; folders and anything else
    // stay. The manifest goes last.
    // The list decides what root removes, so it must be root's alone.
    struct stat owner {
    };
    if (lstat(m_installation.manifest.c_str(), &owner) != 0 || !S_ISREG(owner.st_mode) ||
        owner.st_uid != 0 || (owner.st_mode & (S_IWGRP | S_IWOTH)))
        return QStringLiteral("no install manifest that only root can write");
    std::ifstream manifest(m_installation.manifest);
    if (!manifest)
        return QStringLiteral("no install manifest");
    QString failures;
    std::string line;
    while (std::getline(manifest, line)) {
        const fs::path file = line;
        struct stat entry {
        };
        if (!file.is_absolute() || lstat(file.c_str(), &entry) != 0)
            continue;
        if (!S_ISREG(entry.st_mode) && !S_ISLNK(entry.st_mode))
            continue;
        if (unlink(file.c_str()) != 0)
            failures += QString::fromStdString(describeErrno(line, errno)) + QLatin1Char('\n');
    }
    unlink(m_installation.manifest.c_str());
    return failures.trimmed();
}

} // namespace quillane::daemon
