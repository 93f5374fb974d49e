#pragma once

#include "Model/VolumeObserver.h"
#include "Platform/MountWatcher.h"
#include "Platform/Platform.h"
#include "Platform/UserDefaults.h"
#include "Platform/VirtualScheduler.h"
#include "Platform/linux/DiskLabels.h"
#include "Platform/linux/FreedesktopTrash.h"
#include "Platform/linux/InotifyFolderWatcher.h"
#include "Platform/linux/ProcMountTable.h"

#include <QTemporaryDir>
#include <memory>
#include <unistd.h>

namespace quillane::test
{

// The model on real files below a temporary home, a mount table read from a file the test
// writes (or the process's own), real inotify, and a virtual clock with the work queue run
// inline. Mount events are sent by the test through a plain MountWatcher.
struct ModelHarness {
    explicit ModelHarness(std::filesystem::path mountinfoFile = {}, const char* homeName = "home")
        : home(std::filesystem::path(root.path().toStdString()) / homeName),
          mountinfo(mountinfoFile.empty() ? home.parent_path() / "mountinfo" : mountinfoFile),
          trash(home, home / ".local/share", getuid()), mounts(mountinfo, home),
          defaults(QString::fromStdString((home.parent_path() / "settings.ini").native())),
          labels(home.parent_path() / "by-label", mounts)
    {
        std::filesystem::create_directories(home);
    }

    // Writes the mount table: one mount point per entry, of the given type and options.
    void setMounts(const std::vector<std::tuple<std::string, std::string, std::string>>& entries);
    std::filesystem::path homeTrash() const { return home / ".local/share/Trash/files"; }
    void makeHomeTrash() const { std::filesystem::create_directories(homeTrash()); }
    // One root mount holding the home, and the home's trash.
    void plainHome()
    {
        setMounts({{"/", "ext4", "rw"}});
        makeHomeTrash();
    }

    // With the scan queue and mount table a test put in their place, if any.
    Platform platform()
    {
        return Platform{
            scheduler, *scanQueue,  work,         contentsQueue ? *contentsQueue : *scanQueue,
            trash,     *mountTable, mountWatcher, folders,
            defaults,  labels,      home};
    }
    // Makes the observer and lets its first rebuild publish.
    VolumeObserver& start();
    // Lets the published list settle: runs what is due, then the publication delay.
    void settle() { scheduler.advance(std::chrono::milliseconds(500)); }
    // Waits until a watch has posted its news to the main queue.
    bool awaitEvent();
    std::vector<std::filesystem::path> listedPaths() const;

    QTemporaryDir root;
    std::filesystem::path home;
    std::filesystem::path mountinfo;
    VirtualScheduler scheduler;
    InlineWorkQueue work;
    FreedesktopTrash trash;
    ProcMountTable mounts;
    MountWatcher mountWatcher;
    InotifyFolderWatcher folders;
    SettingsUserDefaults defaults;
    DiskLabels labels;
    EmptyingServices emptying;
    WorkQueue* scanQueue = &work;
    WorkQueue* contentsQueue = nullptr; // the scan queue unless set
    const MountTable* mountTable = &mounts;
    std::unique_ptr<VolumeObserver> observer;
};

} // namespace quillane::test
