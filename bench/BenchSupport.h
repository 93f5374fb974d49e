#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What both benchmarks share: signal handling that still lets them clean up, number
// parsing for their options, and numbers as a reader likes them.
namespace quillane::bench
{

// Interrupting a benchmark still removes its scratch folder: the handler only notes the
// signal (SIGINT, SIGTERM, SIGHUP), and the work checks for it between steps.
void catchSignals();
bool interrupted();
// The signal that interrupted the benchmark, 0 when none did.
int interruptingSignal();

template <class T> std::optional<T> parseNumber(std::string_view text)
{
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

// 100000 as "100,000".
std::string grouped(std::uint64_t value);

} // namespace quillane::bench
