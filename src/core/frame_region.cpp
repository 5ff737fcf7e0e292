#include "core/frame_region.h"

#include "core/raw_frame.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace vsccam {

namespace {

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

/// How much of a region that begins on the sensor lies on it along one axis, in whole cells of
/// binned pixels.
int OnSensor(int start, int binnedLength, int sensorLength, const FrameRegion &region)
{
    const int cell = region.binning == 1 ? 1 : region.binning * (region.mosaic ? 2 : 1);
    return std::clamp((sensorLength - start) / cell * cell, 0, binnedLength * region.binning);
}

int ColumnsOnSensor(const FrameRegion &region)
{
    return OnSensor(region.x, region.frame.width, region.sensor.width, region);
}

int RowsOnSensor(const FrameRegion &region)
{
    return OnSensor(region.y, region.frame.height, region.sensor.height, region);
}

/// The mean of the part on the sensor, which the rest, still 0, gets as well.
int FillOffSensor(std::vector<uint8_t> &frame, const FrameRegion &region)
{
    const int columns = ColumnsOnSensor(region) / region.binning;
    const int rows = RowsOnSensor(region) / region.binning;
    const size_t pixels = Index(0, rows, columns);
    const auto sum = std::accumulate(frame.begin(), frame.end(), uint64_t{0});
    const auto mean = static_cast<uint8_t>(sum / std::max<size_t>(pixels, 1));
    const int width = region.frame.width;
    for (int y = 0; y < region.frame.height; ++y) {
        const int from = y < rows ? columns : 0;
        std::fill_n(frame.data() + Index(from, y, width), width - from, mean);
    }
    return mean;
}

} // namespace

Size MaxSizeOf(const CameraModel &model)
{
    return LargestAcceptedSize({model.sensorWidth, model.sensorHeight});
}

FrameRegion RegionOf(const CameraModel &model, const Settings &settings)
{
    const Readout readout = ReadoutOf(model, settings);
    return {.sensor = MaxSizeOf(model),
            .x = settings.startX,
            .y = settings.startY,
            .frame = readout.size,
            .binning = settings.bin / readout.softwareBin,
            .mosaic = model.colour};
}

ImageCut CutImage(std::span<const uint8_t> image, const FrameRegion &region)
{
    const int width = region.frame.width;
    const int binning = region.binning;
    std::vector<uint8_t> cut(Index(0, region.frame.height, width));
    const int columns = ColumnsOnSensor(region);
    const int rows = RowsOnSensor(region);
    for (int y = 0; y < rows; ++y) {
        const uint8_t *from = image.data() + Index(region.x, region.y + y, region.sensor.width);
        uint8_t *const to = cut.data() + Index(0, PlaceInFrame(y, region), width);
        if (binning == 1) {
            std::copy_n(from, columns, to);
            continue;
        }
        for (int x = 0; x < columns; ++x, ++from) {
            uint8_t &sum = to[PlaceInFrame(x, region)];
            sum = static_cast<uint8_t>(std::min(sum + *from / binning / binning, kBrightest));
        }
    }
    const int mean = FillOffSensor(cut, region);
    return {std::move(cut), mean};
}

std::vector<uint32_t> CutPixels(std::span<const uint32_t> pixels, const FrameRegion &region)
{
    const int columns = ColumnsOnSensor(region);
    const int rows = RowsOnSensor(region);
    const auto sensorWidth = static_cast<uint32_t>(region.sensor.width);
    std::vector<uint32_t> cut;
    for (const uint32_t pixel : pixels) {
        const int x = static_cast<int>(pixel % sensorWidth) - region.x;
        const int y = static_cast<int>(pixel / sensorWidth) - region.y;
        if (x >= 0 && x < columns && y >= 0 && y < rows)
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
