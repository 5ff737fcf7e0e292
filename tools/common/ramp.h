#pragma once

#include <chrono>

namespace vsctool {

inline constexpr double kUsualWarmingCPerMin = 5;
inline constexpr auto kCoolingInterval = std::chrono::seconds(4); // of reports and steps

/// Lets the cooler regulate to a target, within its range.
void Regulate(int targetC);

/// Moves the target unless it is there already: regulation begins anew whenever it is set.
void MoveTarget(double celsius);

/// Where a ramp from `fromC` to `toC` is after some time.
double OnRamp(double fromC, double toC, double cPerMin,
              std::chrono::steady_clock::duration elapsed);

} // namespace vsctool
