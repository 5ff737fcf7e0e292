#pragma once

#include <cstdint>

namespace vsccam {

struct Size {
    int width = 0;
    int height = 0;

    friend bool operator==(Size, Size) = default;
};

/// The size a model offers: what SetResolution accepts at bin 1.
constexpr Size LargestAcceptedSize(Size sensor)
{
    return {sensor.width & ~7, sensor.height & ~1};
}

/// Start of a region of `extent` pixels, aligned to `step` and inside the sensor.
int RegionStart(int wanted, int step, int extent, int sensor);

/// Whether a region of `width` x `height` binned pixels is one that a sensor can be set to.
bool RegionFits(int width, int height, int bin, Size sensor);

} // namespace vsccam
