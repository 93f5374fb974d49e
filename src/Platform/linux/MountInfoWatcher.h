#pragma once

#include "Platform/MountTable.h"
#include "Platform/MountWatcher.h"

#include <memory>

class QSocketNotifier;

namespace quillane
{

// Watches the mount table for changes. The kernel marks /proc/self/mountinfo with an urgent
// condition (POLLPRI) whenever a mount or unmount happens in our mount namespace; each time,
// the table is read again and compared with the last snapshot.
class MountInfoWatcher final : public MountWatcher
{
    Q_OBJECT

public:
    MountInfoWatcher(const std::filesystem::path& mountinfo, const MountTable& table,
                     QObject* parent = nullptr);
    ~MountInfoWatcher() override;

    // Whether change notification works; without it no event is ever reported.
    bool isWatching() const;

private:
    void compareWithSnapshot();

    const MountTable& m_table;
    int m_fd = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::vector<MountEntry> m_snapshot;
};

} // namespace quillane
