#pragma once

#include "models/sony/neutral_power_up.h"
#include "models/sony/sony_family.h"

// S450 and S460: two 1304 x 976 Sony sensors that are read out alike, USB 3.0, colour only. Rate
// codes and frame offsets are those of the S470, the start-up list is neutral, and that the S460
// shares the S450's shortest lines is a guess: derived, not verified on hardware.
namespace vsccam {

struct S460 : SonyFamily {
    static constexpr SonySensor kTraits = {
        .common = {.budget = {.usb2Host = 43'272, .usb3Host = 190'906},
                   .lowestClockKHz = 9'281,
                   .initialLine = {.clockKHz = 9'281, .length = 292}},
        .normal = {.kHz = 18'562, .rateCode = 0x01, .shortestLine = 292},
        .highSpeed = {.kHz = 37'124, .rateCode = 0x00, .shortestLine = 249},
        .hardwareBin = {.kHz = 9'281, .rateCode = 0x00, .shortestLine = 145},
        .powerUp = kNeutralPowerUp,
    };

    static constexpr CameraModel kModel = {
        .sensorWidth = 1304,
        .sensorHeight = 976,
        .pixelSizeUm = 3.75,
        .bayer = 0,
        .bins = {1, 2},
        .gain = {.min = 0, .max = 600, .initial = 200},
        .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
        .hasHardwareBin = true,
        .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::LineLimits,
                       StandIn::FrameOffsets},
    };

    static constexpr Product kProducts[] = {
        {35, 0x460A, "KYR VSC460MC", Colour},
    };
};

/// Of the S450 more is known: these figures, and its shortest lines.
struct S450 : S460 {
    static constexpr void Adapt(CameraModel &model)
    {
        model.electronsPerAdu = 4.688F;
        model.gainOffset = {10, 20, 300, 140};
        model.unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::FrameOffsets};
    }

    static constexpr Product kProducts[] = {
        {19, 0x450A, "KYR VSC450MC", Colour},
        {20, 0x450B, "KYR VSC450MC-Cool", Colour, Cooled},
    };
};

using CCameraS450MC = CameraOf<S450, Pixels::Colour>;
using CCameraS450MC_C = CameraOf<S450, Pixels::Colour, Housing::Cooled>;
using CCameraS460MC = CameraOf<S460, Pixels::Colour>;

} // namespace vsccam
