#pragma once

#include "camera/sensor.h"

#include <vector>

namespace vscsim {

/// What may differ between sensors that are programmed alike.
struct BinningTraits {
    double clockHz = 37.125e6;
};

/// A large sensor with word registers that bins 2 x 2 and 3 x 3 by itself. It sleeps between
/// settings and, in another way, through long exposures. Only rows can be set: it always sends
/// whole lines behind some blank columns, and the FPGA cuts them. What its registers mean follows
/// from what is known to be written to them, or was chosen; nothing of it was verified on hardware.
class BinningSensor final : public Sensor {
  public:
    BinningSensor(PixelArray pixels, const BinningTraits &traits);

    void WriteWord(uint16_t address, uint16_t value) override;
    uint16_t ReadWord(uint16_t address) const override;

    SensorReadout Readout() const override;
    bool HasOwnClock() const override { return true; }

  private:
    struct Setting {
        uint16_t address;
        uint16_t value;
    };
    struct Mode;
    static const Mode kModes[];
    static const Setting kAwake[];
    static const Setting kAsleepExposing[];

    enum class Power { Asleep, Awake, AsleepExposing };

    bool Is(const Setting &setting) const { return ReadWord(setting.address) == setting.value; }
    Power SelectedPower() const;
    const Mode *ReadoutMode() const;
    Window ReadoutWindow() const;

    PixelArray m_pixels;
    BinningTraits m_traits;
    std::vector<uint16_t> m_registers;
    Power m_power = Power::Asleep;
};

} // namespace vscsim
