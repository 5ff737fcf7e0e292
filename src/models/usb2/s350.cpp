#include "models/usb2/s350.h"

#include "models/usb2/firmware_images.h"
#include "models/usb2/neutral_power_up.h"

// S350: 1280 x 1024, USB 2.0, monochrome only. Its registers are taken to be those of the S340, not
// verified on hardware.
namespace vsccam {

namespace {

constexpr auto kPowerUp = NeutralUsb2PowerUp<kUsb2KnownRows>(1280, 1024);

constexpr Usb2Traits kTraits = {
    .powerUp = kPowerUp,
    .percentAtZero = 40, // the three steps are taken to be 40, 70 and 100 per cent
    .percentPerStep = 30,
    .autoBandwidth = 1,
    .tellsBlackLevel = true,
    .firmware = kFWCodeS350MM,
};

constexpr CameraModel kModel = {
    .name = "KYR VSC350MM",
    .productId = 0x350A,
    .sensorWidth = 1280,
    .sensorHeight = 1024,
    .pixelSizeUm = 5.2,
    .usb3Camera = false,
    .highByteFirst = true,
    .bins = {1, 2},
    .gain = {.min = 0, .max = 100, .initial = 50},
    .exposureUs = {.min = 32, .max = 999'000'000, .initial = 33'000},
    .brightness = {.min = 0, .max = 0, .initial = 0},
    .bandwidth = {.min = 0, .max = 2, .initial = 1},
    .hasTemperature = true,
    .hasHighSpeed = true,
    .hasAutoBandwidth = true,
};

} // namespace

CCameraS350MM::CCameraS350MM(unsigned long) : Fx2Camera(kModel, kTraits) {}

} // namespace vsccam
