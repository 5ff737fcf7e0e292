#include "camera_controls.h"
#include "firmware.h"
#include "hot_pixels.h"
#include "program.h"

namespace {

void AddCommands(CLI::App &app, vsctool::Command &chosen)
{
    vsctool::AddHotPixelsCommand(app, chosen);
    vsctool::AddFirmwareCommand(app, chosen);
    vsctool::AddControlsCommand(app, chosen);
}

} // namespace

int main(int argc, char **argv)
{
    return vsctool::RunProgram({.name = "vscservice",
                                .purpose = "maintains VSC cameras at the bench",
                                .example = "vscservice hotpixels show",
                                .addCommands = AddCommands},
                               argc, argv);
}
