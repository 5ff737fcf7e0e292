#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vsctool {

/// The library's numbers.
enum class PixelFormat { kRaw8 = 0, kRgb24 = 1, kRaw16 = 2, kY8 = 3 };

/// Where the red site lies in the 2 x 2 cell of a colour mosaic; blue lies across.
struct Mosaic {
    int redColumn = 0;
    int redRow = 0;
    bool operator==(const Mosaic &) const = default;
};

/// A picture as the library delivers it: top row first, no padding; RGB24 as blue, green, red.
struct Picture {
    int width = 0;
    int height = 0;
    PixelFormat format = PixelFormat::kRaw16;
    std::vector<uint8_t> bytes;

    size_t Pixels() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
};

constexpr const char *kFormatNames[] = {"raw8", "rgb24", "raw16", "y8"};

constexpr const char *FormatName(PixelFormat format)
{
    return kFormatNames[static_cast<int>(format)];
}

constexpr int BytesPerPixel(PixelFormat format)
{
    constexpr int kBytes[] = {1, 3, 2, 1};
    return kBytes[static_cast<int>(format)];
}

} // namespace vsctool
