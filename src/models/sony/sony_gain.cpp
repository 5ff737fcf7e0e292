#include "models/sony/sony_gain.h"

#include <algorithm>

namespace vsccam {

namespace {
constexpr int kHighConversionAbove = 60;
constexpr int kStepsPerCode = 3;
} // namespace

SonyGain SonyGainFor(int gain, ControlRange range)
{
    const int stored = std::clamp(gain, range.min, range.max);
    const bool high = stored > kHighConversionAbove;
    const int steps = high ? stored - kHighConversionAbove : stored;
    return {stored, high, static_cast<uint8_t>(steps / kStepsPerCode)};
}

} // namespace vsccam
