#pragma once

#include "models/usb2/neutral_power_up.h"
#include "models/usb2/usb2_family.h"

// S052: 728 x 512, USB 2.0, colour only. Its registers are taken to be those of the S340, not
// verified on hardware.
namespace vsccam {

struct S052 : Fx2Family {
    static constexpr auto kPowerUp = NeutralUsb2PowerUp<kUsb2KnownRows>(728, 512);

    static constexpr Usb2Traits kTraits = {
        .powerUp = kPowerUp,
        .frameBlock = 1024,
        .firmware = {"s052mc.fx2", 4346},
    };

    static constexpr CameraModel kModel = {
        .sensorWidth = 728,
        .sensorHeight = 512,
        .pixelSizeUm = 5.6,
        .bayer = 2,
        .usb3Camera = false,
        .bins = {1, 2},
        .gain = {.min = 0, .max = 100, .initial = 50},
        .exposureUs = {.min = 64, .max = 64'000'000, .initial = 33'000},
        .brightness = {.min = 0, .max = 20, .initial = 0},
        .bandwidth = {.min = 40, .max = 100, .initial = 50},
        .whiteBalance = {.red = 41, .blue = 94},
        .hasBrightness = false,
        .unverified = {StandIn::StartUpList, StandIn::RegisterAddresses, StandIn::ClockCodes,
                       StandIn::Bandwidth, StandIn::Firmware},
    };

    static constexpr Product kProducts[] = {
        {6, 0x052B, "KYR VSC052MC", Colour},
        {7, 0x052A, "KYR VSC052MC-A", Colour},
        {8, 0x052C, "KYR VSC052MC-B", Colour},
    };
};

using CCameraS052MC = CameraOf<S052, Pixels::Colour>;

} // namespace vsccam
