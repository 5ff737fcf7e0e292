#include "models/python/s048.h"

// S048: 640 x 480 PYTHON sensor, USB 3.0. Its editions differ in pixel size and range of gain, too.
namespace vsccam {

namespace {

constexpr CameraModel Edition(const char *name, uint16_t productId, bool colour, double pixelSizeUm,
                              ControlRange gain)
{
    return {
        .name = name,
        .productId = productId,
        .sensorWidth = 640,
        .sensorHeight = 480,
        .pixelSizeUm = pixelSizeUm,
        .colour = colour,
        .bayer = 0,
        .bins = {1},
        .gain = gain,
        .exposureUs = {.min = 16, .max = 64'000, .initial = 10'000},
        .hasBrightness = true,
        .hasTemperature = true,
        .hasHighSpeed = true,
        .hasAutoBandwidth = true,
    };
}

constexpr CameraModel kColour =
    Edition("KYR VSC048MC", 0x048A, true, 3.75, {.min = 0, .max = 600, .initial = 200});
constexpr CameraModel kMono =
    Edition("KYR VSC048MM", 0x048B, false, 4.8, {.min = 0, .max = 100, .initial = 50});

} // namespace

CCameraS048MC::CCameraS048MC(unsigned long) : CCameraPython(kColour) {}
CCameraS048MM::CCameraS048MM(unsigned long) : CCameraPython(kMono) {}

} // namespace vsccam
