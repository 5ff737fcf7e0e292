#pragma once

#include "program.h"

namespace vsctool {

/// Shows the versions of a camera's firmware, and writes firmware into the memories of its
/// controller.
void AddFirmwareCommand(CLI::App &app, Command &chosen);

} // namespace vsctool
