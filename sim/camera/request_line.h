#pragma once

#include "camera/camera.h"

#include <string>

namespace vscsim {

/// A control request in words, see Bus::TakeTraffic.
std::string LineOf(const ControlRequest &request);

} // namespace vscsim
