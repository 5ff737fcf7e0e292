#include "models/usb2/s047.h"

#include "models/usb2/neutral_power_up.h"
#include "models/usb2/usb2_edition.h"

// S047: 640 x 480, USB 2.0, colour only. Its registers are taken to be those of the S340, not
// verified on hardware.
namespace vsccam {

namespace {

constexpr auto kPowerUp = NeutralUsb2PowerUp<kUsb2KnownRows>(640, 480);

constexpr Usb2Traits kTraits = {
    .powerUp = kPowerUp,
    .bandwidth = kThreeSteps,
};

constexpr CameraModel kS047 = {
    .sensorWidth = 640,
    .sensorHeight = 480,
    .pixelSizeUm = 6.0,
    .bayer = 1,
    .bins = {1},
    .gain = {.min = 1, .max = 100, .initial = 50},
    .exposureUs = {.min = 32, .max = 30'000'000, .initial = 33'000},
    .brightness = {.min = 0, .max = 0, .initial = 0},
    .bandwidth = {.min = 0, .max = 2, .initial = 1},
    .whiteBalance = {.red = 45, .blue = 70},
    .unverified = {StandIn::StartUpList, StandIn::RegisterAddresses, StandIn::ClockCodes,
                   StandIn::Bandwidth},
};

constexpr CameraModel kModel = Usb2Edition(kS047, "KYR VSC047MC", 0x047A, Pixels::Colour);

} // namespace

CCameraS047MC::CCameraS047MC(unsigned long) : Fx2Camera(kModel, kTraits) {}

} // namespace vsccam
