#include "library/capture_fixture.h"

#include <chrono>

// Requests that get no answer: what a camera is left like, and how long anybody is held up.
namespace vsccam {
namespace {

using namespace std::chrono_literals;
using vscsim::Fault;

class RecoveryTest : public CaptureFixture {
  protected:
    RecoveryTest() : CaptureFixture("VSC470MM", kBothEnds) {}

    static vscsim::FaultPlan Plan(std::string_view text)
    {
        return vscsim::ParseFaultPlan(text, nullptr).value();
    }

    /// Of the next requests after `from`, every so many-th gets no answer.
    static void LoseRequests(uint64_t from, uint64_t every, uint64_t count)
    {
        const uint64_t first = Bus().Calls("libusb_control_transfer") + from;
        for (uint64_t i = 0; i < count; i += every)
            Bus().FailCalls(first + i, 1, LIBUSB_ERROR_TIMEOUT, "libusb_control_transfer");
    }

    /// As a camera is programmed that answers everything.
    static std::map<int, int> WhenHealthy(const char *model)
    {
        const int device = Bus().Plug(model);
        EXPECT_TRUE(getNumberOfConnectedCameras() == 1 && openCamera(0) && initCamera());
        auto registers = Registers(device);
        Remove(device);
        return registers;
    }
};

TEST_F(RecoveryTest, AnUnansweredRequestBeforeALostFrameNeedsNoReset)
{
    for (const char *faults : {"stall-frame@5", "short-frame@5=70000", "short-frame@5=1024"}) {
        for (const bool unanswered : {false, true}) {
            SCOPED_TRACE(testing::Message() << faults << " " << unanswered);
            const int device = OpenSmall({.faults = Plan(faults)});
            startCapture();
            ASSERT_TRUE(Number(NextFrame(1000)));
            FailNext("libusb_control_transfer", unanswered ? 1 : 0, LIBUSB_ERROR_TIMEOUT);
            (void)getSensorTemp();
            (void)Bus().TakeTraffic(device);
            ExpectWholeFrames(8);
            const auto traffic = Bus().TakeTraffic(device);
            EXPECT_EQ(std::ranges::count(traffic, "clear halt 81"), 1);
            EXPECT_EQ(std::ranges::count(traffic, "reset"), 0);
            Remove(device);
        }
    }
}

TEST_F(RecoveryTest, FramesThatAreNeverUsableCauseResetsEverMoreRarely)
{
    const int device =
        OpenSmall({.faults = {{.fault = Fault::BadTail, .from = 2, .count = 2'200}}}, 90'000);
    startCapture();
    uint32_t last = GetTickCount();
    for (const uint32_t pauseS : {2, 4, 8, 16, 32, 60, 60}) {
        SCOPED_TRACE(pauseS);
        while (std::ranges::count(Bus().TakeTraffic(device), "reset") == 0)
            SleepFor(50ms);
        EXPECT_GE(ElapsedMs(last), pauseS * 1000);
        EXPECT_LE(ElapsedMs(last), pauseS * 1000 + 1000);
        last = GetTickCount();
    }
    ExpectWholeFrames(3, 200'000);
}

TEST_F(RecoveryTest, InitialisesWholeOrNotAtAllAndInTime)
{
    for (const char *model : {"VSC470MM", "VSC470MM-Cool", "VSC2800MM", "VSC048MM", "VSC340MM"}) {
        const std::map<int, int> healthy = WhenHealthy(model);
        int initialised = 0;
        for (const char *faults :
             {"time-out-request@6x1", "time-out-request@3x3", "time-out-request:c3x3",
              "time-out-request:a6@40", "time-out-request:b6@20", "time-out-request%0.33",
              "time-out-request%0.01", "time-out-request:bd@5", "time-out-request:bd@15x3"}) {
            SCOPED_TRACE(testing::Message() << model << " " << faults);
            const int device = Bus().Plug(model, {.faults = Plan(faults)});
            ASSERT_EQ(getNumberOfConnectedCameras(), 1);
            ASSERT_TRUE(openCamera(0));
            VSC_BOOL done = false;
            EXPECT_LE(Took([&done] { return done = initCamera(); }), 2000U);
            EXPECT_TRUE(!done || Registers(device) == healthy);
            initialised += done;
            Remove(device);
        }
        EXPECT_GE(initialised, 5) << model; // what a second try mends is mended
    }
}

TEST_F(RecoveryTest, FlashThatDoesNotAnswerLeavesTheDataBusWide)
{
    const int device = OpenSmall({.faults = Plan("time-out-request:c2x*,time-out-request:c3@1x*")});
    EXPECT_FALSE(SetID({}));
    EXPECT_EQ(Bus().TakeTraffic(device).back(), "gpif32 on");
}

TEST_F(RecoveryTest, ALostSettingIsMadeGoodBeforeAFrameCounts)
{
    for (const char *model : {"VSC470MM", "VSC2800MM", "VSC048MM", "VSC340MM"}) {
        SCOPED_TRACE(model);
        const int device = OpenOne(model);
        ASSERT_TRUE(setImageFormat(320, 240, 1, VSC_IMG_RAW8));
        setValue(CONTROL_EXPOSURE, 30'000, false);
        startCapture();
        ASSERT_FALSE(NextFrame(2000).empty());
        (void)Bus().TakeTraffic(device);
        LoseRequests(0, 1, 1);
        setValue(CONTROL_EXPOSURE, 20'000, false);
        for (int i = 0; i < 2; ++i)
            (void)NextFrame(0); // of before
        EXPECT_FALSE(NextFrame(5000).empty());
        EXPECT_EQ(std::ranges::count(Bus().TakeTraffic(device), "cmd A9"), 1);
        Remove(device);
    }
}

TEST_F(RecoveryTest, LostRequestsHoldNoCallForMoreThanTwoSeconds)
{
    const struct {
        const char *name;
        void (*call)();
    } calls[] = {{"format", [] { (void)setImageFormat(320, 240, 1, VSC_IMG_RAW8); }},
                 {"start", startCapture},
                 {"exposure", [] { setValue(CONTROL_EXPOSURE, 15'000, true); }},
                 {"high speed", [] { setValue(CONTROL_HIGH_SPEED, 1, false); }},
                 {"format in video", [] { (void)setImageFormat(160, 128, 1, VSC_IMG_RAW8); }},
                 {"stop", stopCapture},
                 {"single", startExposure},
                 {"abort", stopExposure},
                 {"close", closeCamera}};
    for (const char *model : {"VSC470MM-Cool", "VSC2800MM", "VSC048MM", "VSC340MM"}) {
        for (const uint64_t every : {1, 2, 5, 25}) {
            OpenOne(model);
            LoseRequests(0, every, 2'000);
            for (const auto &[name, call] : calls) {
                SCOPED_TRACE(testing::Message() << model << " " << every << " " << name);
                const uint32_t start = GetTickCount();
                call();
                EXPECT_LE(ElapsedMs(start), 2000U);
                SleepFor(300ms);
            }
            NextCase();
        }
    }
}

TEST_F(RecoveryTest, EverySingleExposureEndsInItsTime)
{
    for (const char *faults : {"bad-tail@0x*", "empty-frame@0x*", "short-frame@0x*",
                               "stall-frame@0x*", "mute@0", "unplug@0"}) {
        for (const int exposureUs : {100, 300'000, 2'000'000}) {
            SCOPED_TRACE(testing::Message() << faults << " " << exposureUs);
            OpenSmall({.faults = Plan(faults)}, exposureUs);
            EXPECT_LE(Took(Expose), static_cast<uint32_t>(exposureUs / 1000) + 5'100U);
            EXPECT_EQ(getExpStatus(), VSC_EXP_FAILED);
            EXPECT_TRUE(ExposedFrame().empty());
            EXPECT_EQ(getExpStatus(), VSC_EXP_IDLE);
            EXPECT_LE(Took(closeCamera), 2000U);
            NextCase();
        }
    }
    for (const uint64_t every : {1, 20, 60}) {
        SCOPED_TRACE(every);
        OpenSmall({}, 100);
        LoseRequests(0, every, 20'000);
        setValue(CONTROL_GAIN, 1, false);
        EXPECT_LE(Took(Expose), 5'100U);
        closeCamera();
        NextCase();
    }
}

} // namespace
} // namespace vsccam
