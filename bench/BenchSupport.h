#pragma once

#include <charconv>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/time.h>
#include <sys/types.h>
#include <vector>

// What the benchmarks share: signal handling that still lets them clean up, the reading of
// their options, the programs they start, and numbers as a reader likes them.
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

// One option of a command line, "--name value": take() keeps the value, or returns false when
// it is bad.
struct Option {
    std::string_view name;
    std::function<bool(std::string_view value)> take;
};

// A number of at least `least` into `target`.
template <class T> Option numberOption(std::string_view name, T& target, T least = 1)
{
    return {name, [&target, least](std::string_view value) {
                const auto number = parseNumber<T>(value);
                if (!number || *number < least)
                    return false;
                target = *number;
                return true;
            }};
}

// A folder or file into `target`.
Option pathOption(std::string_view name, std::optional<std::filesystem::path>& target);

// Reads a command line of "--name value" pairs into `options`; --help prints the usage and
// exits. On an unknown option, a missing value or a bad one, says so on standard error, naming
// the program, adds the usage and returns false.
bool parseOptions(int argc, char** argv, const char* program, const char* usage,
                  const std::vector<Option>& options);

// A benchmark's main(): its options read (exit status 2 when they are not right), then the run
// as runReporting() makes it.
int runBenchmark(int argc, char** argv, const char* program, const char* usage,
                 const std::vector<Option>& options, const std::function<int()>& benchmark);

// "a,b,c" as its items; an empty text is one empty item.
std::vector<std::string_view> splitList(std::string_view text);

// 100000 as "100,000".
std::string grouped(std::uint64_t value);

double secondsOf(std::chrono::steady_clock::duration duration);
double secondsOf(const timeval& time);

// The folder this program is in.
std::filesystem::path ownFolder();
// Where the scratch folder goes: `chosen`, else $TMPDIR, else /var/tmp (not /tmp: that is often
// a tmpfs, and trashes live on disks).
std::filesystem::path scratchParent(const std::optional<std::filesystem::path>& chosen);
// The quillane program to run: `chosen`, else the one of this build. Throws std::runtime_error
// when it cannot be run.
std::filesystem::path quillaneProgram(const std::optional<std::filesystem::path>& chosen);

// This process's environment without the variables whose "NAME=" starts with one of
// `dropped`, followed by `added` ("NAME=value" each).
std::vector<std::string> environmentWithout(const std::vector<std::string_view>& dropped,
                                            const std::vector<std::string>& added);

// Starts a program (arguments[0], looked up in PATH when it holds no "/") with `environment`,
// nothing on standard input, and its standard output and error written into the files
// `output` and `errors` (one file when they are the same). Throws std::runtime_error when it
// cannot start.
pid_t startProgram(const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment, const std::filesystem::path& output,
                   const std::filesystem::path& errors);

} // namespace quillane::bench
