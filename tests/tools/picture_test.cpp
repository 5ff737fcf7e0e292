#include "camera.h"
#include "frame_stack.h"
#include "plane.h"
#include "statistics.h"
#include "stretch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <numeric>
#include <random>

using namespace vsctool;

namespace {

constexpr double kSky = 1000;
constexpr double kNoise = 20;

Plane NoisySky(int width, int height)
{
    Plane plane(width, height);
    std::mt19937 random(1);
    std::normal_distribution<double> sample(kSky, kNoise);
    for (uint16_t &s : plane.samples)
        s = static_cast<uint16_t>(std::lround(sample(random)));
    return plane;
}

void AddStar(Plane &plane, double x, double y, double sigma, double peak)
{
    for (int v = 0; v < plane.height; ++v) {
        for (int u = 0; u < plane.width; ++u) {
            const double light =
                peak * std::exp(-(std::pow(u - x, 2) + std::pow(v - y, 2)) / (2 * sigma * sigma));
            plane.Row(v)[u] =
                static_cast<uint16_t>(std::min(65535.0, plane.Row(v)[u] + std::round(light)));
        }
    }
}

/// As previews show it.
std::vector<uint8_t> AutoStretched(const Plane &plane, size_t fullScale)
{
    const Background sky = BackgroundOf(HistogramOf(plane));
    const Curve curve = CurveOf(AutoStretch(sky, static_cast<double>(fullScale), 1), fullScale);
    return Stretched({&plane, 1}, {&curve, 1});
}

} // namespace

TEST(Demosaic, GivesEveryPixelTheColoursOfAPlainAreaInEachPhase)
{
    constexpr std::array<uint16_t, 3> kColour = {300, 200, 100};
    for (int code = 0; code < 4; ++code) {
        for (const bool flipX : {false, true}) {
            const Mosaic phase = MosaicOf(code, flipX, !flipX);
            Plane mosaic(6, 4);
            for (int y = 0; y < mosaic.height; ++y) {
                for (int x = 0; x < mosaic.width; ++x) {
                    const bool redColumn = (x & 1) == phase.redColumn;
                    const bool redRow = (y & 1) == phase.redRow;
                    mosaic.Row(y)[x] = kColour[redColumn == redRow ? (redRow ? 0 : 2) : 1];
                }
            }
            const Rgb rgb = Demosaic(mosaic, phase);
            for (size_t c = 0; c < rgb.size(); ++c)
                for (const uint16_t sample : rgb[c].samples)
                    ASSERT_EQ(sample, kColour[c]) << "code " << code << " channel " << c;
        }
    }
}

TEST(Mosaic, FollowsFlipsAsThePictureDoes)
{
    const char *const patterns[] = {"RGGB", "BGGR", "GRBG", "GBRG"}; // of the codes 0 to 3
    for (int code = 0; code < 4; ++code) {
        EXPECT_STREQ(BayerPattern(MosaicOf(code, false, false)), patterns[code]);
        EXPECT_STREQ(BayerPattern(MosaicOf(code, true, false)), patterns[code ^ 2]);
        EXPECT_STREQ(BayerPattern(MosaicOf(code, false, true)), patterns[3 - code]);
    }
}

TEST(Plane, TakesRedFromTheThirdByteAndLuminanceFromAllPhases)
{
    const Picture bgr = {2, 1, PixelFormat::kRgb24, {10, 20, 30, 40, 50, 60}};
    const Rgb rgb = SplitRgb24(bgr);
    EXPECT_EQ(rgb[0].samples, (std::vector<uint16_t>{30, 60}));
    EXPECT_EQ(rgb[1].samples, (std::vector<uint16_t>{20, 50}));
    EXPECT_EQ(rgb[2].samples, (std::vector<uint16_t>{10, 40}));
    EXPECT_EQ(Luminance(bgr, false).samples, (std::vector<uint16_t>{20, 50}));

    // Each complete window of a plain mosaic has the same brightness.
    const Picture mosaic = {4, 3, PixelFormat::kRaw8, {8, 4, 8, 4, 4, 0, 4, 0, 8, 4, 8, 4}};
    const Plane luminance = Luminance(mosaic, true);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(luminance.Row(y)[x], 4);
}

TEST(Plane, ShrinksToMeansOfWholeBlocks)
{
    Plane plane(5, 4);
    std::iota(plane.samples.begin(), plane.samples.end(), uint16_t{0});
    const Plane half = Shrunk(plane, 2);
    EXPECT_EQ(half.width, 2);
    EXPECT_EQ(half.samples, (std::vector<uint16_t>{3, 5, 13, 15}));
}

TEST(Background, IsNotMovedByStars)
{
    Plane plane = NoisySky(200, 200);
    for (int i = 0; i < 20; ++i)
        AddStar(plane, 10 * i, 8 * i + 10, 2, 30'000);
    const Background sky = BackgroundOf(HistogramOf(plane));
    EXPECT_NEAR(sky.level, kSky, 0.2 * kNoise);
    EXPECT_NEAR(sky.noise, kNoise, 0.15 * kNoise);
}

TEST(AutoStretch, PutsAnySkyAtAQuarterAndKeepsOrderUpToWhite)
{
    for (const double level : {200.0, 1000.0, 30'000.0}) {
        Plane plane = NoisySky(100, 100);
        for (uint16_t &sample : plane.samples)
            sample = static_cast<uint16_t>(sample + level - kSky);
        plane.samples[0] = 65535;
        plane.samples[1] = 0;
        std::vector<uint8_t> bytes = AutoStretched(plane, 65535);
        EXPECT_EQ(bytes[0], 255);
        EXPECT_EQ(bytes[1], 0);
        std::nth_element(bytes.begin(), bytes.begin() + 5000, bytes.end());
        EXPECT_NEAR(bytes[5000], 64, 2) << level;
    }
}

TEST(AutoStretch, StaysACurveWhereTheSkyHasNoNoise)
{
    for (const uint16_t level : std::array<uint16_t, 3>{0, 3, 200}) {
        Plane plane(4, 4);
        std::fill(plane.samples.begin(), plane.samples.end(), level);
        plane.samples[0] = static_cast<uint16_t>(level + 1);
        plane.samples[1] = 255;
        const std::vector<uint8_t> bytes = AutoStretched(plane, 255);
        EXPECT_LE(bytes[2], 70);
        EXPECT_GT(bytes[0], bytes[2]);
        EXPECT_EQ(bytes[1], 255);
    }
    Plane full(2, 2);
    std::fill(full.samples.begin(), full.samples.end(), uint16_t{255});
    EXPECT_EQ(AutoStretched(full, 255), std::vector<uint8_t>(4, 255));
}

TEST(Levels, CountFullSamplesOfEveryConverter)
{
    Picture picture = {4, 1, PixelFormat::kRaw16, std::vector<uint8_t>(8)};
    const uint16_t samples[] = {0, 100, 0xFFF0, 0xFFFF};
    std::memcpy(picture.bytes.data(), samples, sizeof samples);
    const Levels levels = LevelsOf(picture);
    EXPECT_EQ(levels.min, 0);
    EXPECT_EQ(levels.max, 0xFFFF);
    EXPECT_DOUBLE_EQ(levels.mean, (100.0 + 0xFFF0 + 0xFFFF) / 4);
    EXPECT_DOUBLE_EQ(levels.saturatedPercent, 50);

    const Levels colour = LevelsOf({1, 1, PixelFormat::kRgb24, {7, 9, 255}});
    EXPECT_EQ(colour.min, 7);
    EXPECT_EQ(colour.max, 255);
}

TEST(Sharpness, MeasuresTheStarsAndNothingElse)
{
    const double perSigma = std::sqrt(2 * std::numbers::pi); // of a Gaussian star
    for (const double sigma : {1.0, 1.7, 2.5}) {
        Plane plane = NoisySky(300, 300);
        for (int i = 0; i < 5; ++i)
            AddStar(plane, 40.3 + 50 * i, 60.6 + 40 * i, sigma, 20'000);
        AddStar(plane, 250, 40, 3 * sigma, 200'000); // saturated
        plane.Row(200)[50] = 60'000;                 // hot pixel
        plane.Row(2)[2] = 50'000;                    // no room to measure
        const auto sharpness = SharpnessOf(plane, SaturationOf(PixelFormat::kRaw16));
        ASSERT_TRUE(sharpness);
        EXPECT_EQ(sharpness->stars, 5);
        EXPECT_NEAR(sharpness->hfdPx, perSigma * sigma, 0.06 * perSigma * sigma);
    }
    EXPECT_FALSE(SharpnessOf(NoisySky(100, 100), 65535));
    EXPECT_FALSE(SharpnessOf(Plane(8, 2), 65535)); // smaller than the aperture
}

TEST(FrameStackTest, MakesMeansAndMediansOfAnyNumberOfFrames)
{
    std::mt19937 random(1);
    for (size_t count = 1; count <= 255; count = count < 8 ? count + 1 : 2 * count - 1) {
        std::vector<Samples> frames(count, Samples(100));
        MeanStack mean;
        MedianStack median(count);
        for (Samples &frame : frames) {
            std::ranges::generate(frame, [&random] { return static_cast<uint8_t>(random()); });
            frame[0] = 255;
            mean.Add(frame);
            median.Add(frame);
        }
        const Samples means = mean.Result();
        const Samples medians = median.Result();
        for (size_t i = 0; i < means.size(); ++i) {
            Samples values;
            for (const Samples &frame : frames)
                values.push_back(frame[i]);
            std::ranges::sort(values);
            EXPECT_EQ(medians.at(i), values[count / 2]) << count;
            const double sum = std::accumulate(values.begin(), values.end(), 0.0);
            EXPECT_EQ(means[i], std::lround(sum / static_cast<double>(count))) << count;
        }
    }
}
