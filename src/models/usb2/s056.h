#pragma once

#include "models/usb2/neutral_power_up.h"
#include "models/usb2/usb2_family.h"

// S056: 752 x 480, USB 2.0. Its registers are taken to be those of the S340, not verified on
// hardware.
namespace vsccam {

struct S056 : Fx2Family {
    static constexpr auto kPowerUp = NeutralUsb2PowerUp<kUsb2KnownRows>(752, 480);

    static constexpr Usb2Traits kTraits = {
        .powerUp = kPowerUp,
        .bandwidth = kThreeSteps,
    };

    static constexpr CameraModel kModel = {
        .sensorWidth = 752,
        .sensorHeight = 480,
        .pixelSizeUm = 6.0,
        .bayer = 1,
        .usb3Camera = false,
        .bins = {1},
        .gain = {.min = 1, .max = 100, .initial = 50},
        .exposureUs = {.min = 32, .max = 999'000'000, .initial = 33'000},
        .brightness = {.min = 0, .max = 0, .initial = 0},
        .bandwidth = {.min = 0, .max = 2, .initial = 1},
        .hasBrightness = false,
        .unverified = {StandIn::StartUpList, StandIn::RegisterAddresses, StandIn::ClockCodes,
                       StandIn::Bandwidth},
    };

    static constexpr void Adapt(CameraModel &model)
    {
        if (model.colour)
            model.whiteBalance = {.red = 45, .blue = 70};
    }

    static constexpr Product kProducts[] = {
        {4, 0x056A, "KYR VSC056MM", Mono},          {25, 0x056C, "HALDRON VSC056MM-A", Mono},
        {26, 0x056D, "HALDRON VSC056MM-B", Mono},   {3, 0x056B, "KYR VSC056MC", Colour},
        {27, 0x056E, "HALDRON VSC056MC-A", Colour}, {28, 0x056F, "HALDRON VSC056MC-B", Colour},
    };
};

using CCameraS056MM = CameraOf<S056, Pixels::Mono>;
using CCameraS056MC = CameraOf<S056, Pixels::Colour>;

} // namespace vsccam
