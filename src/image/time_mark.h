#pragma once

#include "image/image_type.h"

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace vsccam {

/// Size of the smallest image that a time mark fits into.
inline constexpr int kTimeMarkWidth = 200;
inline constexpr int kTimeMarkHeight = 24;

/// Draws date and time into the top right of an image with one byte or three bytes per pixel, in a
/// grey that stands out from what is there. Only the letters are drawn, not their background.
void DrawTimeMark(uint8_t *image, int width, size_t bytesPerPixel, const std::tm &time);

/// Draws the local date and time of now into an image of a type that can be drawn into, if it has
/// room for it.
void DrawCurrentTime(uint8_t *image, int width, int height, IMAGE_TYPE type);

} // namespace vsccam
