#pragma once

#include "camera/held_registers.h"

#include <cstdint>

namespace vscsim {

/// The FPGA between sensor and controller: it makes the line and frame pulses, cuts the picture to
/// size, packs the samples and sets the marks.
class Fpga {
  public:
    static constexpr size_t kRegisters = 256;

    Fpga();

    void Write(uint8_t number, uint16_t value);
    uint16_t Read(uint8_t number) const;

    bool InReset() const;
    bool Running() const;
    bool LongExposure() const; // frames wait for the gate
    bool GateOpen() const;
    bool FanOn() const;

    int FirstColumn() const; // of a line of the sensor that it takes
    int OutputWidth() const;
    int OutputHeight() const;
    bool Output16Bits() const;
    int InputBits() const;       // which it expects of the sensor's samples
    uint32_t LineClocks() const; // length of a line in clocks of the sensor
    uint32_t FrameLines() const; // lines from one frame pulse to the next

  private:
    HeldRegisters<uint16_t> m_registers;
};

} // namespace vscsim
