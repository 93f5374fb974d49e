#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace quillane
{

// The one sink for the program's fixed diagnostic lines ("Counting Error: ...",
// "Mounted: ..."). Each line is the literal text followed by details, with no prefix, level or
// time stamp. Lines are bytes: a path that is not UTF-8 is written as it is, but control bytes
// and newlines are escaped (see printable()).
//
// The sink is process-wide because every layer writes to it, values included (a Volume's item
// count); tests swap it with ConsoleCapture to read what was written.
class Console
{
public:
    using Sink = std::function<void(std::string_view line)>;

    static void writeLine(std::string_view line);
    static void writeLine(std::string_view text, std::string_view detail);

    // Where lines go: standard output by default. The command line drops them, or with
    // --verbose sends them to standard error, so that what it prints for scripts stays clean.
    static void toStandardOutput();
    static void toStandardError();
    static void discard();
    static Sink replaceSink(Sink sink);
};

} // namespace quillane
