#pragma once

#include "usb/camera_fx3.h"

#include <cstdint>

namespace vsccam {

/// Writes a register of 16 bits. That a write got lost is noted by the camera, which is programmed
/// again then.
inline void WriteSensor(CCameraFX3 &camera, uint16_t address, int value)
{
    (void)camera.WriteCameraRegister(address, static_cast<uint16_t>(value));
}

} // namespace vsccam
