#pragma once

#include "models/sony/neutral_power_up.h"
#include "models/sony/sony_family.h"

// S440: 1944 x 1224 Sony sensor, USB 3.0, colour only. Rate codes, frame offsets, shortest lines
// (139 of the fastest clocks carry the whole bandwidth of a USB 3.0 host) and start-up list are
// derived, not verified on hardware.
namespace vsccam {

struct S440 : SonyFamily {
    // No read-out uses the slowest clock.
    static constexpr SonySensor kTraits = {
        .common = {.budget = {.usb2Host = 42'830, .usb3Host = 256'981},
                   .lowestClockKHz = 4'640,
                   .initialLine = {.clockKHz = 4'640, .length = 138}},
        .normal = {.kHz = 9'280, .rateCode = 0x01, .shortestLine = 139},
        .highSpeed = {.kHz = 18'560, .rateCode = 0x00, .shortestLine = 139},
        .hardwareBin = {},
        .powerUp = kNeutralPowerUp,
    };

    static constexpr CameraModel kModel = {
        .sensorWidth = 1944,
        .sensorHeight = 1224,
        .pixelSizeUm = 3.75,
        .bayer = 0,
        .bins = {1, 2},
        .electronsPerAdu = 5.584F,
        .gainOffset = {10, 26, 240, 75},
        .gain = {.min = 0, .max = 480, .initial = 200},
        .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
        .brightness = {.min = 0, .max = 500, .initial = 1},
        .whiteBalance = {.red = 50, .blue = 90},
        .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::LineLimits,
                       StandIn::FrameOffsets},
    };

    static constexpr Product kProducts[] = {
        {15, 0x440A, "KYR VSC440MC", Colour},
        {16, 0x440B, "KYR VSC440MC-Cool", Colour, Cooled},
    };
};

using CCameraS440MC = CameraOf<S440, Pixels::Colour>;
using CCameraS440MC_C = CameraOf<S440, Pixels::Colour, Housing::Cooled>;

} // namespace vsccam
