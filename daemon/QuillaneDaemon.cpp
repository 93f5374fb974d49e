#include "QuillaneDaemon.h"

#include "HelperClientProxy.h"
#include "Platform/BuildInfo.h"
#include "Platform/BusNames.h"
#include "Platform/SystemLog.h"
#include "TrashRepair.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QFutureWatcher>
#include <QtConcurrent/QtConcurrentRun>
#include <cstdio>
#include <pwd.h>
#include <vector>

namespace quillane::daemon
{

namespace fs = std::filesystem;

namespace
{

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

std::optional<gid_t> primaryGroupOf(uid_t uid)
{
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return std::nullopt;
    return found->pw_gid;
}

QString refusalFor(RequestQueue::Admission admission)
{
    return admission == RequestQueue::Admission::full
               ? QStringLiteral("too many users are waiting; try again")
               : QStringLiteral("too many requests are waiting; try again");
}

} // namespace

QuillaneDaemon::QuillaneDaemon(QDBusConnection bus, Installation installation, DaemonLimits limits,
                               QObject* parent)
    : QObject(parent), m_bus(bus), m_installation(std::move(installation)), m_polkit(bus),
      m_queue(limits.waiting)
{
    qDBusRegisterMetaType<QByteArrayList>(); // deleteFiles' paths
    m_workers.setMaxThreadCount(limits.removalThreads);
    // The bus starts the daemon again on the next call, so an idle one need not stay; nor does
    // a replaced one, which is the new one at its next start.
    m_idle.setSingleShot(true);
    m_idle.setInterval(limits.idleExit);
    connect(&m_idle, &QTimer::timeout, this, [this] {
        if (m_queue.empty())
            QCoreApplication::quit();
        else
            m_idle.start();
    });
    m_idle.start();
}

QuillaneDaemon::~QuillaneDaemon()
{
    // A removal in progress finishes before its thread and its results go.
    m_workers.waitForDone();
}

void QuillaneDaemon::noteActivity()
{
    m_idle.start();
}

std::optional<uid_t> QuillaneDaemon::callerUid() const
{
    const QDBusReply<uint> uid = m_bus.interface()->serviceUid(message().service());
    return uid.isValid() ? std::optional<uid_t>(uid.value()) : std::nullopt;
}

void QuillaneDaemon::install()
{
    noteActivity();
    // Installing is the package's and the service manager's work; nothing is left to do here.
    SystemLog::write("install requested: nothing to do");
}

void QuillaneDaemon::stop()
{
    noteActivity();
    // Only root may stop the daemon; the bus starts it again on the next request anyway.
    if (callerUid() == 0u)
        QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
}

QStringList QuillaneDaemon::replyStatusWithReply()
{
    noteActivity();
    return {QStringLiteral("Quillane helper running, build %1").arg(BuildInfo::buildNumber)};
}

QStringList QuillaneDaemon::versionWithReply()
{
    noteActivity();
    return {QString::number(BuildInfo::buildNumber)};
}

void QuillaneDaemon::deleteFile(const QByteArray& url)
{
    deleteFiles({url});
}

void QuillaneDaemon::deleteFiles(const QByteArrayList& urls)
{
    noteActivity();
    const QString caller = message().service();
    const auto uid = callerUid();
    QList<QByteArray> accepted;
    for (const QByteArray& url : urls) {
        if (!uid) {
            reportDeletion(caller, url, QStringLiteral("the caller could not be identified"));
            continue;
        }
        // What can be refused without asking anyone is refused at once, so that no request
        // waits on an administrator for nothing.
        if (url.size() > maxPathBytes) {
            reportDeletion(caller, url, QStringLiteral("the path is too long"));
            continue;
        }
        if (const auto place = placeOfItem(url.toStdString(), *uid, m_installation.mountinfo);
            !place) {
            reportDeletion(caller, url, QString::fromStdString(place.error()));
            continue;
        }
        accepted << url;
    }
    if (!accepted.isEmpty())
        enqueue(*uid, {Request::Kind::deletion, caller, accepted, {}});
}

QStringList QuillaneDaemon::repairHomeTrash()
{
    noteActivity();
    const auto uid = callerUid();
    if (!uid)
        return {QStringLiteral("the caller could not be identified")};
    // The home and its trash are the password database's and the file system's word, checked
    // before an administrator is asked, and again once they have answered.
    if (const std::string refusal = checkHomeTrash(*uid, m_installation.mountinfo);
        !refusal.empty()) {
        SystemLog::write("repairHomeTrash for user " + std::to_string(*uid) + ": " +
                         printable(QByteArray::fromStdString(refusal)));
        return {QString::fromStdString(refusal)};
    }
    setDelayedReply(true);
    enqueue(*uid, {Request::Kind::repair, message().service(), {}, message()});
    return {};
}

QStringList QuillaneDaemon::uninstall(const QStringList& userName, const QStringList& appPath)
{
    noteActivity();
    const QString path = appPath.value(0);
    if (appPath.size() != 1 || path.toStdString() != m_installation.executable.native())
        return {QStringLiteral("Refused: %1 is not this installation's application").arg(path)};
    // The call is kept until polkit answers: nothing in it may be large.
    if (userName.size() > 1 || userName.value(0).size() > maxUserNameBytes)
        return {QStringLiteral("Refused: not a user name")};
    const auto uid = callerUid();
    if (!uid)
        return {QStringLiteral("Refused: the caller could not be identified")};
    setDelayedReply(true);
    enqueue(*uid, {Request::Kind::uninstall, message().service(), {}, message()});
    return {};
}

void QuillaneDaemon::enqueue(uid_t uid, Request request)
{
    const Request copy = request;
    switch (m_queue.add(uid, std::move(request))) {
    case RequestQueue::Admission::first:
        serve(uid);
        break;
    case RequestQueue::Admission::waiting:
        break;
    case RequestQueue::Admission::userFull:
        answer(copy, refusalFor(RequestQueue::Admission::userFull));
        break;
    case RequestQueue::Admission::full:
        answer(copy, refusalFor(RequestQueue::Admission::full));
        break;
    }
}

void QuillaneDaemon::serve(uid_t uid)
{
    const Request& waiting = m_queue.current(uid);
    const QString& action = waiting.kind == Request::Kind::deletion ? BusNames::deleteItemAction
                            : waiting.kind == Request::Kind::repair ? BusNames::repairTrashAction
                                                                    : BusNames::uninstallAction;
    m_polkit.check(
        waiting.caller, action, this, [this, uid](bool authorized, const QString& error) {
            const Request request = m_queue.current(uid);
            if (!authorized) {
                answer(request, error.isEmpty() ? QStringLiteral("not authorized") : error);
                finish(uid);
            } else if (request.kind == Request::Kind::deletion) {
                removeOnWorker(uid, request);
            } else if (request.kind == Request::Kind::repair) {
                repairOnWorker(uid, request);
            } else {
                // The files go in the service manager's stop step, outside this
                // process's sandbox, which keeps them read-only.
                replyToUninstall(request.call, QStringLiteral("Uninstalling"));
                SystemLog::write("uninstall: accepted");
                QTimer::singleShot(0, QCoreApplication::instance(),
                                   [] { QCoreApplication::exit(uninstallAccepted); });
            }
        });
}

std::optional<Caller> QuillaneDaemon::callerFor(uid_t uid, const Request& request)
{
    const auto group = primaryGroupOf(uid);
    if (!group) {
        answer(request, QStringLiteral("user %1 is not in the password database").arg(uid));
        finish(uid);
        return std::nullopt;
    }
    return Caller{uid, *group};
}

void QuillaneDaemon::removeOnWorker(uid_t uid, const Request& request)
{
    const auto caller = callerFor(uid, request);
    if (!caller)
        return;
    const fs::path mountinfo = m_installation.mountinfo;
    auto* watcher = new QFutureWatcher<std::string>(this);
    // Each item is answered as soon as it is settled; the request ends with the last.
    connect(watcher, &QFutureWatcher<std::string>::resultReadyAt, this,
            [this, watcher, request](int index) {
                reportDeletion(request.caller, request.paths.at(index),
                               QString::fromStdString(watcher->resultAt(index)));
            });
    connect(watcher, &QFutureWatcher<std::string>::finished, this, [this, watcher, uid] {
        watcher->deleteLater();
        finish(uid);
    });
    watcher->setFuture(QtConcurrent::run(&m_workers, [paths = request.paths, caller = *caller,
                                                      mountinfo](QPromise<std::string>& promise) {
        for (const QByteArray& path : paths)
            promise.addResult(removeTrashItem(path.toStdString(), caller, mountinfo));
    }));
}

void QuillaneDaemon::repairOnWorker(uid_t uid, const Request& request)
{
    const auto caller = callerFor(uid, request);
    if (!caller)
        return;
    const fs::path mountinfo = m_installation.mountinfo;
    auto* watcher = new QFutureWatcher<std::string>(this);
    connect(watcher, &QFutureWatcher<std::string>::finished, this, [this, watcher, uid] {
        watcher->deleteLater();
        const std::string problem = watcher->result();
        SystemLog::write("repairHomeTrash for user " + std::to_string(uid) + ": " +
                         (problem.empty() ? std::string("given back")
                                          : printable(QByteArray::fromStdString(problem))));
        replyToRepair(m_queue.current(uid).call, QString::fromStdString(problem));
        finish(uid);
    });
    watcher->setFuture(QtConcurrent::run(&m_workers, [caller = *caller, mountinfo] {
        return daemon::repairHomeTrash(caller, mountinfo);
    }));
}

void QuillaneDaemon::finish(uid_t uid)
{
    noteActivity();
    if (m_queue.finish(uid))
        serve(uid);
}

void QuillaneDaemon::answer(const Request& request, const QString& error)
{
    switch (request.kind) {
    case Request::Kind::deletion:
        for (const QByteArray& path : request.paths)
            reportDeletion(request.caller, path, error);
        break;
    case Request::Kind::repair:
        replyToRepair(request.call, error);
        break;
    case Request::Kind::uninstall:
        replyToUninstall(request.call, QStringLiteral("Refused: ") + error);
        break;
    }
}

void QuillaneDaemon::reportDeletion(const QString& caller, const QByteArray& url,
                                    const QString& error)
{
    SystemLog::write("deleteFile " + printable(url) + ": " +
                     (error.isEmpty() ? std::string("removed") : printable(error.toUtf8())));
    HelperClientProxy client(caller, BusNames::clientPath, m_bus);
    client.deleteResultWithUrl(url, error.isEmpty() ? QStringList() : QStringList{error});
}

void QuillaneDaemon::replyToRepair(const QDBusMessage& call, const QString& error)
{
    m_bus.send(call.createReply(error.isEmpty() ? QStringList() : QStringList{error}));
}

void QuillaneDaemon::replyToUninstall(const QDBusMessage& call, const QString& reply)
{
    m_bus.send(call.createReply(QStringList{reply}));
}

} // namespace quillane::daemon
