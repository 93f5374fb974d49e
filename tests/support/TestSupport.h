#pragma once

#include "Platform/Alerts.h"
#include "Platform/ApplicationControl.h"
#include "Platform/Console.h"
#include "Platform/PackageManager.h"
#include "Platform/Scheduler.h"
#include "Platform/ServiceManager.h"
#include "Platform/SystemLog.h"
#include "Platform/VolumeNames.h"
#include "Platform/Workspace.h"

#include <QList>
#include <QStringList>
#include <QTest>
#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace quillane::test
{

// The columns of a data table in one call: columns<int, QString>("count", "text").
template <typename... T> void columns(const auto&... names)
{
    (QTest::addColumn<T>(names), ...);
}

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

// What a scripted registration answers and was asked; shared, so that it outlives the
// registration and shows its end too.
struct ServiceScript {
    int currentStatus = ServiceHandle::NotRegistered;
    std::string failure; // when set, registering and unregistering fail with it
    int statusReads = 0;
    int registers = 0;
    int unregisters = 0;
    bool destroyed = false;
};

// systemd cannot run here: a registration that answers from its script, or reads its status
// from a real registration (counted all the same).
class ScriptedService final : public ServiceHandle
{
public:
    explicit ScriptedService(std::shared_ptr<ServiceScript> script,
                             std::unique_ptr<ServiceHandle> real = nullptr)
        : m_script(std::move(script)), m_real(std::move(real))
    {
    }
    ~ScriptedService() override { m_script->destroyed = true; }
    int status() const override
    {
        ++m_script->statusReads;
        return m_real ? m_real->status() : m_script->currentStatus;
    }
    Result<bool> registerService() override { return answer(m_script->registers); }
    Result<bool> unregisterService() override { return answer(m_script->unregisters); }

private:
    Result<bool> answer(int& asked) const
    {
        ++asked;
        return m_script->failure.empty() ? Result<bool>::success(true)
                                         : Result<bool>::failure(m_script->failure);
    }
    std::shared_ptr<ServiceScript> m_script;
    std::unique_ptr<ServiceHandle> m_real;
};

// A background queue that holds its work while `hold` is set, as a busy queue or a service
// manager that does not answer would, and runs it when the test says; otherwise at once.
class HeldWorkQueue final : public WorkQueue
{
public:
    explicit HeldWorkQueue(bool holding = true) : hold(holding) {}
    void async(Task task) override
    {
        if (hold)
            held.push_back(std::move(task));
        else
            task();
    }
    std::size_t size() const { return held.size(); }
    // As a second worker that finishes first would.
    void runNewest()
    {
        const Task task = std::move(held.back());
        held.pop_back();
        task();
    }
    void runAll()
    {
        while (!held.empty()) {
            const Task task = std::move(held.front());
            held.erase(held.begin());
            task();
        }
    }

    bool hold;
    std::vector<Task> held;
};

// Volume names that count how often they are looked up, since a lookup may wait on a device:
// the real names they are given, or one name for every volume.
class CountedNames final : public VolumeNames
{
public:
    explicit CountedNames(const VolumeNames& names) : m_names(&names) {}
    explicit CountedNames(std::string name) : m_name(std::move(name)) {}
    std::optional<std::string> volumeName(const std::filesystem::path& path) const override
    {
        ++lookups;
        return m_names ? m_names->volumeName(path) : m_name;
    }
    bool holdsHome(const std::filesystem::path& path) const override
    {
        ++lookups;
        return m_names && m_names->holdsHome(path);
    }
    mutable int lookups = 0;

private:
    const VolumeNames* m_names = nullptr;
    std::string m_name;
};

// PackageKit cannot run here: a package manager that answers as told.
class ScriptedPackageManager final : public PackageManager
{
public:
    void removePackage(const QString& name, std::function<void(Result<bool>)> done) override
    {
        removals << name;
        done(refusal.empty() ? Result<bool>::success(true) : Result<bool>::failure(refusal));
    }
    std::string refusal;
    QStringList removals;
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
