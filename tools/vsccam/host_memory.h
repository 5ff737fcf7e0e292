#pragma once

#include <cstdint>

namespace vsctool {

/// Bytes for each pixel of the sensor that the library may come to use while a camera is open: five
/// buffers for frames of 2 bytes, and a dark frame with the part of it that is in use.
inline constexpr int64_t kHostBytesPerPixel = 5 * 2 + 2;

/// The same of this program, which has a picture beside it and looks at its brightness.
inline constexpr int64_t kToolBytesPerPixel = kHostBytesPerPixel + 2 * 2;

/// Memory of the kernel for the transfers of a frame of 2 bytes a pixel.
constexpr int64_t UsbfsMiB(int64_t pixels)
{
    constexpr int64_t kMiB = 1 << 20;
    return pixels * 2 / kMiB + 1;
}

} // namespace vsctool
