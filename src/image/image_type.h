#pragma once

namespace vsccam {

/// Internal image formats. One byte per pixel is raw or luminance, by the camera's raw-output flag.
enum IMAGE_TYPE { kByteImage = 0, kRgb24 = 1, kYuv2 = 2, kReserved16 = 3, kRaw16 = 4 };

/// Formats whose samples the sensor delivers in 16 bits.
constexpr bool Is16Bit(IMAGE_TYPE type)
{
    return type == kReserved16 || type == kRaw16;
}

} // namespace vsccam
