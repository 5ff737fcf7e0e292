#include "library/wire.h"
#include "models/sony/s470.h"
#include "support/simulated_bus.h"

#include <functional>

namespace vsccam {
namespace {

using Lines = std::vector<std::string>;

// Sequences that recur, at 1936 x 1096, bin 1, gain 200, 10 ms, on a USB 3.0 host.
const Lines kClock = Wire("sony 3009=11");
const Lines kLine203 = Wire("fpga 01=01 13=CB 14=00 01=00");
const Lines kExposure10ms = Wire("sony 3001=01; fpga 01=01 10=5A 11=04 12=00 01=00;"
                                 "sony 3020=C7 3021=00 3022=00 3001=00");
const Lines kBrightness1 = Wire("sony 300B=00 300A=01");

using SonyDriverTest = SimulatedBus;

/// An initialised camera at full size, its traffic so far forgotten.
struct ReadyCamera : OpenedCamera {
    explicit ReadyCamera(vscsim::CameraOptions options = {})
        : OpenedCamera(std::in_place_type<CCameraS470MM>, "VSC470MM", std::move(options))
    {
        EXPECT_TRUE((*this)->InitCamera());
        EXPECT_TRUE((*this)->SetResolution(1936, 1096, 1, kByteImage));
        (void)Traffic();
    }
};

TEST_F(SonyDriverTest, InitialisesSensorAndFpgaInTheirOrder)
{
    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    ASSERT_TRUE(camera.Opened());
    EXPECT_TRUE(camera->InitCamera());
    const Lines identity =
        Lines{"host?", "gpif32 off", "flash read 040000+2048", "gpif32 on", "firmware?"} +
        Wire("fpga 1D? 1E? 1F?");
    const Lines powerUp =
        Wire("sony 3003=01 300E=00 300F=00 3010=21 3012=64 3016=09 305C=18 305E=20 315E=1A 3164=1A "
             "3070=02 3071=11 309B=10 30A2=02 30A6=20 30A8=20 30AA=20 30AC=20 30B0=43 3119=9E "
             "311C=1E 311E=08 3128=05 313D=83 3150=03 317E=00 32B8=50 32B9=10 32BA=00 32BB=04 "
             "32C8=50 32C9=10 32CA=00 32CB=04 332C=D3 332D=10 332E=0D 3358=06 3359=E1 335A=11 "
             "3360=1E 3361=61 3362=10 33B0=50 33B2=1A 33B3=04");
    const Lines setUp = Wire("sony 305C=20 305D=00 305E=20 305F=00 3046=F1 3005=01 303A=08 3007=40;"
                             "fpga 00=00; cmd AF; sony 3002=01 304B=00;"
                             "fpga 00=30 0A=01 01=01 0C=80 0D=80 0E=80 0F=80 01=00");
    const Lines gain200 = Wire("sony 3001=01 3009? 3009=11 3014=2E 3001=00");
    EXPECT_EQ(camera.Traffic(),
              identity + powerUp + setUp + kBrightness1 + kClock + gain200 + kExposure10ms);
}

TEST_F(SonyDriverTest, SetResolutionProgramsWindowDepthClockLineAndExposure)
{
    const char *const corner = "sony 3001=01 3040=00 3041=00 303C=00 303D=00 3001=00";
    const char *const whole = "sony 3042=90 3043=07 303E=48 303F=04; fpga 08=48 09=04 04=90 05=07";
    const struct {
        int width, height, bin;
        IMAGE_TYPE type;
        const char *start;
        const char *depth;
        const char *size;
        Lines exposure;
    } cases[] = {
        {1936, 1096, 1, kByteImage, corner, "fpga 0A=01", whole, kExposure10ms},
        // (1936 - 640) / 2 = 648, (1096 - 480) / 2 = 308; 498 lines of 10.94 us are 5.4 ms: VMAX
        // 915
        {640, 480, 1, kRaw16, "sony 3001=01 3040=88 3041=02 303C=34 303D=01 3001=00", "fpga 0A=11",
         "sony 3042=80 3043=02 303E=E0 303F=01; fpga 08=E0 09=01 04=80 05=02",
         Wire("sony 3001=01; fpga 01=01 10=93 11=03 12=00 01=00;"
              "sony 3020=01 3021=00 3022=00 3001=00")},
        {968, 548, 2, kRgb24, corner, "fpga 0A=01", whole, kExposure10ms},
    };
    ReadyCamera camera;
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " bin " << c.bin);
        EXPECT_TRUE(camera->SetResolution(c.width, c.height, c.bin, c.type));
        // The line length re-applies the exposure, and SetResolution does so once more.
        EXPECT_EQ(camera.Traffic(),
                  Wire(c.start) + Wire("sony 3046=F1 3005=01") + Wire(c.depth) +
                      Wire("sony 3129=00 317C=00 31EC=0E; fpga 01=01; sony 3006=00;"
                           "fpga 02=00 06=09") +
                      Wire(c.size) + Wire("fpga 01=00") + kClock + kLine203 + c.exposure +
                      c.exposure);
    }
}

TEST_F(SonyDriverTest, HardwareBinningMovesTheWindowToTheSensor)
{
    ReadyCamera camera;
    EXPECT_TRUE(camera->SetHardwareBin(true));
    EXPECT_TRUE(camera.Traffic().empty()); // bin 1: nothing but the flag
    EXPECT_TRUE(camera->SetResolution(968, 548, 2, kByteImage));
    // 9281 kHz, at least 145 clocks: 15.62 us a line, frame (548 + 17) lines = 8827 us
    const Lines exposure = Wire("sony 3001=01; fpga 01=01 10=81 11=02 12=00 01=00;"
                                "sony 3020=01 3021=00 3022=00 3001=00");
    EXPECT_EQ(camera.Traffic(),
              Wire("sony 3001=01 3040=00 3041=00 303C=00 303D=00 3001=00;"
                   "sony 3046=F1 3005=00; fpga 0A=01; sony 3129=00 317C=00 31EC=0E;"
                   "fpga 01=01; sony 3006=22; fpga 02=00 06=09;"
                   "sony 3042=90 3043=07 303E=48 303F=04; fpga 08=24 09=02 04=C8 05=03 01=00;"
                   "sony 3009=10; fpga 01=01 13=91 14=00 01=00") +
                  exposure + exposure);
    EXPECT_TRUE(camera->SetHighSpeedMode(true));
    EXPECT_TRUE(camera.Traffic().empty()); // the flag only
}

TEST_F(SonyDriverTest, HighSpeedReadsTenBitsAtTwiceTheClock)
{
    ReadyCamera camera;
    EXPECT_TRUE(camera->SetHighSpeedMode(true));
    // 196 clocks of 37124 kHz: 5.28 us a line, frame 5876 us, 1894 lines of exposure
    const Lines exposure = Wire("sony 3001=01; fpga 01=01 10=67 11=07 12=00 01=00;"
                                "sony 3020=01 3021=00 3022=00 3001=00");
    EXPECT_EQ(camera.Traffic(), Wire("sony 3046=F0 3005=00; fpga 0A=00; sony 3129=1D 317C=12;"
                                     "sony 3009=10; fpga 01=01 13=C4 14=00 01=00") +
                                    exposure + exposure + kBrightness1);
}

TEST_F(SonyDriverTest, WritesEachControlAsTheSensorWantsIt)
{
    using Set = std::function<bool(CCameraBase &)>;
    const struct {
        const char *name;
        Set set;
        Lines wire;
    } cases[] = {
        {"gain -1", [](CCameraBase &c) { return c.SetGain(-1, false); },
         Wire("sony 3001=01 3009? 3009=01 3014=00 3001=00")},
        {"gain 60", [](CCameraBase &c) { return c.SetGain(60, false); },
         Wire("sony 3001=01 3009? 3009=01 3014=14 3001=00")},
        {"gain 61", [](CCameraBase &c) { return c.SetGain(61, false); },
         Wire("sony 3001=01 3009? 3009=11 3014=00 3001=00")},
        {"gain 601", [](CCameraBase &c) { return c.SetGain(601, false); },
         Wire("sony 3001=01 3009? 3009=11 3014=B4 3001=00")},
        {"brightness", [](CCameraBase &c) { return c.SetBrightness(0x1F2); },
         Wire("sony 300B=01 300A=F2")},
        {"exposure 20 ms", [](CCameraBase &c) { return c.SetExp(20'000, false); },
         Wire("sony 3001=01; fpga 01=01 10=25 11=07 12=00 01=00;"
              "sony 3020=01 3021=00 3022=00 3001=00")},
        {"into long exposure", [](CCameraBase &c) { return c.SetExp(1'000'000, false); },
         Wire("fpga 00=E1; sony 3001=01; fpga 01=01 10=2F 11=65 12=01 01=00;"
              "sony 3020=01 3021=00 3022=00 3001=00")},
        {"out of long exposure", [](CCameraBase &c) { return c.SetExp(10'000, false); },
         Wire("fpga 00=21; sony 3009=11") + kExposure10ms},
        {"bandwidth 10 is 40", [](CCameraBase &c) { return c.SetFPSPerc(10, false); },
         Wire("fpga 01=01 13=F5 14=00 01=00; sony 3001=01; fpga 01=01 10=5A 11=04 12=00 01=00;"
              "sony 3020=64 3021=01 3022=00 3001=00")},
        {"bandwidth 150 is 100", [](CCameraBase &c) { return c.SetFPSPerc(150, false); },
         kLine203 + kExposure10ms},
        {"monochrome balance", [](CCameraBase &c) { return c.SetRGBBalance(1, 2, false); }, {}},
        {"guide",
         [](CCameraBase &c) { return c.pulseGuide(2, 30) && c.pulseGuide(4, 30); },
         {"guide on 2", "guide off 2"}},
    };
    ReadyCamera camera;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(c.set(*camera.operator->()));
        EXPECT_EQ(camera.Traffic(), c.wire);
    }
}

TEST_F(SonyDriverTest, AlignsTheStartPositionAndKeepsItOnTheSensor)
{
    ReadyCamera camera;
    ASSERT_TRUE(camera->SetResolution(640, 480, 1, kByteImage));
    EXPECT_TRUE(camera->SetStartPos(7, 3));
    EXPECT_EQ(std::pair(camera->settings.Now().startX, camera->settings.Now().startY),
              std::pair(4, 2));
    EXPECT_TRUE(camera->SetStartPos(-7, INT32_MIN));
    EXPECT_EQ(std::pair(camera->settings.Now().startX, camera->settings.Now().startY),
              std::pair(0, 0));
}

TEST_F(SonyDriverTest, TakesTheBandwidthOfItsPort)
{
    const struct {
        vscsim::LinkSpeed link;
        int afterInit, whenSwitchedToAuto;
    } cases[] = {{vscsim::LinkSpeed::Super, 100, 100}, {vscsim::LinkSpeed::High, 40, 80}};
    for (const auto &c : cases) {
        vscsim::Bus::Instance().Reset();
        ReadyCamera camera({.link = c.link});
        EXPECT_EQ(camera->settings.Now().bandwidth, c.afterInit);
        EXPECT_TRUE(camera->SetFPSPerc(50, true));
        EXPECT_EQ(camera->settings.Now().bandwidth, c.whenSwitchedToAuto);
        EXPECT_TRUE(camera->SetFPSPerc(50, true)); // was on already
        EXPECT_EQ(camera->settings.Now().bandwidth, 50);
    }
}

TEST_F(SonyDriverTest, ClosedCameraAcceptsNothing)
{
    ReadyCamera camera;
    EXPECT_TRUE(camera->CloseCamera());
    EXPECT_FALSE(camera->CloseCamera());
    EXPECT_EQ(camera.Traffic(), Lines{"close"});
    EXPECT_FALSE(camera->InitCamera());
    EXPECT_FALSE(camera->StartCapture(false));
    EXPECT_TRUE(camera->StopCapture());
    EXPECT_TRUE(camera->SetGain(100, false)); // kept for the next InitCamera
    EXPECT_TRUE(camera.Traffic().empty());
}

} // namespace
} // namespace vsccam
