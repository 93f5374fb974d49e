#pragma once

#include <QByteArray>
#include <QDBusMessage>
#include <QList>
#include <QString>
#include <cstddef>
#include <deque>
#include <map>
#include <sys/types.h>

namespace quillane::daemon
{

// One request that needs polkit's word and then work: items to remove, the caller's home trash
// to give back, or the installation.
struct Request {
    enum class Kind { deletion, repair, uninstall };
    Kind kind = Kind::deletion;
    QString caller;          // the bus name that asked, which polkit is asked about
    QList<QByteArray> paths; // deletion: the items, each answered on its own
    QDBusMessage call;       // repair, uninstall: the call to answer
};

// The requests waiting for the daemon, by user. Each user's are served one at a time, in the
// order they came, beside every other user's: so one user's requests never hold up another's,
// and one user leaves at most one polkit question open. A user may have only so many waiting,
// in number and in bytes, and only so many users may wait at once; with the paths capped in
// length, the memory all of them take is bounded (README).
class RequestQueue
{
public:
    struct Limits {
        std::size_t perUser = 4096;
        std::size_t bytesPerUser = 2 * 1024 * 1024;
        std::size_t users = 16;
    };
    // What became of a request added: the first of its user (to be served now), waiting
    // behind others of its user, or refused, for its user or for everyone having too many.
    enum class Admission { first, waiting, userFull, full };

    explicit RequestQueue(Limits limits) : m_limits(limits) {}

    Admission add(uid_t uid, Request request);
    // The request of the user being served; only while the user has one.
    const Request& current(uid_t uid) const { return m_waiting.at(uid).requests.front(); }
    // Ends the user's current request; true when another of theirs is next.
    bool finish(uid_t uid);
    bool empty() const { return m_waiting.empty(); }

    // What one request counts for against the user's bytes: its own, and its bookkeeping.
    static std::size_t bytesOf(const Request& request);

private:
    struct UserQueue {
        std::deque<Request> requests;
        std::size_t bytes = 0;
    };

    Limits m_limits;
    std::map<uid_t, UserQueue> m_waiting;
};

} // namespace quillane::daemon
