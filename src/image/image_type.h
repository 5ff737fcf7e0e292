#pragma once

#include <cstddef>

namespace vsccam {

/// Internal image formats. One byte per pixel is raw or luminance, by the camera's raw-output flag.
enum IMAGE_TYPE { kByteImage = 0, kRgb24 = 1, kYuv2 = 2, kReserved16 = 3, kRaw16 = 4 };

/// Formats whose samples the sensor delivers in 16 bits.
constexpr bool Is16Bit(IMAGE_TYPE type)
{
    return type == kReserved16 || type == kRaw16;
}

constexpr size_t BytesPerPixel(IMAGE_TYPE type)
{
    switch (type) {
    case kRgb24:
        return 3;
    case kYuv2:
    case kReserved16:
    case kRaw16:
        return 2;
    case kByteImage:
        break;
    }
    return 1;
}

} // namespace vsccam
