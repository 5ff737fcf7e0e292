#pragma once

#include "program.h"

namespace vsctool {

/// Shows, writes and erases the table of hot pixels in a camera's flash.
void AddHotPixelsCommand(CLI::App &app, Command &chosen);

} // namespace vsctool
