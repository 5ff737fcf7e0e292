#pragma once

#include "usb/camera_choice.h"

namespace vsccam {

/// The cameras that a text such as "usb:1-2.3,model:VSC470MC" names; all for null and an empty one.
/// What cannot be read names none, and the debug output says so.
CameraChoice CamerasNamed(const char *text);

/// The cameras that the environment variable VSCCAM_CAMERA names. Programs with raised privileges
/// take no orders from it.
CameraChoice CamerasNamedByEnvironment();

} // namespace vsccam
