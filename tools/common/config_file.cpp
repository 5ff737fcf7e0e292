#include "config_file.h"

#include "failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace vsctool {
namespace {

constexpr uintmax_t kLargestFile = 1 << 20;

/// Without the spaces around it, and without the remark behind it.
std::string Bare(std::string line)
{
    if (line.starts_with(';'))
        return "";
    line = line.substr(0, line.find('#'));
    return CLI::detail::trim(line);
}

bool IsHead(const std::string &bare)
{
    return bare.starts_with('[') && bare.ends_with(']');
}

bool IsWellFormed(const std::string &bare)
{
    const size_t equals = bare.find('=');
    if (bare.empty() || IsHead(bare))
        return true;
    if (equals == std::string::npos || equals == 0 || equals + 1 == bare.size())
        return false;
    const std::string value = Bare(bare.substr(equals + 1));
    return (!value.starts_with('[') || value.ends_with(']')) &&
           std::ranges::count(value, '"') % 2 == 0;
}

} // namespace

std::vector<CLI::ConfigItem> ConfigForm::from_config(std::istream &input) const
{
    std::string all;
    for (std::string line; std::getline(input, line); all += Bare(line) + '\n')
        if (!IsWellFormed(Bare(line)))
            throw Failure(Exit::kUsage, "this is neither NAME=VALUE nor [COMMAND]");
    std::istringstream checked(all);
    return ConfigBase::from_config(checked);
}

std::string WhyNoConfig(const std::string &file)
{
    std::error_code error;
    if (const auto status = std::filesystem::status(file, error); !exists(status))
        return fmt::format("cannot read {}: {}", file, error.message());
    else if (!is_regular_file(status))
        return fmt::format("{} is no regular file", file);
    if (std::filesystem::file_size(file, error) > kLargestFile)
        return fmt::format("{} is too large for a configuration", file);
    return "";
}

void TellWrongLine(const std::string &file, const std::function<void(std::istream &)> &parse)
{
    std::ifstream input(file);
    std::string head;
    int number = 0;
    for (std::string line; std::getline(input, line);) {
        ++number;
        if (IsHead(Bare(line)))
            head = line;
        std::istringstream alone(head == line ? line : fmt::format("{}\n{}", head, line));
        try {
            parse(alone);
        } catch (const std::exception &error) {
            throw Failure(Exit::kUsage, fmt::format("{}, line {}: {}", file, number, error.what()));
        }
    }
}

} // namespace vsctool
