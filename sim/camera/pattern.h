#pragma once

#include <cstdint>

namespace vscsim {

/// The test pattern: every sample depends on the frame's number and on the sample's place on the
/// sensor, so that a torn, shifted or repeated frame cannot hide. 16 bits; 8-bit read-out delivers
/// the high byte. The high byte alone tells frames and places apart: neighbouring frames differ in
/// it at every pixel, and so do neighbouring columns and rows.
/// @param frame  number of the frame since the stream was started, from 0
/// @param x, y   place on the sensor in unbinned pixels, before any binning of the sensor
constexpr uint16_t PatternSample(uint32_t frame, int x, int y)
{
    const uint32_t column = static_cast<uint32_t>(x);
    const uint32_t row = static_cast<uint32_t>(y);
    const uint32_t high =
        (frame * 29U + column * 5U + row * 11U + (column >> 6) * (row >> 5)) & 0xFFU;
    const uint32_t low = (frame * 3U + column + row) & 0xFFU;
    return static_cast<uint16_t>(high << 8 | low);
}

} // namespace vscsim
