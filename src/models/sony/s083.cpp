#include "models/sony/s083.h"

#include "models/sony/neutral_power_up.h"

// S083: 4944 x 3284 Sony sensor, USB 3.0, cooled, colour. Rate codes, frame offsets, shortest lines
// (306 clocks carry the whole bandwidth of a USB 3.0 host, 12 bits take twice the time), initial
// line and start-up list are derived, not verified on hardware.
namespace vsccam {

namespace {

// One clock for all read-outs.
constexpr SonySensor kSensor = {
    .common = {.budget = {.usb2Host = 43'272, .usb3Host = 325'643},
               .lowestClockKHz = 20'250,
               .initialLine = {.clockKHz = 20'250, .length = 612},
               .startXStepAtBin3 = 6,
               .thermistor = true},
    .normal = {.kHz = 20'250, .rateCode = 0x01, .shortestLine = 612},
    .highSpeed = {.kHz = 20'250, .rateCode = 0x00, .shortestLine = 306},
    .hardwareBin = {},
    .other = {.kHz = 20'250, .rateCode = 0x02, .shortestLine = 612},
    .powerUp = kNeutralPowerUp,
};

constexpr CameraModel kModel = {
    .name = "KYR VSC083MC-Cool",
    .productId = 0x083A,
    .sensorWidth = 4944,
    .sensorHeight = 3284,
    .pixelSizeUm = 4.78,
    .colour = true,
    .bayer = 0,
    .cooled = true,
    .bins = {1, 2, 3, 4},
    .electronsPerAdu = 2.82F,
    .adcBits = 14,
    .gainOffset = {8, 20, 300, 65},
    .gain = {.min = 0, .max = 600, .initial = 200},
    .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
    .brightness = {.min = 0, .max = 1024, .initial = 5},
    .whiteBalance = {.red = 60, .blue = 99},
    .hasBrightness = true,
    .hasTemperature = true,
    .hasHighSpeed = true,
    .hasAutoBandwidth = true,
};

} // namespace

CCameraS083MC::CCameraS083MC(unsigned long) : SonyDriver(kModel, kSensor) {}

} // namespace vsccam
