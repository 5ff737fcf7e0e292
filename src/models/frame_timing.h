#pragma once

#include "capture/capture_sensor.h"
#include "core/frame_geometry.h"

#include <cstdint>

/// The arithmetic of the frame timing that FPGA and sensor of the USB 3.0 cameras make: bandwidth
/// to line length, exposure to frame length and shutter. Lengths of time are computed in single
/// precision, as the registers have always been.
namespace vsccam {

/// Lines of a frame beside those of the window.
struct FrameOffsets {
    int frameTime = 17; // in the frame time and the shutter
    int frameLength = 18;
};

/// What the frame timing follows from.
struct SensorLine {
    int clockKHz;
    int length; // clocks

    float TimeUs() const
    {
        return static_cast<float>(length) * 1000.0F / static_cast<float>(clockKHz);
    }
};

/// Frames per second that a share of the bandwidth carries.
/// @param budget   bandwidth of one per cent, in 10 bytes per second
float FrameRate(int budget, int percent, Size window, bool is16);

/// Line length, in clocks, that keeps to a frame rate; at least `shortest`, at most 65535.
int LineLength(float framesPerSecond, int clockKHz, int windowHeight, int shortest,
               FrameOffsets offsets);

struct FrameExposure {
    uint32_t vmax; // frame length in lines
    uint32_t ssh1; // line of the shutter
    int frameTimeUs;

    uint32_t Lines() const { return vmax - ssh1 - 2; }
};

/// Frame length and shutter for an exposure: within the frame time the shutter moves, beyond it the
/// frame grows.
FrameExposure FrameExposureFor(uint32_t exposureUs, SensorLine line, int windowHeight,
                               FrameOffsets offsets);

/// One sleep for exposures of about a second, steps of 200 ms for longer ones; then the sensor
/// reads out, for one frame time.
LongExposurePlan GatedExposurePlan(uint32_t exposureUs, int frameTimeUs);

} // namespace vsccam
