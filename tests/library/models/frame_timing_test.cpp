#include "models/frame_timing.h"

#include <gtest/gtest.h>

namespace vsccam {
namespace {

TEST(FrameTiming, ShutterStaysInsideEveryFrameForAnyExposureAndWindow)
{
    for (int height = 2; height <= 1096; height += 62) {
        for (const SensorLine line : {SensorLine{9'281, 145}, {18'562, 65'535}, {37'124, 196}}) {
            for (uint64_t exposureUs = 32; exposureUs <= 2'000'000'000; exposureUs *= 3) {
                const FrameExposure e =
                    FrameExposureFor(static_cast<uint32_t>(exposureUs), line, height, {});
                ASSERT_GE(e.ssh1, 1U);
                ASSERT_GE(e.vmax, e.ssh1 + 2) << height << " " << exposureUs;
                ASSERT_LE(e.vmax, 0xFFFFFFU);
            }
        }
    }
}

TEST(FrameTiming, LongExposuresAreSleptWholeUpToASecondAndThenInSteps)
{
    const struct {
        uint32_t exposureUs;
        int frameTimeUs;
        int stepMs, steps, readMs;
    } cases[] = {{1'000'000, 12'172, 1'000, 1, 2'000},
                 {1'000'999, 1'000'999, 1'000, 1, 2'000},
                 {1'001'000, 1'001'000, 200, 5, 2'001},
                 {1'300'000, 4'200'000, 200, 6, 5'200},
                 {2'000'000'000, 12'172, 200, 10'000, 2'000}};
    for (const auto &c : cases) {
        const LongExposurePlan plan = GatedExposurePlan(c.exposureUs, c.frameTimeUs);
        EXPECT_EQ(plan.step.count(), c.stepMs) << c.exposureUs;
        EXPECT_EQ(plan.steps, c.steps) << c.exposureUs;
        EXPECT_EQ(plan.readTimeout.count(), c.readMs) << c.exposureUs;
    }
}

} // namespace
} // namespace vsccam
