#include "hot_pixels.h"
#include "program.h"

int main(int argc, char **argv)
{
    return vsctool::RunProgram({.name = "vscservice",
                                .purpose = "maintains VSC cameras at the bench",
                                .addCommands = vsctool::AddHotPixelsCommand},
                               argc, argv);
}
