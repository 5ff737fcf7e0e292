#pragma once

#include "program.h"

namespace vsctool {

/// Shows the controls of a camera by the library's newer interface.
void AddControlsCommand(CLI::App &app, Command &chosen);

} // namespace vsctool
