#pragma once

#include "models/sony/neutral_power_up.h"
#include "models/sony/sony_family.h"

// S372: 1944 x 1224 Sony sensor, USB 3.0, colour only. Rate codes, frame offsets, shortest lines
// (33 of the fastest clocks carry the whole bandwidth of a USB 3.0 host) and start-up list are
// derived, not verified on hardware.
namespace vsccam {

struct S372 : SonyFamily {
    // No read-out uses the slowest clock.
    static constexpr SonySensor kTraits = {
        .common = {.budget = {.usb2Host = 42'830, .usb3Host = 256'981},
                   .lowestClockKHz = 1'100,
                   .initialLine = {.clockKHz = 37'125, .length = 4400}},
        .normal = {.kHz = 2'200, .rateCode = 0x01, .shortestLine = 33},
        .highSpeed = {.kHz = 4'400, .rateCode = 0x00, .shortestLine = 33},
        .hardwareBin = {},
        .powerUp = kNeutralPowerUp,
    };

    static constexpr CameraModel kModel = {
        .sensorWidth = 1944,
        .sensorHeight = 1224,
        .pixelSizeUm = 2.8,
        .bayer = 3,
        .bins = {1, 2},
        .electronsPerAdu = 4.0F,
        .gainOffset = {9, 25, -1, -1},
        .gain = {.min = 0, .max = 480, .initial = 200},
        .exposureUs = {.min = 32, .max = 4'000'000, .initial = 10'000},
        .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::LineLimits,
                       StandIn::FrameOffsets},
    };

    static constexpr Product kProducts[] = {
        {11, 0x372A, "KYR VSC372MC", Colour},
        {12, 0x372C, "KYR VSC372MC-A", Colour},
        {13, 0x372D, "KYR VSC372MC-B", Colour},
    };
};

using CCameraS372MC = CameraOf<S372, Pixels::Colour>;

} // namespace vsccam
