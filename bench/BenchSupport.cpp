#include "BenchSupport.h"

#include "TrashTree.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <unistd.h>

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

Option pathOption(std::string_view name, std::optional<std::filesystem::path>& target)
{
    return {name, [&target](std::string_view value) {
                target = std::filesystem::path(value);
                return true;
            }};
}

bool parseOptions(int argc, char** argv, const char* program, const char* usage,
                  const std::vector<Option>& options)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "-h" || argument == "--help") {
            std::fputs(usage, stdout);
            std::exit(0);
        }
        const auto option = std::find_if(options.begin(), options.end(),
                                         [&](const Option& one) { return one.name == argument; });
        std::string problem;
        if (option == options.end())
            problem = "unknown option " + std::string(argument);
        else if (i + 1 >= argc)
            problem = "missing value for " + std::string(argument);
        else if (!option->take(argv[i + 1]))
            problem = "bad value for " + std::string(argument) + ": " + argv[i + 1];
        if (!problem.empty()) {
            std::fprintf(stderr, "%s: %s\n\n", program, problem.c_str());
            std::fputs(usage, stderr);
            return false;
        }
        ++i;
    }
    return true;
}

int runBenchmark(int argc, char** argv, const char* program, const char* usage,
                 const std::vector<Option>& options, const std::function<int()>& benchmark)
{
    if (!parseOptions(argc, argv, program, usage, options))
        return 2;
    return runReporting(program, benchmark);
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

double secondsOf(std::chrono::steady_clock::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

double secondsOf(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

std::filesystem::path ownFolder()
{
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::current_path() : self.parent_path();
}

std::filesystem::path scratchParent(const std::optional<std::filesystem::path>& chosen)
{
    if (chosen)
        return *chosen;
    if (const char* tmp = std::getenv("TMPDIR"); tmp && *tmp)
        return tmp;
    return "/var/tmp";
}

std::filesystem::path quillaneProgram(const std::optional<std::filesystem::path>& chosen)
{
    const std::filesystem::path program =
        chosen.value_or(ownFolder().parent_path() / "src" / "App" / "quillane");
    if (access(program.c_str(), X_OK) != 0)
        throw std::runtime_error("no quillane program at " + printablePath(program) +
                                 "; build it or name it with --quillane");
    return program;
}

std::vector<std::string> environmentWithout(const std::vector<std::string_view>& dropped,
                                            const std::vector<std::string>& added)
{
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        if (std::none_of(dropped.begin(), dropped.end(),
                         [&](std::string_view name) { return text.starts_with(name); }))
            environment.emplace_back(text);
    }
    environment.insert(environment.end(), added.begin(), added.end());
    return environment;
}

pid_t startProgram(const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment, const std::filesystem::path& output,
                   const std::filesystem::path& errors)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (errors == output)
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    else
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (const std::string& variable : environment)
        envp.push_back(const_cast<char*>(variable.c_str()));
    envp.push_back(nullptr);

    pid_t child = 0;
    const int error = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::runtime_error("cannot run " + printablePath(arguments[0]) + ": " +
                                 std::strerror(error));
    return child;
}

} // namespace quillane::bench
