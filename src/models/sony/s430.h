#pragma once

#include "models/sony/neutral_power_up.h"
#include "models/sony/sony_family.h"

// S430: 3096 x 2080 Sony sensor, USB 3.0. Rate codes, frame offsets, shortest lines (216 clocks
// carry the whole bandwidth of a USB 3.0 host, 12 bits take about twice the time) and start-up list
// are derived, not verified on hardware.
namespace vsccam {

struct S430 : SonyFamily {
    // One clock for all read-outs; none uses the slow one.
    static constexpr SonySensor kTraits = {
        .common = {.budget = {.usb2Host = 43'000, .usb3Host = 385'000},
                   .lowestClockKHz = 6'750,
                   .initialLine = {.clockKHz = 6'750, .length = 420}},
        .normal = {.kHz = 27'000, .rateCode = 0x01, .shortestLine = 420},
        .highSpeed = {.kHz = 27'000, .rateCode = 0x00, .shortestLine = 216},
        .hardwareBin = {},
        .powerUp = kNeutralPowerUp,
    };

    static constexpr CameraModel kModel = {
        .sensorWidth = 3096,
        .sensorHeight = 2080,
        .pixelSizeUm = 2.4,
        .bayer = 0,
        .bins = {1, 2, 3, 4},
        .electronsPerAdu = 0.916F,
        .adcBits = 14,
        .gainOffset = {25, 25, 270, 340},
        .gain = {.min = 0, .max = 510, .initial = 210},
        .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
        .brightness = {.min = 0, .max = 600, .initial = 10},
        .whiteBalance = {.red = 70, .blue = 90},
        .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::LineLimits,
                       StandIn::FrameOffsets},
    };

    static constexpr Product kProducts[] = {
        {42, 0x430C, "KYR VSC430MM", Mono},
        {14, 0x430A, "KYR VSC430MC", Colour},
        {43, 0x430D, "KYR VSC430MM-Cool", Mono, Cooled},
        {23, 0x430B, "KYR VSC430MC-Cool", Colour, Cooled},
    };
};

using CCameraS430MM = CameraOf<S430, Pixels::Mono>;
using CCameraS430MC = CameraOf<S430, Pixels::Colour>;
using CCameraS430MM_C = CameraOf<S430, Pixels::Mono, Housing::Cooled>;
using CCameraS430MC_C = CameraOf<S430, Pixels::Colour, Housing::Cooled>;

} // namespace vsccam
