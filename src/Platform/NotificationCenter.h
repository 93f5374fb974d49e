#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace quillane
{

struct Notification {
    QString name;
    QVariant object;
    QVariantMap userInfo;
};

// In-process notifications by name. post() calls every observer of that name at once, on the
// posting thread; observers that need the main thread hop there themselves.
class NotificationCenter
{
public:
    using Observer = std::function<void(const Notification&)>;
    using Token = std::uint64_t;

    static NotificationCenter& defaultCenter();

    Token addObserver(const QString& name, Observer observer);
    void removeObserver(Token token);
    void post(const Notification& notification);

private:
    struct Entry {
        Token token;
        QString name;
        Observer observer;
    };

    std::mutex m_mutex;
    std::vector<Entry> m_entries;
    Token m_nextToken = 1;
};

} // namespace quillane
