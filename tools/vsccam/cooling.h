#pragma once

#include "camera.h"
#include "console.h"
#include "ramp.h"

#include <functional>
#include <optional>

namespace vsctool {

/// Throws Failure for models without a cooler.
void RequireCooler(const Camera &camera);

/// Warms the sensor in steps, then switches the cooler off: a sensor that warms fast may gather
/// dew, and strains. `wait` is called between the steps.
void WarmUp(double cPerMin, const std::function<void()> &wait);

/// Does `work` with a cooled sensor, then `warm`, also when a signal or a failure ended it, unless
/// the camera is gone.
void WorkThenWarm(Console &console, const std::function<void()> &work,
                  const std::function<void()> &warm);

/// Warms the sensor and tells about it now and then.
void WarmUp(Camera &camera, Console &console);

/// Starts cooling to a target and, when told how close, waits for the sensor to get there. Cooling
/// goes on until the camera is closed. Throws Failure for models without a cooler.
void CoolTo(Camera &camera, int targetC, std::optional<double> withinC, Console &console);

} // namespace vsctool
