#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <istream>
#include <string>
#include <vector>

namespace vsctool {

/// The form of a configuration file: lines with NAME=VALUE, those of a command below [COMMAND].
class ConfigForm : public CLI::ConfigBase {
  public:
    /// Throws Failure for a line that is neither; it would be taken for something else.
    std::vector<CLI::ConfigItem> from_config(std::istream &input) const override;
};

/// What is wrong with a file before it is read; empty: nothing. Reading a pipe or a device could
/// last for ever.
std::string WhyNoConfig(const std::string &file);

/// Throws Failure that names the first line of a file with which `parse` fails; it gets each entry
/// by itself, below its command. Does nothing when all of them are right.
void TellWrongLine(const std::string &file, const std::function<void(std::istream &)> &parse);

} // namespace vsctool
