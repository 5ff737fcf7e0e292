#pragma once

#include "camera.h"
#include "console.h"

#include <optional>

namespace vsctool {

/// Starts cooling to a target and, when told how close, waits for the sensor to get there. Cooling
/// goes on until the camera is closed. Throws Failure for models without a cooler.
void CoolTo(Camera &camera, int targetC, std::optional<double> withinC, Console &console);

} // namespace vsctool
