#pragma once

#include "models/usb2/neutral_power_up.h"
#include "models/usb2/usb2_family.h"

// S047: 640 x 480, USB 2.0, colour only. Its registers are taken to be those of the S340, not
// verified on hardware.
namespace vsccam {

struct S047 : Fx2Family {
    static constexpr auto kPowerUp = NeutralUsb2PowerUp<kUsb2KnownRows>(640, 480);

    static constexpr Usb2Traits kTraits = {
        .powerUp = kPowerUp,
        .bandwidth = kThreeSteps,
    };

    static constexpr CameraModel kModel = {
        .sensorWidth = 640,
        .sensorHeight = 480,
        .pixelSizeUm = 6.0,
        .bayer = 1,
        .usb3Camera = false,
        .bins = {1},
        .gain = {.min = 1, .max = 100, .initial = 50},
        .exposureUs = {.min = 32, .max = 30'000'000, .initial = 33'000},
        .brightness = {.min = 0, .max = 0, .initial = 0},
        .bandwidth = {.min = 0, .max = 2, .initial = 1},
        .whiteBalance = {.red = 45, .blue = 70},
        .hasBrightness = false,
        .unverified = {StandIn::StartUpList, StandIn::RegisterAddresses, StandIn::ClockCodes,
                       StandIn::Bandwidth},
    };

    static constexpr Product kProducts[] = {
        {5, 0x047A, "KYR VSC047MC", Colour},
    };
};

using CCameraS047MC = CameraOf<S047, Pixels::Colour>;

} // namespace vsccam
