#pragma once

#include "usb/camera_fx3.h"

namespace vsccam {

/// Stops sensor and FPGA of a USB 3.0 camera.
void QuietSensor(CCameraFX3 &camera);

} // namespace vsccam
