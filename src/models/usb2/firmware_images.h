#pragma once

#include "usb/idle_firmware.h"

/// The firmware of the FX2 in the USB 2.0 cameras that get it from the host, one per family, in the
/// length of the real one. See there what stands in for it: a camera that takes one of these falls
/// silent.
namespace vsccam {

inline constexpr auto kFWCodeS340MM = IdleFx2Image<4238>();
inline constexpr auto kFWCodeS340MC = IdleFx2Image<4265>();
inline constexpr auto kFWCodeS350MM = IdleFx2Image<4299>();
inline constexpr auto kFWCodeS052MC = IdleFx2Image<4346>();

} // namespace vsccam
