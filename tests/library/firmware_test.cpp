#include "library/host_fixture.h"
#include "library/wire.h"
#include "models/sony/s470.h"
#include "models/usb2/firmware_images.h"
#include "usb/firmware_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace vsccam {
namespace {

using Media = FX3_FWDWNLOAD_MEDIA_TYPE;

Bytes operator+(Bytes a, const Bytes &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

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

/// Where each record lies: its address, and its place and length in the image.
struct Place {
    uint32_t address;
    size_t at, length;
    bool operator==(const Place &) const = default;
};

std::vector<Place> PlacesIn(const Bytes &image, const std::vector<FirmwareRecord> &records)
{
    std::vector<Place> places;
    for (const auto &[address, data] : records)
        places.push_back({address, static_cast<size_t>(data.data() - image.data()), data.size()});
    return places;
}

TEST(FirmwareImage, IsTakenApartIntoItsRecords)
{
    const Bytes fx3 = kFx3Head + Fx3Record(2, 0x40003000, Ramp(8)) +
                      Fx3Record(600, 0x4000A0FF, Ramp(2400)) + kFx3Tail;
    Fx3Image parsed;
    ASSERT_EQ(ParseFx3Image(fx3, &parsed), DownloadResult::Success);
    EXPECT_EQ(PlacesIn(fx3, parsed.records),
              (std::vector<Place>{{0x40003000, 12, 8}, {0x4000A0FF, 28, 2400}}));
    EXPECT_EQ(parsed.entry, 0x40001234U);
    EXPECT_EQ(parsed.checksum, 0xC5C5C5C5U);

    const Bytes fx2 = kFx2Head + Bytes{0x00, 0x03, 0x12, 0x34, 1, 2, 3} +
                      Bytes{0x01, 0x02, 0x00, 0x80} + Ramp(258) + kFx2Tail + Ramp(20);
    const auto records = ParseFx2Image(fx2);
    ASSERT_TRUE(records);
    EXPECT_EQ(PlacesIn(fx2, *records), (std::vector<Place>{{0x1234, 12, 3}, {0x0080, 19, 258}}));
}

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
        {kFx3Head + Fx3Record(0xFFFFFFFF, 0, Ramp(3000)), DownloadResult::ImageOverrun},
        {kFx3Head + Fx3Record(0x40000000, 0, Ramp(3000)), DownloadResult::ImageOverrun}, // 2^32
        {kFx3Head + Fx3Record(0x40000000, 0, Ramp(16)) + kFx3Tail, DownloadResult::ChunkTooLong},
        {kFx3Head + Fx3Record(512, 0, Ramp(2035)), DownloadResult::ChunkTooLong}, // 2047 in all
        {kFx3Head + Fx3Record(512, 0, Ramp(2036)), DownloadResult::ImageOverrun},
    };
    for (const auto &c : cases) {
        Fx3Image parsed;
        EXPECT_EQ(ParseFx3Image(c.image, &parsed), c.result);
    }
    EXPECT_FALSE(ParseFx2Image(kFx2Head + Bytes{0xFF, 0xFF, 0, 0} + Ramp(3000) + kFx2Tail));
    EXPECT_FALSE(ParseFx2Image(Bytes{0xC0, 0, 0, 0, 0, 0, 0, 0} + kFx2Tail));
}

TEST(FirmwareImage, SuppliedOnesAreWholeUpToTheirLastByte)
{
    for (const std::span<const uint8_t> image :
         {std::span<const uint8_t>(kFWCodeS340MM), std::span<const uint8_t>(kFWCodeS340MC),
          std::span<const uint8_t>(kFWCodeS350MM), std::span<const uint8_t>(kFWCodeS052MC)}) {
        const auto records = ParseFx2Image(image);
        ASSERT_TRUE(records);
        size_t ram = 0;
        for (const auto &[address, data] : *records) {
            EXPECT_EQ(address, ram);
            ram += data.size();
        }
        const FirmwareRecord &last = records->back();
        EXPECT_EQ(last.data.data() + last.data.size() + kFx2Tail.size() + 1,
                  image.data() + image.size());
    }
}

class FirmwareTest : public HostTest {
  protected:
    ~FirmwareTest() override { std::filesystem::remove(m_path); }

    /// A file with this content, gone with the test.
    const std::string &File(const Bytes &content)
    {
        std::ofstream(m_path, std::ios::binary)
            .write(reinterpret_cast<const char *>(content.data()),
                   static_cast<std::streamsize>(content.size()));
        return m_path;
    }

    /// Lets each libusb call of `operation` fail in turn, each time on a camera of its own.
    /// @return the different results, in the order of the calls
    template <class Camera, class Operation>
    static auto ResultsOfFailures(std::string_view model, Operation operation)
    {
        std::vector<decltype(operation(std::declval<CCameraBase &>()))> results;
        bool struck = true;
        for (uint64_t i = 0; struck; ++i) {
            OpenedCamera camera(std::in_place_type<Camera>, model);
            const uint64_t failing = Bus().Calls() + i;
            Bus().FailCalls(failing, 1, LIBUSB_ERROR_PIPE);
            const auto result = operation(*camera.operator->());
            struck = Bus().Calls() > failing;
            if (results.empty() || results.back() != result)
                results.push_back(result);
            Bus().Unplug(camera.Device());
        }
        return results;
    }

  private:
    const std::string m_path = testing::TempDir() + "firmware_test.img";
};

TEST_F(FirmwareTest, FilesThatAreNoImageReachOnlyTheSensor)
{
    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    const std::vector<std::string> nothing;
    const std::vector<std::string> quieting = Wire("sony 3007=40;fpga 00=00;cmd AF");
    const Bytes sound = kFx3Head + Fx3Record(2, 0x100, Ramp(8)) + kFx3Tail;
    const Bytes damaged(sound.begin(), sound.end() - 1);
    for (const auto &path :
         {std::string("no/such/file"), testing::TempDir(), std::string("/dev/zero"), File({})}) {
        EXPECT_EQ(camera->DownloadFw(path, Media::Ram), DownloadResult::FileError) << path;
        EXPECT_EQ(camera.Traffic(), nothing);
    }
    const struct {
        Bytes content;
        Media media;
        DownloadResult result;
        const std::vector<std::string> &wire;
    } cases[] = {
        {sound, Media{0}, DownloadResult::UnknownMedia, nothing},
        {{'C', 'X', 0, 0}, Media::Ram, DownloadResult::NoSignature, quieting},
        {damaged, Media::Ram, DownloadResult::ImageOverrun, quieting},
        {{'C', 'Y', 1 << 1}, Media::I2cEeprom, DownloadResult::UnsupportedSizeClass, nothing},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(camera->DownloadFw(File(c.content), c.media), c.result);
        EXPECT_EQ(camera.Traffic(), c.wire);
    }
}

TEST_F(FirmwareTest, FlashIsErasedAsFarAsTheImageReachesAndFilledUp)
{
    const Bytes image = Ramp(0x10000 + 2048 + 257);
    const auto download = [&](CCameraBase &camera) {
        camera.EnableGPIF32DQ(false);
        return camera.DownloadFw(File(image), Media::SpiFlash);
    };
    EXPECT_EQ(ResultsOfFailures<CCameraS470MM>("VSC470MM", download),
              (std::vector{DownloadResult::EraseFailed, DownloadResult::RequestFailed,
                           DownloadResult::Success}));

    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    Bus().With(camera.Device(), [](auto &c) { std::ranges::fill(c.Flash(), uint8_t{0}); });
    ASSERT_EQ(download(*camera.operator->()), DownloadResult::Success);
    Bytes expected = image;
    expected.resize(0x20000, 0xFF); // the rest of the last write, and what the erase left
    expected.resize(0x20001, 0x00); // the sector behind
    Bus().With(camera.Device(), [&](auto &c) {
        EXPECT_TRUE(std::ranges::equal(expected, c.Flash().first(expected.size())));
    });
    EXPECT_EQ(camera.Traffic().back(), "flash write 010800+512");
}

} // namespace
} // namespace vsccam
