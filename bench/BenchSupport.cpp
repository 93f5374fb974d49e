#include "BenchSupport.h"

#include "TrashTree.h"

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>

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

bool parseOptions(
    int argc, char** argv, const char* program, void (*printUsage)(std::FILE*),
    const std::function<OptionValue(std::string_view name, std::string_view value)>& take)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "-h" || argument == "--help") {
            printUsage(stdout);
            std::exit(0);
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "%s: unknown option or missing value: %s\n", program, argv[i]);
            return false;
        }
        ++i;
        switch (take(argument, argv[i])) {
        case OptionValue::Good:
            break;
        case OptionValue::Unknown:
            std::fprintf(stderr, "%s: unknown option: %s\n", program, argv[i - 1]);
            return false;
        case OptionValue::Bad:
            std::fprintf(stderr, "%s: bad value for %s: %s\n", program, argv[i - 1], argv[i]);
            return false;
        }
    }
    return true;
}

std::vector<std::string_view> splitList(std::string_view text)
{
    std::vector<std::string_view> items;
    for (;;) {
        const auto comma = text.find(',');
        items.push_back(text.substr(0, comma));
        if (comma == std::string_view::npos)
            return items;
        text.remove_prefix(comma + 1);
    }
}

int runReporting(const char* name, const std::function<int()>& benchmark)
{
    catchSignals();
    try {
        return benchmark();
    } catch (const Interrupted&) {
        std::fprintf(stderr, "%s: interrupted\n", name);
        return 128 + interruptingSignal();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", name, error.what());
        return 1;
    }
}

} // namespace quillane::bench
