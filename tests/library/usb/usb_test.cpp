#include "api/camera_names.h"
#include "api/session.h"
#include "library/host_fixture.h"
#include "library/wire.h"
#include "models/sony/s470.h"
#include "usb/lost_camera.h"

#include <stdlib.h>

#include <array>
#include <chrono>
#include <functional>

namespace vsccam {
namespace {

using Lines = std::vector<std::string>;

using TransportTest = HostTest;

TEST_F(TransportTest, EveryRequestHasItsPlaceOnTheWire)
{
    std::array<uint8_t, 2048> bytes{};
    const struct {
        std::function<void(CCameraBase &)> send;
        Lines wire;
    } cases[] = {
        {[](auto &c) { c.StopSensorCLK(); }, {"cmd AE"}},
        {[](auto &c) { c.SetTransferCount(INT32_MAX); }, {"transfer count 43691"}},
        {[](auto &c) { c.pulseGuideOn(3); }, {"guide on 3"}},
        {[](auto &c) { c.pulseGuideOff(0); }, {"guide off 0"}},
        {[&](auto &c) { (void)c.WriteToSPIFlash(bytes.data(), 256, 0x700FF, 0xC2); },
         {"flash write 070000+256"}},
        {[&](auto &c) { (void)c.DownloadBufferToDevice(0x12345678, 4, bytes.data(), 0xA0); },
         {"40 A0 5678 1234 len 4"}},
        {[](auto &c) { (void)c.SetProgramEntry(0xA0, 0x12345678); }, {"40 A0 1234 5678 len 0"}},
        {[](auto &c) { (void)c.IsBootLoaderRunning(); }, {"C0 A0 0000 0000 len 1"}},
    };
    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    for (const auto &c : cases) {
        c.send(*camera.operator->());
        EXPECT_EQ(camera.Traffic(), c.wire);
    }
    ASSERT_TRUE(camera->CloseCamera());
    (void)camera.Traffic();
    for (const auto &c : cases)
        c.send(*camera.operator->());
    EXPECT_TRUE(camera.Traffic().empty()); // closed: no USB traffic
}

TEST_F(TransportTest, BitFieldsEndInclusivelyInWordsAndExclusivelyInBytes)
{
    EXPECT_EQ(MergeBits(0xFFFF, 4, 8, 0), 0xFF0F);
    EXPECT_EQ(MergeBits(0x0000, 0, 16, 0xABCD), 0xABCD);
    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    EXPECT_TRUE(camera->WriteCameraRegisterByte(0x3300, 0x00));
    EXPECT_TRUE(camera->WriteCameraRegisterByte_B(0x3300, 3, 3, 1)); // empty
    EXPECT_TRUE(camera->WriteCameraRegisterByte_B(0x3300, 4, 5, 1));
    EXPECT_TRUE(camera->WriteCameraRegister_B(0x3302, 3, 3, 1));
    EXPECT_EQ(camera.Traffic(), (Lines{"sony 3300=00", "sony 3300?", "sony 3300=00", "sony 3300?",
                                       "sony 3300=10", "sensor 3302?", "sensor 3302=0008"}));
}

TEST_F(TransportTest, MissingBytesOfAnAnswerReadAsZero)
{
    OpenedCamera camera(
        std::in_place_type<CCameraS470MM>, "VSC470MM",
        {.faults = {{.fault = vscsim::Fault::ShortAnswer, .count = UINT64_MAX, .amount = 0}}});
    uint16_t word = 0xEEEE;
    EXPECT_TRUE(camera->ReadCameraRegister(0x3000, &word));
    EXPECT_EQ(word, 0);
    uint8_t version = 0xEE;
    EXPECT_TRUE(camera->GetFirmwareVer(&version));
    EXPECT_EQ(version, 1); // no "V"
    std::array<uint8_t, 16> page{};
    page.fill(0xEE);
    EXPECT_TRUE(camera->EnableGPIF32DQ(false));
    EXPECT_TRUE(camera->ReadFromSPIFlash(page.data(), 16, 0, 0xC3));
    EXPECT_EQ(page, (std::array<uint8_t, 16>{}));
}

TEST_F(TransportTest, AMuteCameraFailsRequestsAtOnceForASecond)
{
    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    FailNext("libusb_control_transfer", 4, LIBUSB_ERROR_TIMEOUT);
    const uint64_t before = Bus().Calls();
    for (int i = 0; i < 100; ++i)
        EXPECT_FALSE(camera->WriteFPGAREG(1, 1));
    EXPECT_EQ(Bus().Calls() - before, 3U);
    SleepFor(std::chrono::milliseconds(1100));
    EXPECT_FALSE(camera->WriteFPGAREG(1, 1));
    EXPECT_FALSE(camera->WriteFPGAREG(1, 1));
    EXPECT_EQ(Bus().Calls() - before, 4U); // tried again once, still mute
    SleepFor(std::chrono::milliseconds(1100));
    EXPECT_TRUE(camera->WriteFPGAREG(1, 1));
}

TEST_F(TransportTest, ClosingWaitsForTheKernel)
{
    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    Thread resetting;
    ASSERT_TRUE(resetting.Start([&camera] { (void)camera->ResetDevice(); }));
    SleepFor(std::chrono::milliseconds(1)); // of the 200 that it takes
    EXPECT_TRUE(camera->CloseCamera());
    EXPECT_EQ(camera.Traffic(), Wire("reset; close"));
    resetting.Join();
}

TEST_F(TransportTest, EraseReportsSuccessAsZeroAndGivesUpOnABusyFlash)
{
    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    (void)camera->EnableGPIF32DQ(false);
    EXPECT_EQ(camera->EraseSectorOfSPIFlash(3, 0xC4), 0);
    // A request that always answers 1: the flash never becomes idle.
    const uint32_t start = GetTickCount();
    EXPECT_EQ(camera->EraseSectorOfSPIFlash(3, 0xB4), 1);
    EXPECT_LE(GetTickCount() - start, 61'000U);
    EXPECT_EQ(camera->EraseSectorOfSPIFlash(3, 0x10), 1); // refused
}

TEST_F(TransportTest, OpensTheDeviceOfItsOrdinalOnly)
{
    Bus().Plug("VSC470MM");
    Bus().Plug("VSC470MC");
    Bus().Plug("VSC470MM");
    for (const auto &[ordinal, opens] :
         {std::pair{0, false}, {1, true}, {2, true}, {3, false}, {257, true}, {-1, false}}) {
        const std::unique_ptr<CCameraBase> camera = std::make_unique<CCameraS470MM>(0UL);
        EXPECT_EQ(camera->OpenCamera(ordinal), opens) << ordinal;
        EXPECT_EQ(camera->OpenCamera(ordinal), opens); // again: no second handle
        EXPECT_EQ(Bus().LiveObjects().handles, opens ? 1 : 0);
        (void)camera->CloseCamera();
    }
    FailNext("libusb_claim_interface", 1, LIBUSB_ERROR_BUSY); // somebody else has it
    const std::unique_ptr<CCameraBase> camera = std::make_unique<CCameraS470MM>(0UL);
    EXPECT_FALSE(camera->OpenCamera(1));
    EXPECT_EQ(Bus().LiveObjects().handles, 0);
}

/// "2-1 2-2.3": ports, of root hubs and of hubs behind them.
std::vector<PortPath> Ports(const std::string &text)
{
    std::vector<PortPath> paths;
    std::istringstream words(text);
    for (std::string word; words >> word;)
        paths.push_back(CamerasNamed(("usb:" + word).c_str()).named.at(0).path);
    return paths;
}

TEST_F(TransportTest, ALostCameraIsTheOneAtItsPortElseTheOnlyNewcomerThatStays)
{
    const struct {
        const char *seen;                // with the camera, which is at 2-1
        std::vector<const char *> looks; // of which the last finds it, or does not
        const char *found = "";
        const char *inUse = "";
    } cases[] = {{"2-1 2-2", {"1-1", "1-1 2-2"}, "1-1"},
                 {"2-1 2-2", {"2-2", "2-2"}},
                 {"2-1 2-2", {"", "1-1"}}, // too early
                 {"2-1 2-2", {"2-2 2-3", "2-2 2-3 2-1"}, "2-1"},
                 {"2-1", {"2-3", "2-3 2-4"}},
                 {"2-1", {"2-3 2-4", "2-4"}},
                 {"2-1", {"2-3", "2-4"}},
                 {"2-1", {"2-3 2-4", "2-3 2-4"}, "2-4", "2-3"},
                 {"", {"2-3", "2-3"}}, // who else was there is not known
                 {"", {"2-3", "2-3 2-1"}, "2-1"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.seen << ": " << c.looks.back());
        LostCamera lost(Ports("2-1")[0]);
        if (*c.seen)
            lost.Saw(Ports(c.seen));
        std::vector<PortPath> found;
        for (const char *look : c.looks) {
            SleepFor(LostCamera::kSettleTime);
            const std::vector<PortPath> devices = Ports(look);
            const auto at = lost.Find(
                devices, [&](size_t i) { return Ports(c.inUse) == std::vector{devices[i]}; });
            found = at ? std::vector{devices[*at]} : Ports("");
        }
        EXPECT_EQ(found, Ports(c.found));
    }
}

TEST_F(TransportTest, CountsAndOpensOnlyTheCamerasThatTheUserNames)
{
    Bus().Plug("VSC470MM");                                         // 2-1
    const int named = Bus().Plug("VSC470MM", {}, {2, 3});           // 2-2.3
    Bus().Plug("VSC470MC", {.link = vscsim::LinkSpeed::High}, {4}); // 1-4
    Bus().PlugForeign(VSCSIM_VENDOR_ID, 0x056C);                    // 2-4
    const struct {
        const char *value;
        std::vector<uint32_t> counted;
        bool malformed = false;
    } cases[] = {{"", {0x470B, 0x470B, 0x470A, 0x056C}},
                 {"usb:2-2", {}},
                 {"model:vsc470mm", {0x470B, 0x470B}},
                 {"model:KYR VSC470MC, USB:2-1", {0x470B, 0x470A}},
                 {"model:VSC056MM", {}},
                 {"model:VSC056MM-A", {0x056C}},
                 {"model:VSC9,usb:1-4", {0x470A}, true},
                 {",", {}, true},
                 {"usb:2-1.", {}, true},
                 {"usb:2-256", {}, true},
                 {"usb:2-1.1.1.1.1.1.1.1", {}, true},
                 {"usb:2-2.3", {0x470B}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.value);
        setenv("VSCCAM_CAMERA", c.value, 1); // NOLINT(concurrency-mt-unsafe)
        const std::string printed = Printed(getNumberOfConnectedCameras);
        const CameraList found = TheSession().ConnectedCameras();
        EXPECT_EQ(std::vector(found.productIds, found.productIds + found.count), c.counted);
        EXPECT_EQ(printed.find("names no camera") != std::string::npos, c.malformed);
    }
    unsetenv("VSCCAM_CAMERA"); // NOLINT(concurrency-mt-unsafe)
    EXPECT_TRUE(openCamera(0));
    EXPECT_FALSE(Bus().TakeTraffic(named).empty());
}

} // namespace
} // namespace vsccam
