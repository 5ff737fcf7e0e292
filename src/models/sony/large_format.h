#pragma once

#include "models/sony/neutral_power_up.h"
#include "models/sony/sony_family.h"

#include <array>

// S065, S083, S385: the large Sony sensors, USB 3.0, cooled, colour, one clock for all read-outs.
// Rate codes, frame offsets, start-up list, the initial line of the S083, and shortest lines are
// derived, not verified on hardware: the fast one carries the whole bandwidth of a USB 3.0 host,
// 12 bits take about twice the time.
namespace vsccam {

namespace large_format {

inline constexpr int kClockKHz = 20'250;

/// What the large sensors differ in.
struct LargeFormat {
    int width, height; // pixels
    double pixelSizeUm;
    float electronsPerAdu;
    std::array<int, 4> gainOffset;
    int usb3Budget;
    int line, fastLine; // clocks
};

inline constexpr LargeFormat kS065 = {7380, 4928, 5.97, 1.0F, {10, 21, 300, 50}, 333'333, 858, 447};
inline constexpr LargeFormat kS083 = {4944, 3284, 4.78, 2.82F, {8, 20, 300, 65}, 325'643, 612, 306};
inline constexpr LargeFormat kS385 = {6036, 4032, 5.97, 1.0F, {10, 21, 300, 50}, 333'333, 706, 365};

constexpr SonySensor SensorOf(const LargeFormat &format)
{
    return {
        .common = {.budget = {.usb2Host = 43'272, .usb3Host = format.usb3Budget},
                   .lowestClockKHz = kClockKHz,
                   .initialLine = {.clockKHz = kClockKHz, .length = format.line},
                   .startXStepAtBin3 = 6,
                   .thermistor = true},
        .normal = {.kHz = kClockKHz, .rateCode = 0x01, .shortestLine = format.line},
        .highSpeed = {.kHz = kClockKHz, .rateCode = 0x00, .shortestLine = format.fastLine},
        .hardwareBin = {},
        .powerUp = kNeutralPowerUp,
    };
}

constexpr CameraModel ModelOf(const LargeFormat &format)
{
    return {
        .sensorWidth = format.width,
        .sensorHeight = format.height,
        .pixelSizeUm = format.pixelSizeUm,
        .bayer = 0,
        .bins = {1, 2, 3, 4},
        .electronsPerAdu = format.electronsPerAdu,
        .adcBits = 14,
        .gainOffset = format.gainOffset,
        .gain = {.min = 0, .max = 600, .initial = 200},
        .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
        .brightness = {.min = 0, .max = 1024, .initial = 5},
        .whiteBalance = {.red = 60, .blue = 99},
        .unverified = {StandIn::StartUpList, StandIn::ClockCodes, StandIn::LineLimits,
                       StandIn::FrameOffsets},
    };
}

} // namespace large_format

struct S065 : SonyFamily {
    static constexpr SonySensor kTraits = large_format::SensorOf(large_format::kS065);
    static constexpr CameraModel kModel = large_format::ModelOf(large_format::kS065);
    static constexpr Product kProducts[] = {
        {34, 0x065A, "KYR VSC065MC-Cool", Colour, Cooled},
    };
};

struct S083 : SonyFamily {
    static constexpr SonySensor kTraits = large_format::SensorOf(large_format::kS083);
    static constexpr CameraModel kModel = large_format::ModelOf(large_format::kS083);
    static constexpr Product kProducts[] = {
        {24, 0x083A, "KYR VSC083MC-Cool", Colour, Cooled},
    };
};

struct S385 : SonyFamily {
    static constexpr SonySensor kTraits = large_format::SensorOf(large_format::kS385);
    static constexpr CameraModel kModel = large_format::ModelOf(large_format::kS385);
    static constexpr Product kProducts[] = {
        {33, 0x385A, "KYR VSC385MC-Cool", Colour, Cooled},
    };
};

using CCameraS065MC = CameraOf<S065, Pixels::Colour, Housing::Cooled>;
using CCameraS083MC = CameraOf<S083, Pixels::Colour, Housing::Cooled>;
using CCameraS385MC = CameraOf<S385, Pixels::Colour, Housing::Cooled>;

} // namespace vsccam
