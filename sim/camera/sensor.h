#pragma once

#include <cstdint>
#include <optional>

namespace vscsim {

/// A rectangle of the sensor in unbinned pixels.
struct Window {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

/// All pixels of a sensor.
struct PixelArray {
    int width = 0;
    int height = 0;
};

/// The rhythm of a sensor that makes its own line and frame pulses.
struct FramePulses {
    uint32_t lineClocks = 0;
    uint32_t frameLines = 0; // stretched when the exposure takes longer
    uint32_t exposedLines = 0;
};

/// What a sensor does with its clock and line pulses, as its registers say.
struct SensorReadout {
    bool streaming = false;     // out of standby
    bool keepsExposing = false; // asleep meanwhile: cannot read out
    Window window;
    int blankColumns = 0; // sent before those of the window
    int bin = 1;          // of the sensor itself; it sends window / bin
    int bits = 12;
    bool highByteFirst = false;             // of samples that are sent in 16 bits
    double clockHz = 0;                     // in which the length of a line is counted
    std::optional<FramePulses> pulses = {}; // its own; otherwise the FPGA makes them
    uint32_t shortestLine = 0;              // of the FPGA's; the sensor lengthens shorter ones
    uint32_t shutterLines = 0; // lines at the start of a frame before the exposure begins
    std::optional<double> exposureUs = {}; // of sensors that count it by themselves, instead
    double gain = 1;                       // against the lowest setting
    int blackLevel = 0;                    // of 4096

    int Columns() const { return window.width / bin; }
    int Rows() const { return window.height / bin; }
};

/// A sensor behind the controller's register requests. One class per way of programming; what
/// differs between sensors of one way is data.
class Sensor {
  public:
    Sensor() = default;
    Sensor(const Sensor &) = delete;
    Sensor &operator=(const Sensor &) = delete;
    virtual ~Sensor() = default;

    /// Does nothing for sensors whose bus carries only words.
    virtual void WriteByte(uint16_t /*address*/, uint8_t /*value*/) {}
    virtual uint8_t ReadByte(uint16_t /*address*/) const { return 0; }
    virtual void WriteWord(uint16_t address, uint16_t value) = 0;
    virtual uint16_t ReadWord(uint16_t address) const = 0;

    /// Tells the temperature, before registers are read, to sensors that measure it.
    virtual void SetCelsius(double) {}

    /// Tells the frequency of the board's oscillator to sensors that make their clock of it.
    virtual void SetInputClock(double /*hertz*/) {}

    virtual SensorReadout Readout() const = 0;
    /// Whether it runs without the clock that the board can stop.
    virtual bool HasOwnClock() const { return false; }
};

} // namespace vscsim
