#include "models/usb2/s056.h"

#include "models/usb2/neutral_power_up.h"
#include "models/usb2/usb2_edition.h"

// S056: 752 x 480, USB 2.0. Its registers are taken to be those of the S340, not verified on
// hardware.
namespace vsccam {

namespace {

constexpr auto kPowerUp = NeutralUsb2PowerUp<kUsb2KnownRows>(752, 480);

constexpr Usb2Traits kTraits = {
    .powerUp = kPowerUp,
    .bandwidth = kThreeSteps,
};

constexpr CameraModel Sensor(WhiteBalanceRange whiteBalance)
{
    return {
        .sensorWidth = 752,
        .sensorHeight = 480,
        .pixelSizeUm = 6.0,
        .bayer = 1,
        .bins = {1},
        .gain = {.min = 1, .max = 100, .initial = 50},
        .exposureUs = {.min = 32, .max = 999'000'000, .initial = 33'000},
        .brightness = {.min = 0, .max = 0, .initial = 0},
        .bandwidth = {.min = 0, .max = 2, .initial = 1},
        .whiteBalance = whiteBalance,
        .unverified = {StandIn::StartUpList, StandIn::RegisterAddresses, StandIn::ClockCodes,
                       StandIn::Bandwidth},
    };
}

constexpr CameraModel kMono = Usb2Edition(Sensor({}), "KYR VSC056MM", 0x056A, Pixels::Mono);
constexpr CameraModel kColour =
    Usb2Edition(Sensor({.red = 45, .blue = 70}), "KYR VSC056MC", 0x056B, Pixels::Colour);

} // namespace

CCameraS056MM::CCameraS056MM(unsigned long) : Fx2Camera(kMono, kTraits) {}
CCameraS056MC::CCameraS056MC(unsigned long) : Fx2Camera(kColour, kTraits) {}

} // namespace vsccam
