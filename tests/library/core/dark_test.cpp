#include "core/dark_frames.h"
#include "core/gamma.h"
#include "core/hot_pixel_record.h"
#include "library/core/dark_fixture.h"
#include "library/picture.h"
#include "models/sony/large_format.h"

#include <sys/stat.h>

namespace vsccam {
namespace {

Bytes ReadAll(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteAll(const std::string &path, const Bytes &bytes)
{
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

TEST(DarkFramesTest, AreTheMeansOfOneWholeCapture)
{
    DarkFrames dark;
    dark.Request(2);
    EXPECT_FALSE(dark.Add(Bytes(6, 200)));
    dark.Request(0); // given up in the middle
    EXPECT_FALSE(dark.Requested());
    EXPECT_FALSE(dark.Add(Bytes(6, 200)));
    EXPECT_TRUE(dark.Image().empty());
    dark.Request(2);
    EXPECT_FALSE(dark.Add(Bytes{0, 1, 10, 11, 80, 255}));
    EXPECT_TRUE(dark.Requested());
    EXPECT_TRUE(dark.Add(Bytes{0, 1, 20, 21, 90, 255}));
    EXPECT_FALSE(dark.Requested());
    EXPECT_EQ(dark.Image(), (Bytes{0, 0, 15, 15, 85, 254})); // divided before they are added
    EXPECT_EQ(Printed([&] {
                  dark.Cut({.sensor = {3, 2}, .frame = {3, 2}});
              }),
              "avarage:61\nDead pixel:1\n");
    // More than 30 above the mean is much.
    for (const auto &[brightest, bright] : {std::pair{45, 0}, {46, 1}}) {
        dark.SetImage({41, 41, 40, static_cast<uint8_t>(brightest), 0, 0});
        EXPECT_EQ(Printed([&] {
                      dark.Cut({.sensor = {3, 2}, .y = 1, .frame = {3, 1}});
                  }),
                  "avarage:15\nDead pixel:" + std::to_string(bright) + "\n");
    }
    EXPECT_EQ(dark.Current().working->pixels, (Bytes{46, 0, 0}));
}

class DarkFile : public DarkTest {
  protected:
    static constexpr Size kSmall{6, 2}; // rows of 8 bytes

    static DarkFileResult Read(std::span<const uint8_t> contents, Size size, Bytes *image)
    {
        // fmemopen takes a pointer to non-const for writing too.
        const File file(fmemopen(const_cast<uint8_t *>(contents.data()), contents.size(), "rb"));
        return ReadDarkFile(file.get(), size, image);
    }
};

TEST_F(DarkFile, HasTheHeadersThatAllItsReadersExpect)
{
    const std::string path = InFolder("small.bmp");
    ASSERT_TRUE(CreateBMP(path.c_str(), kSmall, Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    Bytes expected = {
        'B', 'M', 0, 0, 0x46, 4, 0, 0, 0, 0, 0, 0, 0x36, 4, 0, 0, // 16 + 1078 bytes, 1078
        40,  0,   0, 0, 6,    0, 0, 0, 2, 0, 0, 0, 1,    0, 8, 0, 0, 0, 0, 0,
        16,  0,   0, 0, 0,    0, 0, 0, 0, 0, 0, 0, 0,    1, 0, 0, 0, 0, 0, 0};
    for (int grey = 0; grey < 256; ++grey) {
        expected.insert(expected.end(), 3, static_cast<uint8_t>(grey));
        expected.push_back(0);
    }
    expected.insert(expected.end(), {1, 2, 3, 4, 5, 6, 0, 0, 7, 8, 9, 10, 11, 12, 0, 0});
    EXPECT_EQ(ReadAll(path), expected);

    // What was written comes back behind the last two bytes of the palette.
    Bytes image;
    EXPECT_EQ(Read(expected, kSmall, &image), DarkFileResult::kRead);
    EXPECT_EQ(image, (Bytes{255, 0, 1, 2, 3, 4, 5, 6, 0, 0, 7, 8}));
}

TEST_F(DarkFile, IsRefusedWhateverIsWrongWithIt)
{
    const std::string path = InFolder("whole.bmp");
    const Size size{8, 2};
    ASSERT_TRUE(CreateBMP(path.c_str(), size, Bytes(16, 7)));
    const Bytes whole = ReadAll(path);
    const auto with = [&whole](size_t at, const Bytes &bytes) {
        Bytes changed = whole;
        std::ranges::copy(bytes, changed.begin() + static_cast<std::ptrdiff_t>(at));
        return changed;
    };
    using enum DarkFileResult;
    const struct {
        const char *what;
        Bytes contents;
        DarkFileResult result;
    } cases[] = {
        {"signature", with(0, {'M', 'B'}), kUnusable},
        {"huge", with(20, {0xF8, 0xFF, 0xFF, 0x7F}), kOtherSize},
        {"other size and depth", with(24, {4, 0, 0, 0, 1, 0, 24}), kOtherSize},
        {"24 bits", with(30, {24}), kUnusable},
        {"offset at the end", with(12, {0x48, 4}), kUnusable},
        {"offset negative", with(12, {0xFF, 0xFF, 0xFF, 0xFF}), kUnusable},
        {"offset in the header", with(12, {0, 0, 0, 0}), kRead},
    };
    for (const auto &c : cases) {
        Bytes image = {1};
        EXPECT_EQ(Read(c.contents, size, &image), c.result) << c.what;
        EXPECT_EQ(image.size(), c.result == kRead ? 16U : 1U) << c.what;
    }
    for (size_t length = 0; length < whole.size(); ++length) {
        Bytes image;
        const bool enough = length >= 1078 + 16;
        EXPECT_EQ(Read(std::span(whole).first(length), size, &image), enough ? kRead : kUnusable)
            << length;
    }
}

class DarkSubtraction : public DarkTest {
  protected:
    /// What samples become with a dark frame of one level everywhere.
    static std::vector<uint16_t> Values(int type, int gamma, int darkLevel)
    {
        GammaTable8 gamma8{};
        FillGammaTable(gamma, gamma8);
        const auto gamma16 = std::make_unique<GammaTable16>();
        FillGammaTable(gamma, *gamma16);
        std::vector<uint16_t> values(type == VSC_IMG_RAW16 ? gamma16->size() : gamma8.size());
        for (size_t v = 0; v < values.size(); ++v) {
            const size_t rest = std::max(v, static_cast<size_t>(darkLevel));
            const bool linear = gamma == kLinearGamma;
            values[v] = static_cast<uint16_t>(linear                  ? rest
                                              : type == VSC_IMG_RAW16 ? (*gamma16)[rest]
                                                                      : gamma8[rest]);
        }
        return values;
    }

    static Bytes Frame(CCameraBase &camera)
    {
        Bytes frame(
            static_cast<size_t>(camera.settings.Now().width * camera.settings.Now().height));
        EXPECT_TRUE(camera.GetImage(frame.data(), static_cast<int>(frame.size()), 5000));
        return frame;
    }
};

TEST_F(DarkSubtraction, KeepsTheOldFrameUnlessTheNewOneIsThere)
{
    OpenedCamera camera(std::in_place_type<CCameraS470MM>, "VSC470MM");
    const std::string pipe = InFolder("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    WriteAll(InFolder("small.bmp"), Bytes(100));
    WriteAll(InFolder("header.bmp"), Bytes{'B', 'M', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    const struct {
        std::string path;
        int result;
        bool kept;
        std::string says;
    } cases[] = {
        {InFolder("small.bmp"), 0, true, ""},
        {InFolder("header.bmp"), 0, true, "Read bmp infomation failed!\n"},
        {InFolder("missing.bmp"), 6, false, "Open file " + InFolder("missing.bmp") + " failed!\n"},
        {pipe, 6, false, "Open file " + pipe + " failed!\n"},
    };
    for (const auto &c : cases) {
        ASSERT_EQ(LoadDark(*camera.operator->(), Bytes(kSensor.width * kSensor.height, 9)), 1);
        int result = -1;
        const auto load = [&] { result = camera->LoadBMPFromFile(c.path.c_str()); };
        EXPECT_EQ(Printed(load), c.says) << c.path;
        EXPECT_EQ(result, c.result) << c.path;
        EXPECT_EQ(camera->SaveBMPToFile(InFolder("kept.bmp").c_str()), c.kept ? 1 : 0) << c.path;
    }
    EXPECT_EQ(camera->SaveBMPToFile(InFolder("no/folder").c_str()), 0);
    EXPECT_EQ(camera->SaveBMPToFile("/dev/full"), 0);
}

/// Before a sky that saturates the sensor, a dark frame like a chess board shows where it was cut.
TEST_F(DarkSubtraction, FollowsARegionThatMovesDuringVideoInEveryFamily)
{
    constexpr int kField = 64; // columns and rows of the sensor
    constexpr int kSide = 128; // pixels of the frame
    const auto isDark = [](int x, int y) { return ((x / kField + y / kField) & 1) != 0; };
    const struct {
        const char *model;
        int bin;
        bool sensorBins;
    } cases[] = {{"VSC470MM", 1, false},  {"VSC470MM", 2, true},  {"VSC2800MM", 1, false},
                 {"VSC2800MM", 4, true},  {"VSC048MM", 1, false}, {"VSC340MM", 1, false},
                 {"VSC340MM-S", 2, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.model << " bin " << c.bin);
        const int device = OpenOne(
            c.model, {.scene = vscsim::Scene::Sky, .glow = {1e6, 1e6, 1e6}, .flawless = true});
        const int width = getMaxWidth();
        Bytes board(static_cast<size_t>(width) * static_cast<size_t>(getMaxHeight()));
        for (size_t i = 0; i < board.size(); ++i) {
            const auto at = static_cast<int>(i);
            board[i] = isDark(at % width, at / width) ? 16 : 0;
        }
        board[static_cast<size_t>(width) * 10 + 80] = 255; // to be patched away
        const std::string path = InFolder("board.bmp");
        ASSERT_TRUE(CreateBMP(path.c_str(), {width, getMaxHeight()}, board));
        TellTheOffset(path);
        setValue(CONTROL_HARDWARE_BIN, c.sensorBins, false);
        ASSERT_TRUE(setImageFormat(kSide, kSide, c.bin, VSC_IMG_RAW8));
        ASSERT_EQ(EnableDarkSubtract(path.c_str()), 1);
        startCapture();
        for (const int startX : {0, kField}) {
            setStartPos(startX / c.bin, 0);
            Bytes frame;
            for (int i = 0; i < 4; ++i) // those on their way are of before
                frame = NextFrame(5000);
            ASSERT_FALSE(frame.empty());
            int wrong = 0;
            const uint8_t *pixel = frame.data();
            for (int y = 0; y < kSide; ++y)
                for (int x = 0; x < kSide; ++x) {
                    const bool dark = isDark(x * c.bin + startX, y * c.bin);
                    // Half of the fields are dark, and what is left gets the mean back.
                    wrong += *pixel++ != (dark ? 247 : 255);
                }
            EXPECT_EQ(wrong, 0) << startX;
        }
        Remove(device);
    }
}

TEST_F(DarkSubtraction, IsCapturedFromTheWholeSensorOnly)
{
    // Of a sensor wider than that, so that frames of the largest size have room to move.
    OpenedCamera camera(std::in_place_type<CCameraS385MC>, "VSC385MC-Cool", {.speed = 0});
    ASSERT_TRUE(camera->InitCamera());
    const Size whole = MaxSizeOf(camera->model);
    ASSERT_TRUE(camera->SetExp(500'000, false));
    EXPECT_EQ(camera->GettingDark(true), 3);
    ASSERT_TRUE(camera->SetExp(800'000, false));
    ASSERT_EQ(camera->GettingDark(true), 1);
    const struct {
        Size size;
        int startX;
        bool taken;
    } frames[] = {{{64, 64}, 0, false}, {whole, 4, false}, {whole, 0, true}};
    for (const auto &f : frames) {
        SCOPED_TRACE(testing::Message() << f.size.width << " at " << f.startX);
        ASSERT_TRUE(camera->SetResolution(f.size.width, f.size.height, 1, kByteImage));
        ASSERT_TRUE(camera->SetStartPos(f.startX, 0));
        ASSERT_EQ(camera->settings.Now().startX, f.startX);
        ASSERT_TRUE(camera->StartCapture(false));
        (void)Frame(*camera.operator->());
        ASSERT_TRUE(camera->StopCapture());
        EXPECT_EQ(camera->delivery.corrections.dark.Requested(), !f.taken);
    }
}

/// Dark frame, gamma, hot pixels, bright pixels: the order shows where one pixel is copied from its
/// neighbour, which is patched then.
TEST_F(DarkSubtraction, AndPatchesComeInTheirOrderWhereTheyApply)
{
    constexpr int kLevel = 9;
    constexpr int kWidth = 160;
    constexpr int kHotRow = 4; // its first pixel is hot, its second bright
    Bytes dark(kSensor.width * kSensor.height, kLevel);
    dark[kHotRow * kSensor.width + 1] = 255;
    const std::string path = InFolder("bright.bmp");
    ASSERT_TRUE(CreateBMP(path.c_str(), kSensor, dark));
    TellTheOffset(path);
    Bytes hot(kSensor.width * kSensor.height / 8);
    hot[kHotRow * kSensor.width / 8] = 1;
    const struct {
        const char *what;
        int type;
        int gamma;
        int exposureUs;
        bool autoExposure;
        bool subtracted;
    } cases[] = {
        {"with gamma", VSC_IMG_RAW8, 80, 10'000, false, true},
        {"short automatic exposure", VSC_IMG_RAW8, 80, 499'999, true, false},
        {"long automatic exposure", VSC_IMG_RAW8, 80, 500'000, true, true},
        {"16 bits with gamma", VSC_IMG_RAW16, 80, 10'000, false, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const int device = OpenOne("VSC470MM");
        Bus().With(device, [&hot](vscsim::Camera &camera) {
            std::ranges::copy(Compress(hot), camera.Flash().begin() + 0x40000);
        });
        ASSERT_TRUE(initCamera()); // finds the table
        ASSERT_TRUE(setImageFormat(kWidth, 120, 1, c.type));
        setStartPos(0, 0);
        setValue(CONTROL_GAMMA, c.gamma, false);
        setValue(CONTROL_EXPOSURE, c.exposureUs, c.autoExposure);
        ASSERT_TRUE(EnableDarkSubtract(path.c_str()));
        startExposure();
        while (getExpStatus() == VSC_EXP_WORKING)
            SleepFor(std::chrono::milliseconds(50));
        const Bytes image = ExposedFrame();
        ASSERT_FALSE(image.empty());

        const int sampleBytes = c.type == VSC_IMG_RAW16 ? 2 : 1;
        const Picture picture{.model = "VSC470MM",
                              .width = kWidth,
                              .height = 120,
                              .bin = 1,
                              .type = c.type,
                              .startX = 0,
                              .startY = 0,
                              .values = Values(c.type, c.gamma, c.subtracted ? kLevel : 0)};
        const auto patched = [&](uint32_t frame) {
            Bytes expected = picture.Image(frame);
            const auto put = [&](int x, uint32_t value) {
                uint8_t *const sample = expected.data() + (kHotRow * kWidth + x) * sampleBytes;
                for (int i = 0; i < sampleBytes; ++i, value >>= 8)
                    sample[i] = static_cast<uint8_t>(value);
            };
            // The dark frame leaves nothing of the bright pixel but the mean.
            const uint32_t bright =
                c.subtracted ? picture.values[0] : picture.ReadOut(frame, 1, kHotRow);
            put(0, bright);
            put(1, (bright + picture.ReadOut(frame, 2, kHotRow)) / 2);
            return expected;
        };
        EXPECT_TRUE(image == patched(0) || image == patched(1));
        Remove(device);
    }
}

/// Hosts may ask for any factor, far beyond those for which rows are kept.
TEST_F(DarkSubtraction, AndGammaComeBeforeBinningByWhateverFactor)
{
    constexpr int kLevel = 9; // of the dark frame, everywhere
    constexpr int kGamma = 80;
    const std::string path = InFolder("level.bmp");
    ASSERT_TRUE(CreateBMP(path.c_str(), kSensor, Bytes(kSensor.width * kSensor.height, kLevel)));
    TellTheOffset(path);
    for (const char *model : {"VSC470MM", "VSC470MC"}) {
        for (const int type : {VSC_IMG_RAW8, VSC_IMG_RAW16}) {
            for (const int bin : {5, 8, 16}) {
                for (const bool dark : {false, true}) {
                    const Picture picture{
                        .model = model,
                        .width = 1920 / bin / 8 * 8,
                        .height = 4,
                        .bin = bin,
                        .type = type,
                        .startX = 0,
                        .startY = 0,
                        .flipX = true,
                        .values = Values(type, kGamma, dark && type == VSC_IMG_RAW8 ? kLevel : 0)};
                    SCOPED_TRACE(testing::Message() << model << " bin " << bin << " type " << type
                                                    << (dark ? " dark" : ""));
                    const int device = OpenOne(model);
                    ASSERT_TRUE(setImageFormat(picture.width, picture.height, bin, type));
                    setStartPos(0, 0);
                    SetMisc(true, false);
                    setValue(CONTROL_GAMMA, kGamma, false);
                    if (dark) {
                        ASSERT_EQ(EnableDarkSubtract(path.c_str()), 1);
                    }
                    startCapture();
                    EXPECT_TRUE(picture.IsOneOfTheFirst(NextFrame(5000)));
                    Remove(device);
                }
            }
        }
    }
}

} // namespace
} // namespace vsccam
