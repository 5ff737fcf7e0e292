#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vsctool::serve {

/// A JPEG for looking at: of quality 80, and of colours at half of the resolution.
/// @param bytes  one for each pixel, or red, green and blue
/// Throws Failure when there is no memory for it.
std::string ToJpeg(std::span<const uint8_t> bytes, int width, int height);

} // namespace vsctool::serve
