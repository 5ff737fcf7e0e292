#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace vsctool {

/// A picture of blue, green, red as three planes, Y, Cb, Cr, of the same size: those of BT.601 with
/// Y from 16 to 235, as Y4M has them.
void ToYuv444(std::span<const uint8_t> bgr, std::vector<uint8_t> &planes);

} // namespace vsctool
