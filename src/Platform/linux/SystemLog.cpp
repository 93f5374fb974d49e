#include "Platform/SystemLog.h"

#include <mutex>
#include <syslog.h>

namespace quillane
{

namespace
{

void writeToSyslog(std::string_view line)
{
    // Opened on first use; the journal picks the lines up under this identifier.
    static std::once_flag opened;
    std::call_once(opened, [] { openlog("quillane", LOG_PID, LOG_USER); });
    // The line is not null-terminated and may hold '%'; pass it as an argument with its length.
    syslog(LOG_INFO, "%.*s", static_cast<int>(line.size()), line.data());
}

std::mutex& sinkMutex()
{
    static std::mutex mutex;
    return mutex;
}

SystemLog::Sink& currentSink()
{
    static SystemLog::Sink sink = writeToSyslog;
    return sink;
}

} // namespace

void SystemLog::write(std::string_view line)
{
    std::lock_guard lock(sinkMutex());
    currentSink()(line);
}

SystemLog::Sink SystemLog::replaceSink(Sink sink)
{
    std::lock_guard lock(sinkMutex());
    std::swap(currentSink(), sink);
    return sink;
}

} // namespace quillane
