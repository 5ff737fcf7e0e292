#pragma once

#include "plane.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vsctool {

/// Midtones transfer function of image processing: maps 0 to 0, midtone to one half, 1 to 1.
double MidtonesTransfer(double midtone, double value);

/// How a linear sample becomes a byte for the eye; all of full scale.
struct Stretch {
    double black = 0;
    double midtone = 0.5; // between black and white: what becomes half bright. One half is linear
    double white = 1;
    auto operator<=>(const Stretch &) const = default;
};

/// Black a little below the sky, the sky at a quarter of the way to white. Channels stretched one
/// by one get a neutral sky.
/// @param step  by how much neighbouring samples differ at least
Stretch AutoStretch(const Background &sky, double fullScale, double step);

/// The byte for each sample up to full scale.
using Curve = std::vector<uint8_t>;
Curve CurveOf(const Stretch &stretch, size_t fullScale);

/// The bytes of planes of one size, each by its curve, pixel by pixel. No sample is above the full
/// scale of its curve.
std::vector<uint8_t> Stretched(std::span<const Plane> planes, std::span<const Curve> curves);

} // namespace vsctool
