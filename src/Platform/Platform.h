#pragma once

#include <filesystem>

namespace quillane
{

class FolderWatcher;
class MountTable;
class MountWatcher;
class Scheduler;
class TrashLocator;
class UserDefaults;
class VolumeNames;
class WorkQueue;

// The platform services the model runs on, handed to it at construction. The application
// wires the real ones (LinuxPlatform); tests wire temporary roots and a virtual clock.
struct Platform {
    Scheduler& mainQueue;
    WorkQueue& workQueue;    // scans: listing volumes, counting and sizing trash
    WorkQueue& removalQueue; // emptying, apart from the scans so that the list stays current
    // What one trash holds (the items window's records, sizes and restores), apart from the
    // scans so that a rescan never waits for a long listing.
    WorkQueue& contentsQueue;
    const TrashLocator& trash;
    const MountTable& mounts;
    MountWatcher& mountWatcher;
    FolderWatcher& folderWatcher;
    UserDefaults& defaults;
    const VolumeNames& volumeNames;
    std::filesystem::path home; // the user's home folder, without a trailing slash
};

} // namespace quillane
