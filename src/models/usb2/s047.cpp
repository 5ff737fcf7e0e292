#include "models/usb2/s047.h"

#include "models/usb2/neutral_power_up.h"

// S047: 640 x 480, USB 2.0, colour only. Its registers are taken to be those of the S340, not
// verified on hardware.
namespace vsccam {

namespace {

constexpr auto kPowerUp = NeutralUsb2PowerUp<kUsb2KnownRows>(640, 480);

constexpr Usb2Traits kTraits = {
    .powerUp = kPowerUp,
    .percentAtZero = 40, // the three steps are taken to be 40, 70 and 100 per cent
    .percentPerStep = 30,
    .autoBandwidth = 1,
};

constexpr CameraModel kModel = {
    .name = "KYR VSC047MC",
    .productId = 0x047A,
    .sensorWidth = 640,
    .sensorHeight = 480,
    .pixelSizeUm = 6.0,
    .colour = true,
    .bayer = 1,
    .usb3Camera = false,
    .bins = {1},
    .gain = {.min = 1, .max = 100, .initial = 50},
    .exposureUs = {.min = 32, .max = 30'000'000, .initial = 33'000},
    .brightness = {.min = 0, .max = 0, .initial = 0},
    .bandwidth = {.min = 0, .max = 2, .initial = 1},
    .whiteBalance = {.red = 45, .blue = 70},
    .hasTemperature = true,
    .hasHighSpeed = true,
    .hasAutoBandwidth = true,
};

} // namespace

CCameraS047MC::CCameraS047MC(unsigned long) : Fx2Camera(kModel, kTraits) {}

} // namespace vsccam
