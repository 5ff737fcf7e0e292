#pragma once

#include "camera/held_registers.h"
#include "camera/sensor.h"

#include <array>

namespace vscsim {

/// What differs between sensors that are programmed alike.
struct SonyTraits {
    std::array<double, 3> clockHz{}; // by the read-out rate nibble
    double binnedClockHz = 0;        // at rate 0 while the sensor bins 2 x 2
};

/// A sensor with byte registers at 16-bit addresses.
class SonySensor final : public Sensor {
  public:
    SonySensor(PixelArray pixels, const SonyTraits &traits);

    void WriteByte(uint16_t address, uint8_t value) override;
    uint8_t ReadByte(uint16_t address) const override;
    /// A word is two bytes at neighbouring addresses, the high one first.
    void WriteWord(uint16_t address, uint16_t value) override;
    uint16_t ReadWord(uint16_t address) const override;

    SensorReadout Readout() const override;

  private:
    Window ReadoutWindow() const;
    double ClockHz(bool binned) const;
    double Gain() const;

    PixelArray m_pixels;
    SonyTraits m_traits;
    HeldRegisters<uint8_t> m_registers;
};

} // namespace vscsim
