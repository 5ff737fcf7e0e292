#pragma once

#include "usb/camera_choice.h"

namespace vsccam {

/// The cameras that a text such as "usb:1-2.3,model:VSC470MC" names. Null or an empty text names
/// all of them. A word that cannot be read names none, and the debug output says so.
CameraChoice CamerasNamed(const char *text);

/// The cameras that the environment variable VSCCAM_CAMERA names. Programs with raised privileges
/// do not follow it.
CameraChoice CamerasNamedByEnvironment();

} // namespace vsccam
