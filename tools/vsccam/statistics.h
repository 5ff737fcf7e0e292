#pragma once

#include "plane.h"

#include <optional>
#include <vector>

namespace vsctool {

/// Of all samples of a picture.
struct Levels {
    int min = 0;
    int max = 0;
    double mean = 0;
    double saturatedPercent = 0;
};
Levels LevelsOf(const Picture &picture);

/// Where a star is brightest, and how bright it is there.
struct StarPeak {
    int x = 0;
    int y = 0;
    int value = 0;
};
/// The brightest stars, best first, that are below saturation and have room to be measured.
std::vector<StarPeak> FindStars(const Plane &plane, const Background &sky, int saturation);

/// Half-flux diameter in pixels: half of the star's light is within it.
double HalfFluxDiameter(const Plane &plane, const Background &sky, const StarPeak &star);

/// Sharpness of the picture: median half-flux diameter of its brightest unsaturated stars.
struct Sharpness {
    double hfdPx = 0;
    int stars = 0;
};
std::optional<Sharpness> SharpnessOf(const Plane &luminance, int saturation);

/// Samples of this value and above are full: converters of 12 and 14 bits end short of 65535, for
/// their steps fill the upper bits of a 16-bit sample.
constexpr int SaturationOf(PixelFormat format)
{
    return format == PixelFormat::kRaw16 ? 0xFFF0 : 0xFF;
}

} // namespace vsctool
