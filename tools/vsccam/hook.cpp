#include "hook.h"

#include "arguments.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <vector>

namespace vsctool {

int RunHook(const std::string &command, const std::filesystem::path &file)
{
    std::vector<std::string> words = {"/bin/sh", "-c", command, "hook", file.string()};
    std::vector<std::string> variables = {fmt::format("VSCCAM_FILE={}", file.string())};
    for (char **variable = environ; *variable; ++variable)
        variables.emplace_back(*variable);

    sigset_t none;
    sigemptyset(&none);
    sigset_t pipe = none;
    sigaddset(&pipe, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);    // ours are blocked, the hook's shall not be
    posix_spawnattr_setsigdefault(&attributes, &pipe); // nor ignored
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t child = 0;
    const int error = posix_spawn(&child, words[0].c_str(), nullptr, &attributes,
                                  Pointers(words).data(), Pointers(variables).data());
    posix_spawnattr_destroy(&attributes);
    int status = 0;
    if (error != 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

} // namespace vsctool
