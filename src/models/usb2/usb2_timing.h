#pragma once

#include "capture/capture_sensor.h"
#include "core/camera_model.h"

#include <cstdint>
#include <optional>

/// The arithmetic of the USB 2.0 cameras' sensors: clock, line length, integration, gain,
/// temperature. All of it in integers, as the registers have always been computed.
namespace vsccam {

inline constexpr int kUsb2SlowClockMHz = 24; // of exposures from kUsb2SlowFromUs up
inline constexpr int kUsb2FastInputMHz = 48; // that the faster ones are made of
inline constexpr uint32_t kUsb2SlowFromUs = 100'000;

/// The clock, in MHz, that suits a read-out with rows of so many pixels.
int Usb2ClockMHz(int rowWidth, bool is16);

struct Usb2Gain {
    int stored; // the gain within the model's range
    uint16_t coarse;
    uint16_t fine;
};
Usb2Gain Usb2GainFor(int gain, ControlRange range, int clockMHz);

/// What the frame timing follows from.
struct Usb2Timing {
    int clockMHz;
    int lineLength; // clocks
    int frameLines;

    int FrameTimeUs() const;
    double FramesPerS() const;
    /// Lines of integration for an exposure, at least 1.
    int64_t Lines(uint32_t exposureUs) const;
    /// How long the sensor integrates by itself in exposures that the host times.
    uint32_t OwnIntegrationUs() const;

    int FrameClocks() const;
};

/// Line length, in clocks, that keeps to a share of the bandwidth.
/// @param megabytesPerS  bandwidth of 100 per cent
int Usb2LineLength(int clockMHz, int frameBytes, int megabytesPerS, int percent, int frameLines);

/// Whether an exposure is one that only the host can time.
bool Usb2NeedsHostTiming(uint32_t exposureUs, int64_t lines);

/// Lines of integration at the slow clock when an exposure timed by the host has become short
/// enough for the sensor, nothing when it has not.
std::optional<uint16_t> Usb2LinesWithoutHost(uint32_t exposureUs, int lineLength);

/// An exposure during which the sensor's clock stands still. The host waits for all of it but what
/// the sensor integrates by itself when its clock runs again.
LongExposurePlan Usb2LongExposurePlan(uint32_t exposureUs, uint32_t ownUs);

/// Degrees Celsius from a reading and those at 70 and 55 degrees; by the sensor's mean slope when
/// the calibration makes no sense.
float Usb2Temperature(uint16_t reading, uint16_t at70, uint16_t at55);

} // namespace vsccam
