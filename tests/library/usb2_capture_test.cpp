#include "library/host_fixture.h"
#include "library/wire.h"

#include <gtest/gtest.h>

#include <chrono>

namespace vsccam {
namespace {

using namespace std::chrono_literals;
using vscsim::Fault;
using vscsim::FaultRule;

constexpr uint64_t kForEver = UINT64_MAX;

uint32_t ElapsedMs(uint32_t since)
{
    return GetTickCount() - since;
}

class Usb2CaptureTest : public HostTest {
  protected:
    int OpenSmall(vscsim::CameraOptions options = {}, int exposureUs = 10'000)
    {
        const int device = OpenOne("VSC340MM", std::move(options));
        EXPECT_TRUE(setImageFormat(320, 240, 1, VSC_IMG_RAW8));
        setStartPos(64, 32);
        setValue(CONTROL_EXPOSURE, exposureUs, false);
        (void)Bus().TakeTraffic(device);
        return device;
    }
    static std::optional<int> Number(const Bytes &frame)
    {
        return frame.empty() ? std::nullopt : PatternNumber(frame, 320, 64, 32, kHeadOnly);
    }
    static void WaitWhileWorking()
    {
        while (getExpStatus() == VSC_EXP_WORKING)
            SleepFor(5ms);
    }
    static uint64_t Produced(int device)
    {
        return Bus().With(device, [](auto &camera) { return camera.FramesProduced(); });
    }
    static int SensorNumber(int device, uint16_t address)
    {
        return Bus().With(device, [=](auto &camera) { return camera.SensorRegister(address); });
    }
    void Close(int device)
    {
        closeCamera();
        Bus().Unplug(device);
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
        uint64_t delivered = 0;
        int dropped = 0;
        std::optional<int> previous;
        for (Bytes frame = NextFrame(2000); !frame.empty(); frame = NextFrame(2000)) {
            const std::optional<int> number = Number(frame);
            ASSERT_TRUE(number) << "torn frame after " << delivered;
            ASSERT_NE(number, previous) << "repeated frame after " << delivered;
            previous = number;
            ++delivered;
            dropped = getDroppedFrames();
        }
        EXPECT_EQ(dropped, 0);
        // In fast video the last frame has no follower that vouches for it.
        EXPECT_EQ(delivered, exposureUs < 100'000 ? kFrames - 1 : kFrames);
        stopCapture(); // takes it away
        startCapture();
        EXPECT_TRUE(NextFrame(1000).empty());
        Close(device);
    }
}

TEST_F(Usb2CaptureTest, FrameWithoutFollowerStaysForTheNextCall)
{
    const int device = OpenSmall();
    startCapture();
    ASSERT_TRUE(Number(NextFrame(1000)));
    int delivered = 0;
    std::optional<int> previous;
    setValue(CONTROL_EXPOSURE, 90'000, false); // the follower comes too late for a wait of 0
    for (int calls = 0; delivered < 10 && calls < 1000; ++calls) {
        const uint32_t start = GetTickCount();
        const Bytes frame = NextFrame(calls % 2 ? 0 : 5);
        EXPECT_LE(ElapsedMs(start), 105U);
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
    Close(device);
}

TEST_F(Usb2CaptureTest, ThrowsAwayBadHeadsAndInFastVideoWhatPrecedesThem)
{
    const struct {
        int exposureUs;
        uint64_t badFrames;
        int lost;
    } cases[] = {{10'000, 1, 2}, {10'000, 3, 4}, {150'000, 3, 3}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.exposureUs);
        const int device = OpenSmall(
            {.faults = {{.fault = Fault::BadHead, .from = 5, .count = c.badFrames}}}, c.exposureUs);
        startCapture();
        for (int i = 0; i < 12; ++i)
            EXPECT_TRUE(Number(NextFrame(2000))) << i;
        EXPECT_EQ(getDroppedFrames(), c.lost);
        Close(device);
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
        {Fault::EmptyFrame, 50, false, 0}, {Fault::EmptyFrame, 51, false, 1},
        {Fault::BadHead, 20, false, 0},    {Fault::BadHead, 21, true, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << NameOf(c.fault) << " x" << c.count);
        const int device = OpenSmall(
            {.faults = {{.fault = c.fault, .from = 5, .count = c.count, .amount = 1}}}, 1'000);
        const int line = SensorNumber(device, 0x300C);
        startCapture();
        for (int i = 0; i < 10; ++i)
            EXPECT_TRUE(Number(NextFrame(10'000))) << i;
        const auto traffic = Bus().TakeTraffic(device);
        EXPECT_EQ(std::ranges::count(traffic, "reset"), c.resets);
        EXPECT_EQ(SensorNumber(device, 0x300C), c.slowerLines ? line + 30 : line);
        Close(device);
    }
}

TEST_F(Usb2CaptureTest, BurstsOfShortFramesLowerAnAutomaticBandwidth)
{
    const int device = OpenSmall(
        {.faults = {{.fault = Fault::ShortFrame, .from = 3, .count = 6, .amount = 1}}}, 1'000);
    setValue(CONTROL_BANDWIDTH, 80, true);
    startCapture();
    for (int i = 0; i < 10; ++i)
        EXPECT_TRUE(Number(NextFrame(5000))) << i;
    EXPECT_EQ(getValue(CONTROL_BANDWIDTH, nullptr), 72);
    Close(device);
}

TEST_F(Usb2CaptureTest, SingleExposureEndsWithAGoodFrameOrFails)
{
    const struct {
        const char *name;
        int exposureUs;
        FaultRule rule;
        int status;
    } cases[] = {
        {"healthy", 20'000, {}, VSC_EXP_SUCCESS},
        {"healthy and long", 5'000'000, {}, VSC_EXP_SUCCESS},
        {"bad heads first", 20'000, {.fault = Fault::BadHead, .count = 3}, VSC_EXP_SUCCESS},
        {"bad head of a long one", 2'000'000, {.fault = Fault::BadHead}, VSC_EXP_FAILED},
        {"bad heads only", 64, {.fault = Fault::BadHead, .count = kForEver}, VSC_EXP_FAILED},
        {"silent", 64, {.fault = Fault::EmptyFrame, .count = kForEver}, VSC_EXP_FAILED},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        vscsim::CameraOptions options;
        if (c.rule.fault != Fault::EmptyFrame || c.rule.count > 1)
            options.faults = {c.rule};
        const int device = OpenSmall(options, c.exposureUs);
        const uint32_t start = GetTickCount();
        startExposure();
        WaitWhileWorking();
        EXPECT_EQ(getExpStatus(), c.status);
        EXPECT_GE(ElapsedMs(start), c.status == VSC_EXP_SUCCESS ? c.exposureUs / 1000U : 0U);
        EXPECT_LE(ElapsedMs(start), static_cast<uint32_t>(c.exposureUs / 1000 + 15'000));
        EXPECT_EQ(Number(ExposedFrame()).has_value(), c.status == VSC_EXP_SUCCESS);
        Close(device);
    }
}

TEST_F(Usb2CaptureTest, HostTimesLongExposuresWithTheClockStopped)
{
    const int device = OpenSmall({}, 5'000'000);
    startExposure();
    WaitWhileWorking();
    ASSERT_EQ(getExpStatus(), VSC_EXP_SUCCESS);
    EXPECT_TRUE(Number(ExposedFrame()));
    stopCapture();
    EXPECT_EQ(Bus().TakeTraffic(device),
              Wire("cmd AA; sensor 301A=10D8; cmd AF; cmd A9; sensor 301A=10DC; clear halt 82;"
                   "cmd AE; cmd AF; sensor 301A=10D8; cmd AA; clear halt 82"));
}

TEST_F(Usb2CaptureTest, EntersAndLeavesLongExposureWhileVideoRuns)
{
    const int device = OpenSmall();
    const int fastClock = SensorNumber(device, 0x3030);
    startCapture();
    for (const int exposureUs : {5'000, 4'500'000, 20'000, 150'000, 6'000'000, 3'000'000, 64}) {
        SCOPED_TRACE(exposureUs);
        setValue(CONTROL_EXPOSURE, exposureUs, false);
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(Number(NextFrame(15'000))) << i;
        EXPECT_EQ(SensorNumber(device, 0x3030), exposureUs < 100'000 ? fastClock : 24);
        EXPECT_EQ(SensorNumber(device, 0x3012) == 0x2FFF, exposureUs > 4'000'000);
    }
}

TEST_F(Usb2CaptureTest, SilentMuteOrLostCameraHoldsNobodyUp)
{
    for (const Fault fault : {Fault::EmptyFrame, Fault::Mute, Fault::Unplug}) {
        for (const int exposureUs : {10'000, 60'000'000}) {
            SCOPED_TRACE(testing::Message() << NameOf(fault) << " " << exposureUs);
            const int device =
                OpenSmall({.faults = {{.fault = fault, .from = 1, .count = kForEver}}}, exposureUs);
            startCapture();
            (void)NextFrame(1000);
            for (const int waitMs : {0, 500}) {
                const uint32_t start = GetTickCount();
                (void)NextFrame(waitMs);
                EXPECT_LE(ElapsedMs(start), static_cast<uint32_t>(waitMs + 100));
            }
            uint32_t start = GetTickCount();
            stopCapture();
            EXPECT_LE(ElapsedMs(start), 2000U);
            start = GetTickCount();
            closeCamera();
            EXPECT_LE(ElapsedMs(start), 2000U);
            if (fault != Fault::Unplug)
                Bus().Unplug(device);
            Bus().Reset();
        }
    }
}

TEST_F(Usb2CaptureTest, LosesAndFindsTheDeviceWithAllItsSettings)
{
    for (const int exposureUs : {10'000, 200'000, 5'000'000}) {
        SCOPED_TRACE(exposureUs);
        const int device = OpenSmall({}, 10'000);
        setValue(CONTROL_BANDWIDTH, 55, false);
        setValue(CONTROL_EXPOSURE, exposureUs, false);
        setValue(CONTROL_GAIN, 20, false);
        const auto registers = [device] {
            std::vector<int> values;
            for (const int address : {0x3002, 0x3004, 0x3006, 0x3008, 0x300A, 0x300C, 0x3012,
                                      0x302E, 0x3030, 0x305E, 0x30B0})
                values.push_back(SensorNumber(device, static_cast<uint16_t>(address)));
            return values;
        };
        const std::vector<int> before = registers();
        startCapture();
        ASSERT_TRUE(Number(NextFrame(10'000)));
        Bus().Unplug(device);
        EXPECT_TRUE(NextFrame(-1).empty() || NextFrame(-1).empty()); // no endless wait
        SleepFor(3s);
        Bus().Replug(device);
        SleepFor(3s);
        EXPECT_TRUE(Number(NextFrame(10'000)));
        EXPECT_EQ(getDroppedFrames() > 0, exposureUs < 1'000'000);
        EXPECT_EQ(registers(), before);
        Close(device);
    }
}

} // namespace
} // namespace vsccam
