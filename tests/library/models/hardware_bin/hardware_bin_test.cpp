#include "library/host_fixture.h"
#include "library/wire.h"
#include "models/hardware_bin/long_exposure.h"
#include "models/hardware_bin/s2800.h"
#include "support/simulated_bus.h"

#include <chrono>

namespace vsccam {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

// The power states.
const Lines kWakeUp = Wire("sensor 001C=0000 0000=0053 0005=1000 0011=3C43 001C=0008 0006=7C00 "
                           "0000=0173");
const Lines kSleep = Wire("sensor 005F=0007 0061=0877 0005=0000 0000=0000 0006=73FF 0011=3C42 "
                          "001C=0001");
const Lines kWakeLongExp = Wire("sensor 001C=0000 0000=0053 0005=1000 0011=3C43 005F=000D "
                                "0061=0000 001C=0008 0006=7C00 0000=0173");
const Lines kSleepLongExp = Wire("sensor 0011=3C40 0000=0000");

// At full size, bin 1, gain 200, 10 ms, on a USB 3.0 host.
const Lines kStart00 = Wire("fpga 01=01 02=3C 03=00 01=00; sensor 01DC=0020 01DD=0DE4");
const Lines kFullSize = Wire("fpga 01=01; sensor 01DC=0020 01DD=0DE4 0118=0DEF 011E=0DEF 011C=0DF0 "
                             "0109=0E87; fpga 08=C0 09=0D 04=30 05=12 01=00");
const Lines kMode12Bits =
    Wire("fpga 01=01; sensor 0020=0001 0021=000C; fpga 0A=01 02=3C 06=0D 01=00");
const Lines kLine680 = Wire("fpga 01=01 13=A8 14=02 01=00");
const Lines kGain200 = Wire("sensor 0030=00C8");
// 680 clocks of 37125 kHz: 18.32 us a line, 545 lines of 3537.
const Lines kExposure10ms = Wire("fpga 01=01 10=D2 11=0D 12=00 01=00; sensor 0032=0BB0");

using HardwareBinTest = SimulatedBus;

/// An initialised camera at full size, its traffic so far forgotten.
struct ReadyCamera : OpenedCamera {
    ReadyCamera() : OpenedCamera(std::in_place_type<CCameraS2800MM>, "VSC2800MM")
    {
        EXPECT_TRUE((*this)->InitCamera());
        EXPECT_TRUE((*this)->SetResolution(4656, 3520, 1, kByteImage));
        (void)Traffic();
    }
};

TEST_F(HardwareBinTest, InitialisesSensorAndFpgaInTheirOrderAndLetsTheSensorSleep)
{
    OpenedCamera camera(std::in_place_type<CCameraS2800MM>, "VSC2800MM");
    ASSERT_TRUE(camera.Opened());
    const uint32_t start = GetTickCount();
    EXPECT_TRUE(camera->InitCamera());
    EXPECT_GE(GetTickCount() - start, 40U); // two resets
    const Lines identity =
        Lines{"host?", "gpif32 off", "flash read 040000+2048", "gpif32 on", "firmware?"} +
        Wire("fpga 1D? 1E? 1F?");
    const Lines powerUp =
        Wire("fpga 0B=80 0B=00; sensor 001C=0001 0000=0000 0020=0001 0021=000C 01DC=0020 01DD=0DE4 "
             "0118=0DEF 011E=0DEF 011C=0DF0 0109=0E87 0030=0000 0031=0000 0032=0001;"
             "fpga 00=00 00=30 0A=01");
    EXPECT_EQ(camera.Traffic(), identity + powerUp + Wire("sensor 0031=0001") + kMode12Bits +
                                    kGain200 + kExposure10ms + kSleep);

    EXPECT_TRUE(camera->SetResolution(4656, 3520, 1, kByteImage)); // nothing changes: no mode
    EXPECT_EQ(camera.Traffic(),
              kWakeUp + kStart00 + kFullSize + kLine680 + kExposure10ms + kExposure10ms + kSleep);
}

TEST_F(HardwareBinTest, SetResolutionLoadsTheModeOfBinningAndFormat)
{
    const struct {
        int width, height, bin;
        IMAGE_TYPE type;
        const char *mode;
        const char *start;
        const char *size; // the start row is multiplied by the binning here only
        const char *exposure;
    } cases[] = {
        // 397 clocks: 10.69 us a line, 935 lines of exposure
        {2328, 1760, 2, kByteImage,
         "fpga 01=01; sensor 0020=0002 0021=000A; fpga 02=3C 06=08 0A=00 01=00",
         "fpga 01=01 02=3C 03=00 01=00; sensor 01DC=0020 01DD=0DE4",
         "fpga 01=01; sensor 01DC=0020 01DD=0DE4 0118=0DEF 011E=0DEF 011C=0DF0 0109=0E87;"
         "fpga 08=E0 09=06 04=18 05=09 01=00",
         "fpga 01=01 10=F2 11=06 12=00 01=00; sensor 0032=034A"},
        // x (4656 - 2400) / 2 = 1128, y (3520 - 1800) / 2 = 860
        {800, 600, 3, kRaw16,
         "fpga 01=01; sensor 0020=0003 0021=000A; fpga 02=3C 06=06 0A=10 01=00",
         "fpga 01=01 02=B4 03=01 01=00; sensor 01DC=037C 01DD=0A88",
         "fpga 01=01; sensor 01DC=0A34 01DD=1140 0118=0737 011E=0737 011C=0738 0109=07CF;"
         "fpga 08=58 09=02 04=20 05=03 01=00",
         "fpga 01=01 10=A8 11=03 12=00 01=00; sensor 0032=0001"},
        // x 728, y 560; the sensor bins 2 x 2 and sends 1600 x 1200
        {800, 600, 4, kByteImage,
         "fpga 01=01; sensor 0020=0002 0021=000A; fpga 02=3C 06=08 0A=00 01=00",
         "fpga 01=01 02=A8 03=01 01=00; sensor 01DC=0250 01DD=0BB4",
         "fpga 01=01; sensor 01DC=08E0 01DD=1244 0118=098F 011E=098F 011C=0990 0109=0A27;"
         "fpga 08=B0 09=04 04=40 05=06 01=00",
         "fpga 01=01 10=C2 11=04 12=00 01=00; sensor 0032=011A"},
    };
    ReadyCamera camera;
    EXPECT_TRUE(camera->SetHardwareBin(true));
    EXPECT_TRUE(camera.Traffic().empty()); // bin 1: nothing but the flag
    for (const auto &c : cases) {
        SCOPED_TRACE(c.bin);
        EXPECT_TRUE(camera->SetResolution(c.width, c.height, c.bin, c.type));
        EXPECT_EQ(camera.Traffic(), kWakeUp + Wire(c.mode) + Wire(c.start) + Wire(c.size) +
                                        Wire("fpga 01=01 13=8D 14=01 01=00") + Wire(c.exposure) +
                                        Wire(c.exposure) + kSleep);
    }
    EXPECT_TRUE(camera->SetHighSpeedMode(true));
    EXPECT_TRUE(camera.Traffic().empty()); // the flag only
}

TEST_F(HardwareBinTest, LoadsAModeForANewFormatAndForANewBinningOfTheSensorOnly)
{
    const Lines bits10 =
        Wire("fpga 01=01; sensor 0020=0001 0021=000A; fpga 0A=00 02=3C 06=0D 01=00");
    const Lines bits12Wide =
        Wire("fpga 01=01; sensor 0020=0001 0021=000C; fpga 0A=11 02=3C 06=0D 01=00");
    const Lines nothing;
    const struct {
        const char *what;
        bool fast;
        int binBefore;
        bool sensorBins;
        int bin;
        IMAGE_TYPE type;
        const Lines &mode;
    } cases[] = {
        {"16 bits", false, 1, false, 1, kRaw16, bits12Wide},
        {"software binning", false, 1, false, 2, kByteImage, nothing},
        {"out of sensor binning, fast", true, 2, true, 1, kByteImage, bits10},
        {"out of sensor binning", false, 2, true, 1, kByteImage, kMode12Bits},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        ReadyCamera camera;
        ASSERT_TRUE(camera->SetHighSpeedMode(c.fast));
        ASSERT_TRUE(camera->SetHardwareBin(c.sensorBins));
        ASSERT_TRUE(camera->SetResolution(320, 240, c.binBefore, kByteImage));
        (void)camera.Traffic();
        ASSERT_TRUE(camera->SetResolution(320, 240, c.bin, c.type));
        const Lines begins = kWakeUp + c.mode + Wire("fpga 01=01 02=");
        const Lines wire = camera.Traffic();
        ASSERT_GT(wire.size(), begins.size());
        for (size_t i = 0; i < begins.size(); ++i)
            EXPECT_TRUE(wire[i].starts_with(begins[i])) << wire[i] << " is not " << begins[i];
    }
}

TEST_F(HardwareBinTest, HardwareBinningLoadsAModeWhenItChangesAndKeepsTheRegion)
{
    const Lines mode2 =
        Wire("fpga 01=01; sensor 0020=0002 0021=000A; fpga 02=3C 06=08 0A=00 01=00");
    ReadyCamera camera;
    ASSERT_TRUE(camera->SetResolution(320, 240, 2, kByteImage));
    ASSERT_TRUE(camera->SetStartPos(100, 50));
    const struct {
        bool on;
        Lines mode;
        const char *start;
    } cases[] = {
        {true, mode2 + kWakeUp, "fpga 01=01 02=6E 03=00 01=00; sensor 01DC=0052 01DD=0236"},
        {true, kWakeUp, "fpga 01=01 02=6E 03=00 01=00; sensor 01DC=0052 01DD=0236"},
        {false, kMode12Bits + kWakeUp, "fpga 01=01 02=A0 03=00 01=00; sensor 01DC=0052 01DD=0236"}};
    for (const auto &c : cases) {
        (void)camera.Traffic();
        EXPECT_TRUE(camera->SetHardwareBin(c.on));
        EXPECT_EQ(camera->settings.Now().startX, 100);
        EXPECT_EQ(camera->settings.Now().startY, 50);
        const Lines wire = camera.Traffic();
        const Lines start = Wire(c.start);
        ASSERT_GT(wire.size(), c.mode.size() + start.size());
        EXPECT_TRUE(std::equal(c.mode.begin(), c.mode.end(), wire.begin()));
        EXPECT_TRUE(std::equal(start.rbegin(), start.rend(), wire.rbegin()));
    }
}

TEST_F(HardwareBinTest, HighSpeedReadsTenBitsUnlessTheOutputHasSixteen)
{
    ReadyCamera camera;
    EXPECT_TRUE(camera->SetHighSpeedMode(true));
    // The bandwidth allows 439 clocks: 11.82 us a line, 845 lines of exposure.
    const Lines mode = Wire("fpga 01=01; sensor 0020=0001 0021=000A; fpga 0A=00 02=3C 06=0D 01=00");
    const Lines timing = Wire("fpga 01=01 13=B7 14=01 01=00;"
                              "fpga 01=01 10=D2 11=0D 12=00 01=00; sensor 0032=0A84");
    EXPECT_EQ(camera.Traffic(), mode + kFullSize + kStart00 + kExposure10ms + kGain200 + timing);
    EXPECT_TRUE(camera->SetResolution(4656, 3520, 1, kRaw16));
    (void)camera.Traffic();
    EXPECT_TRUE(camera->SetHighSpeedMode(false));
    EXPECT_TRUE(camera->SetHighSpeedMode(true));
    EXPECT_TRUE(camera.Traffic().empty());
}

TEST_F(HardwareBinTest, AlignsTheStartToTheBinning)
{
    const struct {
        int width, height, bin, x, y, expectedX, expectedY;
    } cases[] = {{800, 600, 3, 13, 5, 12, 4},
                 {800, 600, 3, 17, -1, 12, 0},
                 {800, 600, 4, INT32_MAX, 0, 1456, 0}};
    ReadyCamera camera;
    for (const auto &c : cases) {
        ASSERT_TRUE(camera->SetResolution(c.width, c.height, c.bin, kByteImage));
        EXPECT_TRUE(camera->SetStartPos(c.x, c.y));
        EXPECT_EQ(camera->settings.Now().startX, c.expectedX) << c.x;
        EXPECT_EQ(camera->settings.Now().startY, c.expectedY) << c.y;
    }
    EXPECT_FALSE(camera->SetResolution(4656, 1760, 2, kByteImage));
}

TEST_F(HardwareBinTest, StopsTheFpgaForANewStartWhileItRuns)
{
    ReadyCamera camera;
    ASSERT_TRUE(camera->SetHardwareBin(true));
    ASSERT_TRUE(camera->SetResolution(320, 240, 2, kByteImage));
    const struct {
        unsigned long long exposureUs;
        const char *stop, *run;
    } cases[] = {{10'000, "fpga 00=31", "fpga 00=23"}, {5'000'000, "fpga 00=F1", "fpga 00=E3"}};
    for (const auto &c : cases) {
        ASSERT_TRUE(camera->SetExp(c.exposureUs, false));
        ASSERT_TRUE(camera->StartCapture(false));
        SleepFor(500ms);
        (void)camera.Traffic();
        EXPECT_TRUE(camera->SetStartPos(0, 0));
        EXPECT_EQ(camera.Traffic(), Wire("fpga 01=01 02=3C 03=00 01=00") + Wire(c.stop) +
                                        Wire("sensor 01DC=0020 01DD=0204") + Wire(c.run));
        EXPECT_TRUE(camera->StopCapture());
    }
}

TEST_F(HardwareBinTest, SleepsThroughALongExposure)
{
    ReadyCamera camera;
    ASSERT_TRUE(camera->SetResolution(320, 240, 1, kByteImage));
    ASSERT_TRUE(camera->SetExp(1'500'000, false));
    (void)camera.Traffic();
    const uint32_t start = GetTickCount();
    ASSERT_TRUE(camera->StartCapture(true));
    std::vector<uint8_t> image(320 * 240);
    EXPECT_TRUE(camera->GetImage(image.data(), static_cast<int>(image.size()), 5000));
    EXPECT_NEAR(GetTickCount() - start, 1'500, 60);
    EXPECT_TRUE(camera->StopCapture());
    EXPECT_EQ(camera.Traffic(),
              Wire("cmd AA; fpga 00=F1") + kSleep + Wire("cmd A9") + kWakeUp +
                  Wire("fpga 00=E1; clear halt 81; sensor 0060=0011; fpga 0B=01") + kSleepLongExp +
                  kWakeLongExp + Wire("fpga 0B=00; fpga 00=F1") + kSleep +
                  Wire("cmd AA; clear halt 81"));
}

TEST(SleepingExposure, IsOneSleepUpToTwoSecondsAndStepsBeyondAndWaitsForSlowFrames)
{
    const struct {
        uint32_t exposureUs;
        int frameTimeUs, stepMs, steps, readMs;
        long printedMs;
    } cases[] = {{1'000'000, 60'000, 980, 1, 3'000, 2'000},
                 {1'999'999, 60'000, 1'979, 1, 3'000, 2'000},
                 {2'000'000, 2'000'999, 100, 20, 3'000, 2'000},
                 {2'049'000, 2'001'000, 100, 20, 3'001, 2'001},
                 {2'050'000, 6'500'000, 100, 21, 7'500, 6'500},
                 {2'000'000'000, 60'000, 100, 20'000, 3'000, 2'000}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.exposureUs);
        const LongExposurePlan plan = SleepingExposurePlan(c.exposureUs, c.frameTimeUs);
        EXPECT_EQ(plan.step.count(), c.stepMs);
        EXPECT_EQ(plan.steps, c.steps);
        EXPECT_EQ(plan.readTimeout.count(), c.readMs);
        EXPECT_EQ(plan.printedWaitMs, c.printedMs);
    }
}

} // namespace
} // namespace vsccam
