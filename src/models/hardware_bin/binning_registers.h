#pragma once

#include <cstdint>

/// Registers of the large sensors that bin by themselves, 16 bits each. Those whose meaning is
/// unknown carry their address.
namespace vsccam::binning {

// Written by the sequences of the power states.
inline constexpr uint16_t kReg00 = 0x00;
inline constexpr uint16_t kReg05 = 0x05;
inline constexpr uint16_t kReg06 = 0x06;
inline constexpr uint16_t kReg11 = 0x11;
inline constexpr uint16_t kReg1C = 0x1C;
inline constexpr uint16_t kReg5F = 0x5F;
inline constexpr uint16_t kReg60 = 0x60;
inline constexpr uint16_t kReg61 = 0x61;

// It is known that the sensor has these five settings, but not where: the addresses are
// placeholders, not verified on hardware.
inline constexpr uint16_t kBinning = 0x20; // 1 to 3
inline constexpr uint16_t kAdcBits = 0x21;
inline constexpr uint16_t kGain = 0x30; // 0.1 dB
inline constexpr uint16_t kBlackLevel = 0x31;
inline constexpr uint16_t kShutter = 0x32; // line of the shutter

// The rows of the region, counted in unbinned ones.
inline constexpr uint16_t kReg109 = 0x109;   // height + 199
inline constexpr uint16_t kReg118 = 0x118;   // height + 47
inline constexpr uint16_t kReg11C = 0x11C;   // height + 48
inline constexpr uint16_t kReg11E = 0x11E;   // height + 47
inline constexpr uint16_t kFirstRow = 0x1DC; // 32 before the region
inline constexpr uint16_t kRowsEnd = 0x1DD;  // 36 behind the region's end

// Of each line, before those of the picture.
inline constexpr int kBlankColumns = 60;

} // namespace vsccam::binning
