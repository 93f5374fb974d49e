#include "Console.h"

#include "FileSystem.h"

#include <cstdio>
#include <mutex>

namespace quillane
{

namespace
{

void writeTo(std::FILE* stream, std::string_view line)
{
    std::fwrite(line.data(), 1, line.size(), stream);
    std::fputc('\n', stream);
    std::fflush(stream);
}

std::mutex& sinkMutex()
{
    static std::mutex mutex;
    return mutex;
}

Console::Sink& currentSink()
{
    static Console::Sink sink = [](std::string_view line) { writeTo(stdout, line); };
    return sink;
}

} // namespace

void Console::writeLine(std::string_view line)
{
    // A name in a line is the user's bytes: it must neither split the line nor reach a terminal
    // as an escape sequence.
    const std::string safe = printable(line);
    std::lock_guard lock(sinkMutex());
    currentSink()(safe);
}

void Console::writeLine(std::string_view text, std::string_view detail)
{
    std::string line;
    line.reserve(text.size() + detail.size());
    line.append(text).append(detail);
    writeLine(line);
}

void Console::toStandardOutput()
{
    replaceSink([](std::string_view line) { writeTo(stdout, line); });
}

void Console::toStandardError()
{
    replaceSink([](std::string_view line) { writeTo(stderr, line); });
}

void Console::discard()
{
    replaceSink([](std::string_view) {});
}

Console::Sink Console::replaceSink(Sink sink)
{
    std::lock_guard lock(sinkMutex());
    std::swap(currentSink(), sink);
    return sink;
}

} // namespace quillane
