#pragma once

#include "camera/sensor.h"

#include <array>
#include <vector>

namespace vscsim {

/// What differs between sensors that are programmed alike.
struct SelfTimedTraits {
    bool highByteFirst = false;           // of the samples, when they have 16 bits
    std::array<int8_t, 4> blackOffsets{}; // measured by the sensor: the four places of a 2 x 2 cell
};

/// A sensor with word registers that makes its line and frame pulses by itself.
class SelfTimedSensor final : public Sensor {
  public:
    SelfTimedSensor(PixelArray pixels, const SelfTimedTraits &traits);

    /// Each address is a word of its own; its byte is the low one.
    void WriteByte(uint16_t address, uint8_t value) override;
    uint8_t ReadByte(uint16_t address) const override;
    void WriteWord(uint16_t address, uint16_t value) override;
    uint16_t ReadWord(uint16_t address) const override { return m_registers[address]; }

    void SetCelsius(double celsius) override;

    void SetInputClock(double hertz) override { m_inputHz = hertz; }

    SensorReadout Readout() const override;

  private:
    Window ReadoutWindow() const;
    double ClockHz() const;
    double Gain() const;

    PixelArray m_pixels;
    SelfTimedTraits m_traits;
    std::vector<uint16_t> m_registers;
    double m_inputHz = 24e6; // of boards that have but one, and at power-on
};

} // namespace vscsim
