#include "RequestQueue.h"

namespace quillane::daemon
{

namespace
{

// A request's own memory besides its path: the caller's name, the queue's node and, for an
// uninstall call, the message kept to answer it (whose arguments are checked for size first).
constexpr std::size_t bookkeepingBytes = 512;
// Each path's own: the list's slot and the byte array's header.
constexpr std::size_t pathBookkeepingBytes = 64;

} // namespace

std::size_t RequestQueue::bytesOf(const Request& request)
{
    std::size_t bytes = bookkeepingBytes;
    for (const QByteArray& path : request.paths)
        bytes += pathBookkeepingBytes + static_cast<std::size_t>(path.size());
    return bytes;
}

RequestQueue::Admission RequestQueue::add(uid_t uid, Request request)
{
    auto queue = m_waiting.find(uid);
    if (queue == m_waiting.end()) {
        if (m_waiting.size() >= m_limits.users)
            return Admission::full;
        queue = m_waiting.emplace(uid, UserQueue()).first;
    }
    UserQueue& user = queue->second;
    const std::size_t bytes = bytesOf(request);
    if (user.requests.size() >= m_limits.perUser || user.bytes + bytes > m_limits.bytesPerUser) {
        if (user.requests.empty())
            m_waiting.erase(queue);
        return Admission::userFull;
    }
    user.requests.push_back(std::move(request));
    user.bytes += bytes;
    return user.requests.size() == 1 ? Admission::first : Admission::waiting;
}

bool RequestQueue::finish(uid_t uid)
{
    const auto queue = m_waiting.find(uid);
    if (queue == m_waiting.end() || queue->second.requests.empty())
        return false;
    UserQueue& user = queue->second;
    user.bytes -= bytesOf(user.requests.front());
    user.requests.pop_front();
    if (user.requests.empty()) {
        m_waiting.erase(queue);
        return false;
    }
    return true;
}

} // namespace quillane::daemon
