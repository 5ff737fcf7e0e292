#pragma once

#include "camera/camera.h"
#include "camera/fpga.h"
#include "camera/sensor.h"

namespace vscsim {

/// How a frame is marked: by the FPGA at both ends, or by a controller without one at its head.
enum class MarkStyle { BothEnds, Head };

/// No sensor is faster. Registers with any value in them may ask for more.
inline constexpr Time kShortestPeriod = std::chrono::microseconds(10);

/// What one frame is made with: the registers of sensor and FPGA as they act when it begins.
struct FrameSettings {
    SensorReadout sensor;
    int width = 0; // of the frame on the wire
    int height = 0;
    bool output16Bits = false;
    int inputBits = 12;
    MarkStyle marks = MarkStyle::BothEnds;
    Time period{};  // from one frame to the next
    Time readout{}; // of which the lines of the picture take this
    Time exposure{};

    size_t RowBytes() const { return static_cast<size_t>(width) * (output16Bits ? 2 : 1); }
    size_t Bytes() const { return RowBytes() * static_cast<size_t>(height); }

    /// Whether sensor and FPGA can make a frame of it at all.
    bool Possible() const { return Bytes() != 0 && period >= kShortestPeriod; }
};

/// The frame that the FPGA makes of what the sensor sends.
FrameSettings SettingsOf(const SensorReadout &sensor, const Fpga &fpga);

/// The frame as the sensor sends it.
FrameSettings SettingsOf(const SensorReadout &sensor, bool output16Bits);

} // namespace vscsim
