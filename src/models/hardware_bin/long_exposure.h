#pragma once

#include "capture/capture_sensor.h"

namespace vsccam {

/// How sensors that sleep through long exposures are timed: in one sleep up to two seconds, in
/// steps of 100 ms beyond. The read waits for slow frames.
LongExposurePlan SleepingExposurePlan(uint32_t exposureUs, int frameTimeUs);

} // namespace vsccam
