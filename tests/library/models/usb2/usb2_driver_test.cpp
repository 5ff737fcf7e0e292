#include "library/wire.h"
#include "models/usb2/s340.h"
#include "support/simulated_bus.h"

#include <algorithm>
#include <chrono>
#include <functional>

namespace vsccam {
namespace {

using Lines = std::vector<std::string>;
using Usb2DriverTest = SimulatedBus;

// Sequences that recur at 1280 x 960, bin 1: 986 lines a frame at 50 MHz, 100 % of 42 MB/s.
const Lines kClock50 = Wire("sensor 302E=0030 3030=0032 300A=03DA");
const Lines kClock24 = Wire("cmd A3; sensor 302E=0018 3030=0018 300A=03DA");
// 50 x 1228800 x 100 / 42 / 80 + 358 = 1828929 clocks in 986 lines: 1854 (0x73E)
const Lines kLine80 = Wire("sensor 300C=073E");
// 33 ms: (50 x 33000 - 26) / 1854 = 889 lines
const Lines kExposure33ms = Wire("sensor 3012=0379");

/// An initialised camera at full size with 80 % of the bandwidth, its traffic so far forgotten.
struct ReadyCamera : OpenedCamera {
    explicit ReadyCamera(vscsim::CameraOptions options = {})
        : OpenedCamera(std::in_place_type<CCameraS340MM>, "VSC340MM", std::move(options))
    {
        EXPECT_TRUE((*this)->InitCamera());
        EXPECT_TRUE((*this)->SetResolution(1280, 960, 1, kByteImage));
        EXPECT_TRUE((*this)->SetFPSPerc(80, false));
        (void)Traffic();
    }
};

TEST_F(Usb2DriverTest, InitialisesTheCameraInItsOrder)
{
    OpenedCamera camera(std::in_place_type<CCameraS340MM>, "VSC340MM");
    ASSERT_TRUE(camera.Opened());
    EXPECT_TRUE(camera->InitCamera());
    const Lines traffic = camera.Traffic();
    const Lines begin = Wire("cmd A4; cmd AB; cmd AA; sensor 301A=10D8");
    // 40 %: 3657500 clocks in 986 lines: 3709 (0xE7D); 33 ms: 444 lines; gain 50: 2 x (50 - 32)
    const Lines line40 = Wire("sensor 300C=0E7D 3012=01BC");
    const Lines end = Wire("sensor 30B2?") + kClock50 + line40 + Wire("sensor 3012=01BC") + line40 +
                      Wire("sensor 30B0=1330 305E=0024 3012=01BC");
    ASSERT_GT(traffic.size(), begin.size() + end.size());
    EXPECT_TRUE(std::equal(begin.begin(), begin.end(), traffic.begin()));
    EXPECT_EQ(Lines(traffic.end() - static_cast<std::ptrdiff_t>(end.size()), traffic.end()), end);
}

TEST_F(Usb2DriverTest, SetResolutionProgramsWindowDepthClockAndTiming)
{
    const struct {
        int width, height, bin;
        IMAGE_TYPE type;
        const char *wire;
    } cases[] = {
        {1280, 960, 1, kByteImage,
         "sensor 3002=0002 3004=0000 3006=03C1 3008=04FF; cmd AB;"
         "sensor 302E=0030 3030=0032 300A=03DA; sensor 300C=073E 3012=0379 3012=0379;"
         "sensor 300C=073E 3012=0379 300A=03DA"},
        // (1280 - 640) / 2 = 320, (960 - 480) / 2 = 240; 40 MHz, 614400 bytes, 506 lines:
        // 40 x 614400 x 100 / 42 / 80 + 358 = 731786 clocks: 1446; 33 ms: 912 lines
        {640, 480, 1, kRaw16,
         "sensor 3002=00F2 3004=0140 3006=02D1 3008=03BF; cmd AC;"
         "sensor 302E=0030 3030=0028 300A=01FA; sensor 300C=05A6 3012=0390 3012=0390;"
         "sensor 300C=05A6 3012=0390 300A=01FA"},
        // binned by the host: the sensor sends 640 x 480; 8 bits at 80 MHz: 1446 clocks again
        {320, 240, 2, kRgb24,
         "sensor 3002=00F2 3004=0140 3006=02D1 3008=03BF; cmd AB;"
         "sensor 302E=0030 3030=0050 300A=01FA; sensor 300C=05A6 3012=0721 3012=0721;"
         "sensor 300C=05A6 3012=0721 300A=01FA"},
    };
    ReadyCamera camera;
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " bin " << c.bin);
        EXPECT_TRUE(camera->SetResolution(c.width, c.height, c.bin, c.type));
        EXPECT_EQ(camera.Traffic(), Wire(c.wire));
    }
    EXPECT_EQ(Usb2LineLength(80, 0x7FFFFFFF, 42, 40, 986), 12'287); // no sensor counts further
}

TEST_F(Usb2DriverTest, WritesEachControlAsTheSensorWantsIt)
{
    using Set = std::function<bool(CCameraBase &)>;
    const auto gain = [](int value) {
        return [value](CCameraBase &c) { return c.SetGain(value, false); };
    };
    const auto exposure = [](unsigned long long us) {
        return [us](CCameraBase &c) { return c.SetExp(us, false); };
    };
    const struct {
        const char *name;
        Set set;
        Lines wire;
    } cases[] = {
        {"gain -1", gain(-1), Wire("sensor 30B0=1300 305E=0020")},
        {"gain 16", gain(16), Wire("sensor 30B0=1310 305E=0020")},
        {"gain 47", gain(47), Wire("sensor 30B0=1320 305E=003E")},
        {"gain 64", gain(64), Wire("sensor 30B0=1330 305E=0040")},
        {"gain 80", gain(80), Wire("sensor 30B0=1330 305E=0080")},
        {"gain 150", gain(150), Wire("sensor 30B0=1330 305E=00F8")},
        {"bandwidth 100", [](CCameraBase &c) { return c.SetFPSPerc(100, false); },
         Wire("sensor 300C=05CB 3012=0458")}, // 1463215 / 986 = 1483 clocks; 1112 lines
        {"switched to automatic", [](CCameraBase &c) { return c.SetFPSPerc(50, true); },
         kLine80 + kExposure33ms},
        {"64 us at least", exposure(1), Wire("sensor 3012=0001")},
        {"just fast", exposure(99'999), Wire("sensor 3012=0A88")},
        {"just slow", exposure(100'000), kClock24 + Wire("sensor 3012=050E")},
        {"gain at the slow clock", gain(20), Wire("sensor 30B0=5310 305E=0028")},
        {"fast again", exposure(33'000),
         Wire("cmd A4") + kClock50 + kLine80 + kExposure33ms + kExposure33ms + kExposure33ms},
        {"longest of the sensor", exposure(4'000'000), kClock24 + Wire("sensor 3012=CA43")},
        {"timed by the host", exposure(4'000'001), Wire("sensor 3012=2FFF")},
        {"and longer", exposure(4'000'000'000), {}},
    };
    ReadyCamera camera;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(c.set(*camera.operator->()));
        EXPECT_EQ(camera.Traffic(), c.wire);
    }
    EXPECT_EQ(camera->settings.Now().exposureUs, 2'000'000'000U);
    // Slow exposures leave clock and line alone.
    EXPECT_FALSE(camera->SetHighSpeedMode(true));
    EXPECT_FALSE(camera->SetFPSPerc(40, false));
    EXPECT_EQ(camera->settings.Now().bandwidth, 40);
    EXPECT_TRUE(camera.Traffic().empty());
}

TEST_F(Usb2DriverTest, ReadsItsCalibrationOnceAndKeepsTheLastTemperature)
{
    ReadyCamera camera;
    const float before = camera->GetSensorTemp();
    EXPECT_NEAR(before, 20.0F, 3.0F);
    EXPECT_EQ(camera.Traffic(), Wire("sensor 30B2?"));
    auto &bus = vscsim::Bus::Instance();
    bus.FailCalls(bus.Calls(), 1, LIBUSB_ERROR_IO);
    EXPECT_EQ(camera->GetSensorTemp(), before);

    EXPECT_FLOAT_EQ(Usb2Temperature(447, 467, 447), 55.0F);
    EXPECT_FLOAT_EQ(Usb2Temperature(467, 467, 447), 70.0F);
    for (const uint16_t at70 :
         {uint16_t{447}, uint16_t{0}, uint16_t{478}}) // no calibration, or none that makes sense
        EXPECT_FLOAT_EQ(Usb2Temperature(400, at70, 447), 20.0F);
}

TEST_F(Usb2DriverTest, ReadThatTimesOutTellsWhatHasCome)
{
    OpenedCamera camera(std::in_place_type<CCameraS340MM>, "VSC340MM");
    ASSERT_TRUE(camera->InitCamera());
    const int length = ReadoutOf(camera->model, camera->settings.Now()).Bytes();
    std::vector<uint8_t> frame(static_cast<size_t>(length));
    ASSERT_TRUE(camera->initAsyncXfer(length, 2, 0x100000, 0x82));
    for (const uint8_t command : {uint8_t{0xAF}, uint8_t{0xA9}})
        EXPECT_TRUE(camera->SendCMD(command));
    EXPECT_TRUE(camera->WriteCameraRegister(0x301A, 0x10DC));
    const std::chrono::milliseconds inTheMiddle(camera->settings.Now().inForce.frameTimeUs * 3 /
                                                2000);
    Thread host; // the simulated camera moves the bytes of a frame when it is asked for something
    EXPECT_TRUE(host.Start([&] {
        SleepFor(inTheMiddle - std::chrono::milliseconds(1));
        (void)camera->GetSensorTemp();
    }));
    RunFlag running;
    running.Set();
    const BulkStream::Pass pass =
        camera->ReadFrameOnce(frame.data(), {inTheMiddle, inTheMiddle, inTheMiddle}, running);
    host.Join();
    EXPECT_EQ(pass.error, LIBUSB_ERROR_TIMEOUT);
    EXPECT_GT(pass.received, 0);
    EXPECT_LT(pass.received, 0x100000);
    camera->releaseAsyncXfer();
}

TEST_F(Usb2DriverTest, Usb3EditionHasItsFramesTakenByTheFpga)
{
    OpenedCamera camera(std::in_place_type<CCameraS340MM_S>, "VSC340MM-S");
    EXPECT_TRUE(camera->InitCamera());
    EXPECT_EQ(camera->settings.Now().bandwidth, 100);
    (void)camera.Traffic();
    EXPECT_TRUE(camera->SetResolution(640, 480, 1, kRaw16));
    const Lines traffic = camera.Traffic();
    for (const char *line : {"fpga 0A=11", "fpga 08=E0", "fpga 09=01", "fpga 04=80", "fpga 05=02",
                             "sensor 300C=056E", "sensor 300A=01FA"}) {
        EXPECT_EQ(std::ranges::count(traffic, line) > 0, true) << line;
    }
    EXPECT_TRUE(camera->SetExp(5'000'000, false));
    EXPECT_EQ(camera.Traffic(), Wire("sensor 302E=0018 3030=0018 300A=01FA 3012=2FFF; fpga 00=E1"));
    EXPECT_TRUE(camera->SetExp(3'000'000, false)); // nobody else has to see it
    EXPECT_EQ(camera.Traffic(), Wire("fpga 00=21; sensor 3012=CA56"));
}

} // namespace
} // namespace vsccam
