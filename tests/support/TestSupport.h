#pragma once

#include "Platform/Console.h"

#include <QStringList>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace quillane::test
{

// Collects the console's lines while it lives.
class ConsoleCapture
{
public:
    ConsoleCapture();
    ~ConsoleCapture();
    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;

    std::vector<std::string> lines() const;
    // How many lines start with the prefix.
    int count(std::string_view prefix) const;
    void clear();

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
    Console::Sink m_previous;
};

// Writes a file with the given bytes, making its folders.
void writeFile(const std::filesystem::path& path, std::string_view bytes = "x");
void makeFolder(const std::filesystem::path& path);

// Runs a command, failing the test with its output when it does not exit 0.
bool run(const QString& program, const QStringList& arguments, QString* output = nullptr);

// Tests that mount filesystems run as root in a private mount namespace, with a scratch
// tmpfs at /mnt (tests/support/in-private-mounts); elsewhere they skip.
bool canMount();
// Makes an ext4 image file and mounts it through a loop device at the mount point (made if
// missing), owned by the given user.
bool mountExt4(const std::filesystem::path& image, const std::filesystem::path& mountPoint,
               const QString& label = {}, uid_t owner = 0);
bool unmount(const std::filesystem::path& mountPoint);

// The unprivileged user that permission tests run as.
constexpr uid_t nobody = 65534;
// Runs fn in a child process as the user (when root) and returns its exit code, or -1.
int runAsUser(uid_t uid, const std::function<int()>& fn);

} // namespace quillane::test
