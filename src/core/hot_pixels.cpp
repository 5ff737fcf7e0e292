#include "core/hot_pixels.h"

#include "base/debug_print.h"

#include <utility>

namespace vsccam {

namespace {

/// Looks up the pixels that a region shows. This takes its time with long lists, so it is done
/// without a lock.
std::shared_ptr<const PixelPatches> PatchesShown(const std::vector<uint32_t> &pixels,
                                                 const FrameRegion &region)
{
    const std::vector<uint32_t> shown = CutPixels(pixels, region);
    OutputDbgPrint("HPC Dead pixel:%d\n", static_cast<int>(shown.size()));
    return PatchesFor(shown, region, PatchRule::kDenoise);
}

} // namespace

void HotPixels::Disable()
{
    m_enabled = false;
    Install({});
}

void HotPixels::SetPixels(std::vector<uint32_t> pixels, const FrameRegion &region)
{
    auto list = std::make_shared<const std::vector<uint32_t>>(std::move(pixels));
    auto patches = PatchesShown(*list, region);
    Install({std::move(list), std::move(patches)});
}

std::vector<uint32_t> HotPixels::Pixels() const
{
    const auto pixels = m_lists.Now().pixels;
    return pixels ? *pixels : std::vector<uint32_t>();
}

void HotPixels::Cut(const FrameRegion &region)
{
    const auto pixels = m_lists.Now().pixels;
    if (!pixels)
        return;
    auto patches = PatchesShown(*pixels, region);
    m_lists.With([&](Lists &lists) {
        if (lists.pixels == pixels) // neither replaced nor forgotten meanwhile
            lists.patches.swap(patches);
    });
}

void HotPixels::Install(Lists lists)
{
    m_lists.With([&lists](Lists &current) { std::swap(current, lists); });
}

} // namespace vsccam
