#pragma once

#include "core/camera_model.h"
#include "core/frame_geometry.h"
#include "models/capture_sensor.h"

#include <cstdint>

/// The arithmetic of the Sony sensors' timing and gain. Lengths of time are computed in single
/// precision, as the registers have always been.
namespace vsccam {

/// Lines of a frame beside those of the window.
struct SonyFrameOffsets {
    int frameTime = 17; // in the frame time and the shutter
    int frameLength = 18;
};

struct SonyGain {
    int stored;          // the gain within the model's range
    bool highConversion; // of the sensor's pixel amplifier
    uint8_t code;        // of the gain register
};

/// Gains above 60 use high conversion gain, which counts as 60 by itself; 3 steps per code.
SonyGain SonyGainFor(int gain, ControlRange range);

/// What the frame timing follows from.
struct SonyLine {
    int clockKHz;
    int length; // clocks

    float TimeUs() const
    {
        return static_cast<float>(length) * 1000.0F / static_cast<float>(clockKHz);
    }
};

/// Frames per second that a share of the bandwidth carries.
/// @param budget   bandwidth of one per cent, in 10 bytes per second
float SonyFrameRate(int budget, int percent, Size window, bool is16);

/// Line length, in clocks, that keeps to a frame rate; at least `shortest`, at most 65535.
int SonyLineLength(float framesPerSecond, int clockKHz, int windowHeight, int shortest,
                   SonyFrameOffsets offsets);

struct SonyExposure {
    uint32_t vmax; // frame length in lines
    uint32_t ssh1; // line of the shutter
    int frameTimeUs;

    uint32_t Lines() const { return vmax - ssh1 - 2; }
};

/// Frame length and shutter for an exposure: within the frame time the shutter moves, beyond it the
/// frame grows.
SonyExposure SonyExposureFor(uint32_t exposureUs, SonyLine line, int windowHeight,
                             SonyFrameOffsets offsets);

/// One sleep for exposures of about a second, steps of 200 ms for longer ones.
LongExposurePlan SonyLongExposurePlan(uint32_t exposureUs);

/// Temperature in degrees Celsius from the two bytes of the camera's thermometer: 12 bits, two's
/// complement, sixteenths of a degree.
float SonyTemperature(uint8_t low, uint8_t high);

} // namespace vsccam
