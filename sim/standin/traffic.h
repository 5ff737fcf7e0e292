#pragma once

#include "camera/camera.h"

#include <string>

namespace vscsim {

/// One line for a control request, as Bus::TakeTraffic lists it.
std::string TrafficLine(const ControlRequest &request);

} // namespace vscsim
