#include "config_file.h"

#include "failure.h"
#include "fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <sstream>
#include <string>

namespace {

/// A program with an option of each form, and a command with one of its own.
void ParseConfig(std::istream &input)
{
    CLI::App app;
    std::string text;
    std::vector<int> numbers;
    bool flag = false;
    app.add_option("--text", text);
    app.add_option("--numbers", numbers);
    app.add_flag("--flag", flag);
    app.add_subcommand("command")->add_option("--text", text);
    app.allow_config_extras(CLI::config_extras_mode::error);
    app.config_formatter(std::make_shared<vsctool::ConfigForm>());
    app.parse_from_stream(input);
}

/// @return what is wrong with the first wrong line
std::string Blame(const std::string &file)
{
    try {
        vsctool::TellWrongLine(file, ParseConfig);
    } catch (const vsctool::Failure &failure) {
        return failure.what();
    }
    return "";
}

} // namespace

// A file is read, or what is wrong with it is told together with its line.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    std::istringstream input(std::string(bytes, bytes + size));
    try {
        ParseConfig(input);
        return 0;
    } catch (const vsctool::Failure &) {
    } catch (const CLI::Error &) {
    }
    const int file = memfd_create("config", MFD_CLOEXEC);
    Must(file >= 0 && write(file, bytes, size) == static_cast<ssize_t>(size));
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    const std::string told = Blame(path);
    Must(told.empty() || told.starts_with(path + ", line "));
    close(file);
    return 0;
}
