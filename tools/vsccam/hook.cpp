#include "hook.h"

#include "stop_signals.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace vsctool {

int RunHook(const std::string &command, const std::filesystem::path &file)
{
    std::vector<std::string> words = {"/bin/sh", "-c", command, "hook", file.string()};
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    std::string fileVariable = "VSCCAM_FILE=" + file.string();
    std::vector<char *> environment = {fileVariable.data()};
    for (char **variable = environ; *variable; ++variable)
        environment.push_back(*variable);
    environment.push_back(nullptr);

    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none); // ours are blocked, the hook's shall not be
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t child = 0;
    const int error = posix_spawn(&child, arguments[0], nullptr, &attributes, arguments.data(),
                                  environment.data());
    posix_spawnattr_destroy(&attributes);
    int status = 0;
    if (error != 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

} // namespace vsctool
