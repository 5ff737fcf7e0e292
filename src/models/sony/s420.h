#pragma once

#include "models/sony/neutral_power_up.h"
#include "models/sony/sony_family.h"

// S420: 1936 x 1216 Sony sensor, USB 3.0. Rate codes, frame offsets, shortest lines (69 clocks
// carry the whole bandwidth of a USB 3.0 host, 12 bits take twice the time) and start-up list are
// derived, not verified on hardware.
namespace vsccam {

struct S420 : SonyFamily {
    // One clock for all read-outs.
    static constexpr SonySensor kTraits = {
        .common = {.budget = {.usb2Host = 43'272, .usb3Host = 390'000},
                   .lowestClockKHz = 13'920,
                   .initialLine = {.clockKHz = 37'125, .length = 1440}},
        .normal = {.kHz = 13'920, .rateCode = 0x01, .shortestLine = 138},
        .highSpeed = {.kHz = 13'920, .rateCode = 0x00, .shortestLine = 69},
        .hardwareBin = {},
        .powerUp = kNeutralPowerUp,
    };

    static constexpr CameraModel kModel = {
        .sensorWidth = 1936,
        .sensorHeight = 1216,
        .pixelSizeUm = 5.86,
        .bayer = 0,
        .bins = {1, 2},
        .electronsPerAdu = 7.92F,
        .gainOffset = {10, 27, 240, 90},
        .gain = {.min = 0, .max = 400, .initial = 200},
        .exposureUs = {.min = 32, .max = 300'000'000, .initial = 10'000},
        .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::LineLimits,
                       StandIn::FrameOffsets},
    };

    static constexpr void Adapt(CameraModel &model)
    {
        if (model.cooled)
            model.exposureUs.max = 2'000'000'000;
        if (model.colour)
            model.whiteBalance = {.red = 60, .blue = 99};
    }

    static constexpr Product kProducts[] = {
        {18, 0x420B, "KYR VSC420MM", Mono},
        {31, 0x420E, "KYR VSC420MM-A", Mono},
        {32, 0x420F, "KYR VSC420MM-B", Mono},
        {17, 0x420A, "KYR VSC420MC", Colour},
        {22, 0x420D, "KYR VSC420MM-Cool", Mono, Cooled},
        {21, 0x420C, "KYR VSC420MC-Cool", Colour, Cooled},
    };
};

using CCameraS420MM = CameraOf<S420, Pixels::Mono>;
using CCameraS420MC = CameraOf<S420, Pixels::Colour>;
using CCameraS420MM_C = CameraOf<S420, Pixels::Mono, Housing::Cooled>;
using CCameraS420MC_C = CameraOf<S420, Pixels::Colour, Housing::Cooled>;

} // namespace vsccam
