#include "core/frame_region.h"

#include <algorithm>
#include <utility>

namespace vsccam {

namespace {

constexpr int kBrightest = 255;

size_t Index(int x, int y, int width)
{
    return static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x);
}

/// Place in the frame of a pixel of the region, along either axis.
int PlaceInFrame(int pixel, const FrameRegion &region)
{
    const int period = region.mosaic ? 2 : 1;
    return pixel / (period * region.binning) * period + pixel % period;
}

/// The part of the region that lies on the sensor, along one axis, counted within the region.
struct Extent {
    int begin;
    int end;
};

Extent OnSensor(int start, int binnedLength, int binning, int sensorLength)
{
    const int begin = std::max(0, -start);
    return {begin, std::max(begin, std::min(binnedLength * binning, sensorLength - start))};
}

} // namespace

std::vector<uint8_t> CutImage(std::span<const uint8_t> image, const FrameRegion &region)
{
    const int width = region.frame.width;
    const int binning = region.binning;
    std::vector<uint8_t> cut(Index(0, region.frame.height, width));
    const Extent columns = OnSensor(region.x, width, binning, region.sensor.width);
    const Extent rows = OnSensor(region.y, region.frame.height, binning, region.sensor.height);
    for (int y = rows.begin; y < rows.end; ++y) {
        const uint8_t *from =
            image.data() + Index(region.x + columns.begin, region.y + y, region.sensor.width);
        uint8_t *const to = cut.data() + Index(0, PlaceInFrame(y, region), width);
        if (binning == 1) {
            std::copy_n(from, columns.end - columns.begin, to + columns.begin);
            continue;
        }
        for (int x = columns.begin; x < columns.end; ++x, ++from) {
            uint8_t &sum = to[PlaceInFrame(x, region)];
            const int part = region.sums ? *from : *from / binning / binning;
            sum = static_cast<uint8_t>(std::min(sum + part, kBrightest));
        }
    }
    return cut;
}

std::vector<uint32_t> CutPixels(std::span<const uint32_t> pixels, const FrameRegion &region)
{
    const Extent columns =
        OnSensor(region.x, region.frame.width, region.binning, region.sensor.width);
    const Extent rows =
        OnSensor(region.y, region.frame.height, region.binning, region.sensor.height);
    const auto within = [](int place, Extent extent) {
        return place >= extent.begin && place < extent.end;
    };
    const auto sensorWidth = static_cast<uint32_t>(region.sensor.width);
    std::vector<uint32_t> cut;
    for (const uint32_t pixel : pixels) {
        const int x = static_cast<int>(pixel % sensorWidth) - region.x;
        const int y = static_cast<int>(pixel / sensorWidth) - region.y;
        if (within(x, columns) && within(y, rows))
            cut.push_back(static_cast<uint32_t>(
                Index(PlaceInFrame(x, region), PlaceInFrame(y, region), region.frame.width)));
    }
    std::ranges::sort(cut); // binning mixes rows, and brings pixels together
    cut.erase(std::unique(cut.begin(), cut.end()), cut.end());
    return cut;
}

std::shared_ptr<const PixelPatches> PatchesFor(const std::vector<uint32_t> &pixels,
                                               const FrameRegion &region, PatchRule inside)
{
    const int step = region.mosaic ? 2 : 1; // to the next pixel of the same colour
    PixelPatches patches =
        ListPatches(pixels, region.frame.width, region.frame.height, step, inside);
    if (patches.list.empty())
        return nullptr;
    return std::make_shared<const PixelPatches>(std::move(patches));
}

} // namespace vsccam
