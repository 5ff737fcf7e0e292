#include "models/usb2/s052.h"

#include "models/usb2/neutral_power_up.h"
#include "models/usb2/usb2_edition.h"

// S052: 728 x 512, USB 2.0, colour only. Its registers are taken to be those of the S340, not
// verified on hardware.
namespace vsccam {

namespace {

constexpr auto kPowerUp = NeutralUsb2PowerUp<kUsb2KnownRows>(728, 512);

constexpr Usb2Traits kTraits = {
    .powerUp = kPowerUp,
    .frameBlock = 1024,
    .firmware = {"s052mc.fx2", 4346},
};

constexpr CameraModel kS052 = {
    .sensorWidth = 728,
    .sensorHeight = 512,
    .pixelSizeUm = 5.6,
    .bayer = 2,
    .bins = {1, 2},
    .gain = {.min = 0, .max = 100, .initial = 50},
    .exposureUs = {.min = 64, .max = 64'000'000, .initial = 33'000},
    .brightness = {.min = 0, .max = 20, .initial = 0},
    .bandwidth = {.min = 40, .max = 100, .initial = 50},
    .whiteBalance = {.red = 41, .blue = 94},
    .unverified = {StandIn::StartUpList, StandIn::RegisterAddresses, StandIn::ClockCodes,
                   StandIn::Bandwidth, StandIn::Firmware},
};

constexpr CameraModel kModel = Usb2Edition(kS052, "KYR VSC052MC", 0x052B, Pixels::Colour);

} // namespace

CCameraS052MC::CCameraS052MC(unsigned long) : Fx2Camera(kModel, kTraits) {}

} // namespace vsccam
