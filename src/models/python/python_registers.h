#pragma once

#include <cstdint>

/// Registers of the PYTHON sensors, decimal, as the sensor numbers them. Those that only the fixed
/// sequences write stand there by their number.
namespace vsccam::python {

inline constexpr uint16_t kTemperatureSensor = 96; // bit 0 enables it
inline constexpr uint16_t kBlackLevel = 128;       // bits 0 to 7
inline constexpr uint16_t kSequencer = 192;        // bit 0 runs the sequencer
inline constexpr uint16_t kReg194 = 194;           // bit 2 is set at the start; why is not known

// What follows is derived from how the sequences use the sensor; not verified on hardware.
inline constexpr uint16_t kTimerUnit = 199;   // clocks; 72 at 72 MHz: exposures count microseconds
inline constexpr uint16_t kExposure = 201;    // in timer units
inline constexpr uint16_t kDigitalGain = 205; // 128 is 1
inline constexpr uint16_t kWindowColumns = 256; // first and last in two bytes, in steps of 8 pixels
inline constexpr uint16_t kWindowTop = 257;     // first row
inline constexpr uint16_t kWindowBottom = 258;  // last row

} // namespace vsccam::python
