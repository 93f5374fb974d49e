#include "MountInfoWatcher.h"

#include "Platform/Console.h"
#include "Platform/Result.h"

#include <QSocketNotifier>
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace quillane
{

namespace
{

std::vector<std::filesystem::path> mountPointsMissingFrom(const std::vector<MountEntry>& from,
                                                          const std::vector<MountEntry>& in)
{
    std::vector<std::filesystem::path> missing;
    for (const MountEntry& entry : in) {
        if (std::ranges::find(from, entry.mountPoint, &MountEntry::mountPoint) == from.end())
            missing.push_back(entry.mountPoint);
    }
    return missing;
}

} // namespace

MountInfoWatcher::MountInfoWatcher(const std::filesystem::path& mountinfo, const MountTable& table,
                                   QObject* parent)
    : MountWatcher(parent), m_table(table)
{
    m_snapshot = m_table.mounts().value_or(std::vector<MountEntry>{});
    m_fd = open(mountinfo.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) {
        Console::writeLine("Mount Watch Error: ", describeErrno(mountinfo.native(), errno));
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(m_fd, QSocketNotifier::Exception);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] {
        // The urgent condition stays raised until the file is read again from the start.
        char buffer[4096];
        lseek(m_fd, 0, SEEK_SET);
        while (read(m_fd, buffer, sizeof buffer) > 0) {
        }
        compareWithSnapshot();
    });
}

MountInfoWatcher::~MountInfoWatcher()
{
    m_notifier.reset();
    if (m_fd >= 0)
        close(m_fd);
}

bool MountInfoWatcher::isWatching() const
{
    return m_notifier != nullptr;
}

void MountInfoWatcher::compareWithSnapshot()
{
    auto current = m_table.mounts();
    if (!current)
        return;
    const auto gone = mountPointsMissingFrom(*current, m_snapshot);
    const auto added = mountPointsMissingFrom(m_snapshot, *current);
    m_snapshot = std::move(*current);
    for (const auto& path : gone)
        Q_EMIT unmounted(path);
    for (const auto& path : added)
        Q_EMIT mounted(path);
}

} // namespace quillane
