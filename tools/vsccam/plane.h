#pragma once

#include "picture.h"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace vsctool {

/// One channel of a picture, as the working material of preview and statistics.
struct Plane {
    int width = 0;
    int height = 0;
    std::vector<uint16_t> samples;

    Plane(int w, int h)
        : width(w), height(h), samples(static_cast<size_t>(w) * static_cast<size_t>(h))
    {
    }
    const uint16_t *Row(int y) const { return samples.data() + static_cast<size_t>(y) * Stride(); }
    uint16_t *Row(int y) { return samples.data() + static_cast<size_t>(y) * Stride(); }

  private:
    size_t Stride() const { return static_cast<size_t>(width); }
};

using Rgb = std::array<Plane, 3>;

/// The samples of a picture of one sample per pixel.
Plane SamplesOf(const Picture &picture);

/// Red, green and blue of an RGB24 picture.
Rgb SplitRgb24(const Picture &picture);

/// Bilinear demosaic.
Rgb Demosaic(const Plane &mosaic, Mosaic phase);

/// What a picture shows: brightness, or red, green and blue where it is in colour.
std::vector<Plane> PlanesOf(const Picture &picture, std::optional<Mosaic> mosaic);

/// Means of blocks of factor x factor samples. Blocks at the edges that are not whole are left out.
Plane Shrunk(Plane plane, int factor);

/// Brightness without colour: a mosaic is averaged over each 2 x 2 window, in which every phase has
/// one red, one blue and two green sites.
Plane Luminance(const Picture &picture, bool isMosaic);

/// How many samples there are of each value.
using Histogram = std::vector<uint32_t>;
Histogram HistogramOf(const Plane &plane);

/// Median and scaled median absolute deviation: level and noise of the sky, blind to stars.
struct Background {
    double level = 0;
    double noise = 0;
};
Background BackgroundOf(const Histogram &histogram);

} // namespace vsctool
