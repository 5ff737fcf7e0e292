#pragma once

#include "models/edition.h"
#include "models/hardware_bin/binning_registers.h"
#include "models/hardware_bin/hardware_bin_driver.h"

// S2800: 4656 x 3520, USB 3.0. Editions differ in name, product ID, mosaic, cooling.
namespace vsccam {

namespace s2800 {

using namespace binning;

// The lists have the length that the camera expects, and are sent in the order that it expects.
// Their real steps were never seen, and these were not tried on hardware.

// The sensor after power-on: asleep, the whole of it, unbinned in 12 bits, lowest gain.
inline constexpr auto kRegListBit = Padded<478>({
    {kReg1C, 0x0001},
    {kReg00, 0x0000},
    {kBinning, 1},
    {kAdcBits, 12},
    {kFirstRow, 32},
    {kRowsEnd, 3520 + 36},
    {kReg118, 3520 + 47},
    {kReg11E, 3520 + 47},
    {kReg11C, 3520 + 48},
    {kReg109, 3520 + 199},
    {kGain, 0},
    {kBlackLevel, 0},
    {kShutter, 1},
});
inline constexpr auto kRegList12Bit = Padded<75>({{kBinning, 1}, {kAdcBits, 12}});
inline constexpr auto kRegList10Bit = Padded<75>({{kBinning, 1}, {kAdcBits, 10}});
inline constexpr auto kRegListBin2 = Padded<75>({{kBinning, 2}, {kAdcBits, 10}});
inline constexpr auto kRegListBin3 = Padded<75>({{kBinning, 3}, {kAdcBits, 10}});

inline constexpr RegisterWrite kColumns{fpga::kFirstColumn, kBlankColumns};

inline constexpr BinningSensor kTraits = {
    .common = {.budget = {.usb2Host = 43'272, .usb3Host = 390'906},
               .lowestClockKHz = 37'125,
               .initialLine = {.clockKHz = 37'125, .length = 680},
               .startXStepAtBin3 = 6},
    .powerUp = kRegListBit,
    .bits12 = {.sensor = kRegList12Bit,
               .fpga = {{{fpga::kBitDepth, fpga::kInput12Bits}, kColumns, {fpga::kReg06, 13}}},
               .shortestLine = 680,
               .message = "-----Binning 1 12bit-------\n"},
    .bits10 = {.sensor = kRegList10Bit,
               .fpga = {{{fpga::kBitDepth, 0}, kColumns, {fpga::kReg06, 13}}},
               .shortestLine = 435,
               .message = "-----Binning 1 10bit-------\n"},
    .bin2 = {.sensor = kRegListBin2,
             .fpga = {{kColumns, {fpga::kReg06, 8}, {fpga::kBitDepth, 0}}},
             .shortestLine = 397,
             .message = "-----Binning 2-------\n"},
    .bin3 = {.sensor = kRegListBin3,
             .fpga = {{kColumns, {fpga::kReg06, 6}, {fpga::kBitDepth, 0}}},
             .shortestLine = 397,
             .message = "-----Binning 3-------\n"},
};

} // namespace s2800

struct S2800 : Sensor {
    template <Housing H> using Driver = HardwareBinDriver<BaseOf<H>>;

    static constexpr const BinningSensor &kTraits = s2800::kTraits;

    static constexpr CameraModel kModel = {
        .sensorWidth = 4656,
        .sensorHeight = 3520,
        .pixelSizeUm = 3.8,
        .bayer = 2,
        .bins = {1, 2, 3, 4},
        .electronsPerAdu = 4.96F,
        .gainOffset = {10, 21, 300, 50},
        .gain = {.min = 0, .max = 600, .initial = 200},
        .exposureUs = {.min = 32, .max = 2'000'000'000, .initial = 10'000},
        .hasHardwareBin = true,
        .hardwareBin4IsHalf = true,
        .unverified = {StandIn::StartUpList, StandIn::RegisterAddresses, StandIn::FrameOffsets},
    };

    static constexpr Product kProducts[] = {
        {44, 0x2802, "KYR VSC2800MM", Mono},
        {38, 0x2800, "KYR VSC2800MC", Colour},
        {45, 0x2803, "KYR VSC2800MM-Cool", Mono, Cooled},
        {39, 0x2801, "KYR VSC2800MC-Cool", Colour, Cooled},
    };
};

using CCameraS2800MM = CameraOf<S2800, Pixels::Mono>;
using CCameraS2800MC = CameraOf<S2800, Pixels::Colour>;
using CCameraS2800MM_C = CameraOf<S2800, Pixels::Mono, Housing::Cooled>;
using CCameraS2800MC_C = CameraOf<S2800, Pixels::Colour, Housing::Cooled>;

} // namespace vsccam
