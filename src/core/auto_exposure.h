#pragma once

#include "core/raw_frame.h"

#include <cstdint>
#include <functional>
#include <optional>

/// Automatic exposure and gain: how bright a frame is, and what to change. A proportional
/// controller with a dead band that takes one step per frame and remembers nothing.
namespace vsccam {

/// Mean brightness, 1 to 256, of the middle of a frame: taken at the points of a sparse grid. Each
/// point is moved by a pixel at random, so that no pattern of the scene or the mosaic is favoured.
/// Frames measured with the same seed use the same points. Nothing when the frame is too small to
/// have a middle.
std::optional<int> MeanBrightness(const RawFrame &frame, uint32_t seed);

/// What a step depends on. Gain in units of its control, exposure in microseconds.
struct AutoExposureState {
    bool exposureAuto = false;
    bool gainAuto = false;
    int mean = 0; // 1 to 255
    int target = 100;
    int gain = 0;
    int minGain = 0; // of the model
    int maxGain = 0;
    int gainLimit = 50; // of what the automatic sets
    uint64_t exposureUs = 0;
    int exposureLimitS = 30;
    uint32_t exposureLines = 0; // as the sensor has it, in periods of its lines
};

struct AutoExposureChange {
    enum class Setting { kGain, kExposure };
    Setting setting;
    int64_t value;
};

/// Makes a change and tells the exposure that the sensor has then, in periods of its lines.
using ApplyChange = std::function<uint32_t(const AutoExposureChange &)>;

/// Makes the changes of one step; gains may be below what the model has.
void StepAutoExposure(const AutoExposureState &state, const ApplyChange &apply);

} // namespace vsccam
