#pragma once

#include <cstdint>

namespace vsccam {

/// Temperature in degrees Celsius from the two bytes of a USB 3.0 camera's thermometer: 12 bits,
/// two's complement, sixteenths of a degree.
constexpr float ThermometerTemperature(uint8_t low, uint8_t high)
{
    const int raw = high * 16 + (low >> 4);
    return static_cast<float>(raw < 2048 ? raw : raw - 4096) * 0.0625F;
}

} // namespace vsccam
