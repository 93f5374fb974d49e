#pragma once

#include "Platform/Alerts.h"
#include "Platform/ApplicationControl.h"
#include "Platform/Console.h"
#include "Platform/SystemLog.h"
#include "Platform/Workspace.h"

#include <QList>
#include <QStringList>
#include <algorithm>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace quillane::test
{

// Collects the lines of a process-wide sink (Console, SystemLog) while it lives.
template <class Log> class LineCapture
{
public:
    LineCapture()
        : m_previous(Log::replaceSink([this](std::string_view line) {
              std::lock_guard lock(m_mutex);
              m_lines.emplace_back(line);
          }))
    {
    }
    ~LineCapture() { Log::replaceSink(m_previous); }
    LineCapture(const LineCapture&) = delete;
    LineCapture& operator=(const LineCapture&) = delete;

    std::vector<std::string> lines() const
    {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }
    // How many lines start with the prefix.
    int count(std::string_view prefix) const
    {
        std::lock_guard lock(m_mutex);
        return static_cast<int>(std::ranges::count_if(
            m_lines, [&](const std::string& line) { return line.starts_with(prefix); }));
    }
    bool has(std::string_view line) const
    {
        std::lock_guard lock(m_mutex);
        return std::ranges::find(m_lines, line) != m_lines.end();
    }
    void clear()
    {
        std::lock_guard lock(m_mutex);
        m_lines.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
    typename Log::Sink m_previous;
};

using ConsoleCapture = LineCapture<Console>;
using SystemLogCapture = LineCapture<SystemLog>;

// Answers alerts from a list of buttons (the first button once the list is used up), with the
// check box ticked as the list of ticks says (not ticked once it is used up), and remembers what
// was shown.
class ScriptedAlerts final : public Alerts
{
public:
    // An answer that presses Escape: the button the alert says backs out, as the real
    // alerts answer Escape and the window's close button.
    static constexpr int escape = -1;

    AlertAnswer runModal(const AlertRequest& request) override
    {
        shown.push_back(request);
        int answer = answers.empty() ? AlertAnswer::firstButton : answers.takeFirst();
        if (answer == escape)
            answer = AlertAnswer::firstButton + request.cancelButton;
        return {answer, ticks.empty() ? false : ticks.takeFirst()};
    }

    QList<int> answers;
    QList<bool> ticks;
    std::vector<AlertRequest> shown;
};

// Records what the application was asked to do.
class RecordingApplication final : public ApplicationControl
{
public:
    void terminate() override { calls << QStringLiteral("terminate"); }
    void activate(bool ignoringOtherApps) override
    {
        calls << (ignoringOtherApps ? QStringLiteral("activate ignoring")
                                    : QStringLiteral("activate"));
    }
    void hide() override { calls << QStringLiteral("hide"); }
    void show(bool ignoringOtherApps) override
    {
        calls << (ignoringOtherApps ? QStringLiteral("show ignoring") : QStringLiteral("show"));
    }

    QStringList calls;
};

// Stands for the desktop's openers, which have no place in a test: records what it was given.
class RecordingWorkspace final : public Workspace
{
public:
    bool open(const QUrl& url) override
    {
        opened << url;
        return opens;
    }
    Result<qint64> launch(const QString& program, const QStringList& arguments) override
    {
        launched << (QStringList{program} + arguments);
        if (!launchError.isEmpty())
            return Result<qint64>::failure(launchError.toStdString());
        return Result<qint64>::success(1);
    }

    QList<QUrl> opened;
    QList<QStringList> launched;
    bool opens = true;
    QString launchError; // when set, launching fails with it
};

// Writes a file with the given bytes, making its folders.
void writeFile(const std::filesystem::path& path, std::string_view bytes = "x");
void makeFolder(const std::filesystem::path& path);
std::string readFile(const std::filesystem::path& path);

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
