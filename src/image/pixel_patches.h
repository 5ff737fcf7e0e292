#pragma once

#include <cstdint>
#include <vector>

namespace vsccam {

/// How a bad pixel gets its value. The neighbours are those of its own colour: `step` pixels away.
enum class PatchRule : uint8_t {
    kFromRight, // at the left or top border
    kFromLeft,  // at the right or bottom border
    kMeanOfSides,
    kDenoise, // the mean of the healthy neighbours, where the pixel stands out from each of them
};

/// Neighbours of a pixel, as bits of a set.
namespace neighbour {
inline constexpr uint8_t kAbove = 1;
inline constexpr uint8_t kLeft = 2;
inline constexpr uint8_t kRight = 4;
inline constexpr uint8_t kBelow = 8;
} // namespace neighbour

struct PixelPatch {
    uint32_t index; // in the frame
    PatchRule rule;
    uint8_t healthy; // neighbours that are not listed themselves; for kDenoise

    friend bool operator==(PixelPatch, PixelPatch) = default;
};

/// The bad pixels of frames of one size, in the order of the frame, in which they are patched.
struct PixelPatches {
    int width = 0;
    int height = 0;
    int step = 1; // 2 in a mosaic
    std::vector<PixelPatch> list;
};

/// Makes the list for pixels in ascending order; `inside` is the rule away from the borders. Pixels
/// without the neighbour that they would be copied from are left out.
PixelPatches ListPatches(const std::vector<uint32_t> &pixels, int width, int height, int step,
                         PatchRule inside);

/// Patches a frame of the list's size.
void ApplyPatches(uint8_t *frame, const PixelPatches &patches);
/// The same; denoised pixels keep only the bits of `grid`, those that the converter has.
void ApplyPatches(uint16_t *frame, const PixelPatches &patches, uint16_t grid);

} // namespace vsccam
