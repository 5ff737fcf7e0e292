#include "api/session.h"
#include "core/auto_exposure.h"
#include "core/auto_white_balance.h"
#include "library/capture_fixture.h"

#include <climits>
#include <cstdlib>

namespace vsccam {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

/// "g56 e1500 g62": gain and exposure in the order they are set, on a sensor with lines of 20 us.
std::string StepInWords(const AutoExposureState &state)
{
    std::string words;
    uint32_t lines = state.exposureLines;
    StepAutoExposure(state, [&](const AutoExposureChange &change) {
        const bool gain = change.setting == AutoExposureChange::Setting::kGain;
        words.append(words.empty() ? "" : " ")
            .append(gain ? "g" : "e")
            .append(std::to_string(change.value));
        return lines = gain ? lines : static_cast<uint32_t>(change.value / 20);
    });
    return words;
}

TEST(AutoExposure, DecidesByMeanExposureAndWhatIsAutomatic)
{
    constexpr bool kOn = true;
    constexpr bool kOff = false;
    const struct {
        const char *name;
        bool exposureAuto, gainAuto;
        int mean;
        int gain;
        uint64_t exposureUs;
        uint32_t lines;
        const char *changes;
        int target = 100;
        int minGain = 0;
        int maxGain = 600;
    } cases[] = {
        // Target 100, gains 0 to 600: steps of 6 and 12. Limits: gain 50, exposure 30 s.
        {"lower edge of the dead band", kOn, kOn, 85, 20, 10'000, 900, ""},
        {"upper edge", kOn, kOn, 115, 20, 10'000, 900, ""},
        {"dark, gain only, up to its limit", kOff, kOn, 84, 45, 10'000, 900, "g50"},
        {"dark, exposure only, up to its limit", kOn, kOff, 1, 20, 29'000'000, 900, "e30000000"},
        {"dark, both", kOn, kOn, 50, 20, 100'000, 900, "g26 e125000 g32"},
        {"long: gain comes first", kOn, kOn, 50, 20, 100'001, 900, "g26 g38"},
        {"until it ends", kOn, kOn, 50, 47, 100'001, 900, "g50 e125001"},
        {"two lines, small error: gain alone", kOn, kOn, 71, 20, 64, 2, "g26 g32"},
        {"one line, much larger error", kOn, kOff, 55, 20, 64, 1, "e78"},
        {"one line, less", kOn, kOff, 144, 20, 64, 1, ""},
        {"two lines, that error", kOn, kOff, 144, 20, 64, 2, "e57"},
        {"bright, gain only, below the lowest", kOff, kOn, 116, 3, 10'000, 900, "g-3"},
        {"bright, long: gain stays", kOn, kOn, 255, 20, 100'001, 900, "e61251"},
        {"bright, both, becoming a short one", kOn, kOn, 255, 4, 64, 3, "e40 g1 g1"},
        {"not becoming one", kOn, kOn, 255, 20, 100'000, 900, "e61250 g14"},
        // Whatever is divided is rounded towards 0.
        {"no longer", kOn, kOff, 86, 20, 10'000, 900, "", 101},
        {"a fiftieth of 149 gains", kOff, kOn, 84, 30, 10'000, 900, "g32", 100, 20, 169},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        AutoExposureState state;
        state.exposureAuto = c.exposureAuto;
        state.gainAuto = c.gainAuto;
        state.mean = c.mean;
        state.target = c.target;
        state.gain = c.gain;
        state.minGain = c.minGain;
        state.maxGain = c.maxGain;
        state.exposureUs = c.exposureUs;
        state.exposureLines = c.lines;
        EXPECT_EQ(StepInWords(state), c.changes);
    }
}

TEST(AutoExposure, WithstandsLimitsThatMakeNoSense)
{
    AutoExposureState state;
    state.exposureAuto = state.gainAuto = true;
    state.maxGain = 510;
    state.exposureUs = 2'000'000'000;
    state.mean = 200;
    state.target = INT32_MIN;
    EXPECT_EQ(StepInWords(state), "e0");
    state.target = INT32_MAX;
    state.exposureLimitS = -1;
    state.gainLimit = 600; // more than there is: reached at the largest gain
    state.gain = 510;
    EXPECT_EQ(StepInWords(state), "g510 e0");
}

// NOLINTBEGIN(concurrency-mt-unsafe, cert-msc*): the sequence of rand() is what this is about
TEST(AutoExposure, MeasuresWhereRandSaysWithoutTouchingTheHostsSequence)
{
    constexpr Size kSize{333, 217};
    const auto pixel = [](int x, int y) { // black or white, so that every point counts
        return static_cast<uint8_t>((static_cast<uint32_t>(y * 333 + x) * 2654435761U) >> 31 ? 255
                                                                                             : 0);
    };
    Bytes frame;
    for (int y = 0; y < kSize.height; ++y) {
        for (int x = 0; x < kSize.width; ++x)
            frame.push_back(pixel(x, y));
    }
    Bytes words; // the low byte first
    for (const uint8_t byte : frame)
        words.insert(words.end(), {0xEE, byte});
    EXPECT_EQ(MeanBrightness({{}, {0, 0}}, 7), std::nullopt);
    for (unsigned seed = 1'000'000'000; seed < 1'000'000'020; ++seed) {
        std::srand(seed);
        int sum = 0;
        int count = 0;
        for (int i = 0; i < 64; ++i) {
            const int x = i * kSize.width / 64 + std::rand() % 2;
            if (x < 66 || x > 266)
                continue;
            for (int j = 0; j < 48; ++j) {
                const int y = j * kSize.height / 48 + std::rand() % 2;
                if (y < 43 || y > 173)
                    continue;
                sum += pixel(x, y);
                ++count;
            }
        }
        std::srand(seed + 1);
        const int hosts = std::rand();
        std::srand(seed + 1);
        EXPECT_EQ(MeanBrightness({frame, kSize}, seed), sum / count + 1);
        EXPECT_EQ(MeanBrightness({words, kSize, true, false}, seed), sum / count + 1);
        EXPECT_EQ(MeanBrightness({words, kSize, true, true}, seed), 0xEF);
        EXPECT_EQ(std::rand(), hosts);
    }
}
// NOLINTEND(concurrency-mt-unsafe, cert-msc*)

TEST(AutoWhiteBalance, MeasuresTheMosaicInEveryPhaseAndDepth)
{
    const auto expect = [](const ColourLevels &levels, float r, float g, float b) {
        EXPECT_NEAR(levels.red, r, 3);
        EXPECT_NEAR(levels.green, g, 3);
        EXPECT_NEAR(levels.blue, b, 3);
    };
    for (int phase = 0; phase < 4; ++phase) {
        for (const Size size : {Size{2, 2}, {48, 16}, {320, 240}}) {
            SCOPED_TRACE(testing::Message() << phase << ", " << size.width << " x " << size.height);
            const int redX = phase == 1 || phase == 2 ? 1 : 0;
            const int redY = phase == 1 || phase == 3 ? 1 : 0;
            Bytes bytes, words;
            for (int y = 0; y < size.height; ++y) {
                for (int x = 0; x < size.width; ++x) {
                    const bool redColumn = x % 2 == redX;
                    const bool redRow = y % 2 == redY;
                    const int colour = redColumn != redRow ? 120 : redRow ? 60 : 90;
                    const auto value = static_cast<uint8_t>(colour + (x / 2 + y / 2) % 2);
                    bytes.push_back(value);
                    words.insert(words.end(), {0x80, value});
                }
            }
            const auto which = static_cast<BayerPhase>(phase);
            expect(MosaicLevels({bytes, size}, which, 1), 60, 120, 90);
            expect(MosaicLevels({words, size, true}, which, 1), 60, 120, 90);
            expect(MosaicLevels({bytes, size}, which, 4), 236, 255, 255); // each mean is a bit low
        }
    }
}

TEST(AutoWhiteBalance, MovesWhatIsTintedMoreThanItMayRemain)
{
    const ColourLevels tinted = {92, 100, 100};
    EXPECT_EQ(DecideWhiteBalance(tinted, {52, 95}, false), (WhiteBalance{55, 94}));
    EXPECT_EQ(DecideWhiteBalance(tinted, {52, 95}, true), std::nullopt);
}

/// Automatics at work on simulated cameras.
class AutoLoopTest : public HostTest {
  protected:
    static constexpr int kTarget = 100;
    static constexpr int kBand = 15 + 3; // the automatic measures a sparse grid, and adds 1

    static vscsim::CameraOptions Sky(std::array<double, 3> glow)
    {
        vscsim::CameraOptions options;
        options.scene = vscsim::Scene::Sky;
        options.glow = glow;
        return options;
    }

    /// Mean of each of the channels in the middle of a frame.
    static std::array<double, 3> Means(const Bytes &frame, size_t channels)
    {
        const auto width = static_cast<size_t>(getWidth());
        const auto height = static_cast<size_t>(getHeight());
        std::array<double, 3> means{};
        double count = 0;
        for (size_t y = height / 5; y < height * 4 / 5; ++y) {
            for (size_t x = width / 5; x < width * 4 / 5; ++x, ++count) {
                for (size_t c = 0; c < channels; ++c)
                    means[c] += frame[(y * width + x) * channels + c];
            }
        }
        for (double &mean : means)
            mean /= count;
        return means;
    }

    /// Of samples as hosts get them.
    static Bytes HighBytes(const Bytes &frame)
    {
        Bytes high;
        for (size_t i = 1; i < frame.size(); i += 2)
            high.push_back(frame[i]);
        return high;
    }

    /// Of a raw frame, from 0 to 255.
    static double Brightness(const Bytes &frame)
    {
        return Means(getImgType() == VSC_IMG_RAW16 ? HighBytes(frame) : frame, 1)[0];
    }

    enum class Auto { kExposure, kGain, kBoth };
    struct Setting {
        int exposureUs;
        int gain;

        bool operator==(const Setting &) const = default;
    };
    static Setting Now()
    {
        return {getValue(CONTROL_EXPOSURE, nullptr), getValue(CONTROL_GAIN, nullptr)};
    }
    static void Start(const Setting &start, Auto automatic)
    {
        setValue(CONTROL_GAIN, start.gain, automatic != Auto::kExposure);
        setValue(CONTROL_EXPOSURE, start.exposureUs, automatic != Auto::kGain);
        startCapture();
    }
};

TEST_F(AutoLoopTest, BringsBrightnessIntoItsBandAndKeepsItThere)
{
    struct Format {
        int type = VSC_IMG_RAW8;
        int bin = 1;
        bool hardwareBin = false;
        int sum = 1; // of so many pixels is what has to reach the target
    };
    constexpr Format k8{};
    constexpr Format k16{VSC_IMG_RAW16};
    constexpr Format kBin2{VSC_IMG_RAW8, 2, false, 4}; // what is delivered is their mean
    constexpr Format k16Bin2{VSC_IMG_RAW16, 2};
    constexpr Format kHardBin2{VSC_IMG_RAW8, 2, true};
    constexpr Format kHardBin4{VSC_IMG_RAW8, 4, true, 4};
    struct Range {
        int from, to;
    };
    constexpr Range kShort{16, 99'999};           // the auto-control thread's
    constexpr Range kLong{100'000, 3'999'999};    // the worker's
    constexpr Range kLongest{4'000'001, INT_MAX}; // too long for the sensors of USB 2.0 cameras
    constexpr Range kAboutTheirLongest{3'500'000, 5'000'000};
    using enum Auto;
    const struct {
        const char *model;
        double glow;
        Setting start;
        Auto automatic;
        Range ends;
        Format format = {};
        uint64_t failures = 0; // of requests, after some frames
        int error = 0;
    } cases[] = {
        {"VSC470MC", 300, {90'000, 200}, kExposure, kShort, k8, 10, LIBUSB_ERROR_PIPE},
        {"VSC340MM", 300, {90'000, 20}, kExposure, kShort, k8, 4, LIBUSB_ERROR_TIMEOUT},
        {"VSC470MC", 300, {32, 200}, kExposure, kShort, kBin2},
        {"VSC470MM", 300, {90'000, 200}, kBoth, kShort, k16Bin2},
        {"VSC470MM", 0.2, {10'000, 0}, kBoth, kLong, k8},
        {"VSC2800MC", 300, {90'000, 200}, kExposure, kShort, kHardBin2},
        {"VSC2800MM", 300, {90'000, 200}, kExposure, kShort, kHardBin4},
        {"VSC2800MC", 1, {100'000, 200}, kExposure, kLong, k16},
        {"VSC340MC", 1.45, {30'000, 20}, kExposure, kAboutTheirLongest, k8},
        {"VSC340MM-S", 1, {30'000, 20}, kExposure, kLongest, k16},
        {"VSC056MC", 1, {15'000'000, 20}, kExposure, kLongest, k8},
        {"VSC047MC", 10, {5'000, 20}, kBoth, kLong, k8},
        {"VSC048MC", 1000, {60'000, 200}, kExposure, kShort, k16},
        {"VSC048MM", 15, {10'000, 0}, kBoth, {64'000, 64'000}, k8}, // its longest, then gain alone
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.model << " from " << c.start.exposureUs << " us, type "
                                        << c.format.type << ", bin " << c.format.bin);
        const int device = OpenOne(c.model, Sky({c.glow, c.glow, c.glow}));
        setValue(CONTROL_HARDWARE_BIN, c.format.hardwareBin, false);
        ASSERT_TRUE(setImageFormat(256, 128, c.format.bin, c.format.type));
        setStartPos(0, 0);
        setAutoPara(600, 30, kTarget);
        Start(c.start, c.automatic);
        const int enough = c.ends.from >= kLong.from ? 10 : 100;
        int inBand = 0;
        int frames = 0;
        for (; inBand < enough && frames < 2000; ++frames) {
            if (frames == 3)
                FailNext("libusb_control_transfer", c.failures, c.error);
            const Bytes frame = NextFrame(60'000);
            ASSERT_FALSE(frame.empty());
            const double error = std::abs((Brightness(frame) + 1) * c.format.sum - kTarget);
            inBand = error <= kBand + c.format.sum - 1 ? inBand + 1 : 0;
        }
        EXPECT_GE(inBand, enough) << "after " << frames << " frames";
        EXPECT_GE(Now().exposureUs, c.ends.from);
        EXPECT_LE(Now().exposureUs, c.ends.to);
        Remove(device);
    }
}

TEST_F(AutoLoopTest, MakesATintedSceneGrey)
{
    constexpr std::array kGrey = {360 / 280.0, 1.0, 360 / 250.0}; // what a night lacks of it
    const auto grey = [&](double glow) {
        return std::array{kGrey[0] * glow, kGrey[1] * glow, kGrey[2] * glow};
    };
    const struct {
        const char *model;
        std::array<double, 3> glow;
        int exposureUs;
        bool exposureAuto = false;
        WhiteBalance start = {99, 1};
        bool stays = false;
    } cases[] = {
        {"VSC470MC", {300, 300, 300}, 5'000},
        {"VSC470MC", {1.3, 1.0, 1.1}, 1'500'000}, // longer than the thread's passes
        {"VSC470MC", {200, 300, 400}, 5'000, true},
        {"VSC470MC", grey(300), 5'000, false, {50, 50}, true},
        {"VSC340MC", {6, 5, 5}, 500'000},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.model << " " << c.glow[0]);
        const int device = OpenOne(c.model, Sky(c.glow));
        ASSERT_TRUE(setImageFormat(256, 128, 1, VSC_IMG_RGB24));
        setValue(CONTROL_GAIN, getMax(CONTROL_GAIN) / 3, false);
        setValue(CONTROL_EXPOSURE, c.exposureUs, c.exposureAuto);
        setValue(CONTROL_WB_RED, c.start.red, true);
        setValue(CONTROL_WB_BLUE, c.start.blue, true);
        startCapture();
        const double limit = c.exposureAuto ? 13 : 7;
        int inBand = 0;
        const uint32_t longEnoughMs = c.stays ? 2'000 : 0; // for four looks, or more
        const uint32_t began = GetTickCount();
        for (int i = 0; i < 1'000 && (inBand < 8 || ElapsedMs(began) < longEnoughMs); ++i) {
            const Bytes frame = NextFrame(60'000);
            ASSERT_FALSE(frame.empty());
            const auto [blue, green, red] = Means(frame, 3);
            const bool good =
                green > 30 && std::abs(red - green) <= limit && std::abs(blue - green) <= limit;
            inBand = good ? inBand + 1 : 0;
        }
        EXPECT_GE(inBand, 8);
        const WhiteBalance now{getValue(CONTROL_WB_RED, nullptr),
                               getValue(CONTROL_WB_BLUE, nullptr)};
        EXPECT_TRUE(!c.stays || (now == c.start && ElapsedMs(began) >= longEnoughMs));
        Remove(device);
    }
}

/// The worker steps by every frame, the thread when it looks: on a USB 2.0 camera each 200 ms.
TEST_F(AutoLoopTest, EitherTheWorkerStepsOrTheThread)
{
    const struct {
        int width, height, bandwidth; // for frames of so many microseconds, of 16 bits
        int frameTimeUs;
        int exposureUs;
        bool worker;
    } cases[] = {{64, 64, 100, 1'559, 99'999, false},
                 {64, 64, 100, 5'197, 100'000, true},
                 {1176, 768, 43, 99'997, 10'000, false},
                 {1024, 923, 45, 100'000, 10'000, true}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.exposureUs << " us in " << c.frameTimeUs);
        const int device = OpenOne("VSC340MC", Sky({1e6, 1e6, 1e6}));
        setValue(CONTROL_BANDWIDTH, c.bandwidth, false);
        ASSERT_TRUE(setImageFormat(c.width, c.height, 1, VSC_IMG_RAW16));
        setValue(CONTROL_WB_RED, 50, true); // for which frames of every length are put by
        Start({c.exposureUs, 100}, Auto::kGain);
        EXPECT_EQ(CurrentCamera()->settings.Now().inForce.frameTimeUs, c.frameTimeUs);
        SleepFor(3s);
        stopCapture();
        const auto frames = static_cast<int>(FramesProduced(device));
        const int steps = 100 - Now().gain; // down, one at a time
        EXPECT_GE(frames, 25);
        EXPECT_GE(steps, c.worker ? frames - 2 : frames / 3);
        EXPECT_LE(steps, c.worker ? frames : frames / 2);
        Remove(device);
    }
}

TEST_F(AutoLoopTest, StepsByNoFrameOfAnEarlierSetting)
{
    for (const char *model : {"VSC470MC", "VSC340MC"}) {
        SCOPED_TRACE(model);
        const int device = OpenOne(model, Sky({1e6, 1e6, 1e6}));
        ASSERT_TRUE(setImageFormat(256, 128, 1, VSC_IMG_RAW8));
        startCapture();
        for (int i = 0; i < 40; ++i) {
            setValue(CONTROL_EXPOSURE, 10'000 + 5'000 * (i % 2), false);
            SleepFor(milliseconds(400 + 7 * i));
            setValue(CONTROL_EXPOSURE, 20'000'000, true);
            SleepFor(500ms);
            ASSERT_EQ(Now().exposureUs, 20'000'000) << i;
        }
        Remove(device);
    }
}

TEST_F(AutoLoopTest, LeavesAloneWhatTheHostTakesBack)
{
    OpenOne("VSC470MC", Sky({300, 300, 300}));
    ASSERT_TRUE(setImageFormat(256, 128, 1, VSC_IMG_RGB24));
    startCapture();
    SleepFor(100ms);
    for (int i = 1; i <= 60; ++i) {
        const int exposureUs = i % 2 != 0 ? 90'000 : 150'000; // the thread's, the worker's
        setValue(CONTROL_GAIN, 400, true);
        setValue(CONTROL_EXPOSURE, exposureUs, true);
        setValue(CONTROL_WB_RED, 99, true);
        setValue(CONTROL_WB_BLUE, 1, true);
        SleepFor(milliseconds(100 * (1 + i % 8))); // the automatics wake at the same moment
        setValue(CONTROL_GAIN, i, false);
        setValue(CONTROL_EXPOSURE, exposureUs + i, false);
        setValue(CONTROL_WB_RED, i, false);
        const int blue = getValue(CONTROL_WB_BLUE, nullptr);
        SleepFor(400ms);
        bool automatic[4] = {};
        ASSERT_EQ(getValue(CONTROL_GAIN, &automatic[0]), i);
        ASSERT_EQ(getValue(CONTROL_EXPOSURE, &automatic[1]), exposureUs + i);
        ASSERT_EQ(getValue(CONTROL_WB_RED, &automatic[2]), i);
        ASSERT_EQ(getValue(CONTROL_WB_BLUE, &automatic[3]), blue);
        ASSERT_FALSE(automatic[0] || automatic[1] || automatic[2] || automatic[3]);
    }
}

TEST_F(AutoLoopTest, RestsWithoutNewFramesAndEndsInTime)
{
    using vscsim::Fault;
    const struct {
        int exposureUs;
        std::optional<Fault> fault;
    } cases[] = {{10'000, {}},
                 {20'000'000, {}},
                 {10'000, Fault::EmptyFrame},
                 {10'000, Fault::Mute},
                 {10'000, Fault::Unplug}};
    for (const char *model : {"VSC470MC", "VSC340MC"}) {
        for (const auto &c : cases) {
            SCOPED_TRACE(testing::Message() << model << ", " << c.exposureUs << " us, fault "
                                            << (c.fault ? vscsim::NameOf(*c.fault) : "none"));
            vscsim::CameraOptions options = Sky({300, 300, 300});
            if (c.fault)
                options.faults = {{.fault = *c.fault, .from = 5, .count = kForEver}};
            OpenOne(model, options);
            ASSERT_TRUE(setImageFormat(256, 128, 1, VSC_IMG_RAW8));
            setValue(CONTROL_WB_RED, 99, true);
            setAutoPara(getMax(CONTROL_GAIN), 30, kTarget);
            // The first frames ask for more gain: fifty steps, each frame is worth one.
            Start({c.exposureUs, 0}, c.fault ? Auto::kGain : Auto::kBoth);
            SleepFor(2s); // of a mute camera, each request of the last step has its time-out
            const Setting before = Now();
            SleepFor(1s);
            EXPECT_TRUE(!c.fault || (Now() == before && before.gain > 0)) << before.gain;
            EXPECT_LE(Took(stopCapture), 2000U);
            EXPECT_LE(Took(closeCamera), 2000U);
            Bus().Reset();
        }
    }
}

} // namespace
} // namespace vsccam
