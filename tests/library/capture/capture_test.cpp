#include "api/session.h"
#include "core/gamma.h"
#include "library/capture_fixture.h"
#include "library/picture.h"
#include "library/wire.h"
#include "models/sony/s470.h"

#include <stdlib.h>

#include <chrono>

namespace vsccam {
namespace {

using namespace std::chrono_literals;
using vscsim::Fault;
using vscsim::FaultRule;
using vscsim::LinkSpeed;

class CaptureTest : public CaptureFixture {
  protected:
    CaptureTest() : CaptureFixture("VSC470MM", kBothEnds) {}
};

TEST_F(CaptureTest, StartsAndStopsTheStreamInItsOrder)
{
    const int device = OpenSmall();
    startCapture();
    ASSERT_FALSE(NextFrame(1000).empty());
    stopCapture();
    EXPECT_EQ(Bus().TakeTraffic(device),
              Wire("cmd AA; fpga 00=31; sony 3000=01; cmd A9; sony 3000=00; fpga 00=21;"
                   "clear halt 81;fpga 00=31; sony 3000=01; cmd AA; clear halt 81"));
}

TEST_F(CaptureTest, DeliversOrCountsEveryFrameHoweverFastTheReader)
{
    constexpr uint64_t kFrames = 1'000;
    for (const bool slow : {false, true}) {
        SCOPED_TRACE(slow);
        const int device = OpenSmall({.frameLimit = kFrames});
        startCapture();
        const Tally frames = TakeAll([slow](uint64_t delivered) {
            if (slow)
                SleepFor(std::chrono::milliseconds(7 + delivered % 50));
        });
        EXPECT_TRUE(frames.allWhole);
        EXPECT_TRUE(slow || frames.noneTwice);
        EXPECT_EQ(FramesProduced(device), kFrames);
        EXPECT_EQ(frames.delivered + static_cast<uint64_t>(frames.dropped), kFrames);
        EXPECT_TRUE(slow ? frames.dropped > 250 : frames.dropped == 0) << frames.dropped;
        Remove(device);
    }
}

TEST_F(CaptureTest, DeliversThePatternInAnyRegionAndFlip)
{
    const Picture pictures[] = {
        {"VSC470MM", 1936, 1096, 1, VSC_IMG_RAW8, 0, 0, false, false},
        {"VSC470MM", 640, 480, 1, VSC_IMG_Y8, 4, 2, true, false},
        {"VSC470MM", 320, 240, 1, VSC_IMG_RGB24, 648, 308, false, true},
        {"VSC470MM", 320, 240, 2, VSC_IMG_RAW8, 10, 20, true, true},
        {"VSC470MC", 320, 240, 1, VSC_IMG_RAW8, 300, 300, true, false},
        {"VSC470MC-Cool", 320, 240, 2, VSC_IMG_RAW16, 20, 30, false, true},
        {"VSC470MC", 320, 240, 2, VSC_IMG_RAW16, 2, 3, true, true, 0, 1, kBothEnds, true},
        {"VSC470MM-Cool", 8, 2, 1, VSC_IMG_RAW8, 480, 546, false, false},
    };
    for (const Picture &picture : pictures) {
        SCOPED_TRACE(testing::Message() << picture.model << " " << picture.width << " bin "
                                        << picture.bin << " type " << picture.type);
        const int device = OpenOne(picture.model);
        ASSERT_TRUE(setImageFormat(picture.width, picture.height, picture.bin, picture.type));
        setStartPos(picture.startX, picture.startY);
        SetMisc(picture.flipX, picture.flipY);
        setValue(CONTROL_MONO_BIN, picture.monoBin, false);
        ASSERT_EQ(getStartX(), picture.startX);
        ASSERT_EQ(getStartY(), picture.startY);
        startCapture();
        const Bytes image = NextFrame(5000);
        ASSERT_FALSE(image.empty());
        EXPECT_TRUE(picture.IsOneOfTheFirst(image));
        Remove(device);
    }
}

TEST_F(CaptureTest, AppliesBalanceAndGammaToAFlippedMosaic)
{
    constexpr Picture kRaw{"VSC470MC", 160, 120, 1, VSC_IMG_RAW8, 300, 300, true, false};
    const struct {
        int type;
        std::vector<std::pair<Control_TYPE, int>> settings;
        std::function<Bytes(Bytes)> process;
    } cases[] = {{VSC_IMG_RGB24,
                  {{CONTROL_WB_RED, 30}, {CONTROL_WB_BLUE, 80}},
                  [](const Bytes &raw) {
                      CAlgorithm algorithm;
                      algorithm.RGBYUV_Init();
                      algorithm.SetRGBWB(30, 80);
                      Bytes rgb(raw.size() * 3);
                      algorithm.BayerConv(BayerPhase::kGR, raw.data(), rgb.data(), 160, 120,
                                          kRgb24); // mirrored
                      return rgb;
                  }},
                 {VSC_IMG_RAW8, {{CONTROL_GAMMA, 80}}, [](Bytes raw) {
                      GammaTable8 table{};
                      FillGammaTable(80, table);
                      std::ranges::transform(raw, raw.begin(),
                                             [&table](uint8_t v) { return table[v]; });
                      return raw;
                  }}};
    for (const auto &c : cases) {
        const int device = OpenOne(kRaw.model);
        ASSERT_TRUE(setImageFormat(kRaw.width, kRaw.height, 1, c.type));
        setStartPos(kRaw.startX, kRaw.startY);
        SetMisc(kRaw.flipX, kRaw.flipY);
        for (const auto &[control, value] : c.settings)
            setValue(control, value, false);
        startCapture();
        const Bytes image = NextFrame(1000);
        EXPECT_TRUE(image == c.process(kRaw.Image(0)) || image == c.process(kRaw.Image(1)));
        Remove(device);
    }
}

TEST_F(CaptureTest, MarksTheTimeInImagesOfBytesThatHaveRoomForIt)
{
    const struct {
        Picture picture;
        bool marked;
    } cases[] = {
        {{"VSC470MM", 208, 32, 1, VSC_IMG_RAW8, 0, 0}, true},
        {{"VSC470MM", 208, 24, 2, VSC_IMG_RGB24, 0, 0}, true},
        {{"VSC470MM", 208, 32, 1, VSC_IMG_RAW16, 0, 0}, false},
        {{"VSC470MM", 192, 32, 1, VSC_IMG_RAW8, 0, 0}, false},
        {{"VSC470MM", 208, 22, 1, VSC_IMG_RAW8, 0, 0}, false},
    };
    for (const auto &[picture, marked] : cases) {
        SCOPED_TRACE(testing::Message()
                     << picture.width << "x" << picture.height << " type " << picture.type);
        const int device = OpenOne(picture.model);
        ASSERT_TRUE(setImageFormat(picture.width, picture.height, picture.bin, picture.type));
        setStartPos(0, 0);
        CurrentCamera()->settings.With([](Settings &s) { s.timeMark = true; });
        ASSERT_EQ(Expose(), VSC_EXP_SUCCESS);
        const Bytes image = ExposedFrame();
        ASSERT_FALSE(image.empty());
        EXPECT_EQ(image != picture.Image(0), marked);
        Remove(device);
    }
}

TEST_F(CaptureTest, DropsDamagedFramesExactlyAndGoesOn)
{
    const struct {
        const char *told; // when the capture ends
        FaultRule rule;
        uint64_t lostInCamera = 0; // of the frame that follows, thrown away by the clearing
    } cases[] = {
        {"short:1", {.fault = Fault::ShortFrame, .from = 5, .amount = 1}},
        {"marks:1", {.fault = Fault::ShortFrame, .from = 5, .amount = 1024}, 1}, // a packet
        {"short:1", {.fault = Fault::ShortFrame, .from = 5, .amount = 76'001}},
        {"marks:3", {.fault = Fault::BadHead, .from = 5, .count = 3}},
        {"marks:1", {.fault = Fault::BadTail, .from = 5}},
        {"counter:2", {.fault = Fault::UnequalCounters, .from = 5, .count = 2}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.told << " " << &c - cases);
        constexpr uint64_t kFrames = 20;
        const int device = OpenSmall({.frameLimit = kFrames, .faults = {c.rule}});
        startCapture();
        const Tally frames = TakeAll();
        EXPECT_TRUE(frames.allWhole);
        EXPECT_EQ(frames.dropped, static_cast<int>(c.rule.count));
        EXPECT_EQ(frames.delivered + c.rule.count + c.lostInCamera, FramesProduced(device));
        EXPECT_NE(Printed(stopCapture).find(c.told), std::string::npos);
        EXPECT_EQ(getDroppedFrames(), 0);
        Remove(device);
    }
}

TEST_F(CaptureTest, TellsInTheEndOfFramesThatNobodyTook)
{
    OpenSmall({.frameLimit = 10});
    startCapture();
    SleepFor(5s);
    EXPECT_EQ(getDroppedFrames(), 8);
    EXPECT_NE(Printed(stopCapture).find(" ring full:8 not taken:2 lost:0"), std::string::npos);
    EXPECT_EQ(getDroppedFrames(), 0);
}

TEST_F(CaptureTest, CountsOfALastReadTheFramesThatHadEnded)
{
    const FaultRule tooShort{.fault = Fault::ShortFrame, .from = 3, .amount = 100'001};
    const FaultRule endsUnseen{.fault = Fault::ShortFrame, .from = 2, .amount = 128};
    const struct {
        vscsim::FaultPlan faults;
        std::chrono::milliseconds stop; // frame n comes half a second times n + 1 after the start
        const char *told;
    } cases[] = {
        {{}, 2010ms, "dropped short:0 "},
        {{tooShort}, 2300ms, "dropped short:1 "},
        {{tooShort, {.fault = Fault::Unplug, .from = 4}}, 3000ms, "dropped short:1 "},
        // The read that is repeated brings the next frame whole.
        {{endsUnseen, {.fault = Fault::IoErrorFrame, .from = 3}}, 2300ms, "dropped short:1 "},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        const int device = OpenOne("VSC470MM", {.faults = c.faults}); // frames of three transfers
        setValue(CONTROL_EXPOSURE, 500'000, false);
        startCapture();
        SleepFor(c.stop);
        const std::string told = Printed(stopCapture);
        EXPECT_NE(told.find(c.told), std::string::npos) << told;
        Remove(device);
    }
}

TEST_F(CaptureTest, ResetsTheDeviceAtTheFourthEmptyReadInARow)
{
    const struct {
        vscsim::FaultPlan silence;
        int resets;
        int dropped = 0; // where nothing came, nothing was dropped
    } cases[] = {
        {{{.fault = Fault::EmptyFrame, .from = 1, .count = 3}}, 0},
        {{{.fault = Fault::EmptyFrame, .from = 1, .count = 4}}, 1},
        {{{.fault = Fault::EmptyFrame, .from = 1, .count = 3},
          {.fault = Fault::EmptyFrame, .from = 6, .count = 3}},
         0},
        // What came of a transfer that fails is no part of a frame, but of one that is lost.
        {{{.fault = Fault::ShortFrame, .from = 1, .amount = 1024},
          {.fault = Fault::StallFrame, .from = 2}},
         0,
         1}};
    for (const auto &c : cases) {
        const int device = OpenSmall({.faults = c.silence});
        startCapture();
        ExpectWholeFrames(6);
        EXPECT_EQ(getDroppedFrames(), c.dropped);
        stopCapture();
        EXPECT_EQ(std::ranges::count(Bus().TakeTraffic(device), "reset"), c.resets);
        Remove(device);
    }
}

TEST_F(CaptureTest, TransferErrorIsRepeatedOnceBeforeThereIsAPause)
{
    for (const unsigned errors : {1U, 2U}) {
        SCOPED_TRACE(errors);
        const int device =
            OpenSmall({.faults = {{.fault = Fault::IoErrorFrame, .from = 2, .amount = errors}}});
        startCapture();
        const uint32_t start = GetTickCount();
        ExpectWholeFrames(6);
        EXPECT_EQ(ElapsedMs(start) > 150, errors == 2);
        EXPECT_EQ(getDroppedFrames(), 0); // an empty read drops nothing
        Remove(device);
    }
}

TEST_F(CaptureTest, BurstsOfBadFramesLowerAnAutomaticBandwidth)
{
    const struct {
        bool automatic;
        uint64_t badFrames;
        int expected;
    } cases[] = {{true, 2, 100}, {true, 3, 96}, {true, 9, 88}, {false, 9, 100}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.badFrames);
        const int device =
            OpenSmall({.faults = {{.fault = Fault::BadTail, .from = 3, .count = c.badFrames}}});
        setValue(CONTROL_BANDWIDTH, 100, c.automatic);
        startCapture();
        ExpectWholeFrames(6);
        bool automatic = !c.automatic;
        EXPECT_EQ(getValue(CONTROL_BANDWIDTH, &automatic), c.expected);
        EXPECT_EQ(automatic, c.automatic);
        Remove(device);
    }
}

TEST_F(CaptureTest, WhatMustBeOffIsSwitchedOffOnAMuteOrRefusingCameraToo)
{
    const struct {
        void (*end)();
        const char *wire;
    } cases[] = {{[] { pulseGuide(GUIDE_EAST, 10); }, "guide off 2"},
                 {stopCapture, "fpga 00=31; sony 3000=01; cmd AA; clear halt 81"}};
    for (const auto &c : cases) {
        const int device = OpenSmall();
        startCapture();
        ASSERT_TRUE(Number(NextFrame(1000)));
        FailNext("libusb_control_transfer", 3, LIBUSB_ERROR_TIMEOUT);
        (void)(getSensorTemp() + getSensorTemp() + getSensorTemp());
        (void)Bus().TakeTraffic(device);
        c.end();
        EXPECT_EQ(Bus().TakeTraffic(device), Wire(c.wire));
        Remove(device);
    }

    const int refusing =
        OpenSmall({.faults = vscsim::ParseFaultPlan("refuse-request:b1", nullptr).value()});
    pulseGuide(GUIDE_EAST, 10);
    EXPECT_EQ(Bus().TakeTraffic(refusing), Wire("guide on 2; guide off 2; guide off 2"));
    Remove(refusing);

    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    Thread pulse; // which does not come to switch its line off before the end
    ASSERT_TRUE(pulse.Start([&camera] { camera->pulseGuide(GUIDE_EAST, 60'000); }));
    SleepFor(50ms);
    EXPECT_TRUE(camera->CloseCamera());
    EXPECT_EQ(camera.Traffic(), Wire("guide on 2; guide off 2; close"));
    pulse.Join();
}

TEST_F(CaptureTest, EntersAndLeavesLongExposureWhileVideoRuns)
{
    OpenSmall();
    startCapture();
    for (const int exposureUs : {5'000, 1'500'000, 20'000, 1'000'000, 999'999, 32}) {
        SCOPED_TRACE(exposureUs);
        setValue(CONTROL_EXPOSURE, exposureUs, false);
        ExpectWholeFrames(3, INT32_MAX); // which is no negative number of microseconds
    }
}

TEST_F(CaptureTest, DeletingACameraEndsWhatRuns)
{
    const int device = Bus().Plug("VSC470MM-Cool");
    for (int i = 0; i < 3; ++i) {
        auto *const cooled = new CCameraS470MM_C(0UL);
        std::unique_ptr<CCameraBase> camera(cooled); // which is how hosts' cameras are deleted
        ASSERT_TRUE(camera->OpenCamera(1) && camera->InitCamera());
        ASSERT_TRUE(camera->SetResolution(320, 240, 1, kByteImage));
        ASSERT_TRUE(camera->SetExp(10'000, true));
        cooled->SetAutoTemp(true, -40);
        ASSERT_TRUE(camera->StartCapture(false));
        SleepFor(std::chrono::milliseconds(3900 + 104 * i));
        ASSERT_GT(camera->cooler.state.Now().powerPercent, 0);
        (void)Bus().TakeTraffic(device);
        camera.reset();
        const std::vector<std::string> end = Bus().TakeTraffic(device);
        EXPECT_EQ(std::ranges::count(end, "cooler 255"), 1);
        EXPECT_EQ(end.back(), "close");
    }
}

/// Another program plugs in a camera and takes it.
libusb_device_handle *UseNewcomer()
{
    (void)vscsim::Bus::Instance().Plug("VSC470MM", {}, {3, 1});
    libusb_device **devices = nullptr;
    const ssize_t count = libusb_get_device_list(nullptr, &devices);
    libusb_device_handle *handle = nullptr;
    EXPECT_EQ(libusb_open(devices[count - 1], &handle), 0);
    EXPECT_EQ(libusb_claim_interface(handle, 0), 0);
    libusb_free_device_list(devices, 1);
    return handle;
}

TEST_F(CaptureTest, FindsALostCameraWhereverItCameBackAndNoOtherOne)
{
    constexpr int kOurs = 0;
    constexpr int kTwin = 1;
    libusb_device_handle *others = nullptr;
    const struct {
        const char *what;
        std::function<void()> happens; // to ours, at port 1, which was lost, and its twin at port 2
        std::optional<int> found;
        const char *named = "";
    } cases[] = {
        {"nowhere, the twin was reset", [] { Bus().Replug(kTwin); }, {}},
        {"beside one that is in use",
         [&others] {
             others = UseNewcomer();
             Bus().Replug(kOurs, {.ports = {3, 2}});
         },
         kOurs},
        {"where it may be", [] { Bus().Replug(kOurs, {.ports = {3}}); }, kOurs, "usb:2-1,usb:2-3"},
        {"where it may not", [] { Bus().Replug(kOurs, {.ports = {4}}); }, {}, "usb:2-1,usb:2-3"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        setenv("VSCCAM_CAMERA", c.named, 1); // NOLINT(concurrency-mt-unsafe)
        ASSERT_EQ(OpenSmall(), kOurs);
        ASSERT_EQ(Bus().Plug("VSC470MM"), kTwin);
        startCapture();
        ASSERT_TRUE(Number(NextFrame(1000)));
        Bus().Unplug(kOurs);
        SleepFor(5s);
        EXPECT_TRUE(Bus().TakeTraffic(kTwin).empty());
        (void)Bus().TakeTraffic(kOurs);
        c.happens();
        SleepFor(4s);
        EXPECT_EQ(Number(NextFrame(1000)).has_value(), c.found.has_value());
        for (const int device : {kOurs, kTwin})
            EXPECT_EQ(std::ranges::count(Bus().TakeTraffic(device), "host?"), c.found == device);
        libusb_close(std::exchange(others, nullptr));
        closeCamera();
        NextCase();
    }
    unsetenv("VSCCAM_CAMERA"); // NOLINT(concurrency-mt-unsafe)
}

TEST_F(CaptureTest, GoesOnWithACameraThatComesAndGoesByItsPlan)
{
    for (const char *plan : {"replug@2x2=700", "move@2x2=700"}) {
        SCOPED_TRACE(plan);
        const int device = OpenSmall({.faults = *vscsim::ParseFaultPlan(plan, nullptr)});
        ASSERT_EQ(Bus().Plug("VSC340MM"), 1); // no other camera is taken for it
        startCapture();
        int frames = 0;
        for (int i = 0; i < 20; ++i) // a wait ends when the camera is lost
            frames += static_cast<int>(Number(NextFrame(1000)).has_value());
        EXPECT_GT(frames, 10);
        EXPECT_EQ(std::ranges::count(Bus().TakeTraffic(device), "host?"), 2);
        closeCamera();
        NextCase();
    }
}

TEST_F(CaptureTest, AnExposureFindsACameraThatMovedUnseen)
{
    const int device = OpenSmall({}, 30'000'000);
    startExposure();
    SleepFor(10'300ms); // between two looks for it
    Bus().Replug(device, {.link = LinkSpeed::High});
    EXPECT_EQ(WaitWhileWorking(), VSC_EXP_FAILED);
    setValue(CONTROL_EXPOSURE, 10'000, false);
    EXPECT_EQ(Expose(), VSC_EXP_SUCCESS);
    SleepFor(60s);
    Bus().Replug(device, {.ports = {5}}); // while nobody exposes
    EXPECT_EQ(Expose(), VSC_EXP_FAILED);
    EXPECT_EQ(Expose(), VSC_EXP_SUCCESS);
    Bus().Unplug(device);
    EXPECT_EQ(Expose(), VSC_EXP_FAILED);
    Bus().Replug(device, {.ports = {6}});
    EXPECT_EQ(Expose(), VSC_EXP_SUCCESS); // found before it begins
    EXPECT_TRUE(Number(ExposedFrame()));
}

TEST_F(CaptureTest, NothingOfAnEarlierRunIsDelivered)
{
    const int device = OpenSmall({.frameLimit = 1});
    ASSERT_EQ(Expose(), VSC_EXP_SUCCESS);
    startCapture(); // the frame was not taken
    EXPECT_TRUE(NextFrame(500).empty());
    stopCapture();
    EXPECT_EQ(getExpStatus(), VSC_EXP_WORKING); // as long as nobody takes an exposure
    EXPECT_TRUE(ExposedFrame().empty());
    EXPECT_EQ(getExpStatus(), VSC_EXP_IDLE);
    Remove(device);

    OpenSmall();
    ASSERT_EQ(Expose(), VSC_EXP_SUCCESS);
    ASSERT_TRUE(setImageFormat(240, 320, 1, VSC_IMG_RAW8)); // as many bytes
    EXPECT_EQ(getExpStatus(), VSC_EXP_IDLE);
    EXPECT_TRUE(ExposedFrame().empty());
    for (int i = 0; i < 20; ++i) {
        startCapture();
        EXPECT_FALSE(NextFrame(-1).empty()) << i; // the first frame, however early it is asked for
        stopCapture();
    }
}

TEST_F(CaptureTest, LongExposureIsGatedByTheHost)
{
    const int device = OpenSmall({}, 3'000'000);
    EXPECT_GE(Took(Expose), 3000U);
    EXPECT_TRUE(Number(ExposedFrame()));
    closeCamera();
    EXPECT_EQ(Bus().TakeTraffic(device),
              Wire("cmd AA; fpga 00=F1; sony 3000=01; cmd A9; sony 3000=00; fpga 00=E1;"
                   "clear halt 81;fpga 0B=01 0B=00;"
                   "fpga 00=F1; sony 3000=01; cmd AA; clear halt 81;close"));
}

TEST_F(CaptureTest, LongExposureSurvivesOneIoErrorAndFailsAtTheSecond)
{
    for (const auto &[errors, status] : {std::pair{1U, VSC_EXP_SUCCESS}, {2U, VSC_EXP_FAILED}}) {
        const int device =
            OpenSmall({.faults = {{.fault = Fault::IoErrorFrame, .amount = errors}}}, 2'000'000);
        EXPECT_EQ(Expose(), status + 0) << errors;
        EXPECT_EQ(ExposedFrame().empty(), status == VSC_EXP_FAILED);
        Remove(device);
    }
}

TEST_F(CaptureTest, LateCancelNeitherHangsNorTearsLaterFrames)
{
    for (const vscsim::Time delay : {vscsim::Time(300ms), vscsim::Time(10s), vscsim::kNever}) {
        OpenSmall({.faults = {{.fault = Fault::EmptyFrame, .from = 2, .count = 2}}});
        Bus().DelayCancel(delay);
        startCapture();
        ASSERT_TRUE(Number(NextFrame(1000)));
        const uint32_t start = GetTickCount();
        SleepFor(1s);
        stopCapture();
        EXPECT_LE(ElapsedMs(start), 3000U);
        startCapture();
        for (Bytes frame = NextFrame(5000); frame.empty(); frame = NextFrame(5000))
            ASSERT_LE(ElapsedMs(start), 60'000U);
        EXPECT_TRUE(Number(NextFrame(5000)));
        EXPECT_LE(Took(closeCamera), 2000U);
        NextCase();
    }
}

TEST_F(CaptureTest, TransfersThatNeverComeBackDoNotDelayRepairOfALostSetting)
{
    const int device = OpenSmall({});
    startCapture();
    ASSERT_TRUE(Number(NextFrame(1000)));
    Bus().DelayCancel(vscsim::kNever);
    Bus().With(device, [](vscsim::Camera &camera) {
        camera.PlanFaults({{.fault = Fault::EmptyFrame, .count = 1},
                           {.fault = Fault::TimeOutRequest, .count = 1}});
    });
    setValue(CONTROL_GAIN, 50, false);
    while (!NextFrame(0).empty()) {
    }
    const uint32_t start = GetTickCount();
    while (!Number(NextFrame(100))) {
        SleepFor(100ms); // it does not wait for a camera that is gone
        ASSERT_LE(ElapsedMs(start), 5'000U);
    }
}

TEST_F(CaptureTest, QueuesTheRestOfAFrameAsMemoryBecomesFree)
{
    OpenOne("VSC470MM");
    Bus().LimitUsbfsMemory(size_t{2'050} * 1024); // two of the three transfers of a frame
    startCapture();
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(PatternNumber(NextFrame(5000), 1936, 0, 0)) << i;
    Bus().LimitUsbfsMemory(size_t{100} * 1024); // not even one: no frame, no reset storm
    SleepFor(2s);
    while (!NextFrame(0).empty()) {
    }
    EXPECT_TRUE(NextFrame(1000).empty());
    EXPECT_GT(getDroppedFrames(), 0);
    Bus().LimitUsbfsMemory(0);
    EXPECT_TRUE(PatternNumber(NextFrame(5000), 1936, 0, 0));
}

} // namespace
} // namespace vsccam
