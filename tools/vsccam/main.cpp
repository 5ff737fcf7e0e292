#include "commands/command.h"
#include "failure.h"

#include <algorithm>

namespace vsctool {
namespace {

Command ParseCommand(std::vector<std::string> words);

void AddAll(CLI::App &app, Command &chosen)
{
    AddListCommand(app, chosen);
    AddInfoCommand(app, chosen);
    AddCaptureCommand(app, chosen);
    AddControlsCommands(app, chosen, ParseCommand);
    AddCoolCommand(app, chosen);
    AddDarkCommand(app, chosen);
    AddGuideCommand(app, chosen);
    AddIdCommand(app, chosen);
    AddVersionCommand(app, chosen);
}

Program Vsccam()
{
    return {.name = "vsccam", .purpose = "works the VSC cameras", .addCommands = AddAll};
}

/// The command behind a prefix; global options stand before that.
Command ParseCommand(std::vector<std::string> words)
{
    const Program program = Vsccam();
    CLI::App app("the command behind the settings", program.name);
    Command command;
    AddCommands(app, program, command);
    const auto isMeant = [&](const CLI::App *one) { return one->check_name(words.front()); };
    if (app.get_subcommands(isMeant).empty())
        throw Failure(Exit::kUsage,
                      fmt::format("'{}' is neither a setting like gain=200 nor a command; options "
                                  "for all commands stand before 'set'",
                                  words.front()));
    std::reverse(words.begin(), words.end()); // the form that the parser takes
    try {
        app.parse(words);
    } catch (const CLI::ParseError &error) {
        throw Failure(Exit::kUsage, error.what());
    }
    return command;
}

} // namespace
} // namespace vsctool

int main(int argc, char **argv)
{
    return vsctool::RunProgram(vsctool::Vsccam(), argc, argv);
}
