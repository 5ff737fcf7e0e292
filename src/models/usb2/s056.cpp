#include "models/usb2/s056.h"

#include "models/usb2/neutral_power_up.h"

// S056: 752 x 480, USB 2.0. Its registers are taken to be those of the S340, not verified on
// hardware.
namespace vsccam {

namespace {

constexpr auto kPowerUp = NeutralUsb2PowerUp<kUsb2KnownRows>(752, 480);

constexpr Usb2Traits kTraits = {
    .powerUp = kPowerUp,
    .percentAtZero = 40, // the three steps are taken to be 40, 70 and 100 per cent
    .percentPerStep = 30,
    .autoBandwidth = 1,
};

constexpr CameraModel Edition(const char *name, uint16_t productId, bool colour)
{
    return {
        .name = name,
        .productId = productId,
        .sensorWidth = 752,
        .sensorHeight = 480,
        .pixelSizeUm = 6.0,
        .colour = colour,
        .bayer = colour ? 1 : 0,
        .usb3Camera = false,
        .bins = {1},
        .gain = {.min = 1, .max = 100, .initial = 50},
        .exposureUs = {.min = 32, .max = 999'000'000, .initial = 33'000},
        .brightness = {.min = 0, .max = 0, .initial = 0},
        .bandwidth = {.min = 0, .max = 2, .initial = 1},
        .whiteBalance = {.red = colour ? 45 : 52, .blue = colour ? 70 : 95},
        .hasTemperature = true,
        .hasHighSpeed = true,
        .hasAutoBandwidth = true,
    };
}

constexpr CameraModel kMono = Edition("KYR VSC056MM", 0x056A, false);
constexpr CameraModel kColour = Edition("KYR VSC056MC", 0x056B, true);

} // namespace

CCameraS056MM::CCameraS056MM(unsigned long) : Fx2Camera(kMono, kTraits) {}
CCameraS056MC::CCameraS056MC(unsigned long) : Fx2Camera(kColour, kTraits) {}

} // namespace vsccam
