#include "core/frame_geometry.h"

#include <algorithm>

namespace vsccam {

int RegionStart(int wanted, int step, int extent, int sensor)
{
    return std::min(std::max(wanted, 0) / step * step, sensor - extent);
}

bool RegionFits(int width, int height, int bin, Size sensor)
{
    return width > 0 && height > 0 && bin > 0 && width % 8 == 0 && height % 2 == 0 &&
           int64_t{width} * bin <= sensor.width && int64_t{height} * bin <= sensor.height;
}

} // namespace vsccam
