#pragma once

#include "Platform/FolderWatcher.h"

#include <QObject>
#include <map>
#include <memory>

class QSocketNotifier;

namespace quillane
{

// Folder watching over one inotify instance. The kernel gives one watch per folder, however
// many times it is asked, so each watch descriptor keeps the list of its listeners.
// When the kernel refuses a watch because the user's watch limit is reached, the program says
// so once and that watch stays idle.
class InotifyFolderWatcher final : public QObject, public FolderWatcher
{
    Q_OBJECT

public:
    explicit InotifyFolderWatcher(QObject* parent = nullptr);
    ~InotifyFolderWatcher() override;

    std::unique_ptr<FolderWatch> watch(const std::filesystem::path& folder,
                                       std::function<void()> onChange) override;

private:
    class Watch;
    struct Listener {
        std::uint64_t id;
        std::function<void()> onChange;
    };

    void readEvents();
    void forget(int wd, std::uint64_t listenerId);
    void reportFailure(int error, const std::filesystem::path& folder);

    int m_fd = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::map<int, std::vector<Listener>> m_listeners;
    std::uint64_t m_nextListenerId = 1;
    bool m_reportedLimit = false;
    std::shared_ptr<InotifyFolderWatcher*> m_self; // lets a Watch outlive its watcher safely
};

} // namespace quillane
