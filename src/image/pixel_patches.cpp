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

template <class Sample> class Patcher {
  public:
    Patcher(const PixelPatches &patches, const PatchedRows<Sample> &rows)
        : m_width(patches.width), m_step(patches.step), m_rows(rows)
    {
    }

    void Patch(const PixelPatch &patch) const
    {
        if (const auto value = ValueOf(patch))
            m_rows.samples[patch.index - m_rows.first] = static_cast<Sample>(*value);
    }

  private:
    /// Nothing: the pixel stays as it is.
    std::optional<uint32_t> ValueOf(const PixelPatch &patch) const
    {
        const size_t left = patch.index - static_cast<size_t>(m_step);
        const size_t right = patch.index + static_cast<size_t>(m_step);
        switch (patch.rule) {
        case PatchRule::kFromRight:
            return SampleAt(right);
        case PatchRule::kFromLeft:
            return SampleAt(left);
        case PatchRule::kMeanOfSides:
            return (SampleAt(left) + SampleAt(right)) >> 1;
        case PatchRule::kDenoise:
            break;
        }
        return DeNoiseHPC(patch);
    }

    /// What becomes of a pixel that stands out from all its healthy neighbours; nothing when it
    /// does not, or when none of them is healthy.
    std::optional<uint32_t> DeNoiseHPC(const PixelPatch &patch) const
    {
        constexpr uint32_t kSmallestExcess = kSmallestExcess8 << (8 * (sizeof(Sample) - 1));
        const uint32_t value = SampleAt(patch.index);
        uint32_t sum = 0;
        uint32_t count = 0;
        for (const uint8_t place : kNeighbours) {
            if (!(patch.healthy & place))
                continue;
            const uint32_t next =
                SampleAt(patch.index + static_cast<size_t>(OffsetOf(place, m_width, m_step)));
            if (value <= next + kSmallestExcess || next > value * 7 / 10)
                return std::nullopt;
            sum += next;
            ++count;
        }
        if (count == 0)
            return std::nullopt;
        return sum / count & m_rows.converterBits;
    }

    uint32_t SampleAt(size_t index) const
    {
        const size_t place = index - m_rows.first; // wraps round before the rows
        return place < m_rows.samples.size() ? m_rows.samples[place] : m_rows.outside(index);
    }

    const int m_width;
    const int m_step;
    const PatchedRows<Sample> &m_rows;
};

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

template <class Sample>
void ApplyPatches(const PixelPatches &patches, const PatchedRows<Sample> &rows)
{
    const Patcher<Sample> patcher(patches, rows);
    auto patch = std::ranges::lower_bound(patches.list, rows.first, {}, &PixelPatch::index);
    const size_t end = rows.first + rows.samples.size();
    for (; patch != patches.list.end() && patch->index < end; ++patch)
        patcher.Patch(*patch);
}

template void ApplyPatches(const PixelPatches &, const PatchedRows<uint8_t> &);
template void ApplyPatches(const PixelPatches &, const PatchedRows<uint16_t> &);

} // namespace vsccam
