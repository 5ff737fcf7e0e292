#include "api/session.h"
#include "library/host_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <tuple>

namespace vsccam {
namespace {

TEST_F(HostTest, EveryFunctionIsHarmlessWithoutACamera)
{
    EXPECT_EQ(getNumberOfConnectedCameras(), 0);
    EXPECT_FALSE(openCamera(0) || initCamera());
    closeCamera(); // earlier counts may have left an entry to try
    bool flag = true;
    EXPECT_EQ(getValue(CONTROL_GAIN, &flag), 0);
    EXPECT_FALSE(flag);
    setValue(CONTROL_GAIN, 1, false);
    int untouched = 7;
    getAutoPara(&untouched, nullptr, nullptr);
    getGainOffset(&untouched, nullptr, nullptr, nullptr);
    setAutoPara(1, 2, 3);
    EXPECT_EQ(untouched, 7);
    EXPECT_EQ(getMin(CONTROL_EXPOSURE) + getMax(CONTROL_EXPOSURE), 0);
    EXPECT_FALSE(isAvailable(CONTROL_GAIN) || isAutoSupported(CONTROL_GAIN));
    EXPECT_FALSE(setImageFormat(640, 480, 1, VSC_IMG_RAW8));
    EXPECT_FALSE(isImgTypeSupported(0) || isBinSupported(1));
    setStartPos(1, 1);
    EXPECT_EQ(getMaxWidth() + getMaxHeight() + getWidth() + getHeight(), 0);
    EXPECT_EQ(getStartX() + getStartY() + getDroppedFrames(), 0);
    EXPECT_EQ(std::tuple(getImgType(), getBin(), getColorBayer()), std::tuple(3, 1, 2));
    EXPECT_FALSE(isColorCam() || isUSB3Host() || isUSB3Camera() || isCoolerCam());
    EXPECT_EQ(getPixelSize() + double{getElectronsPerADU()} + double{getSensorTemp()}, 0.0);
    startCapture();
    stopCapture();
    startExposure();
    stopExposure();
    EXPECT_EQ(getExpStatus(), VSC_EXP_FAILED);
    uint8_t buffer[16] = {};
    EXPECT_FALSE(getImageData(buffer, sizeof buffer, -1));
    EXPECT_FALSE(getImageAfterExp(buffer, sizeof buffer));
    EXPECT_FALSE(SetMisc(true, true));
    flag = true;
    GetMisc(&flag, nullptr);
    EXPECT_TRUE(flag);
    pulseGuide(GUIDE_NORTH, 10);
    EXPECT_FALSE(EnableDarkSubtract("dark.bmp"));
    DisableDarkSubtract();
    _VSC_ID id{{1, 2, 3}};
    EXPECT_FALSE(GetID(&id) || SetID(id));
    EXPECT_EQ(id.id[2], 3);
}

TEST_F(HostTest, CountsNamesAndOpensCamerasInTheOrderOfTheBus)
{
    Bus().PlugForeign(0x1234, 0x470A);
    Bus().Plug("VSC470MM");
    Bus().PlugForeign(VSCSIM_VENDOR_ID, 0x0001);
    Bus().Plug("VSC470MC-Cool");
    Bus().Plug("VSC470MM");
    EXPECT_EQ(getNumberOfConnectedCameras(), 3);
    EXPECT_STREQ(getCameraModel(0), "KYR VSC470MM");
    EXPECT_STREQ(getCameraModel(1), "KYR VSC470MC-Cool");
    EXPECT_STREQ(getCameraModel(3), "Error"); // behind the last one
    EXPECT_EQ(getCameraModel(4), nullptr);
    EXPECT_EQ(getCameraModel(-1), nullptr);
    for (const int index : {3, 4, -1, INT_MAX, INT_MIN})
        EXPECT_FALSE(openCamera(index)) << index;

    EXPECT_TRUE(openCamera(1));
    EXPECT_TRUE(isColorCam() && isCoolerCam());
    EXPECT_TRUE(openCamera(1)); // again: nothing happens
    EXPECT_EQ(Bus().LiveObjects().handles, 1);
    EXPECT_TRUE(openCamera(2)); // the second of its kind
    EXPECT_FALSE(isColorCam());
    EXPECT_EQ(Bus().LiveObjects().handles, 1);
    closeCamera();
    EXPECT_EQ(getNumberOfConnectedCameras(), 3);
}

TEST_F(HostTest, MessagesThatNobodyReadsAnyMoreDoNotEndTheHost)
{
    Bus().Plug("VSC470MM");
    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    (void)std::fflush(stdout);
    const int output = dup(STDOUT_FILENO);
    (void)dup2(ends[1], STDOUT_FILENO);
    (void)close(ends[0]);
    setDebugPrint(true);
    const int count = getNumberOfConnectedCameras(); // prints each
    setDebugPrint(false);
    (void)dup2(output, STDOUT_FILENO);
    (void)close(output);
    (void)close(ends[1]);
    EXPECT_EQ(count, 1);
}

TEST_F(HostTest, UnreadableDescriptorEndsTheCount)
{
    Bus().Plug("VSC470MM");
    EXPECT_EQ(getNumberOfConnectedCameras(), 1);
    Bus().Plug("VSC470MM", {.readableDescriptor = false});
    testing::internal::CaptureStderr();
    EXPECT_EQ(getNumberOfConnectedCameras(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "failed to get device descriptor");
    EXPECT_STREQ(getCameraModel(0), "KYR VSC470MM"); // the last count stands
    m_allowed = Bus().LiveObjects();                 // the list is left as it is
}

TEST_F(HostTest, CountsNoMoreCamerasThanItCanList)
{
    for (int i = 0; i < 1100; ++i)
        Bus().PlugForeign(VSCSIM_VENDOR_ID, 0x470B);
    EXPECT_EQ(getNumberOfConnectedCameras(), 1024);
    EXPECT_STREQ(getCameraModel(1024), "Error");
}

TEST_F(HostTest, FailedOpenKeepsTheObjectAndTheNextOneWorks)
{
    const int first = Bus().Plug("VSC470MM");
    Bus().Plug("VSC470MC");
    ASSERT_EQ(getNumberOfConnectedCameras(), 2);
    Bus().Unplug(first);
    EXPECT_FALSE(openCamera(0));
    EXPECT_TRUE(openCamera(0)); // the object is there, its device is not
    EXPECT_FALSE(initCamera());
    EXPECT_TRUE(openCamera(1));
    EXPECT_TRUE(initCamera());
}

TEST_F(HostTest, AForkedChildLeavesTheCameraToItsParent)
{
    const int device = OpenOne("VSC470MM");
    const pid_t child = fork();
    if (child == 0) {
        TheSession().EndWithProcess();
        _exit(Bus().TakeTraffic(device).empty() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(HostTest, ReportsAndClampsEveryControl)
{
    OpenOne("VSC470MC-Cool");
    constexpr int kUnset = -1;
    const struct {
        int control, min, max;
        bool available, hasAuto;
        int set, expected;
    } cases[] = {{CONTROL_GAIN, 0, 600, true, true, 1000, 600},
                 {CONTROL_EXPOSURE, 64, 2'000'000'000, true, true, 5, 32},
                 {CONTROL_EXPOSURE, 64, 2'000'000'000, true, true, -1, 2'000'000'000},
                 {CONTROL_GAMMA, 0, 100, true, false, 70, 70},
                 {CONTROL_WB_RED, 0, 99, true, true, 120, 99},
                 {CONTROL_WB_BLUE, 0, 99, true, true, 0, 1},
                 {CONTROL_BRIGHTNESS, 0, 240, true, false, 30, 30},
                 {CONTROL_BANDWIDTH, 40, 100, true, true, 1, 40},
                 {CONTROL_OVERCLOCK, 0, 30, false, false, 10, 0},
                 {CONTROL_TEMPERATURE, -500, 1000, true, false, kUnset, kUnset},
                 {CONTROL_HARDWARE_BIN, 0, 1, true, false, 5, 1},
                 {CONTROL_HIGH_SPEED, 0, 1, true, false, 1, 1},
                 {CONTROL_COOLER_POWER, 0, 100, true, false, kUnset, kUnset},
                 {CONTROL_TARGET_TEMP, -40, 30, true, false, -10, -10},
                 {CONTROL_COOLER_ON, 0, 1, true, false, 1, 1},
                 {CONTROL_MONO_BIN, 0, 1, false, false, 1, 1},
                 {CONTROL_FAN_ON, 0, 1, true, false, 0, 0},
                 {16, 0, 0, false, false, 1, 0},
                 {-1, 0, 0, false, false, 1, 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.control);
        EXPECT_EQ(getMin(c.control), c.min);
        EXPECT_EQ(getMax(c.control), c.max);
        EXPECT_EQ(isAvailable(c.control), c.available);
        EXPECT_EQ(isAutoSupported(c.control), c.hasAuto);
        if (c.set == kUnset && c.expected == kUnset)
            continue;
        setValue(c.control, c.set, c.control != CONTROL_BANDWIDTH); // also where it means nothing
        bool automatic = false;
        EXPECT_EQ(getValue(c.control, &automatic), c.expected);
        EXPECT_EQ(automatic, c.hasAuto && c.control != CONTROL_BANDWIDTH);
        EXPECT_EQ(getValue(c.control, nullptr), c.expected);
    }
}

TEST_F(HostTest, ARefusedFormatLeavesThePreviousOneInForce)
{
    const struct {
        int width, height, bin, type;
    } refused[] = {
        {100, 100, 1, VSC_IMG_Y8}, {640, 481, 1, VSC_IMG_Y8},       {640, -480, 1, VSC_IMG_Y8},
        {0, 480, 1, VSC_IMG_Y8},   {640, 480, INT_MIN, VSC_IMG_Y8}, {8, 128, INT_MAX, VSC_IMG_Y8},
        {640, 480, 1, 7}};
    for (const char *model : {"VSC470MC", "VSC340MM"}) {
        const int device = OpenOne(model);
        ASSERT_TRUE(setImageFormat(640, 480, 1, VSC_IMG_RAW16));
        (void)Bus().TakeTraffic(device);
        for (const auto &r : refused) {
            EXPECT_FALSE(setImageFormat(r.width, r.height, r.bin, r.type))
                << model << " " << r.width << "x" << r.height << " bin " << r.bin;
            EXPECT_EQ(getImgType(), VSC_IMG_RAW16);
            EXPECT_EQ(getWidth(), 640);
        }
        EXPECT_TRUE(Bus().TakeTraffic(device).empty());
        startCapture();
        EXPECT_FALSE(NextFrame(1000).empty());
        Bytes small(640 * 480 * 2 - 1);
        EXPECT_FALSE(getImageData(small.data(), static_cast<int>(small.size()), 1000));
        EXPECT_FALSE(getImageData(small.data(), -1, 1000));
        EXPECT_FALSE(getImageData(nullptr, INT_MAX, 1000));
        Remove(device);
    }
}

TEST_F(HostTest, ControlsOfTheFirstCameraDoNotReachTheNextWhichMayLackThem)
{
    const int first = OpenOne("VSC470MC-Cool");
    ASSERT_TRUE(setImageFormat(640, 480, 1, VSC_IMG_RGB24));
    SetMisc(true, true);
    setValue(CONTROL_GAIN, 5, false);
    Remove(first);
    OpenOne("VSC470MM");
    bool flips[2] = {true, true};
    GetMisc(&flips[0], &flips[1]);
    EXPECT_FALSE(flips[0] || flips[1]);
    EXPECT_EQ(std::pair(getValue(CONTROL_GAIN, nullptr), getWidth()), std::pair(200, 1936));
    for (const int control : {CONTROL_TARGET_TEMP, CONTROL_COOLER_ON, CONTROL_FAN_ON}) {
        setValue(control, 1, false);
        EXPECT_EQ(getValue(control, nullptr), 0) << control;
        EXPECT_FALSE(isAvailable(control));
    }
}

} // namespace
} // namespace vsccam
