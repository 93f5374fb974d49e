#include "InotifyFolderWatcher.h"

#include "Platform/Console.h"
#include "Platform/Result.h"

#include <QSocketNotifier>
#include <algorithm>
#include <cerrno>
#include <set>
#include <sys/inotify.h>
#include <unistd.h>

namespace quillane
{

namespace
{

// Entries added, removed or moved in or out, and the folder moved away; changes inside the
// entries are not reported. The folder's removal ends the watch (IN_IGNORED).
constexpr std::uint32_t watchedEvents =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MOVE_SELF | IN_ONLYDIR;

} // namespace

class InotifyFolderWatcher::Watch final : public FolderWatch
{
public:
    Watch(std::weak_ptr<InotifyFolderWatcher*> watcher, int wd, std::uint64_t listenerId)
        : m_watcher(std::move(watcher)), m_wd(wd), m_listenerId(listenerId)
    {
    }
    ~Watch() override
    {
        if (auto watcher = m_watcher.lock())
            (*watcher)->forget(m_wd, m_listenerId);
    }

private:
    std::weak_ptr<InotifyFolderWatcher*> m_watcher;
    int m_wd;
    std::uint64_t m_listenerId;
};

InotifyFolderWatcher::InotifyFolderWatcher(QObject* parent)
    : QObject(parent), m_self(std::make_shared<InotifyFolderWatcher*>(this))
{
    m_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0) {
        reportFailure(errno, {});
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(m_fd, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &InotifyFolderWatcher::readEvents);
}

InotifyFolderWatcher::~InotifyFolderWatcher()
{
    m_self.reset();
    m_notifier.reset();
    if (m_fd >= 0)
        close(m_fd);
}

std::unique_ptr<FolderWatch> InotifyFolderWatcher::watch(const std::filesystem::path& folder,
                                                         std::function<void()> onChange)
{
    return add(folder, std::nullopt, std::move(onChange));
}

std::unique_ptr<FolderWatch> InotifyFolderWatcher::watchEntry(const std::filesystem::path& folder,
                                                              const std::string& name,
                                                              std::function<void()> onChange)
{
    return add(folder, name, std::move(onChange));
}

std::unique_ptr<FolderWatch> InotifyFolderWatcher::add(const std::filesystem::path& folder,
                                                       std::optional<std::string> name,
                                                       std::function<void()> onChange)
{
    if (m_fd < 0)
        return nullptr;
    const int wd = inotify_add_watch(m_fd, folder.c_str(), watchedEvents);
    if (wd < 0) {
        reportFailure(errno, folder);
        return nullptr;
    }
    std::lock_guard lock(m_mutex);
    const std::uint64_t id = m_nextListenerId++;
    m_listeners[wd].push_back({id, std::move(onChange), std::move(name)});
    return std::make_unique<Watch>(m_self, wd, id);
}

void InotifyFolderWatcher::forget(int wd, std::uint64_t listenerId)
{
    std::lock_guard lock(m_mutex);
    const auto found = m_listeners.find(wd);
    if (found == m_listeners.end())
        return; // the kernel dropped the watch already (folder deleted, volume unmounted)
    std::erase_if(found->second, [&](const Listener& l) { return l.id == listenerId; });
    if (found->second.empty()) {
        m_listeners.erase(found);
        inotify_rm_watch(m_fd, wd);
    }
}

void InotifyFolderWatcher::readEvents()
{
    alignas(inotify_event) char buffer[16 * 1024];
    // For each folder, the names of the entries that changed; an empty name stands for any.
    std::map<int, std::set<std::string>> changed;
    std::vector<int> gone;
    for (;;) {
        const ssize_t length = read(m_fd, buffer, sizeof buffer);
        if (length <= 0)
            break;
        for (ssize_t offset = 0; offset < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if (event->mask & IN_Q_OVERFLOW) {
                // The kernel dropped events: any folder may have changed.
                std::lock_guard lock(m_mutex);
                for (const auto& watched : m_listeners)
                    changed[watched.first].insert(std::string());
            } else if (event->mask & (IN_IGNORED | IN_MOVE_SELF)) {
                // Gone with its folder or its filesystem, or moved away from where it was
                // asked for: a change for every listener.
                changed[event->wd].insert(std::string());
                if (event->mask & IN_IGNORED)
                    gone.push_back(event->wd);
            } else if (event->mask & (IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO)) {
                changed[event->wd].insert(event->len > 0 ? std::string(event->name)
                                                         : std::string());
            }
        }
    }
    // One call per listener for what arrived together. A callback may drop watches, its own
    // included, so each listener is looked up again just before it is called.
    const auto stillListening = [this](int wd, std::uint64_t id) {
        std::lock_guard lock(m_mutex);
        const auto still = m_listeners.find(wd);
        return still != m_listeners.end() &&
               std::ranges::find(still->second, id, &Listener::id) != still->second.end();
    };
    for (const auto& [wd, names] : changed) {
        std::vector<Listener> listeners;
        {
            std::lock_guard lock(m_mutex);
            const auto found = m_listeners.find(wd);
            if (found == m_listeners.end())
                continue;
            listeners = found->second;
        }
        for (const Listener& listener : listeners) {
            const bool hears =
                !listener.name || names.contains(std::string()) || names.contains(*listener.name);
            if (hears && stillListening(wd, listener.id))
                listener.onChange();
        }
    }
    // The kernel has dropped these watches already. It hands out watch numbers cyclically, so a
    // watch a callback above added has a number of its own.
    std::lock_guard lock(m_mutex);
    for (const int wd : gone)
        m_listeners.erase(wd);
}

void InotifyFolderWatcher::reportFailure(int error, const std::filesystem::path& folder)
{
    std::lock_guard lock(m_mutex);
    // A folder that is gone or unreadable just leaves its watch idle; running out of watches
    // or instances is worth one line, because it silently stops the list from following
    // changes.
    if ((error == ENOSPC || error == EMFILE) && !m_reportedLimit) {
        m_reportedLimit = true;
        Console::writeLine(
            "Folder Monitor Error: ",
            describeErrno(folder.empty() ? std::string("inotify") : folder.native(), error) +
                " (the inotify limits fs.inotify.max_user_watches and max_user_instances are"
                " reached; trash folders are not watched for changes)");
    }
}

} // namespace quillane
