#pragma once

#include <cstdint>

namespace vsccam {

/// Frames of shorter exposures follow each other fast. Where only the next frame tells whether one
/// is whole, the reader then waits for it, and the worker leaves bad frames to the reader, who
/// throws them away.
inline constexpr uint32_t kFastVideoBelowUs = 100'000;

/// What belongs to one setting of the exposure, and to the frames that are exposed by it.
struct ExposureSetting {
    /// Frames of shorter exposures are short. The capture worker and the automatics must agree
    /// which those are.
    static constexpr int kShortBelowUs = 100'000;

    uint32_t us = 0;
    int frameTimeUs = 0;
    bool timedByHost = false; // long exposures: the host opens and closes the gate

    bool operator==(const ExposureSetting &) const = default;

    /// Short frames follow each other so fast that automatic exposure need not see them all: its
    /// thread looks at some. Every longer frame counts, and the capture worker looks at each.
    bool IsShort() const
    {
        return !timedByHost && us < uint32_t{kShortBelowUs} && frameTimeUs < kShortBelowUs;
    }
};

} // namespace vsccam
