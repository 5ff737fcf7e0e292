#include "hook.h"

#include "arguments.h"
#include "failure.h"
#include "stop_signals.h"
#include "usb_devices.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <string_view>
#include <thread>
#include <vector>

namespace vsctool {
namespace {

using namespace std::chrono_literals;

constexpr auto kPollInterval = 10ms;
constexpr int kPollsUntilKilled = 50;
constexpr std::string_view kChoice = "VSCCAM_CAMERA=";

/// Starts a program in a process group of its own, with which whatever it starts can be ended. Its
/// standard output is no place for results of ours.
std::optional<pid_t> Start(std::vector<std::string> words, std::vector<std::string> variables)
{
    sigset_t none;
    sigemptyset(&none);
    sigset_t pipe = none;
    sigaddset(&pipe, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);    // ours are blocked, the hook's shall not be
    posix_spawnattr_setsigdefault(&attributes, &pipe); // nor ignored
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                              POSIX_SPAWN_SETPGROUP);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, STDERR_FILENO, STDOUT_FILENO);
    pid_t child = 0;
    const int error = posix_spawn(&child, words[0].c_str(), &files, &attributes,
                                  Pointers(words).data(), Pointers(variables).data());
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    return error == 0 ? std::optional(child) : std::nullopt;
}

/// A child of which nothing is known counts as killed: nobody saw it succeed.
bool HasEnded(pid_t child, int *status)
{
    const pid_t ended = waitpid(child, status, WNOHANG);
    if (ended < 0)
        *status = SIGKILL;
    return ended != 0;
}

/// With all that it has started. What does not end when asked to is killed.
void EndGroup(pid_t leader)
{
    int status = 0;
    kill(-leader, SIGTERM);
    for (int i = 0; i < kPollsUntilKilled && !HasEnded(leader, &status); ++i)
        std::this_thread::sleep_for(kPollInterval);
    kill(-leader, SIGKILL);
    while (!HasEnded(leader, &status))
        std::this_thread::sleep_for(kPollInterval);
}

} // namespace

int RunHook(const std::string &command, const std::filesystem::path &file)
{
    std::vector<std::string> variables = {fmt::format("VSCCAM_FILE={}", file.string())};
    // This program keeps to one camera; what the hook starts may use all that the user named.
    for (char **variable = environ; *variable; ++variable)
        if (!std::string_view(*variable).starts_with(kChoice))
            variables.emplace_back(*variable);
    if (const auto &named = CamerasNamedByUser())
        variables.emplace_back(kChoice).append(*named);
    const auto child = Start({"/bin/sh", "-c", command, "hook", file.string()}, variables);
    if (!child)
        return -1;
    int status = 0;
    try {
        while (!HasEnded(*child, &status))
            StopSignals::SleepFor(kPollInterval);
    } catch (const Failure &) {
        EndGroup(*child);
        throw;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace vsctool
