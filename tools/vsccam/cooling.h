#pragma once

#include "camera.h"
#include "console.h"

#include <functional>
#include <optional>

namespace vsctool {

inline constexpr double kUsualWarmingCPerMin = 5;
inline constexpr auto kCoolingInterval = std::chrono::seconds(4); // of reports and steps

/// Throws Failure for models without a cooler.
void RequireCooler(const Camera &camera);

/// Lets the cooler regulate to a target, within its range.
void Regulate(int targetC);

/// Moves the target unless it is there already: regulation begins anew whenever it is set.
void MoveTarget(double celsius);

/// Where a ramp from `fromC` to `toC` is after some time.
double OnRamp(double fromC, double toC, double cPerMin,
              std::chrono::steady_clock::duration elapsed);

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
