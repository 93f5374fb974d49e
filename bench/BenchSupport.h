#pragma once

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What both benchmarks share: signal handling that still lets them clean up, the reading of
// their options, and numbers as a reader likes them.
namespace quillane::bench
{

// Interrupting a benchmark still removes its scratch folder: the handler only notes the
// signal (SIGINT, SIGTERM, SIGHUP), and the work checks for it between steps.
void catchSignals();
bool interrupted();
// The signal that interrupted the benchmark, 0 when none did.
int interruptingSignal();
// Runs a benchmark with the signals caught: its exit status, 128 plus the signal when one
// interrupted it, or 1 with the error under the benchmark's name.
int runReporting(const char* name, const std::function<int()>& benchmark);

template <class T> std::optional<T> parseNumber(std::string_view text)
{
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

enum class OptionValue { Good, Bad, Unknown };

// Reads the "--name value" pairs of a command line, handing each to take(); --help prints the
// usage and exits. On an unknown option, a missing value or a value take() calls bad, says so
// on standard error, naming the program, and returns false.
bool parseOptions(
    int argc, char** argv, const char* program, void (*printUsage)(std::FILE*),
    const std::function<OptionValue(std::string_view name, std::string_view value)>& take);

// "a,b,c" as its items; an empty text is one empty item.
std::vector<std::string_view> splitList(std::string_view text);

// 100000 as "100,000".
std::string grouped(std::uint64_t value);

} // namespace quillane::bench
