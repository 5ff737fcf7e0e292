#include "image/pixel_patches.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace vsccam {

namespace {

constexpr uint32_t kSmallestExcess8 = 30; // over a neighbour; of 16-bit samples times 256

constexpr uint8_t kNeighbours[] = {neighbour::kAbove, neighbour::kLeft, neighbour::kRight,
                                   neighbour::kBelow};

std::ptrdiff_t OffsetOf(uint8_t neighbour, std::ptrdiff_t width, int step)
{
    switch (neighbour) {
    case neighbour::kAbove:
        return -step * width;
    case neighbour::kLeft:
        return -step;
    case neighbour::kRight:
        return step;
    default:
        return step * width;
    }
}

/// What becomes of a pixel that stands out from all its healthy neighbours; nothing when it does
/// not, or when none of them is healthy.
template <class Sample>
std::optional<Sample> DeNoiseHPC(const Sample *pixel, uint8_t healthy, int width, int step)
{
    constexpr uint32_t kSmallestExcess = kSmallestExcess8 << (8 * (sizeof(Sample) - 1));
    const uint32_t value = *pixel;
    uint32_t sum = 0;
    uint32_t count = 0;
    for (const uint8_t place : kNeighbours) {
        if (!(healthy & place))
            continue;
        const uint32_t next = pixel[OffsetOf(place, width, step)];
        if (value <= next + kSmallestExcess || next > value * 7 / 10)
            return std::nullopt;
        sum += next;
        ++count;
    }
    if (count == 0)
        return std::nullopt;
    return static_cast<Sample>(sum / count);
}

template <class Sample> void Apply(Sample *frame, const PixelPatches &patches, Sample grid)
{
    const int step = patches.step;
    for (const PixelPatch patch : patches.list) {
        Sample *const pixel = frame + patch.index;
        switch (patch.rule) {
        case PatchRule::kFromRight:
            *pixel = pixel[step];
            break;
        case PatchRule::kFromLeft:
            *pixel = pixel[-step];
            break;
        case PatchRule::kMeanOfSides:
            *pixel = static_cast<Sample>((pixel[-step] + pixel[step]) >> 1);
            break;
        case PatchRule::kDenoise:
            if (const auto mean = DeNoiseHPC(pixel, patch.healthy, patches.width, step))
                *pixel = *mean & grid;
            break;
        }
    }
}

} // namespace

PixelPatches ListPatches(const std::vector<uint32_t> &pixels, int width, int height, int step,
                         PatchRule inside)
{
    PixelPatches patches{width, height, step, {}};
    patches.list.reserve(pixels.size());
    const auto area = int64_t{width} * height;
    const auto healthyAt = [&pixels](int64_t index) {
        return !std::ranges::binary_search(pixels, static_cast<uint32_t>(index));
    };
    for (const uint32_t index : pixels) {
        const int x = static_cast<int>(index % static_cast<uint32_t>(width));
        const int y = static_cast<int>(index / static_cast<uint32_t>(width));
        PixelPatch patch{index, inside, 0};
        // Quirk, kept: the end of a top row is copied from the row below it.
        if (x < step || y < step)
            patch.rule = PatchRule::kFromRight;
        else if (x >= width - step || y >= height - step)
            patch.rule = PatchRule::kFromLeft;
        else if (inside == PatchRule::kDenoise)
            for (const uint8_t place : kNeighbours)
                if (healthyAt(int64_t{index} + OffsetOf(place, width, step)))
                    patch.healthy |= place;
        if (patch.rule != PatchRule::kFromRight || int64_t{index} + step < area)
            patches.list.push_back(patch);
    }
    return patches;
}

void ApplyPatches(uint8_t *frame, const PixelPatches &patches)
{
    Apply<uint8_t>(frame, patches, 0xFF);
}

void ApplyPatches(uint16_t *frame, const PixelPatches &patches, uint16_t grid)
{
    Apply<uint16_t>(frame, patches, grid);
}

} // namespace vsccam
