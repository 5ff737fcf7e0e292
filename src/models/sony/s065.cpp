#include "models/sony/s065.h"

#include "models/sony/neutral_power_up.h"

// S065: 7380 x 4928 Sony sensor, USB 3.0, cooled, colour. Rate codes, frame offsets, shortest lines
// (447 clocks carry the whole bandwidth of a USB 3.0 host, 12 bits take about twice the time) and
// start-up list are derived, not verified on hardware.
namespace vsccam {

namespace {

// One clock for all read-outs.
constexpr SonySensor kSensor = {
    .common = {.budget = {.usb2Host = 43'272, .usb3Host = 333'333},
               .lowestClockKHz = 20'250,
               .initialLine = {.clockKHz = 20'250, .length = 858},
               .startXStepAtBin3 = 6,
               .thermistor = true},
    .normal = {.kHz = 20'250, .rateCode = 0x01, .shortestLine = 858},
    .highSpeed = {.kHz = 20'250, .rateCode = 0x00, .shortestLine = 447},
    .hardwareBin = {},
    .other = {.kHz = 20'250, .rateCode = 0x02, .shortestLine = 858},
    .powerUp = kNeutralPowerUp,
};

constexpr CameraModel kModel = {
    .name = "KYR VSC065MC-Cool",
    .productId = 0x065A,
    .sensorWidth = 7380,
    .sensorHeight = 4928,
    .pixelSizeUm = 5.97,
    .colour = true,
    .bayer = 0,
    .cooled = true,
    .bins = {1, 2, 3, 4},
    .electronsPerAdu = 1.0F,
    .adcBits = 14,
    .gainOffset = {10, 21, 300, 50},
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

CCameraS065MC::CCameraS065MC(unsigned long) : SonyDriver(kModel, kSensor) {}

} // namespace vsccam
