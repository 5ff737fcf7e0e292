#pragma once

#include <cstdint>

/// Registers of the sensors in the USB 2.0 cameras, 16 bits each. Those whose meaning is unknown
/// carry their address.
namespace vsccam::usb2 {

// Signed offsets of the black level, by row and column parity; of the S350.
inline constexpr uint16_t kBlackLevelEvenEven = 0x60;
inline constexpr uint16_t kBlackLevelOddOdd = 0x61;
inline constexpr uint16_t kBlackLevelEvenOdd = 0x63;
inline constexpr uint16_t kBlackLevelOddEven = 0x64;

inline constexpr uint16_t kWindowTop = 0x3002; // first and last row and column
inline constexpr uint16_t kWindowLeft = 0x3004;
inline constexpr uint16_t kWindowBottom = 0x3006;
inline constexpr uint16_t kWindowRight = 0x3008;
inline constexpr uint16_t kFrameLength = 0x300A; // lines
inline constexpr uint16_t kLineLength = 0x300C;  // clocks
inline constexpr uint16_t kIntegration = 0x3012; // lines
inline constexpr uint16_t kStreaming = 0x301A;
inline constexpr uint16_t kPllDivider = 0x302E; // of the clock that comes in
inline constexpr uint16_t kPllMultiplier = 0x3030;
inline constexpr uint16_t kReg3032 = 0x3032;
inline constexpr uint16_t kFineGain = 0x305E;
inline constexpr uint16_t kReg306E = 0x306E;
inline constexpr uint16_t kCoarseGain = 0x30B0;
inline constexpr uint16_t kTemperature = 0x30B2;
inline constexpr uint16_t kTemperatureHotMark = 0x30C6; // readings at the two calibration points
inline constexpr uint16_t kTemperatureColdMark = 0x30C8;

// Of kStreaming.
inline constexpr uint16_t kStreamOff = 0x10D8;
inline constexpr uint16_t kStreamOn = 0x10DC;

// Of kIntegration: the host times the exposure.
inline constexpr uint16_t kLongestOwnIntegration = 0x2FFF;

inline constexpr uint16_t kShortestLine = 1390; // clocks
inline constexpr int kFrameOverhead = 26;       // lines of a frame beside those of the picture
inline constexpr int kTopMargin = 2;            // rows above the first that can be used
inline constexpr uint16_t kReg306EInit = 0x9200;

} // namespace vsccam::usb2
