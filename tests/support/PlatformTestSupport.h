#pragma once

#include "TestSupport.h"

#include <QTemporaryDir>
#include <string>
#include <unistd.h>

namespace quillane::test
{

// An 8M ext4 volume mounted for the length of a test, owned by the given user; unmounted when
// it goes out of scope. The mount point must lie under the scratch /mnt.
class ScratchVolume
{
public:
    explicit ScratchVolume(std::filesystem::path mountPoint, uid_t owner = getuid())
        : m_mountPoint(std::move(mountPoint)),
          m_mounted(mountExt4(std::filesystem::path(m_images.path().toStdString()) / "volume.img",
                              m_mountPoint, {}, owner))
    {
    }
    ~ScratchVolume()
    {
        if (m_mounted)
            test::unmount(m_mountPoint);
    }

    bool isMounted() const { return m_mounted; }
    const std::filesystem::path& path() const { return m_mountPoint; }
    bool unmount()
    {
        if (m_mounted && test::unmount(m_mountPoint))
            m_mounted = false;
        return !m_mounted;
    }

private:
    QTemporaryDir m_images;
    std::filesystem::path m_mountPoint;
    bool m_mounted;
};

// Runs a shell command in a folder, with $uid set to the real user's id: a layout of files
// reads best as the commands one would type.
inline bool shell(const std::filesystem::path& folder, const QByteArray& command)
{
    return run(
        QStringLiteral("sh"),
        {QStringLiteral("-ec"), QStringLiteral("cd \"$1\"; uid=$2; ") + QString::fromUtf8(command),
         QStringLiteral("sh"), QString::fromStdString(folder.native()), QString::number(getuid())});
}

// Runs fn in a child process as the user and returns the text fn returned (empty when all went
// well), or how the child ended when it did not come back (a crash, or 30 s without an answer).
inline std::string inChild(uid_t uid, const std::function<std::string()>& fn)
{
    int channel[2];
    if (pipe(channel) != 0)
        return "no pipe";
    const int code = runAsUser(uid, [&] {
        close(channel[0]);
        alarm(30);
        const std::string text = fn();
        return write(channel[1], text.data(), text.size()) == ssize_t(text.size()) ? 0 : 1;
    });
    close(channel[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t length; (length = read(channel[0], buffer, sizeof buffer)) > 0;)
        text.append(buffer, std::size_t(length));
    close(channel[0]);
    return code == 0 ? text : "child ended with " + std::to_string(code) + ": " + text;
}

} // namespace quillane::test
