#include "commands/command.h"

namespace vsctool {
namespace {

void AddAll(CLI::App &app, Command &chosen)
{
    for (AddCommand *add : kCommands)
        add(app, chosen);
}

Program Vsccam()
{
    return {.name = "vsccam",
            .purpose = "works the VSC cameras",
            .example = "vsccam --sim VSC470MC capture -e 2s -o first.fit",
            .addCommands = AddAll,
            .takeSettings = TakeSettings};
}

} // namespace
} // namespace vsctool

int main(int argc, char **argv)
{
    return vsctool::RunProgram(vsctool::Vsccam(), argc, argv);
}
