#include "models/hardware_bin/long_exposure.h"

namespace vsccam {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

LongExposurePlan SleepingExposurePlan(uint32_t exposureUs, int frameTimeUs)
{
    constexpr uint32_t kOneSleepUpToUs = 1'999'999;
    constexpr auto kSwitching = 20ms; // that putting the sensor to sleep and waking it take
    constexpr int kFastFrameUpToUs = 2'000'999;
    const auto exposureMs = static_cast<int>(exposureUs / 1000);

    LongExposurePlan plan{.step = 100ms,
                          .steps = (exposureMs + 50) / 100,
                          .readTimeout = 3000ms,
                          .printedWaitMs = 2000};
    if (exposureUs <= kOneSleepUpToUs) {
        plan.step = milliseconds(exposureMs) - kSwitching;
        plan.steps = 1;
    }
    if (frameTimeUs > kFastFrameUpToUs) {
        plan.readTimeout = milliseconds(frameTimeUs / 1000) + 1000ms;
        plan.printedWaitMs = frameTimeUs / 1000;
    }
    return plan;
}

} // namespace vsccam
