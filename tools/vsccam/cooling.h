#pragma once

#include "camera.h"
#include "console.h"

#include <optional>

namespace vsctool {

/// Throws Failure for models without a cooler.
void RequireCooler(const Camera &camera);

/// Lets the cooler regulate to a target, within its range.
void Regulate(int targetC);

/// Starts cooling to a target and, when told how close, waits for the sensor to get there. Cooling
/// goes on until the camera is closed. Throws Failure for models without a cooler.
void CoolTo(Camera &camera, int targetC, std::optional<double> withinC, Console &console);

} // namespace vsctool
