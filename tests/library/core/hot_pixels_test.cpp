#include "core/frame_region.h"
#include "core/hot_pixel_record.h"
#include "image/pixel_patches.h"
#include "library/core/dark_fixture.h"

#include <numeric>
#include <random>

namespace vsccam {
namespace {

using vscsim::Fault;

Bytes RecordOf(uint32_t length, const Bytes &pairs)
{
    Bytes record(8 + pairs.size());
    std::ranges::copy(std::string_view("VSCD"), record.begin());
    for (size_t i = 0; i < 4; ++i)
        record[4 + i] = static_cast<uint8_t>(length >> (24 - 8 * i));
    std::ranges::copy(pairs, record.begin() + 8);
    return record;
}

TEST(HotPixelRecord, StoresPlaceAndValueOfTheBytesThatAreNotZero)
{
    const struct {
        const char *what;
        size_t size;
        std::vector<std::pair<size_t, uint8_t>> bytes;
        Bytes pairs;
    } cases[] = {
        {"nothing, in three blocks", 600, {}, {0, 0, 0, 0}},
        {"swapped nibbles", 256, {{0x12, 0x80}}, {0x21, 0x80}},
        {"the last byte", 512, {{511, 7}}, {0, 0, 0xFF, 7}},
        {"both sides of a block's end", 512, {{255, 1}, {256, 2}}, {0xFF, 1, 0, 0, 0, 2}},
        {"no room", 12, {{0, 1}}, {}},
        {"room for one", 13, {{0, 1}, {1, 2}}, {0, 1}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Bytes bitmap(c.size);
        for (const auto &[index, value] : c.bytes)
            bitmap[index] = value;
        const Bytes record = Compress(bitmap);
        EXPECT_EQ(record, RecordOf(static_cast<uint32_t>(8 + c.pairs.size()), c.pairs));
    }
}

TEST(HotPixelRecord, ComesBackAsItWas)
{
    std::mt19937 random(1);
    for (const size_t size : {13U, 255U, 256U, 257U, 4096U, 265232U}) {
        Bytes bitmap(size);
        for (size_t i = 0; i < size / 16; ++i)
            bitmap[random() % size] = static_cast<uint8_t>(random());
        const Bytes record = Compress(bitmap);
        EXPECT_EQ(RecordLength(std::span(record).first<kHotPixelHeader>()), record.size());
        EXPECT_EQ(Uncompress(record, size), bitmap) << size;
    }
    EXPECT_EQ(FlaggedPixels(Bytes{0x01, 0x00, 0x82}), (std::vector<uint32_t>{0, 17, 23}));
}

TEST(HotPixelRecord, IsRefusedWhenItPointsOutside)
{
    const struct {
        const char *what;
        Bytes record;
        bool read;
    } cases[] = {
        {"shorter than a header", Bytes(7, 0xFF), true},
        {"header alone", Bytes(8, 0xFF), true},
        {"half a pair", Bytes(9, 0xFF), true},
        {"last byte of the map", RecordOf(10, {0xF1, 1}), true},
        {"behind the map", RecordOf(10, {0x02, 1}), false},
        {"in a block behind the map", RecordOf(12, {0, 0, 0, 1}), false},
        {"empty blocks behind the map", RecordOf(12, {0, 0, 0, 0}), true},
    };
    for (const auto &c : cases)
        EXPECT_EQ(Uncompress(c.record, 32).has_value(), c.read) << c.what;
}

TEST(FrameRegionTest, CutsImageAndPixelsAlike)
{
    const Size sensor{16, 8};
    const struct {
        const char *what;
        FrameRegion region;
        size_t shown; // pixels of the frame that are on the sensor
        std::vector<std::pair<uint32_t, uint32_t>> places; // sensor, frame
        int value;                                         // in the frame, of 80 on the sensor
    } cases[] = {
        {"all", {.sensor = sensor, .frame = sensor}, 128, {{0, 0}, {127, 127}}, 80},
        {"a region", {sensor, 4, 2, {8, 4}}, 32, {{36, 0}, {91, 31}, {35, 99}, {92, 99}}, 80},
        {"beyond the edges", {sensor, 12, 6, {8, 4}}, 8, {{108, 0}, {127, 11}}, 80},
        {"beyond the end, binned", {sensor, 8, 4, {8, 4}, 2}, 8, {{72, 0}, {127, 11}}, 20},
        {"binned", {sensor, 4, 2, {4, 2}, 2}, 8, {{36, 0}, {53, 0}, {38, 1}, {68, 4}}, 20},
        {"mosaic", {sensor, 0, 0, {8, 4}, 2, true}, 32, {{0, 0}, {2, 0}, {33, 1}, {20, 10}}, 20},
        {"half a cell", {sensor, 10, 0, {8, 4}, 2, true}, 8, {{12, 0}, {15, 99}}, 20},
    };
    std::vector<uint32_t> all(128);
    std::iota(all.begin(), all.end(), 0U);
    for (const auto &c : cases) {
        const std::vector<uint32_t> onSensor = CutPixels(all, c.region);
        EXPECT_EQ(onSensor.size(), c.shown) << c.what;
        for (const auto &[from, to] : c.places) {
            SCOPED_TRACE(std::string(c.what) + " " + std::to_string(from));
            Bytes image(128);
            image[from] = 80;
            const auto area = static_cast<size_t>(c.region.frame.width * c.region.frame.height);
            const bool shown = to < area;
            const int mean = shown ? c.value / static_cast<int>(c.shown) : 0;
            // Where there is no sensor, the mean of the rest keeps frames as they come.
            Bytes expected(area, static_cast<uint8_t>(mean));
            for (const uint32_t pixel : onSensor)
                expected.at(pixel) = 0;
            std::vector<uint32_t> pixels;
            if (shown) {
                expected.at(to) = static_cast<uint8_t>(c.value);
                pixels.push_back(to);
            }
            const ImageCut cut = CutImage(image, c.region);
            EXPECT_EQ(cut.pixels, expected);
            EXPECT_EQ(cut.mean, mean);
            EXPECT_EQ(CutPixels(std::vector<uint32_t>{from}, c.region), pixels);
        }
    }
    // Pixels that are binned into one are one, and the list stays in the order of the frame.
    const FrameRegion binned = {sensor, 0, 0, {8, 4}, 2};
    EXPECT_EQ(CutPixels(std::vector<uint32_t>{0, 3, 16, 17}, binned),
              (std::vector<uint32_t>{0, 1}));
    EXPECT_EQ(CutImage(Bytes(128, 255), binned).pixels, Bytes(32, 252));
}

TEST(PixelPatchesTest, CopyAtBordersAndDenoiseWhatStandsOut)
{
    using enum PatchRule;
    constexpr int kWidth = 8;
    constexpr int kHeight = 6;
    const struct {
        const char *what;
        int step;
        PatchRule inside;
        std::vector<uint32_t> pixels;
        std::vector<std::pair<size_t, int>> frame; // of 100 everywhere else
        size_t looked;
        int becomes;
    } cases[] = {
        {"left border", 1, kDenoise, {16}, {{16, 250}, {17, 90}}, 16, 90},
        {"top border", 2, kDenoise, {11}, {{11, 250}, {13, 90}}, 11, 90},
        {"end of the first row", 1, kDenoise, {7}, {{7, 250}, {8, 90}}, 7, 90},
        {"bottom border", 1, kDenoise, {42}, {{42, 250}, {41, 90}}, 42, 90},
        {"alone", 1, kDenoise, {18}, {{18, 250}, {10, 90}, {19, 91}}, 18, 95},
        {"small excess", 1, kDenoise, {18}, {{18, 130}}, 18, 130},
        {"small share", 1, kDenoise, {18}, {{18, 142}}, 18, 142},
        {"just enough of both", 1, kDenoise, {18}, {{18, 143}}, 18, 100},
        {"a brighter neighbour", 1, kDenoise, {18}, {{18, 250}, {19, 251}}, 18, 250},
        {"a hot neighbour", 1, kDenoise, {18, 19}, {{18, 250}, {19, 251}}, 18, 100},
        {"none healthy", 1, kDenoise, {10, 17, 18, 19, 26}, {{18, 250}}, 18, 250},
        {"alone in a mosaic", 2, kDenoise, {20}, {{20, 250}, {18, 60}, {4, 40}, {36, 80}}, 20, 70},
        {"a hot one of another", 2, kDenoise, {19, 20}, {{19, 251}, {20, 250}, {22, 60}}, 20, 90},
        {"mean of the sides", 2, kMeanOfSides, {20}, {{18, 51}, {22, 60}}, 20, 55},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const PixelPatches patches = ListPatches(c.pixels, kWidth, kHeight, c.step, c.inside);
        Bytes frame8(kWidth * kHeight, 100);
        std::vector<uint16_t> frame16(kWidth * kHeight, 100 << 8);
        for (const auto &[index, value] : c.frame) {
            frame8[index] = static_cast<uint8_t>(value);
            frame16[index] = static_cast<uint16_t>(value << 8);
        }
        ApplyPatches<uint8_t>(patches, {frame8});
        EXPECT_EQ(frame8[c.looked], c.becomes);
        ApplyPatches<uint16_t>(patches, {frame16});
        EXPECT_NEAR(frame16[c.looked], c.becomes << 8, 255);
    }
    // 16-bit means keep the bits of the converter only.
    std::vector<uint16_t> frame(kWidth * kHeight, 0x1237);
    frame[18] = 0xFFFF;
    ApplyPatches<uint16_t>(ListPatches({18}, kWidth, kHeight, 1, kDenoise), {frame, 0, 0xFFF0});
    EXPECT_EQ(frame[18], 0x1230);
    // In a frame of two rows the last pixel has nothing on its right.
    EXPECT_TRUE(ListPatches({15}, 8, 2, 2, kDenoise).list.empty());
}

class HotPixelTable : public DarkTest {
  protected:
    struct Loaded {
        bool whole;
        std::string printed;
    };
    /// The table in the flash of a camera, as a host with it would use it.
    static Loaded Load(OpenedCamera &camera, const Bytes &flash)
    {
        Bus().With(camera.Device(), [&flash](vscsim::Camera &device) {
            std::ranges::copy(flash, device.Flash().begin() + 0x40000);
        });
        Loaded result{};
        result.printed = Printed([&] { result.whole = camera->LoadHPCTable(); });
        return result;
    }

    static std::string LengthAnd(int length, const std::string &rest)
    {
        return "LoadHPC: Compressed length: " + std::to_string(length) + " :\n" + rest;
    }
};

TEST_F(HotPixelTable, IsReadInChunksAndRefusedWhenItIsNone)
{
    const std::string head = "gpif32 off;flash read 040000+2048;";
    const std::string second = "flash read 040800+";
    const std::string none = "HPC Dead pixel:0\n";
    const std::string tooLong = "LoadHPCTable: HPC data length too big\n";
    const struct {
        const char *what;
        Bytes flash;
        bool loaded;
        std::string wire;
        std::string printed;
    } cases[] = {
        {"nothing", Bytes(8, 0xFF), false, "", ""},
        {"other magic", {'V', 'S', 'C', 'E', 0, 0, 0, 8}, false, "", ""},
        {"header alone", RecordOf(8, {}), true, second + "256;", LengthAnd(8, none)},
        {"a chunk", RecordOf(2048, Bytes(2040)), true, "", LengthAnd(2048, none)},
        {"two and a tail", RecordOf(4097, Bytes(4089)), true,
         second + "2048;flash read 041000+256;", LengthAnd(4097, none)},
        {"two pixels", RecordOf(10, {0x01, 0x81}), true, second + "256;",
         LengthAnd(10, "HPC Dead pixel:2\n")},
        {"too long", RecordOf(0x30001, {}), false, "", tooLong},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
        EXPECT_TRUE(Load(camera, RecordOf(10, {0x01, 0x01})).whole);
        const std::vector<uint32_t> before = camera->delivery.corrections.hotPixels.Pixels();
        (void)camera.Traffic();
        const Loaded result = Load(camera, c.flash);
        EXPECT_EQ(result.whole, c.loaded);
        EXPECT_NE(camera->delivery.corrections.hotPixels.Pixels(), before);
        EXPECT_EQ(result.printed, c.printed);
        EXPECT_EQ(camera.Traffic(), Wire(head + c.wire + "gpif32 on"));
    }
}

TEST_F(HotPixelTable, ReadsAChunkThreeTimesAtMostAndUsesWhatItHas)
{
    Bytes pairs(4096);
    pairs[0] = 0x01; // byte 16 of the bitmap
    pairs[1] = 0x10;
    const struct {
        uint32_t length;
        uint64_t chunk; // that is refused
    } cases[] = {{4096, 1}, {4104, 1}, {4104, 2}};
    for (const auto &c : cases) {
        for (const size_t failures : {2U, 3U}) {
            OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM",
                                {.faults = {{.fault = Fault::RefuseRequest,
                                             .request = 0xC3,
                                             .from = c.chunk,
                                             .count = failures}}});
            const Loaded result = Load(camera, RecordOf(c.length, pairs));
            EXPECT_EQ(result.whole, failures < 3);
            std::string printed;
            for (size_t i = 0; i < failures; ++i)
                printed += "fail " + std::to_string(c.chunk) + "\n";
            EXPECT_EQ(result.printed,
                      LengthAnd(static_cast<int>(c.length), printed + "HPC Dead pixel:1\n"));
        }
    }
}

TEST_F(HotPixelTable, StaysWhereACameraThatComesBackDoesNotShowIt)
{
    const Bytes table = RecordOf(10, {0x01, 0x01});
    const Bytes longTable = RecordOf(4097, Bytes(4089));
    const struct {
        const char *what;
        Bytes found;
        uint64_t refused; // request
        bool lost;
        bool corrects;
    } cases[] = {
        {"refused", table, 2, true, true},
        {"refused in the middle", longTable, 3, true, true},
        {"none", Bytes(8, 0xFF), UINT64_MAX, true, false},
        {"refused at the start of a session", table, 2, false, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        OpenedCamera camera(
            std::in_place_type<CCameraS470MM>, "VSC470MM",
            {.faults = {
                 {.fault = Fault::RefuseRequest, .request = 0xC3, .from = c.refused, .count = 3}}});
        (void)Load(camera, table);
        const std::vector<uint32_t> before = camera->delivery.corrections.hotPixels.Pixels();
        ASSERT_EQ(before.size(), 1U);
        if (c.lost)
            (void)camera->capture.Change(CaptureChange::WorkerLosesDevice);
        Bus().With(camera.Device(), [&c](vscsim::Camera &device) {
            std::ranges::copy(c.found, device.Flash().begin() + 0x40000);
        });
        camera->SetHPCStates(true);
        EXPECT_EQ(camera->delivery.corrections.hotPixels.Pixels(),
                  c.corrects ? before : std::vector<uint32_t>());
    }
}

TEST_F(HotPixelTable, IsWrittenWithReadBackAndThreeAttempts)
{
    const auto failing = [](Fault fault, uint8_t request, uint64_t count) -> vscsim::FaultPlan {
        return {{.fault = fault, .request = request, .count = count, .amount = 9}};
    };
    const std::string twice = "fail 0 try again :1\nfail 0 try again :2\n";
    const std::string thrice = twice + "fail 0 try again :3\n";
    const struct {
        const char *what;
        size_t hotBytes; // of the bitmap; the record has 2080 bytes more than two for each
        vscsim::FaultPlan faults;
        bool saved;
        int writes;
        std::string printed;
    } cases[] = {
        {"a chunk and a tail", 10, {}, true, 2, ""},
        {"two whole chunks", 1008, {}, false, 2, ""},
        {"two sectors", 32'000, {}, true, 33, ""},
        {"as far as the identity", 100'000, {}, false, 0, "SaveHPC: Compressed length too big\n"},
        {"erase fails", 10, failing(Fault::RefuseRequest, 0xC4, 1), false, 0,
         "Erase SPI FLASH sector 4 failed :\n"},
        {"two bad read-backs", 10, failing(Fault::ShortAnswer, 0xC3, 2), true, 4, twice},
        {"three bad read-backs", 10, failing(Fault::ShortAnswer, 0xC3, 3), false, 3, thrice},
        {"writing fails", 10, failing(Fault::RefuseRequest, 0xC2, UINT64_MAX), false, 3, thrice},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM", {.faults = c.faults});
        Bus().With(camera.Device(), [](vscsim::Camera &device) {
            std::ranges::fill(device.Flash(), uint8_t{0}); // which only erasing undoes
        });
        EXPECT_FALSE(camera->SaveHPCTable()); // made of what?
        EXPECT_EQ(camera.Traffic(), Wire("gpif32 off;gpif32 on"));
        Bytes dark(kSensor.width * kSensor.height, 10);
        std::vector<uint32_t> hot;
        for (uint32_t i = 0; i < c.hotBytes; ++i) {
            hot.push_back(i * 8 + 3);
            dark[hot.back()] = 200;
        }
        ASSERT_EQ(LoadDark(*camera.operator->(), dark), 1);
        const auto save = [&] { EXPECT_EQ(camera->SaveHPCTable(), c.saved); };
        EXPECT_EQ(Printed(save), "SaveHPC: Compressed length: " +
                                     std::to_string(2080 + 2 * c.hotBytes) + " :\n" + c.printed);
        const std::vector<std::string> traffic = camera.Traffic();
        EXPECT_EQ(traffic.front(), "gpif32 off");
        EXPECT_EQ(traffic.back(), "gpif32 on");
        EXPECT_EQ(std::ranges::count_if(traffic,
                                        [](auto &line) { return line.starts_with("flash write"); }),
                  c.writes);
        if (c.writes > 0 && (c.saved || c.faults.empty())) {
            EXPECT_TRUE(camera->LoadHPCTable());
            EXPECT_EQ(camera->delivery.corrections.hotPixels.Pixels(), hot);
        }
    }
}

} // namespace
} // namespace vsccam
