#pragma once

#include "camera/sensor.h"

#include <vector>

namespace vscsim {

/// What may differ between sensors that are programmed alike.
struct PythonTraits {
    double clockHz = 72e6;
};

/// A sensor with word registers that runs by a sequencer program in its own memory and counts
/// exposures itself. It sends nothing until all that it needs is programmed. Which registers that
/// is follows from the start-up that is known of it; what they mean was not verified on hardware.
class PythonSensor final : public Sensor {
  public:
    PythonSensor(PixelArray pixels, const PythonTraits &traits);

    void WriteWord(uint16_t address, uint16_t value) override;
    uint16_t ReadWord(uint16_t address) const override;

    SensorReadout Readout() const override;
    bool HasOwnClock() const override { return true; }

  private:
    struct Field {
        uint16_t address;
        int lowestBit, highestBit;
    };
    struct Condition {
        Field field;
        unsigned value;
    };
    struct Program;
    static const Condition kAwake[];
    static const Program kPrograms[];

    unsigned Bits(Field field) const;
    bool Holds(const Condition &condition) const
    {
        return Bits(condition.field) == condition.value;
    }
    bool Awake() const;
    const Program *RunningProgram() const;
    Window ReadoutWindow() const;
    double ExposureUs() const;

    PixelArray m_pixels;
    PythonTraits m_traits;
    std::vector<uint16_t> m_registers;
    bool m_programSpoiled = false; // until power is off
};

} // namespace vscsim
