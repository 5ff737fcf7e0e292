#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vscindi {

/// Pixels in the order blue, green, red become a plane of red, one of green and one of blue.
inline void PlanesFromBgr(std::span<const uint8_t> pixels, uint8_t *planes)
{
    const size_t count = pixels.size() / 3;
    const uint8_t *from = pixels.data();
    for (size_t i = 0; i < count; ++i, from += 3) {
        planes[i] = from[2];
        planes[count + i] = from[1];
        planes[2 * count + i] = from[0];
    }
}

} // namespace vscindi
