#pragma once

#include "plane.h"

#include <cstdint>
#include <vector>

namespace vsctool {

/// Midtones transfer function of image processing: maps 0 to 0, midtone to one half, 1 to 1.
double MidtonesTransfer(double midtone, double value);

/// Brings a linear plane to 8 bits for the eye: black a little below the sky, the sky at a quarter
/// of the way to white. Channels stretched one by one get a neutral sky.
std::vector<uint8_t> AutoStretch(const Plane &plane, double fullScale);

} // namespace vsctool
