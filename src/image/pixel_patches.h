#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
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

/// Whole rows of a frame, which are patched where they lie.
template <class Sample> struct PatchedRows {
    std::span<Sample> samples;
    size_t first = 0;                             // of them, in the frame
    uint16_t converterBits = 0xFFFF;              // denoised samples keep only these
    std::function<uint32_t(size_t)> outside = {}; // the frame's samples in other rows
};

/// Patches one pixel after the other. Each sees what became of those before it, but sees other rows
/// as they were before this list.
template <class Sample>
void ApplyPatches(const PixelPatches &patches, const PatchedRows<Sample> &rows);

} // namespace vsccam
