#pragma once

#include "models/sony/sony_family.h"

// S470: 1936 x 1096 Sony sensor, USB 3.0. Editions differ in name, product ID, mosaic, cooling.
namespace vsccam {

struct S470 : SonyFamily {
    // Sent once by InitCamera, in this order. The addresses are undocumented sensor set-up; not
    // verified on hardware.
    static constexpr RegisterWrite kPowerUp[] = {
        {0x3003, 0x01}, Pause(std::chrono::milliseconds(20)),
        {0x300E, 0x00}, {0x300F, 0x00},
        {0x3010, 0x21}, {0x3012, 0x64},
        {0x3016, 0x09}, {0x305C, 0x18},
        {0x305E, 0x20}, {0x315E, 0x1A},
        {0x3164, 0x1A}, {0x3070, 0x02},
        {0x3071, 0x11}, {0x309B, 0x10},
        {0x30A2, 0x02}, {0x30A6, 0x20},
        {0x30A8, 0x20}, {0x30AA, 0x20},
        {0x30AC, 0x20}, {0x30B0, 0x43},
        {0x3119, 0x9E}, {0x311C, 0x1E},
        {0x311E, 0x08}, {0x3128, 0x05},
        {0x313D, 0x83}, {0x3150, 0x03},
        {0x317E, 0x00}, {0x32B8, 0x50},
        {0x32B9, 0x10}, {0x32BA, 0x00},
        {0x32BB, 0x04}, {0x32C8, 0x50},
        {0x32C9, 0x10}, {0x32CA, 0x00},
        {0x32CB, 0x04}, {0x332C, 0xD3},
        {0x332D, 0x10}, {0x332E, 0x0D},
        {0x3358, 0x06}, {0x3359, 0xE1},
        {0x335A, 0x11}, {0x3360, 0x1E},
        {0x3361, 0x61}, {0x3362, 0x10},
        {0x33B0, 0x50}, {0x33B2, 0x1A},
        {0x33B3, 0x04},
    };
    static_assert(std::size(kPowerUp) == 47); // a lost row is found here, not at the telescope

    static constexpr SonySensor kTraits = {
        .common = {.budget = {.usb2Host = 43'272, .usb3Host = 360'715},
                   .lowestClockKHz = 9'281,
                   .initialLine = {.clockKHz = 9'281, .length = 203}},
        .normal = {.kHz = 18'562, .rateCode = 0x01, .shortestLine = 203},
        .highSpeed = {.kHz = 37'124, .rateCode = 0x00, .shortestLine = 196},
        .hardwareBin = {.kHz = 9'281, .rateCode = 0x00, .shortestLine = 145},
        .powerUp = kPowerUp,
    };

    static constexpr CameraModel kModel = {
        .sensorWidth = 1936,
        .sensorHeight = 1096,
        .pixelSizeUm = 2.9,
        .bayer = 0,
        .bins = {1, 2},
        .electronsPerAdu = 3.584F,
        .gainOffset = {10, 18, 300, 75},
        .gain = {.min = 0, .max = 600, .initial = 200},
        .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
        .hasHardwareBin = true,
        .unverified = {}, // all of it is known
    };

    static constexpr Product kProducts[] = {
        {37, 0x470B, "KYR VSC470MM", Mono},
        {36, 0x470A, "KYR VSC470MC", Colour},
        {30, 0x470D, "KYR VSC470MM-Cool", Mono, Cooled},
        {29, 0x470C, "KYR VSC470MC-Cool", Colour, Cooled},
    };
};

using CCameraS470MM = CameraOf<S470, Pixels::Mono>;
using CCameraS470MC = CameraOf<S470, Pixels::Colour>;
using CCameraS470MM_C = CameraOf<S470, Pixels::Mono, Housing::Cooled>;
using CCameraS470MC_C = CameraOf<S470, Pixels::Colour, Housing::Cooled>;

} // namespace vsccam
