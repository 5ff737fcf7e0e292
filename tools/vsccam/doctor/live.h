#pragma once

#include "doctor/checks.h"
#include "program.h"

#include <vector>

namespace vsctool {

/// Opens a camera and takes frames with it.
std::vector<Finding> ExamineLive(const Context &context);

} // namespace vsctool
