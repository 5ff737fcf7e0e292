#include "video/yuv.h"

namespace vsctool {
namespace {

constexpr int kHalf = 1 << 7; // of the 256ths that the factors are

constexpr uint8_t Weighted(int sum, int offset)
{
    return static_cast<uint8_t>(((sum + kHalf) >> 8) + offset);
}

} // namespace

void ToYuv444(std::span<const uint8_t> bgr, std::vector<uint8_t> &planes)
{
    const size_t pixels = bgr.size() / 3;
    planes.resize(pixels * 3);
    uint8_t *const y = planes.data();
    uint8_t *const cb = y + pixels;
    uint8_t *const cr = cb + pixels;
    for (size_t i = 0; i < pixels; ++i) {
        const int blue = bgr[3 * i];
        const int green = bgr[3 * i + 1];
        const int red = bgr[3 * i + 2];
        y[i] = Weighted(66 * red + 129 * green + 25 * blue, 16);
        cb[i] = Weighted(112 * blue - 74 * green - 38 * red, 128);
        cr[i] = Weighted(112 * red - 94 * green - 18 * blue, 128);
    }
}

} // namespace vsctool
