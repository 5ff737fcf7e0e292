#pragma once

#include "core/frame_geometry.h"
#include "usb/camera_fx3.h"

#include <cstdint>

namespace vsccam {

/// Writes a register. The camera takes note of a write that got lost, and is then programmed again.
void WriteFpga(CCameraFX3 &camera, uint16_t reg, int value);

/// What the FPGA of a USB 3.0 camera gets after its reset.
void SetUpFpga(CCameraFX3 &camera);

/// Writes a number into a register and the one behind it, low byte first.
void WriteFpga16(CCameraFX3 &camera, uint16_t reg, int value);

/// Size of the frames, to be written while the FPGA holds.
void WriteOutputSize(CCameraFX3 &camera, Size size);

/// @param code  for the mode register, as without long exposures
void SetFpgaMode(CCameraFX3 &camera, uint16_t code, bool longExposure);

/// The gate of long exposures. While it is open the sensor integrates; then it reads out.
void SetExposureGate(CCameraFX3 &camera, bool open);

} // namespace vsccam
