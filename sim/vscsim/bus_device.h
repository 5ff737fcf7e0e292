#pragma once

#include "camera/camera.h"

namespace vscsim {

/// A camera to plug in.
struct BusDevice {
    const ModelFacts *model = nullptr;
    CameraOptions options = {};
};

} // namespace vscsim
