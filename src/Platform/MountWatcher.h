#pragma once

#include <QObject>
#include <filesystem>

namespace quillane
{

// Reports filesystems as they are mounted and unmounted, with their mount path, on the main
// thread.
class MountWatcher : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

Q_SIGNALS:
    void mounted(const std::filesystem::path& mountPoint);
    void unmounted(const std::filesystem::path& mountPoint);
};

} // namespace quillane
