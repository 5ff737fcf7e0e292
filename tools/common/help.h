#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace vsctool {

/// The help of a program and of its commands. That of a command ends with the options for all
/// commands, the exit codes, and its footer, which is an example of its use.
class HelpForm : public CLI::Formatter {
  public:
    std::string make_footer(const CLI::App *app) const override;
};

/// "vsccam dark make"
std::string FullName(const CLI::App &command);

/// Names of what stands below a command.
std::vector<std::string> CommandNames(const CLI::App &parent);

/// "--exposure" and its like of a command and of all commands.
std::vector<std::string> OptionNames(const CLI::App &command);

/// The help of what the words name, of the program itself without any. Throws Failure when they
/// name nothing.
std::string HelpOn(const CLI::App &program, const std::vector<std::string> &words);

} // namespace vsctool
