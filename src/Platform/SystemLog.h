#pragma once

#include <functional>
#include <string_view>

namespace quillane
{

// The system log (the journal, through syslog): connection events and daemon reports. Like
// Console, one process-wide sink that tests swap to read what was logged.
class SystemLog
{
public:
    using Sink = std::function<void(std::string_view line)>;

    static void write(std::string_view line);
    static Sink replaceSink(Sink sink);
};

} // namespace quillane
