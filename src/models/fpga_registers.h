#pragma once

#include <cstdint>

/// Registers of the FPGA of the USB 3.0 cameras. Those whose meaning is unknown carry their number.
namespace vsccam::fpga {

inline constexpr uint16_t kMode = 0;        // start and stop codes of the family
inline constexpr uint16_t kHold = 1;        // 1 collects writes, 0 applies them together
inline constexpr uint16_t kFirstColumn = 2; // of the sensor's lines, two bytes
inline constexpr uint16_t kOutputWidth = 4;
inline constexpr uint16_t kReg06 = 6;
inline constexpr uint16_t kOutputHeight = 8;
inline constexpr uint16_t kBitDepth = 10;
inline constexpr uint16_t kExposureGate = 11; // 1 opens, 0 closes and lets the sensor read out
inline constexpr uint16_t kReg12 = 12;        // 12 to 15 are written together
inline constexpr uint16_t kReg15 = 15;
inline constexpr uint16_t kFrameLength = 16; // lines, three bytes
inline constexpr uint16_t kLineLength = 19;  // clocks, two bytes

// Of kMode. PYTHON cameras have other codes to run and to stop.
inline constexpr uint16_t kReset = 0x00;
inline constexpr uint16_t kIdle = 0x30; // after the reset
inline constexpr uint16_t kRun = 0x21;
inline constexpr uint16_t kStop = 0x31;
inline constexpr uint16_t kSensorBins = 0x02;   // added to run, for sensors that bin
inline constexpr uint16_t kLongExposure = 0xC0; // added to both

// Of kBitDepth.
inline constexpr uint16_t kInput12Bits = 0x01;
inline constexpr uint16_t kOutput16Bits = 0x10;
constexpr uint16_t TwelveBitInput(bool output16Bits)
{
    return output16Bits ? kInput12Bits | kOutput16Bits : kInput12Bits;
}

} // namespace vsccam::fpga
