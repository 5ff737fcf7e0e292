#include "core/auto_exposure.h"
#include "core/auto_white_balance.h"
#include "image/raw_frames.h"
#include "library/host_fixture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace vsccam {
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
    } cases[] = {
        // Target 100, gains 0 to 600: steps of 6 and 12. Limits: gain 50, exposure 30 s.
        {"lower edge of the dead band", kOn, kOn, 85, 20, 10'000, 900, ""},
        {"upper edge", kOn, kOn, 115, 20, 10'000, 900, ""},
        {"nothing is automatic", kOff, kOff, 1, 20, 10'000, 900, ""},
        {"dark, gain only", kOff, kOn, 84, 20, 10'000, 900, "g32"},
        {"up to its limit", kOff, kOn, 84, 45, 10'000, 900, "g50"},
        {"set higher by hand", kOff, kOn, 84, 300, 10'000, 900, "g50"},
        {"dark, exposure only", kOn, kOff, 84, 20, 10'000, 900, "e10800"},
        {"black", kOn, kOff, 1, 20, 10'000, 900, "e14950"},
        {"up to its limit", kOn, kOff, 1, 20, 29'000'000, 900, "e30000000"},
        {"dark, both", kOn, kOn, 50, 20, 100'000, 900, "g26 e125000 g32"},
        {"long: gain comes first", kOn, kOn, 50, 20, 100'001, 900, "g26 g38"},
        {"until it ends", kOn, kOn, 50, 47, 100'001, 900, "g50 e125001"},
        {"two lines, small error", kOn, kOff, 71, 20, 64, 2, ""},
        {"two lines, larger error", kOn, kOff, 70, 20, 64, 2, "e73"},
        {"one line, that error", kOn, kOff, 70, 20, 64, 1, ""},
        {"one line, much larger error", kOn, kOff, 55, 20, 64, 1, "e78"},
        {"three lines, small error", kOn, kOff, 71, 20, 64, 3, "e73"},
        {"the guard holds exposure, not gain", kOn, kOn, 71, 20, 64, 2, "g26 g32"},
        {"bright, gain only, below the lowest", kOff, kOn, 116, 3, 10'000, 900, "g-3"},
        {"bright, exposure only", kOn, kOff, 255, 20, 10'000, 900, "e6125"},
        {"bright, long: gain stays", kOn, kOn, 255, 20, 100'001, 900, "e61251"},
        {"bright, both", kOn, kOn, 255, 20, 100'000, 900, "e61250 g14"},
        {"bright, both, a short one", kOn, kOn, 255, 20, 64, 2, "e40 g14 g8"},
        {"bright, both, becoming a short one", kOn, kOn, 255, 20, 64, 3, "e40 g14 g8"},
        {"not becoming one", kOn, kOn, 255, 20, 200, 10, "e123 g14"},
        {"never below 1", kOn, kOn, 255, 4, 64, 2, "e40 g1 g1"},
        {"one line, small error", kOn, kOff, 144, 20, 64, 1, ""},
        {"two lines, that error", kOn, kOff, 144, 20, 64, 2, "e57"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        AutoExposureState state;
        state.exposureAuto = c.exposureAuto;
        state.gainAuto = c.gainAuto;
        state.mean = c.mean;
        state.gain = c.gain;
        state.maxGain = 600;
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

/// An 8-bit frame with one brightness inside the middle 60 per cent, another outside.
Bytes Framed(Size size, uint8_t inside, uint8_t outside)
{
    Bytes frame;
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            const bool middle = x >= size.width / 5 && x <= 4 * size.width / 5 &&
                                y >= size.height / 5 && y <= 4 * size.height / 5;
            frame.push_back(middle ? inside : outside);
        }
    }
    return frame;
}

TEST(AutoExposure, MeasuresTheMiddleOfAFrame)
{
    for (const Size size : {Size{5, 5}, {8, 2}, {33, 17}, {640, 480}}) {
        SCOPED_TRACE(testing::Message() << size.width << " x " << size.height);
        const Bytes frame = Framed(size, 41, 255);
        EXPECT_EQ(MeanBrightness({frame, size}, 7), 42);
        EXPECT_EQ(MeanBrightness({Bytes(frame.size(), 0), size}, 7), 1);
        Bytes words;
        for (const uint8_t byte : frame)
            words.insert(words.end(), {0xEE, byte});
        EXPECT_EQ(MeanBrightness({words, size, true, false}, 7), 42);
        EXPECT_EQ(MeanBrightness({words, size, true, true}, 7), 0xEF);
    }
    EXPECT_EQ(MeanBrightness({{}, {0, 0}}, 7), std::nullopt);
}

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

TEST(AutoWhiteBalance, FlatBlocksHardlyCount)
{
    const Size size{320, 240};
    Bytes frame(320 * 240, 255); // half of it is saturated, half has detail
    for (size_t y = 0; y < 120; ++y) {
        for (size_t x = 0; x < 320; ++x)
            frame[y * 320 + x] = static_cast<uint8_t>(40 + (x / 2) % 2 * 120);
    }
    EXPECT_NEAR(MosaicLevels({frame, size}, BayerPhase::kRG, 1).green, 100, 8);
    EXPECT_EQ(MosaicLevels({Bytes(320 * 240, 0), size}, BayerPhase::kRG, 1).red, 0);
}

TEST(AutoWhiteBalance, LeavesGreyAloneAndMovesWhatIsTinted)
{
    const struct {
        ColourLevels levels;
        WhiteBalance now;
        bool settling;
        std::optional<WhiteBalance> next;
    } cases[] = {
        {{100, 104, 108}, {52, 95}, false, std::nullopt},
        {{92, 100, 100}, {52, 95}, true, std::nullopt},
        {{92, 100, 100}, {52, 95}, false, WhiteBalance{55, 94}},
        {{110, 100, 89}, {50, 50}, true, WhiteBalance{45, 55}},
        {{10, 11, 30}, {3, 50}, false, WhiteBalance{4, 17}}, // rises in spite of the rounding
        {{0, 0, 20}, {3, 4}, false, WhiteBalance{0, 0}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.levels.red);
        EXPECT_EQ(DecideWhiteBalance(c.levels, c.now, c.settling), c.next);
    }
}

TEST(RawFrames, NeverOffersABufferThatIsCopiedOrLookedAt)
{
    RawFrames frames(16);
    EXPECT_TRUE(frames.TakeLatest().Frame().empty());
    const uint8_t *first = frames.Filling();
    frames.Complete(16, {.copied = true, .lookedAt = false});
    const uint8_t *second = frames.Filling();
    EXPECT_NE(second, first);
    frames.Complete(16, {.copied = false, .lookedAt = false});
    EXPECT_NE(frames.Filling(), first); // refused: the first is still copied
    frames.Complete(16, {.copied = true, .lookedAt = true});
    const uint8_t *third = frames.Filling();
    {
        const RawFrames::Look look = frames.TakeLatest();
        const uint8_t *looked = look.Frame().data();
        EXPECT_NE(looked, third);
        EXPECT_TRUE(frames.TakeLatest().Frame().empty()); // each is looked at once
        for (int i = 0; i < 6; ++i) {
            frames.Complete(16, {.copied = i % 3 != 2, .lookedAt = true});
            EXPECT_NE(frames.Filling(), looked) << i;
        }
    }
    frames.Reset();
    EXPECT_TRUE(frames.TakeLatest().Frame().empty());
}

/// Automatics at work on simulated cameras. With VSCCAM_SHOW_STEPS set, each step is printed.
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

    template <class... Values> static void Show(const char *format, Values... values)
    {
        if (std::getenv("VSCCAM_SHOW_STEPS")) // NOLINT(concurrency-mt-unsafe): nobody sets it
            std::printf(format, values...);
    }
};

TEST_F(AutoLoopTest, BringsBrightnessIntoItsBandAndKeepsItThere)
{
    const struct {
        const char *model;
        double glow;
        int exposureUs, gain; // at the start
        bool exposureAuto, gainAuto;
        bool endsLong; // at 100 ms and more, where the worker controls
        int bin = 1;
        bool hardwareBin = false;
        int type = VSC_IMG_RAW8;
    } cases[] = {
        {"VSC470MC", 300, 32, 200, true, false, false},
        {"VSC470MC", 300, 90'000, 200, true, false, false},
        {"VSC470MC", 300, 32, 200, true, true, false},
        {"VSC470MC", 1, 100'000, 200, true, false, true},
        {"VSC470MC", 1, 15'000'000, 200, true, false, true},
        {"VSC470MM", 1, 32, 0, true, true, true},
        {"VSC470MM", 5, 2'000'000, 0, true, true, true},
        {"VSC2800MC", 300, 90'000, 200, true, false, false},
        {"VSC2800MC", 300, 90'000, 200, true, false, false, 2, true},
        {"VSC340MM", 300, 60'000, 20, true, false, false, 1, false, VSC_IMG_RAW16},
        {"VSC048MC", 1000, 16, 200, true, false, false},
        {"VSC048MC", 1000, 60'000, 200, true, false, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.model << " from " << c.exposureUs << " us at bin "
                                        << c.bin << (c.hardwareBin ? " of the sensor" : ""));
        const int device = OpenOne(c.model, Sky({c.glow, c.glow, c.glow}));
        setValue(CONTROL_HARDWARE_BIN, c.hardwareBin, false);
        ASSERT_TRUE(setImageFormat(320, 240, c.bin, c.type));
        setAutoPara(600, 30, kTarget);
        setValue(CONTROL_GAIN, c.gain, c.gainAuto);
        setValue(CONTROL_EXPOSURE, c.exposureUs, c.exposureAuto);
        startCapture();
        Show("%s, %d us, gain %d, auto %s%s\n", c.model, c.exposureUs, c.gain,
             c.exposureAuto ? "exposure " : "", c.gainAuto ? "gain" : "");
        int inBand = 0;
        int shownUs = -1;
        int frames = 0;
        const int enough = c.endsLong ? 10 : 100;
        for (; inBand < enough && frames < 2000; ++frames) {
            const Bytes frame = NextFrame(60'000);
            ASSERT_FALSE(frame.empty());
            const double mean =
                c.type == VSC_IMG_RAW16 ? Means(HighBytes(frame), 1)[0] : Means(frame, 1)[0];
            inBand = std::abs(mean + 1 - kTarget) <= kBand ? inBand + 1 : 0;
            const int us = getValue(CONTROL_EXPOSURE, nullptr);
            if (us != shownUs)
                Show("%5d  mean %5.1f  exposure %8d us  gain %3d\n", frames, mean, us,
                     getValue(CONTROL_GAIN, nullptr));
            shownUs = us;
        }
        EXPECT_GE(inBand, enough) << "after " << frames << " frames";
        EXPECT_EQ(getValue(CONTROL_EXPOSURE, nullptr) >= 100'000, c.endsLong);
        closeCamera();
        Bus().Unplug(device);
    }
}

TEST_F(AutoLoopTest, MakesATintedSceneGrey)
{
    const struct {
        const char *model;
        std::array<double, 3> glow;
        int type;
        int exposureUs;
    } cases[] = {
        {"VSC470MC", {300, 300, 300}, VSC_IMG_RGB24, 5'000},
        {"VSC470MC", {450, 300, 400}, VSC_IMG_RGB24, 5'000},
        {"VSC470MC", {1.3, 1.0, 1.1}, VSC_IMG_RGB24, 1'500'000}, // longer than the thread's passes
        {"VSC048MC", {900, 1000, 1200}, VSC_IMG_RGB24, 6'000},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.model << " " << c.glow[0]);
        const int device = OpenOne(c.model, Sky(c.glow));
        ASSERT_TRUE(setImageFormat(320, 240, 1, c.type));
        setValue(CONTROL_GAIN, 200, false);
        setValue(CONTROL_EXPOSURE, c.exposureUs, false);
        setValue(CONTROL_WB_RED, 99, true);
        setValue(CONTROL_WB_BLUE, 1, true);
        startCapture();
        Show("%s, glow %g %g %g\n", c.model, c.glow[0], c.glow[1], c.glow[2]);
        int grey = 0;
        int shownRed = -1;
        for (int i = 0; i < 400 && grey < 8; ++i) {
            const Bytes frame = NextFrame(60'000);
            ASSERT_FALSE(frame.empty());
            const auto [blue, green, red] = Means(frame, 3);
            EXPECT_GT(green, 30);
            const bool now = std::abs(red - green) <= 7 && std::abs(blue - green) <= 7;
            const int balance = getValue(CONTROL_WB_RED, nullptr);
            if (balance != shownRed)
                Show("%5d  red %5.1f green %5.1f blue %5.1f  balance %d %d\n", i, red, green, blue,
                     balance, getValue(CONTROL_WB_BLUE, nullptr));
            shownRed = balance;
            grey = now ? grey + 1 : 0;
        }
        EXPECT_GE(grey, 8);
        closeCamera();
        Bus().Unplug(device);
    }
}

TEST_F(AutoLoopTest, GoesOnWhenRequestsFailAndEndsWhenSwitchedOff)
{
    OpenOne("VSC470MC", Sky({300, 300, 300}));
    ASSERT_TRUE(setImageFormat(320, 240, 1, VSC_IMG_RAW8));
    setValue(CONTROL_EXPOSURE, 90'000, true);
    startCapture();
    for (int i = 0; i < 40; ++i) {
        if (i == 3)
            FailNext("libusb_control_transfer", 10, LIBUSB_ERROR_PIPE);
        EXPECT_FALSE(NextFrame(5'000).empty());
    }
    for (int i = 0; i < 200; ++i)
        (void)NextFrame(5'000);
    EXPECT_NEAR(Means(NextFrame(5'000), 1)[0] + 1, kTarget, kBand);

    setValue(CONTROL_EXPOSURE, 1'000, false);
    for (int i = 0; i < 50; ++i)
        (void)NextFrame(5'000);
    bool automatic = true;
    EXPECT_EQ(getValue(CONTROL_EXPOSURE, &automatic), 1'000);
    EXPECT_FALSE(automatic);
}

} // namespace
} // namespace vsccam
