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
};

/// A parsed command, ready to run. Throws Failure unless all went well.
using Command = std::function<void(Context &)>;

/// Makes a command of the words behind a prefix. Throws Failure.
using CommandParser = std::function<Command(std::vector<std::string>)>;

// Each adds its command to the program; parsing stores what to run in `chosen`.
void AddListCommand(CLI::App &app, Command &chosen);
void AddInfoCommand(CLI::App &app, Command &chosen);
void AddCaptureCommand(CLI::App &app, Command &chosen);
void AddControlsCommands(CLI::App &app, Command &chosen, const CommandParser &parse);
void AddCoolCommand(CLI::App &app, Command &chosen);
void AddDarkCommand(CLI::App &app, Command &chosen);
void AddGuideCommand(CLI::App &app, Command &chosen);
void AddIdCommand(CLI::App &app, Command &chosen);
void AddVersionCommand(CLI::App &app, Command &chosen);

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
