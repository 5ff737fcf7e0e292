#pragma once

#include "program.h"

#include <string>
#include <vector>

namespace vsctool {

/// Adds a command to the program; parsing stores what to run in `chosen`.
using AddCommand = void(CLI::App &app, Command &chosen);

AddCommand AddListCommand, AddInfoCommand, AddCaptureCommand, AddRecordCommand, AddStreamCommand,
    AddBenchCommand, AddControlsCommands, AddCoolCommand, AddDarkCommand, AddSerCommand,
    AddDoctorCommand, AddGuideCommand, AddIdCommand, AddMonitorCommand, AddServeCommand,
    AddShellCommand, AddCompletionCommand, AddVersionCommand;

/// All of them, in the order of the help.
inline constexpr AddCommand *kCommands[] = {
    AddListCommand,   AddInfoCommand,       AddCaptureCommand, AddRecordCommand,  AddStreamCommand,
    AddBenchCommand,  AddControlsCommands,  AddCoolCommand,    AddDarkCommand,    AddSerCommand,
    AddDoctorCommand, AddGuideCommand,      AddIdCommand,      AddMonitorCommand, AddServeCommand,
    AddShellCommand,  AddCompletionCommand, AddVersionCommand,
};

/// Takes "set NAME=VALUE... --" off the words in front of a command, wherever options for all
/// commands stand, and returns the settings. Throws Failure.
std::vector<Setting> TakeSettings(std::vector<std::string> &words);

} // namespace vsctool
