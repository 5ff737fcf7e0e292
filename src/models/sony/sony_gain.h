#pragma once

#include "core/camera_model.h"

#include <cstdint>

namespace vsccam {

struct SonyGain {
    int stored;          // the gain within the model's range
    bool highConversion; // of the sensor's pixel amplifier
    uint8_t code;        // of the gain register
};

/// Gains above 60 use high conversion gain, which counts as 60 by itself; 3 steps per code.
SonyGain SonyGainFor(int gain, ControlRange range);

} // namespace vsccam
