#include "TrashFullness.h"

#include "Platform/FileSystem.h"
#include "Platform/Scheduler.h"
#include "Platform/TrashItems.h"
#include "VolumeObserver.h"

#include <algorithm>

namespace quillane
{

namespace
{

// Quietly: a trash that cannot be read says so in the panel's own count.
bool holdsItems(const Volume& volume)
{
    if (!volume.trashURL())
        return false;
    const auto entries = listDirectory(*volume.trashURL());
    return entries && std::ranges::any_of(*entries, [](const std::string& name) {
               return !isSkippedTrashEntry(name);
           });
}

} // namespace

TrashFullness::TrashFullness(VolumeObserver& observer, QObject* parent)
    : QObject(parent), m_observer(observer)
{
    connect(&observer, &VolumeObserver::listPublished, this, &TrashFullness::check);
    if (!observer.volumes().empty())
        check();
}

void TrashFullness::check()
{
    const std::uint64_t reading = ++m_readings;
    const Platform& platform = m_observer.platform();
    platform.workQueue.async([this, context = Scheduler::Context(this),
                              volumes = m_observer.volumes(), reading,
                              &mainQueue = platform.mainQueue] {
        const bool full = std::ranges::any_of(volumes, holdsItems);
        mainQueue.post(context, [this, reading, full] {
            if (reading == m_readings)
                setFull(full);
        });
    });
}

void TrashFullness::setFull(bool full)
{
    if (full == m_full)
        return;
    m_full = full;
    Q_EMIT fullChanged(full);
}

} // namespace quillane
