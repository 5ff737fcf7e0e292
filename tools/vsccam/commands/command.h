#pragma once

#include "program.h"

#include <string>
#include <vector>

namespace vsctool {

// Each adds its command to the program; parsing stores what to run in `chosen`.
void AddListCommand(CLI::App &app, Command &chosen);
void AddInfoCommand(CLI::App &app, Command &chosen);
void AddCaptureCommand(CLI::App &app, Command &chosen);
void AddControlsCommands(CLI::App &app, Command &chosen);
void AddCoolCommand(CLI::App &app, Command &chosen);
void AddDarkCommand(CLI::App &app, Command &chosen);
void AddGuideCommand(CLI::App &app, Command &chosen);
void AddIdCommand(CLI::App &app, Command &chosen);
void AddVersionCommand(CLI::App &app, Command &chosen);

/// Takes "set NAME=VALUE... --" off the words in front of a command, wherever options for all
/// commands stand, and returns the settings. Throws Failure.
std::vector<Setting> TakeSettings(std::vector<std::string> &words);

} // namespace vsctool
