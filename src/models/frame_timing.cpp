#include "models/frame_timing.h"

#include <algorithm>

namespace vsccam {

namespace {
constexpr uint32_t kLongestFrame = 0xFFFFFF; // lines, three registers
constexpr float kLongestLine = 65535.0F;     // clocks, two registers
} // namespace

float FrameRate(int budget, int percent, Size window, bool is16)
{
    return static_cast<float>(budget * percent * 10) / (is16 ? 2.0F : 1.0F) /
           static_cast<float>(window.height) / static_cast<float>(window.width);
}

int LineLength(float framesPerSecond, int clockKHz, int windowHeight, int shortest,
               FrameOffsets offsets)
{
    const float lineTimeUs =
        1'000'000.0F / framesPerSecond / static_cast<float>(windowHeight + offsets.frameLength);
    const float length = static_cast<float>(clockKHz) * lineTimeUs / 1000.0F;
    return static_cast<int>(std::clamp(length, static_cast<float>(shortest), kLongestLine));
}

FrameExposure FrameExposureFor(uint32_t exposureUs, SensorLine line, int windowHeight,
                               FrameOffsets offsets)
{
    const float lineTimeUs = line.TimeUs();
    const int frameLines = windowHeight + offsets.frameTime;
    const int frameTimeUs = static_cast<int>(static_cast<float>(frameLines) * lineTimeUs);
    const auto lines = static_cast<uint32_t>(static_cast<float>(exposureUs) / lineTimeUs);
    if (exposureUs > static_cast<uint32_t>(frameTimeUs))
        return {std::min(lines + 1, kLongestFrame), 1, frameTimeUs};
    const auto inFrame = static_cast<uint32_t>(frameLines);
    const uint32_t shutter = lines < inFrame ? inFrame - lines : 1;
    return {static_cast<uint32_t>(windowHeight + offsets.frameLength),
            std::min(shutter, inFrame - 1), frameTimeUs};
}

LongExposurePlan GatedExposurePlan(uint32_t exposureUs, int frameTimeUs)
{
    using namespace std::chrono_literals;
    constexpr uint32_t kOneSleepUpToUs = 1'000'999;
    constexpr uint32_t kStepUs = 200'000;
    constexpr std::chrono::milliseconds kShortestReadTimeout = 2000ms;
    // The largest frames take longer than that to cross a USB 2.0 link.
    const auto readTimeout = std::chrono::milliseconds(frameTimeUs / 1000) + 1000ms;
    LongExposurePlan plan{.step = 200ms,
                          .steps = 0,
                          .readTimeout = std::max(readTimeout, kShortestReadTimeout),
                          .printedWaitMs = 1000};
    if (exposureUs <= kOneSleepUpToUs) {
        plan.step = std::chrono::milliseconds(exposureUs / 1000);
        plan.steps = 1;
    } else {
        plan.steps = static_cast<int>(exposureUs / kStepUs);
    }
    return plan;
}

} // namespace vsccam
