#include "vscsim/child.h"

#include <fmt/format.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vscsim {
namespace {

constexpr const char *kPreload = "libumockdev-preload.so.0";

constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;
constexpr int kKilled = 128;

sigset_t HeldSignals()
{
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
        sigaddset(&held, signal);
    return held;
}

/// NAME=first + what NAME had, separated.
std::string Prepended(const char *name, const std::string &first)
{
    const char *const before = getenv(name); // NOLINT(concurrency-mt-unsafe): nobody changes it
    return fmt::format("{}={}{}", name, first, before && *before ? fmt::format(":{}", before) : "");
}

std::vector<std::string> PreloadedEnvironment()
{
    // AddressSanitizer insists that its runtime is loaded first. That only matters for functions
    // which both replace, and umockdev leaves memory management alone.
    std::vector<std::string> variables = {
        Prepended("LD_PRELOAD", kPreload),
        Prepended("ASAN_OPTIONS", "verify_asan_link_order=0"),
    };
    for (char **variable = environ; *variable; ++variable)
        if (std::strncmp(*variable, "LD_PRELOAD=", 11) != 0 &&
            std::strncmp(*variable, "ASAN_OPTIONS=", 13) != 0)
            variables.emplace_back(*variable);
    return variables;
}

std::vector<char *> Pointers(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

int Spawn(std::vector<std::string> command, pid_t *child)
{
    std::vector<std::string> environment = PreloadedEnvironment();
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    const int error = posix_spawnp(child, command[0].c_str(), nullptr, &attributes,
                                   Pointers(command).data(), Pointers(environment).data());
    posix_spawnattr_destroy(&attributes);
    return error;
}

} // namespace

void HoldSignals()
{
    signal(SIGCHLD, SIG_DFL); // ignored, as some start us, it would never come
    const sigset_t held = HeldSignals();
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
}

int RunPreloaded(const std::vector<std::string> &command)
{
    pid_t child = 0;
    if (const int error = Spawn(command, &child)) {
        fmt::print(stderr, "vscsim: cannot run {}: {}\n", command[0], strerrordesc_np(error));
        return error == ENOENT ? kNotFound : kCannotRun;
    }
    const sigset_t held = HeldSignals();
    for (;;) {
        siginfo_t signal = {};
        if (sigwaitinfo(&held, &signal) < 0)
            continue;
        int status = 0;
        if (signal.si_signo != SIGCHLD) {
            // The terminal has sent its signals to the program as well.
            if (signal.si_code != SI_KERNEL)
                kill(child, signal.si_signo);
        } else if (waitpid(child, &status, WNOHANG) == child) {
            return WIFSIGNALED(status) ? kKilled + WTERMSIG(status) : WEXITSTATUS(status);
        }
    }
}

void PreloadOurselves(char **arguments)
{
    const char *const preloaded = getenv("LD_PRELOAD"); // NOLINT(concurrency-mt-unsafe): as above
    if (preloaded && std::strstr(preloaded, kPreload))
        return;
    std::vector<std::string> environment = PreloadedEnvironment();
    execve("/proc/self/exe", arguments, Pointers(environment).data());
}

} // namespace vscsim
