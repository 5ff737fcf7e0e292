#include "commands/command.h"

namespace vsctool {
namespace {

void AddAll(CLI::App &app, Command &chosen)
{
    AddListCommand(app, chosen);
    AddInfoCommand(app, chosen);
    AddCaptureCommand(app, chosen);
    AddControlsCommands(app, chosen);
    AddCoolCommand(app, chosen);
    AddDarkCommand(app, chosen);
    AddGuideCommand(app, chosen);
    AddIdCommand(app, chosen);
    AddVersionCommand(app, chosen);
}

Program Vsccam()
{
    return {.name = "vsccam",
            .purpose = "works the VSC cameras",
            .addCommands = AddAll,
            .takeSettings = TakeSettings};
}

} // namespace
} // namespace vsctool

int main(int argc, char **argv)
{
    return vsctool::RunProgram(vsctool::Vsccam(), argc, argv);
}
