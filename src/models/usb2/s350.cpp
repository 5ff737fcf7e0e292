#include "models/usb2/s350.h"

#include "models/usb2/neutral_power_up.h"
#include "models/usb2/usb2_edition.h"

// S350: 1280 x 1024, USB 2.0, monochrome only. Its registers are taken to be those of the S340, not
// verified on hardware.
namespace vsccam {

namespace {

constexpr auto kPowerUp = NeutralUsb2PowerUp<kUsb2KnownRows>(1280, 1024);

constexpr Usb2Traits kTraits = {
    .powerUp = kPowerUp,
    .bandwidth = kThreeSteps,
    .tellsBlackLevel = true,
    .firmware = {"s350mm.fx2", 4299},
};

constexpr CameraModel kS350 = {
    .sensorWidth = 1280,
    .sensorHeight = 1024,
    .pixelSizeUm = 5.2,
    .highByteFirst = true,
    .bins = {1, 2},
    .gain = {.min = 0, .max = 100, .initial = 50},
    .exposureUs = {.min = 32, .max = 999'000'000, .initial = 33'000},
    .brightness = {.min = 0, .max = 0, .initial = 0},
    .bandwidth = {.min = 0, .max = 2, .initial = 1},
    .unverified = {StandIn::StartUpList, StandIn::RegisterAddresses, StandIn::ClockCodes,
                   StandIn::Bandwidth, StandIn::Firmware},
};

constexpr CameraModel kModel = Usb2Edition(kS350, "KYR VSC350MM", 0x350A, Pixels::Mono);

} // namespace

CCameraS350MM::CCameraS350MM(unsigned long) : Fx2Camera(kModel, kTraits) {}

} // namespace vsccam
