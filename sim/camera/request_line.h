#pragma once

#include "camera/camera.h"
#include "camera/scene_source.h"

#include <string>

namespace vscsim {

/// A control request in words, see Bus::TakeTraffic.
std::string LineOf(const ControlRequest &request);

/// How long the sensor was exposed for a frame.
std::string LineOf(const Exposure &exposure);
/// "line 0 was on for 1000 us"
std::string LineOf(const Pulse &pulse);

} // namespace vscsim
