#pragma once

#include "camera.h"
#include "ser/header.h"

namespace vsctool {

/// Of a recording of the open camera, as it is set.
SerHeader SerHeaderOf(const Camera &camera);

} // namespace vsctool
