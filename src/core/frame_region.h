#pragma once

#include "core/camera_model.h"
#include "core/frame_geometry.h"
#include "core/settings.h"
#include "image/pixel_patches.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace vsccam {

/// Which pixels of the sensor a raw frame shows.
struct FrameRegion {
    Size sensor;
    int x = 0; // of the first pixel that is shown, which is on the sensor or behind its end
    int y = 0;
    Size frame;
    int binning = 1;     // that the sensor does itself: so many of its pixels, each way, make one
    bool mosaic = false; // binned are pixels of one colour

    friend bool operator==(const FrameRegion &, const FrameRegion &) = default;
};

/// The size that hosts can get at most: of the frames that show the whole sensor.
Size MaxSizeOf(const CameraModel &model);

/// What the frames show of the sensor with these settings.
FrameRegion RegionOf(const CameraModel &model, const Settings &settings);

struct ImageCut {
    std::vector<uint8_t> pixels;
    int mean;
};

/// The part of an image of the whole sensor that the frame shows, and the mean of that part. Places
/// that the image does not reach get the mean.
ImageCut CutImage(std::span<const uint8_t> image, const FrameRegion &region);

/// Where the frame shows these pixels of the sensor, in ascending order.
std::vector<uint32_t> CutPixels(std::span<const uint32_t> pixels, const FrameRegion &region);

/// What to do about pixels of the frame, in ascending order; null when there is nothing to do.
std::shared_ptr<const PixelPatches> PatchesFor(const std::vector<uint32_t> &pixels,
                                               const FrameRegion &region, PatchRule inside);

} // namespace vsccam
