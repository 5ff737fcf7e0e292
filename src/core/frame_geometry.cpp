#include "core/frame_geometry.h"

namespace vsccam {

bool RegionFits(int width, int height, int bin, Size sensor)
{
    return width > 0 && height > 0 && bin > 0 && width % 8 == 0 && height % 2 == 0 &&
           int64_t{width} * bin <= sensor.width && int64_t{height} * bin <= sensor.height;
}

} // namespace vsccam
