#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace vsctool {

/// What the last of the words behind a program's name may become: commands, options or the choices
/// of an option. Nothing where a file or a figure is expected.
std::vector<std::string> Completions(const CLI::App &program,
                                     const std::vector<std::string> &words);

} // namespace vsctool
