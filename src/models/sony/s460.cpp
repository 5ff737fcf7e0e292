#include "models/sony/s460.h"

#include "models/sony/s450.h"

// S460: like the S450, with another sensor of the same size. That it shares the S450's shortest
// lines, rate codes, frame offsets and start-up list is derived, not verified on hardware.
namespace vsccam {

namespace {

constexpr CameraModel kModel = {
    .name = "KYR VSC460MC",
    .productId = 0x460A,
    .sensorWidth = 1304,
    .sensorHeight = 976,
    .pixelSizeUm = 3.75,
    .colour = true,
    .bayer = 0,
    .bins = {1, 2},
    .gain = {.min = 0, .max = 600, .initial = 200},
    .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
    .hasBrightness = true,
    .hasTemperature = true,
    .hasHardwareBin = true,
    .hasHighSpeed = true,
    .hasAutoBandwidth = true,
};

} // namespace

CCameraS460MC::CCameraS460MC(unsigned long) : SonyDriver(kModel, kS450Sensor) {}

} // namespace vsccam
