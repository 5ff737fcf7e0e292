#pragma once

#include "usb/camera_fx3.h"

#include <cstdint>

namespace vsccam {

/// What the FPGA of a USB 3.0 camera gets after its reset.
void SetUpFpga(CCameraFX3 &camera);

/// Writes a number into a register and the one behind it, low byte first.
void WriteFpga16(CCameraFX3 &camera, uint16_t reg, int value);

} // namespace vsccam
