#include "core/hot_pixel_record.h"

#include "core/frame_region.h"
#include "fuzz.h"
#include "image/pixel_patches.h"

#include <algorithm>

using namespace vsccam;

namespace {

constexpr Size kSensor{64, 32};
constexpr size_t kBitmapBytes = 64 * 32 / 8;

} // namespace

// A record ends as pixels that are patched within their frame, and what was read of it comes back
// when it is stored again, unless that takes more room than the bitmap.
int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const auto bitmap = Uncompress({bytes, size}, kBitmapBytes);
    if (!bitmap)
        return 0;
    const std::vector<uint8_t> stored = Compress(*bitmap);
    Must(RecordLength(std::span(stored).first<kHotPixelHeader>()) == stored.size());
    Must(stored.size() + 4 >= kBitmapBytes || Uncompress(stored, kBitmapBytes) == bitmap);

    const std::vector<uint32_t> pixels = FlaggedPixels(*bitmap);
    const int binning = size % 2 == 0 ? 1 : 2;
    const FrameRegion region = {.sensor = kSensor,
                                .x = static_cast<int>(size % 40),
                                .y = static_cast<int>(size % 20),
                                .frame = {32, 16},
                                .binning = binning,
                                .mosaic = size % 3 == 0};
    const std::vector<uint32_t> shown = CutPixels(pixels, region);
    std::vector<uint16_t> frame(32 * 16, 0x1000);
    Must(std::ranges::all_of(shown, [&](uint32_t pixel) { return pixel < frame.size(); }));
    ApplyPatches<uint16_t>(ListPatches(shown, 32, 16, binning, PatchRule::kDenoise),
                           {frame, 0, 0xFFF0});
    return 0;
}
