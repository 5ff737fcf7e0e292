#pragma once

#include "models/usb2/neutral_power_up.h"
#include "models/usb2/usb2_family.h"

// S350: 1280 x 1024, USB 2.0, monochrome only. Its registers are taken to be those of the S340, not
// verified on hardware.
namespace vsccam {

struct S350 : Fx2Family {
    static constexpr auto kPowerUp = NeutralUsb2PowerUp<kUsb2KnownRows>(1280, 1024);

    static constexpr Usb2Traits kTraits = {
        .powerUp = kPowerUp,
        .bandwidth = kThreeSteps,
        .tellsBlackLevel = true,
        .firmware = {"s350mm.fx2", 4299},
    };

    static constexpr CameraModel kModel = {
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
        .hasBrightness = false,
        .unverified = {StandIn::StartUpList, StandIn::RegisterAddresses, StandIn::ClockCodes,
                       StandIn::Bandwidth, StandIn::Firmware},
    };

    static constexpr Product kProducts[] = {
        {0, 0x350A, "KYR VSC350MM", Mono},
    };
};

using CCameraS350MM = CameraOf<S350, Pixels::Mono>;

} // namespace vsccam
