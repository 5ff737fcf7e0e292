#include "library/capture_fixture.h"
#include "library/wire.h"

#include <cstring>

namespace vsccam {
namespace {

using vscsim::Fault;
using vscsim::FaultRule;

class Usb2CaptureTest : public CaptureFixture {
  protected:
    Usb2CaptureTest() : CaptureFixture("VSC340MM", kHeadOnly) {}

    static int SensorNumber(int device, uint16_t address)
    {
        return Bus().With(device, [=](auto &camera) { return camera.SensorRegister(address); });
    }
};

TEST_F(Usb2CaptureTest, StartsAndStopsTheStreamInItsOrder)
{
    const int device = OpenSmall();
    startCapture();
    ASSERT_TRUE(Number(NextFrame(1000)));
    stopCapture();
    EXPECT_EQ(Bus().TakeTraffic(device),
              Wire("cmd AA; sensor 301A=10D8; cmd AF; cmd A9; sensor 301A=10DC; clear halt 82;"
                   "sensor 301A=10D8; cmd AA; clear halt 82"));
    ASSERT_TRUE(setImageFormat(320, 240, 1, VSC_IMG_RAW16));
    (void)Bus().TakeTraffic(device);
    startCapture();
    ASSERT_FALSE(NextFrame(1000).empty());
    EXPECT_EQ(Bus().TakeTraffic(device),
              Wire("cmd AA; sensor 301A=10D8; cmd AF; cmd A9; cmd AC; sensor 301A=10DC;"
                   "clear halt 82"));
}

TEST_F(Usb2CaptureTest, DeliversEveryFrameOnceAtAnyExposure)
{
    for (const int exposureUs : {64, 4'000, 30'000, 250'000}) {
        SCOPED_TRACE(exposureUs);
        constexpr uint64_t kFrames = 100;
        const int device = OpenSmall({.frameLimit = kFrames}, exposureUs);
        startCapture();
        const Tally frames = TakeAll();
        EXPECT_TRUE(frames.allWhole && frames.noneTwice);
        EXPECT_EQ(frames.dropped, 0);
        // In fast video the last frame has no follower that vouches for it.
        EXPECT_EQ(frames.delivered, exposureUs < 100'000 ? kFrames - 1 : kFrames);
        stopCapture(); // takes it away
        startCapture();
        EXPECT_TRUE(NextFrame(1000).empty());
        Remove(device);
    }
}

TEST_F(Usb2CaptureTest, FrameWithoutFollowerStaysForTheNextCall)
{
    OpenSmall();
    startCapture();
    ASSERT_TRUE(Number(NextFrame(1000)));
    int delivered = 0;
    std::optional<int> previous;
    setValue(CONTROL_EXPOSURE, 90'000, false); // the follower comes too late for a wait of 0
    for (int calls = 0; delivered < 10 && calls < 1000; ++calls) {
        Bytes frame;
        EXPECT_LE(Took([&] { return frame = NextFrame(calls % 2 ? 0 : 5); }), 105U);
        if (frame.empty())
            continue;
        const auto number = Number(frame);
        ASSERT_TRUE(number);
        if (previous) {
            EXPECT_EQ(*number, (*previous + 1) % 256);
        }
        previous = number;
        ++delivered;
    }
    EXPECT_EQ(delivered, 10);
    EXPECT_EQ(getDroppedFrames(), 0);
}

TEST_F(Usb2CaptureTest, ThrowsAwayWhatHasNoHeadOrNoEnd)
{
    const struct {
        int exposureUs;
        Fault fault;
        uint64_t count;
        int lost;
        int cleared; // the rest of what comes, to begin with a frame
    } cases[] = {
        {10'000, Fault::BadHead, 1, 2, 0}, // in fast video with the frame before
        {10'000, Fault::BadHead, 3, 4, 1},    {100'000, Fault::BadHead, 3, 3, 3},
        {10'000, Fault::ShortFrame, 1, 2, 1}, {100'000, Fault::ShortFrame, 1, 2, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << NameOf(c.fault) << " at " << c.exposureUs);
        const FaultRule rule = {.fault = c.fault, .from = 5, .count = c.count, .amount = 1024};
        const int device = OpenSmall({.faults = {rule}}, c.exposureUs);
        startCapture();
        ExpectWholeFrames(12, 2000);
        EXPECT_EQ(getDroppedFrames(), c.lost);
        EXPECT_EQ(std::ranges::count(Bus().TakeTraffic(device), "clear halt 82"), 1 + c.cleared);
        Remove(device);
    }
}

TEST_F(Usb2CaptureTest, TakesItsMeasuresAtTheirThresholds)
{
    const struct {
        Fault fault;
        uint64_t count;
        bool slowerLines;
        int resets;
    } cases[] = {
        {Fault::ShortFrame, 3, false, 0},  {Fault::ShortFrame, 4, true, 0},
        {Fault::ShortFrame, 51, true, 1},  {Fault::EmptyFrame, 50, false, 0},
        {Fault::EmptyFrame, 51, false, 1}, {Fault::BadHead, 20, false, 0},
        {Fault::BadHead, 21, true, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << NameOf(c.fault) << " x" << c.count);
        vscsim::FaultPlan faults = {{.fault = c.fault, .from = 5, .count = c.count, .amount = 1}};
        if (!c.slowerLines && c.resets == 0) { // nor are two such rows added up
            faults.push_back(faults.front());
            faults.back().from += c.count + 5;
        }
        const int device = OpenSmall({.faults = faults}, 1'000);
        const int line = SensorNumber(device, 0x300C);
        startCapture();
        ExpectWholeFrames(15, 10'000);
        const auto traffic = Bus().TakeTraffic(device);
        EXPECT_EQ(std::ranges::count(traffic, "reset"), c.resets);
        EXPECT_EQ(SensorNumber(device, 0x300C), c.slowerLines ? line + 30 : line);
        if (c.fault == Fault::ShortFrame) {
            EXPECT_GE(getDroppedFrames(), static_cast<int>(c.count));
        }
        Remove(device);
    }
}

TEST_F(Usb2CaptureTest, SingleExposureEndsWithAGoodFrameOrFails)
{
    const struct {
        const char *name;
        int exposureUs;
        FaultRule rule;
        int status;
    } cases[] = {
        {"packets missing first",
         20'000,
         {.fault = Fault::ShortFrame, .amount = 1024},
         VSC_EXP_SUCCESS},
        {"bad heads first", 20'000, {.fault = Fault::BadHead, .count = 3}, VSC_EXP_SUCCESS},
        {"bad head of a long one", 2'000'000, {.fault = Fault::BadHead}, VSC_EXP_FAILED},
        {"bad heads only", 64, {.fault = Fault::BadHead, .count = kForEver}, VSC_EXP_FAILED},
        {"silent", 64, {.fault = Fault::EmptyFrame, .count = kForEver}, VSC_EXP_FAILED},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const int device = OpenSmall({.faults = {c.rule}}, c.exposureUs);
        EXPECT_LE(Took(Expose), static_cast<uint32_t>(c.exposureUs / 1000 + 15'000));
        EXPECT_EQ(getExpStatus(), c.status);
        EXPECT_EQ(Number(ExposedFrame()).has_value(), c.status == VSC_EXP_SUCCESS);
        Remove(device);
    }
}

TEST_F(Usb2CaptureTest, SingleExposureIsOfTheRegionThatWasSetLast)
{
    OpenSmall({}, 50'000);
    for (int afterMs = 50; afterMs < 56; ++afterMs) { // while it is read out
        startExposure();
        SleepFor(std::chrono::milliseconds(afterMs));
        (void)getSensorTemp(); // takes along what has come
        setStartPos(afterMs, 32);
        const bool ended = getExpStatus() == VSC_EXP_SUCCESS;
        ASSERT_EQ(WaitWhileWorking(), VSC_EXP_SUCCESS);
        EXPECT_TRUE(PatternNumber(ExposedFrame(), 320, afterMs & ~1, 32, kHeadOnly) || ended)
            << afterMs;
    }
}

TEST_F(Usb2CaptureTest, EntersAndLeavesLongExposureWhileVideoRuns)
{
    const int device = OpenSmall();
    const int fastClock = SensorNumber(device, 0x3030);
    startCapture();
    for (const int exposureUs : {5'000, 4'500'000, 20'000, 150'000, 6'000'000, 3'000'000, 64}) {
        SCOPED_TRACE(exposureUs);
        setValue(CONTROL_EXPOSURE, exposureUs, false);
        ExpectWholeFrames(3, 15'000);
        EXPECT_EQ(SensorNumber(device, 0x3030), exposureUs < 100'000 ? fastClock : 24);
        EXPECT_EQ(SensorNumber(device, 0x3012) == 0x2FFF, exposureUs > 4'000'000);
    }
}

TEST_F(Usb2CaptureTest, SilentMuteOrLostCameraHoldsNobodyUp)
{
    for (const char *model : {"VSC340MM", "VSC470MM"}) {
        for (const Fault fault : {Fault::EmptyFrame, Fault::Mute, Fault::Unplug}) {
            for (const int exposureUs : {10'000, 60'000'000}) {
                SCOPED_TRACE(testing::Message()
                             << model << " " << NameOf(fault) << " " << exposureUs);
                OpenOne(model, {.faults = {{.fault = fault, .from = 1, .count = kForEver}}});
                ASSERT_TRUE(setImageFormat(320, 240, 1, VSC_IMG_RAW8));
                setValue(CONTROL_EXPOSURE, exposureUs, false);
                startCapture();
                (void)NextFrame(1000);
                for (const int waitMs : {0, 500, 20'000})
                    EXPECT_LE(Took([=] { return NextFrame(waitMs); }), waitMs + 100U);
                EXPECT_LE(Took(stopCapture), 2000U);
                EXPECT_LE(Took(closeCamera), 2000U);
                NextCase();
            }
        }
    }
}

/// A sky without noise: its level tells how long a frame was exposed.
class SingleExposureTest : public Usb2CaptureTest {
  protected:
    static int Set(int exposureUs)
    {
        setValue(CONTROL_EXPOSURE, exposureUs, false);
        return getValue(CONTROL_EXPOSURE, nullptr);
    }
    static double Level()
    {
        EXPECT_EQ(WaitWhileWorking(), VSC_EXP_SUCCESS);
        const Bytes frame = ExposedFrame();
        std::vector<uint16_t> samples(frame.size() / 2 + 1, UINT16_MAX);
        std::memcpy(samples.data(), frame.data(), frame.size());
        return *std::ranges::min_element(samples); // between the stars
    }
};

TEST_F(SingleExposureTest, IsExposedAsSetWhateverWasSetBefore)
{
    const struct {
        int beforeUs; // 0: what the row before set
        int forMs;    // exposed already when the exposure is set; 0: not started yet
        int us;
        bool small = false;
    } cases[] = {{0, 0, 10'000'000},
                 {0, 0, 10'000},
                 {0, 0, 3'000'000, true},
                 {0, 0, 99'999, true},
                 {0, 0, 100'000},
                 {0, 0, 5'000'000, true},
                 {10'000, 0, 7'000'000},
                 {5'000'000, 0, 64},
                 {5'000'000, 2'400, 3'000'000},
                 {2'000'000, 700, 10'000},
                 {700'000, 300, 5'000'000},
                 {500'000, 200, 600'000},
                 {100'000, 50, 99'999}};
    for (const char *model :
         {"VSC340MM", "VSC052MC", "VSC340MM-S", "VSC470MM", "VSC048MM", "VSC2800MM"}) {
        OpenOne(model, {.scene = vscsim::Scene::Sky, .glow = {3, 3, 3}, .flawless = true});
        ASSERT_TRUE(setImageFormat(getMaxWidth(), getMaxHeight(), 1, VSC_IMG_RAW16));
        setValue(CONTROL_GAIN, 1, false);
        setValue(CONTROL_BANDWIDTH, 0, false); // the longest lines
        Set(64);
        startExposure();
        const double black = Level();
        const int referenceUs = Set(900'000);
        startExposure();
        const double perUs = (Level() - black) / referenceUs;
        for (const auto &c : cases) {
            SCOPED_TRACE(testing::Message() << model << " " << c.beforeUs << " " << c.us);
            const int beforeUs = c.beforeUs != 0 ? Set(c.beforeUs) : 0;
            if (c.forMs != 0) {
                startExposure();
                SleepFor(std::chrono::milliseconds(std::min(c.forMs, beforeUs / 2'000)));
            } else {
                const int part = c.small ? 2 : 1;
                ASSERT_TRUE(setImageFormat(64, 64, 1, VSC_IMG_RAW8));
                ASSERT_TRUE(
                    setImageFormat(getMaxWidth() / part, getMaxHeight() / part, 1, VSC_IMG_RAW16));
            }
            const int us = Set(c.us);
            const uint32_t start = GetTickCount();
            if (c.forMs == 0)
                startExposure();
            const double signal = perUs * us;
            EXPECT_NEAR(Level(), black + signal, 32 + signal / 50);
            // A frame that the sensor times by itself ends before the next one begins.
            const int restMs = c.forMs != 0 && beforeUs <= 4'000'000 ? beforeUs / 1000 : 0;
            EXPECT_LE(ElapsedMs(start), static_cast<uint32_t>(us / 1000 + restMs + 1000));
        }
        closeCamera();
        NextCase();
    }
}

} // namespace
} // namespace vsccam
