#pragma once

#include "camera.h"
#include "console.h"
#include "units.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

namespace vsctool {

/// What all commands share.
struct Context {
    Console &console;
    CameraChoice camera;
    Microseconds timeout{};
    bool simulated = false;
    const CLI::App &program; // its commands and options

    /// Runs another command line; nothing in a context that was made by this.
    std::function<void(const std::vector<std::string> &)> run{};
};

/// A parsed command, ready to run. Throws Failure unless all went well.
using Command = std::function<void(Context &)>;

/// A command-line program.
struct Program {
    std::string name;
    std::string purpose; // ends the sentence "NAME: ..."
    std::string example; // of its use
    /// Adds the commands; parsing stores what to run in `chosen`.
    void (*addCommands)(CLI::App &app, Command &chosen);
    /// Takes settings that stand before a command off the words. Throws Failure.
    std::vector<Setting> (*takeSettings)(std::vector<std::string> &words) = nullptr;
};

/// Reads the command line and runs the command. @return the exit code of the program
int RunProgram(const Program &program, int argc, char **argv);

/// An option whose text a function of this program reads; `form` shows how to write it.
template <class Target, class Value>
CLI::Option *AddParsed(CLI::App &app, const std::string &names, Target &target,
                       Value (*parse)(const std::string &), const std::string &form,
                       const std::string &help)
{
    const auto store = [&target, parse](const std::string &text) { target = parse(text); };
    return app.add_option_function<std::string>(names, store, help)->type_name(form);
}

} // namespace vsctool
