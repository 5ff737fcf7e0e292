#pragma once

#include "program.h"

#include <functional>
#include <string>
#include <vector>

namespace vsctool {

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

} // namespace vsctool
