#pragma once

#include "units.h"

#include <string>

namespace vsctool {

/// What the library makes of an exposure that is set. The header tells the steps of each family.
/// @param usb3Port  whether the camera is at one
Microseconds PlannedExposure(const std::string &model, bool usb3Port, Microseconds set);

/// The same when it is known who times the exposure. Near the limit of some cameras that depends on
/// the length of their lines.
Microseconds PlannedExposure(const std::string &model, Microseconds set, bool byHost);

} // namespace vsctool
