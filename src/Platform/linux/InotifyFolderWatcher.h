#pragma once

#include "Platform/FolderWatcher.h"

#include <QObject>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

class QSocketNotifier;

namespace quillane
{

// Folder watching over one inotify instance. The kernel gives one watch per folder, however
// many times it is asked, so each watch descriptor keeps the list of its listeners.
// When the kernel refuses a watch because the user's watch limit is reached, the program says
// so once and that watch stays idle. Watches may be asked for on any thread (the kernel call
// can hang on a network mount that does not answer); they report on the watcher's thread. What one
// read of the queue brings is delivered together: each listener is called once, and a folder that
// went away (IN_IGNORED) has its changes of the same read delivered before the call that tells it
// is gone.
class InotifyFolderWatcher final : public QObject, public FolderWatcher
{
    Q_OBJECT

public:
    explicit InotifyFolderWatcher(QObject* parent = nullptr);
    ~InotifyFolderWatcher() override;

    std::unique_ptr<FolderWatch> watch(const std::filesystem::path& folder,
                                       std::function<void()> onChange) override;
    std::unique_ptr<FolderWatch> watchEntry(const std::filesystem::path& folder,
                                            const std::string& name,
                                            std::function<void()> onChange) override;

private:
    class Watch;
    struct Listener {
        std::uint64_t id;
        std::function<void()> onChange;
        std::optional<std::string> name; // the one entry it hears of; all when absent
    };

    std::unique_ptr<FolderWatch> add(const std::filesystem::path& folder,
                                     std::optional<std::string> name,
                                     std::function<void()> onChange);

    void readEvents();
    void forget(int wd, std::uint64_t listenerId);
    void reportFailure(int error, const std::filesystem::path& folder);

    int m_fd = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
    // Watches may be added and dropped on any thread; events are read on the watcher's own.
    std::mutex m_mutex;
    std::map<int, std::vector<Listener>> m_listeners;
    std::uint64_t m_nextListenerId = 1;
    bool m_reportedLimit = false;
    std::shared_ptr<InotifyFolderWatcher*> m_self; // lets a Watch outlive its watcher safely
};

} // namespace quillane
