#include "BenchSupport.h"

#include <csignal>
#include <cstddef>

namespace quillane::bench
{

namespace
{

volatile std::sig_atomic_t g_signal = 0;

extern "C" void onSignal(int signal)
{
    g_signal = signal;
}

} // namespace

void catchSignals()
{
    struct sigaction action {
    };
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
}

bool interrupted()
{
    return g_signal != 0;
}

int interruptingSignal()
{
    return g_signal;
}

std::string grouped(std::uint64_t value)
{
    std::string digits = std::to_string(value);
    for (auto at = static_cast<std::ptrdiff_t>(digits.size()) - 3; at > 0; at -= 3)
        digits.insert(static_cast<std::size_t>(at), 1, ',');
    return digits;
}

} // namespace quillane::bench
