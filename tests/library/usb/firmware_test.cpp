#include "library/host_fixture.h"
#include "library/wire.h"
#include "models/quiet_sensor.h"
#include "models/sony/s470.h"
#include "models/usb2/s340.h"
#include "support/temporary_file.h"
#include "usb/firmware_image.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace vsccam {
namespace {

using Lines = std::vector<std::string>;
using Media = FX3_FWDWNLOAD_MEDIA_TYPE;

Bytes Ramp(size_t size, int first = 1)
{
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&first] { return static_cast<uint8_t>(first++); });
    return bytes;
}

Bytes Word(uint32_t value)
{
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
            static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
}

Bytes Fx3Record(uint32_t words, uint32_t address, const Bytes &data)
{
    return Word(words) + Word(address) + data;
}

const Bytes kFx3Head = {'C', 'Y', 0x1C, 0xB0};
const Bytes kFx3Tail = Word(0) + Word(0x40001234) + Word(0xC5C5C5C5);
const Bytes kFx2Head = {0xC2, 0, 0, 0, 0, 0, 0, 0};
const Bytes kFx2Tail = {0x80, 0x01, 0xE6, 0x00};

TEST(FirmwareImage, IsRefusedWhereverItIsCutOff)
{
    // Allocated anew for each length: a sanitizer sees any byte read behind the end.
    const Bytes fx3 = kFx3Head + Fx3Record(2, 0, Ramp(8)) + Fx3Record(16, 8, Ramp(64)) + kFx3Tail;
    for (size_t length = 0; length < fx3.size(); ++length) {
        const Bytes cut(fx3.data(), fx3.data() + length);
        Fx3Image parsed;
        const bool signature = length >= 2;
        const bool longRecord = length >= 28 && length < 64; // its head is there, 64 bytes are not
        EXPECT_EQ(ParseFx3Image(cut, &parsed), !signature   ? DownloadResult::NoSignature
                                               : longRecord ? DownloadResult::ChunkTooLong
                                                            : DownloadResult::ImageOverrun)
            << length;
    }
    const Bytes fx2 = kFx2Head + Bytes{0, 3, 0x12, 0x34, 1, 2, 3} + Bytes{0, 0, 0, 0} + kFx2Tail;
    for (size_t length = 0; length < fx2.size(); ++length)
        EXPECT_FALSE(ParseFx2Image(Bytes(fx2.data(), fx2.data() + length))) << length;
}

TEST(FirmwareImage, TellsLengthsThatCannotBe)
{
    const struct {
        Bytes image;
        DownloadResult result;
    } cases[] = {
        {Bytes{'C', 'X', 0x1C, 0xB0} + kFx3Tail, DownloadResult::NoSignature},
        {kFx3Head + Fx3Record(0x40000000, 0, Ramp(3000)), DownloadResult::ImageOverrun}, // 2^32
        {kFx3Head + Fx3Record(0x40000000, 0, Ramp(16)) + kFx3Tail, DownloadResult::ChunkTooLong},
        {kFx3Head + Fx3Record(512, 0, Ramp(2035)), DownloadResult::ChunkTooLong}, // 2047 in all
        {kFx3Head + Fx3Record(512, 0, Ramp(2036)), DownloadResult::ImageOverrun},
    };
    for (const auto &c : cases) {
        Fx3Image parsed;
        EXPECT_EQ(ParseFx3Image(c.image, &parsed), c.result);
    }
    EXPECT_FALSE(ParseFx2Image(kFx2Head + Bytes{0, 3, 0xFF, 0xFE} + Ramp(3) + kFx2Tail));
    EXPECT_FALSE(ParseFx2Image(Bytes{0xC0, 0, 0, 0, 0, 0, 0, 0} + kFx2Tail));
}

/// The transport alone on a simulated camera that leaves the bus with it.
class Transport : public CCameraFX3 {
  public:
    explicit Transport(std::string_view model, vscsim::CameraOptions options = {})
        : m_device(vscsim::Bus::Instance().Plug(model, std::move(options)))
    {
        UseQuieting(QuietSensor);
        EXPECT_TRUE(OpenDevice(vscsim::FindModel(model)->productId, 1));
        (void)Traffic();
    }
    ~Transport()
    {
        CloseDevice();
        vscsim::Bus::Instance().Unplug(m_device);
    }
    using CCameraFX3::CloseDevice;

    Lines Traffic() { return vscsim::Bus::Instance().TakeTraffic(m_device); }

    template <class Look> auto Camera(Look look)
    {
        return vscsim::Bus::Instance().With(m_device, look);
    }

    Bytes Eeprom(size_t at, size_t length)
    {
        return Camera([=](vscsim::Camera &camera) {
            const auto bytes = camera.Eeprom().subspan(at, length);
            return Bytes(bytes.begin(), bytes.end());
        });
    }
    Bytes Ram(uint32_t address, size_t length)
    {
        return Camera([=](vscsim::Camera &camera) { return camera.Ram(address, length); });
    }

  private:
    int m_device;
};

constexpr std::string_view kFx2 = "VSC340MM";
constexpr std::string_view kFx3 = "VSC470MM";

/// The camera gives a wrong first byte in answer to so many requests with this code, after others.
vscsim::CameraOptions Corrupting(uint8_t request, uint64_t count, uint64_t from = 0)
{
    return {.faults = {{.fault = vscsim::Fault::CorruptAnswer,
                        .request = request,
                        .from = from,
                        .count = count}}};
}

/// A boot image of the FX2 of so many bytes, whose program only idles.
Bytes IdleFx2Image(size_t length)
{
    const size_t data = length - 17;
    const Bytes head = {static_cast<uint8_t>(data >> 8), static_cast<uint8_t>(data), 0, 0};
    const Bytes jumpToItself = {0x80, 0xFE};
    return kFx2Head + head + jumpToItself + Bytes(data - 2) + kFx2Tail + Bytes{0};
}

/// The library looks for firmware in a directory with well-formed files.
class FirmwareTest : public HostTest {
  protected:
    FirmwareTest()
    {
        std::filesystem::create_directory(m_directory);
        for (const auto &[name, length] : {std::pair("s340mm.fx2", size_t{4238}),
                                           {"s340mc.fx2", 4265},
                                           {"s350mm.fx2", 4299},
                                           {"s052mc.fx2", 4346}})
            (void)File(IdleFx2Image(length), name);
        (void)File(Bytes(2048), "vendor1.bin");
        (void)File(Bytes(1427), "vendor2.bin");
        // NOLINTNEXTLINE(concurrency-mt-unsafe)
        (void)setenv("VSCCAM_FIRMWARE_DIR", m_directory.c_str(), 1);
    }
    ~FirmwareTest() override
    {
        (void)unsetenv("VSCCAM_FIRMWARE_DIR"); // NOLINT(concurrency-mt-unsafe)
        std::filesystem::remove_all(m_directory);
    }

    /// A file with this content, gone with the test.
    std::string File(const Bytes &content, const std::string &name = "image") const
    {
        std::ofstream(m_directory + "/" + name, std::ios::binary)
            .write(reinterpret_cast<const char *>(content.data()),
                   static_cast<std::streamsize>(content.size()));
        return m_directory + "/" + name;
    }

    /// Lets each libusb call of `operation` fail in turn, each time on a camera of its own.
    /// @return the results in the order of the calls, equal ones in a row once
    template <class Operation>
    static auto ResultsOfFailures(std::string_view model, Operation operation,
                                  int code = LIBUSB_ERROR_PIPE)
    {
        uint64_t calls = 0;
        std::vector<decltype(operation(std::declval<Transport &>()))> results;
        for (uint64_t failing = 0; failing <= calls; ++failing) {
            Transport camera(model);
            const uint64_t first = Bus().Calls();
            if (failing > 0)
                Bus().FailCalls(first + failing - 1, 1, code);
            const auto result = operation(camera);
            if (failing == 0)
                calls = Bus().Calls() - first;
            else if (results.empty() || results.back() != result)
                results.push_back(result);
        }
        EXPECT_GT(calls, 0U);
        return results;
    }

    const std::string m_directory = TemporaryFile("firmware");
    const Bytes m_image = IdleFx2Image(4238);
};

const Lines kProgrammerLoads = {"40 A0 E600 0000 len 1", "40 A0 0000 0000 len 2048",
                                "40 A0 0800 0000 len 1427", "40 A0 E600 0000 len 1"};

TEST_F(FirmwareTest, EepromIsWrittenInPagesReadBackAndRunFromRam)
{
    Transport camera(kFx2);
    EXPECT_TRUE(camera.UpdateFW(m_image));
    const Lines traffic = camera.Traffic();
    const Lines pages = {"40 A9 0000 0000 len 4096", "40 A9 1000 0000 len 142",
                         "C0 A9 0000 0000 len 4096", "C0 A9 1000 0000 len 142"};
    const Lines expected = kProgrammerLoads + pages;
    ASSERT_GT(traffic.size(), expected.size());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), traffic.begin()));
    EXPECT_EQ(camera.Eeprom(0, m_image.size()), m_image);
    uint8_t version = 0;
    EXPECT_TRUE(camera.GetFirmwareVer(&version)); // the processor runs
    (void)camera.Traffic();

    const Bytes image = kFx2Head + Bytes{0x00, 0x03, 0x12, 0x34, 1, 2, 3} +
                        Bytes{0x01, 0x02, 0x00, 0x80} + Ramp(258) + kFx2Tail + Ramp(20);
    EXPECT_TRUE(camera.UpdateFW2RAM(image));
    EXPECT_EQ(camera.Traffic(), (Lines{"40 A0 E600 0000 len 1", "40 A0 1234 0000 len 3",
                                       "40 A0 0080 0000 len 258", "40 A0 E600 0000 len 1"}));
    EXPECT_EQ(camera.Ram(0x1234, 3), Ramp(3));
    EXPECT_EQ(camera.Ram(0x0080, 258), Ramp(258));

    EXPECT_FALSE(camera.UpdateFW(IdleFx2Image(8192))); // its last page is a full one
    EXPECT_TRUE(camera.EraseFlash());
    Bytes empty(4096);
    empty[0] = 0xC2;
    EXPECT_EQ(camera.Eeprom(0, 4096), empty);

    (void)camera.Traffic();
    EXPECT_FALSE(camera.UpdateFW(std::span(m_image).first(4200)));      // no end
    EXPECT_FALSE(camera.UpdateFW(kFx2Head + kFx2Tail + Ramp(0x10000))); // no room
    EXPECT_FALSE(camera.UpdateFW2RAM({}));
    camera.CloseDevice();
    EXPECT_FALSE(camera.UpdateFW(m_image));
    EXPECT_FALSE(camera.EraseFlash());
    EXPECT_EQ(camera.Traffic(), Lines{"close"});
}

TEST_F(FirmwareTest, EepromIsWrittenAgainUntilTheThirdTimeAndThenItHasFailed)
{
    for (const auto &[wrongAttempts, success] :
         {std::pair<uint64_t, bool>{0, true}, {1, true}, {2, false}, {3, false}}) {
        SCOPED_TRACE(wrongAttempts);
        const auto attempts = static_cast<std::ptrdiff_t>(std::min<uint64_t>(wrongAttempts + 1, 3));
        const std::string write = "40 A9 0000 0000 len 4096";
        Transport camera(kFx2, Corrupting(0xA9, 4 * wrongAttempts)); // two pages, out and in
        EXPECT_EQ(camera.UpdateFW(m_image), success);
        EXPECT_EQ(std::ranges::count(camera.Traffic(), write), attempts);
    }
}

TEST_F(FirmwareTest, EepromStaysUntouchedWithoutItsProgrammerAndTheControllerIsBroughtBack)
{
    const auto answers = [](Transport &camera) {
        uint8_t version = 0;
        return camera.GetFirmwareVer(&version) || camera.GetFirmwareVer(&version);
    };
    const auto update = [&](Transport &camera) {
        const bool done = camera.UpdateFW(m_image);
        EXPECT_TRUE(answers(camera)); // its processor runs, whatever failed
        return done;
    };
    const auto erase = [&](Transport &camera) {
        const bool done = camera.EraseFlash();
        EXPECT_TRUE(done || answers(camera));
        return done;
    };
    for (const int code : {LIBUSB_ERROR_PIPE, LIBUSB_ERROR_TIMEOUT}) {
        EXPECT_EQ(ResultsOfFailures(kFx2, update, code), (std::vector{false, true}));
        EXPECT_EQ(ResultsOfFailures(kFx2, erase, code), (std::vector{false, true}));
    }

    Transport camera(kFx2);
    FailNext("libusb_control_transfer", 2, LIBUSB_ERROR_PIPE);
    EXPECT_FALSE(camera.UpdateFW(m_image));
    for (const std::string &line : camera.Traffic())
        EXPECT_TRUE(line.starts_with("40 A0")) << line;
    (void)File({}, "vendor2.bin");
    EXPECT_FALSE(camera.UpdateFW(m_image));
    EXPECT_FALSE(camera.EraseFlash());
    EXPECT_EQ(camera.Traffic(), Lines());
}

TEST_F(FirmwareTest, IsRefreshedAtOpenWhenItIsKnownToBeOld)
{
    const struct {
        const char *model;
        uint8_t version;
        bool opened;
        bool loaded;      // something into RAM
        size_t written;   // bytes of the EEPROM
        bool openedAgain; // after it was closed
        const char *faults = nullptr;
    } cases[] = {
        {"VSC340MM", 2, true, true, 4238, true},
        {"VSC340MC", 0, true, true, 4265, true},
        {"VSC350MM", 0, true, true, 4299, true},
        {"VSC350MM", 1, true, false, 0, true},
        {"VSC052MC", 0, true, true, 4346, true},
        {"VSC056MM", 0, true, false, 0, true},                          // there is none for it
        {"VSC340MM", 3, true, true, 4238, true, "refuse-request:ad@0"}, // version 1
        {"VSC340MM", 3, true, false, 0, true, "time-out-request:ad@0x2"},
        {"VSC340MM", 1, false, false, 0, true, "time-out-request:ad@0x3"},
        // What runs is in RAM then, although the camera was mute before.
        {"VSC340MM", 1, false, true, 0, true, "time-out-request:a9x*"},
        {"VSC340MM", 1, false, true, 4238, false, "lost-at-reset"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.model << " " << int{c.version} << " " << (c.faults ? c.faults : ""));
        vscsim::CameraOptions options{.firmwareVersion = c.version};
        if (c.faults)
            options.faults = vscsim::ParseFaultPlan(c.faults, nullptr).value();
        const int device = Bus().Plug(c.model, std::move(options));
        (void)getNumberOfConnectedCameras();
        EXPECT_EQ(openCamera(0), c.opened);
        const Lines traffic = Bus().TakeTraffic(device);
        EXPECT_EQ(std::ranges::count(traffic, kProgrammerLoads[0]) > 0, c.loaded);
        EXPECT_EQ(std::ranges::count(traffic, "reset"), c.written > 0 ? 1 : 0);
        const Bytes image = IdleFx2Image(std::max<size_t>(c.written, 1000));
        const bool holdsImage = Bus().With(device, [&](auto &camera) {
            return std::ranges::equal(camera.Eeprom().first(image.size()), image);
        });
        EXPECT_EQ(holdsImage, c.written > 0);
        closeCamera();
        EXPECT_EQ(openCamera(0), c.openedAgain);
        closeCamera();
        Bus().Reset();
    }
}

TEST_F(FirmwareTest, CameraIsUsedAsItIsWhenAFileIsMissingOrDamaged)
{
    using Path = std::filesystem::path;
    void (*const damages[])(const Path &) = {
        [](const Path &) {}, [](const Path &path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); },
        [](const Path &path) { std::ofstream(path) << std::string(4238, 'x'); }, // no image
    };
    const int device = Bus().Plug("VSC340MM", {.firmwareVersion = 1});
    (void)getNumberOfConnectedCameras();
    for (const std::string file : {"s340mm.fx2", "vendor1.bin", "vendor2.bin"}) {
        const Path path = m_directory + "/" + file;
        std::filesystem::rename(path, m_directory + "/kept");
        for (const auto &damage : damages) {
            SCOPED_TRACE(testing::Message() << file << " " << &damage - damages);
            damage(path);
            const std::string printed = Printed([] { EXPECT_TRUE(openCamera(0)); });
            EXPECT_NE(printed.find(file), std::string::npos);
            EXPECT_EQ(printed.find("firmware file"), printed.rfind("firmware file"));
            closeCamera();
            EXPECT_EQ(Bus().TakeTraffic(device),
                      Wire("open; configuration 1; claim 0; firmware?; close"));
            std::filesystem::remove(path);
        }
        std::filesystem::rename(m_directory + "/kept", path);
    }
}

TEST_F(FirmwareTest, WorkerThatFindsItsCameraAgainHasNoTimeForIt)
{
    (void)File({}, "vendor1.bin");
    OpenedCamera camera(std::in_place_type<CCameraS340MM>, "VSC340MM", {.firmwareVersion = 1});
    (void)File(Bytes(2048), "vendor1.bin");
    (void)camera->capture.Change(CaptureChange::WorkerLosesDevice);
    (void)camera->capture.Change(CaptureChange::HostStartsVideo);
    EXPECT_TRUE(camera->ReConnectCamera());
    EXPECT_EQ(camera.Traffic(), Wire("close; open; configuration 1; claim 0"));
}

TEST_F(FirmwareTest, FilesThatAreNoImageReachOnlyTheSensor)
{
    Transport camera(kFx3);
    const Lines nothing;
    const Lines quieting = Wire("sony 3007=40;fpga 00=00;cmd AF");
    const Bytes sound = kFx3Head + Fx3Record(2, 0x100, Ramp(8)) + kFx3Tail;
    const Bytes damaged(sound.begin(), sound.end() - 1);
    for (const auto &path :
         {std::string("no/such/file"), testing::TempDir(), std::string("/dev/zero"), File({})}) {
        EXPECT_EQ(camera.DownloadFw(path, Media::Ram), DownloadResult::FileError) << path;
        EXPECT_EQ(camera.Traffic(), nothing);
    }
    const struct {
        Bytes content;
        Media media;
        DownloadResult result;
        const Lines &wire;
    } cases[] = {
        {sound, Media{0}, DownloadResult::UnknownMedia, nothing},
        {{'C', 'X', 0, 0}, Media::Ram, DownloadResult::NoSignature, quieting},
        {damaged, Media::Ram, DownloadResult::ImageOverrun, quieting},
        {{'C', 'Y', 1 << 1}, Media::I2cEeprom, DownloadResult::UnsupportedSizeClass, nothing},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(camera.DownloadFw(File(c.content), c.media), c.result);
        EXPECT_EQ(camera.Traffic(), c.wire);
    }
}

TEST_F(FirmwareTest, EveryCameraWithThatControllerIsQuieted)
{
    const std::string noImage = File({'C', 'X', 0, 0});
    const auto expectQuieted = [&noImage](auto type, const char *model) {
        OpenedCamera camera(type, model);
        EXPECT_EQ(camera->DownloadFw(noImage, Media::Ram), DownloadResult::NoSignature);
        EXPECT_EQ(camera.Traffic(), Wire("sony 3007=40;fpga 00=00;cmd AF"));
    };
    expectQuieted(std::in_place_type<CCameraS470MM>, "VSC470MM");
    expectQuieted(std::in_place_type<CCameraS340MM_S>, "VSC340MM-S");
}

TEST_F(FirmwareTest, RamIsWrittenThreeTimesComparedAndEntered)
{
    const Bytes code = Ramp(2400);
    const Bytes image = kFx3Head + Fx3Record(600, 0x4000A0FC, code) + kFx3Tail;
    const auto download = [&](Transport &camera) {
        return camera.DownloadFw(File(image), Media::Ram);
    };
    // The first two rounds of a chunk do not count, nor do quieting and entry.
    const auto success = DownloadResult::Success;
    const auto failure = DownloadResult::RequestFailed;
    EXPECT_EQ(ResultsOfFailures(kFx3, download),
              (std::vector{success, failure, success, failure, success}));
    for (const auto &[from, result] : {std::pair{0U, success}, {4U, failure}}) {
        Transport camera(kFx3, Corrupting(0xA0, from == 0 ? 4 : 2, from));
        EXPECT_EQ(download(camera), result) << from;
    }

    Transport camera(kFx3);
    ASSERT_EQ(download(camera), DownloadResult::Success);
    Lines expected = Wire("sony 3007=40;fpga 00=00;cmd AF");
    for (const std::string chunk : {"A0FC 4000 len 2048", "A8FC 4000 len 352"}) {
        for (int round = 0; round < 3; ++round)
            expected = expected + Lines{"40 A0 " + chunk, "C0 A0 " + chunk};
    }
    EXPECT_EQ(camera.Traffic(), expected + Lines{"40 A0 1234 4000 len 0"});
    EXPECT_EQ(camera.Ram(0x4000A0FC, code.size()), code);
    EXPECT_EQ(camera.Camera([](auto &c) { return c.ProgramEntry(); }), 0x40001234U);
}

TEST_F(FirmwareTest, FlashIsErasedAsFarAsTheImageReachesAndFilledUp)
{
    const Bytes image = Ramp(0x10000 + 2048 + 257);
    const auto download = [&](Transport &camera) {
        (void)camera.EnableGPIF32DQ(false);
        return camera.DownloadFw(File(image), Media::SpiFlash);
    };
    EXPECT_EQ(ResultsOfFailures(kFx3, download),
              (std::vector{DownloadResult::EraseFailed, DownloadResult::RequestFailed}));

    Transport camera(kFx3);
    camera.Camera([](auto &c) { std::ranges::fill(c.Flash(), uint8_t{0}); });
    ASSERT_EQ(download(camera), DownloadResult::Success);
    Bytes expected = image;
    expected.resize(0x20000, 0xFF); // the rest of the last write, and what the erase left
    expected.resize(0x20001, 0x00); // the sector behind
    camera.Camera([&](auto &c) {
        EXPECT_TRUE(std::ranges::equal(expected, c.Flash().first(expected.size())));
    });
    EXPECT_EQ(camera.Traffic().back(), "flash write 010800+512");
}

TEST_F(FirmwareTest, I2cMemoriesFollowEachOtherInTheOrderOfTheirClass)
{
    const struct {
        uint8_t sizeClass;
        size_t deviceBytes;
        std::vector<int> devices;
    } cases[] = {
        {2, 4'096, {0, 1, 2, 3, 4, 5, 6, 7, 0}},
        {3, 8'192, {0, 1}},
        {4, 16'384, {0, 1}},
        {5, 32'768, {0, 1}},
        {7, 65'536, {0, 4, 1, 5, 1}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(int{c.sizeClass});
        Transport camera(kFx3);
        Bytes image = Ramp(c.deviceBytes * c.devices.size());
        image[2] = static_cast<uint8_t>(c.sizeClass << 1 | 0xF1);
        ASSERT_EQ(camera.DownloadFw(File(image), Media::I2cEeprom), DownloadResult::Success);
        Lines expected;
        for (const int device : c.devices) {
            for (size_t at = 0; at < c.deviceBytes; at += 2048) {
                char line[40];
                std::snprintf(line, sizeof line, "40 BA %04X %04X len 2048", device,
                              static_cast<unsigned>(at));
                expected.emplace_back(line);
            }
        }
        EXPECT_EQ(camera.Traffic(), expected);
    }
}

TEST_F(FirmwareTest, I2cMemoryIsPaddedAndReadBackAtItsEnd)
{
    Bytes image = Ramp(2048 + 65);
    image[2] = 2 << 1;
    Transport camera(kFx3);
    ASSERT_EQ(camera.DownloadFw(File(image), Media::I2cEeprom), DownloadResult::Success);
    EXPECT_EQ(camera.Traffic(), (Lines{"40 BA 0000 0000 len 2048", "40 BA 0000 0800 len 128",
                                       "C0 BB 0000 0800 len 128"}));
    image.resize(2048 + 128);
    EXPECT_EQ(camera.Eeprom(0, image.size()), image);
}

} // namespace
} // namespace vsccam
