#include "NotificationCenter.h"

namespace quillane
{

NotificationCenter& NotificationCenter::defaultCenter()
{
    static NotificationCenter center;
    return center;
}

NotificationCenter::Token NotificationCenter::addObserver(const QString& name, Observer observer)
{
    std::lock_guard lock(m_mutex);
    const Token token = m_nextToken++;
    m_entries.push_back({token, name, std::move(observer)});
    return token;
}

void NotificationCenter::removeObserver(Token token)
{
    std::lock_guard lock(m_mutex);
    std::erase_if(m_entries, [token](const Entry& entry) { return entry.token == token; });
}

void NotificationCenter::post(const Notification& notification)
{
    // Observers run on copies taken under the lock and are called without it, so that one may
    // add or remove observers (itself included) while it runs.
    std::vector<Observer> observers;
    {
        std::lock_guard lock(m_mutex);
        for (const Entry& entry : m_entries) {
            if (entry.name == notification.name)
                observers.push_back(entry.observer);
        }
    }
    for (const Observer& observer : observers)
        observer(notification);
}

} // namespace quillane
