#include "core/gamma.h"
#include "image/algorithm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

namespace vsccam {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kGuard = 0xA5;

Bytes RandomBytes(size_t count, unsigned seed)
{
    std::minstd_rand random(seed);
    Bytes bytes(count);
    std::ranges::generate(bytes, [&random] { return static_cast<uint8_t>(random() >> 7); });
    return bytes;
}

class Demosaic : public testing::Test {
  protected:
    Demosaic() { m_algorithm.RGBYUV_Init(); }

    Bytes Rgb(BayerPhase phase, const Bytes &mosaic, int w, int h)
    {
        Bytes out(static_cast<size_t>(w * h * 3 + 8), kGuard);
        m_algorithm.BayerConv(phase, mosaic.data(), out.data(), w, h, kRgb24);
        EXPECT_TRUE(std::all_of(out.end() - 8, out.end(), [](uint8_t v) { return v == kGuard; }));
        out.resize(out.size() - 8);
        return out;
    }

    CAlgorithm m_algorithm;
};

TEST_F(Demosaic, InterpolatesAHandComputedCell)
{
    // 6 x 6, phase RG: red at even rows and columns, blue at odd ones. The inner cell is at (2, 2).
    Bytes mosaic(36);
    for (size_t i = 0; i < mosaic.size(); ++i)
        mosaic[i] = static_cast<uint8_t>(i * 7 % 251);
    const auto at = [&mosaic](int x, int y) { return int{mosaic[static_cast<size_t>(y * 6 + x)]}; };
    const Bytes out = Rgb(BayerPhase::kRG, mosaic, 6, 6);
    const auto pixel = [&out](int x, int y) {
        const size_t i = static_cast<size_t>((y * 6 + x) * 3);
        return std::vector<int>{out[i], out[i + 1], out[i + 2]};
    };
    using Pixel = std::vector<int>; // blue, green, red
    const int diagonals = (at(1, 1) + at(3, 1) + at(1, 3) + at(3, 3)) >> 2;
    const int cross = (at(2, 1) + at(2, 3) + at(1, 2) + at(3, 2)) >> 2;
    EXPECT_EQ(pixel(2, 2), (Pixel{diagonals, cross, at(2, 2)}));
    EXPECT_EQ(pixel(3, 2),
              (Pixel{(at(3, 1) + at(3, 3)) >> 1, at(3, 2), (at(2, 2) + at(4, 2)) >> 1}));
    EXPECT_EQ(pixel(2, 3),
              (Pixel{(at(1, 3) + at(3, 3)) >> 1, at(2, 3), (at(2, 2) + at(2, 4)) >> 1}));
    // Border cells copy.
    EXPECT_EQ(pixel(0, 0), (Pixel{at(1, 1), (at(1, 0) + at(0, 1)) >> 1, at(0, 0)}));
    EXPECT_EQ(pixel(5, 4), (Pixel{at(5, 5), at(5, 4), at(4, 4)}));
}

TEST_F(Demosaic, GivesAColouredSurfaceItsColourInEveryPhaseAndFlip)
{
    constexpr uint8_t kRed = 200;
    constexpr uint8_t kGreen = 90;
    constexpr uint8_t kBlue = 30;
    const std::pair<BayerPhase, const char *> phases[] = {{BayerPhase::kRG, "RGGB"},
                                                          {BayerPhase::kBG, "BGGR"},
                                                          {BayerPhase::kGR, "GRBG"},
                                                          {BayerPhase::kGB, "GBRG"}};
    for (const auto &[phase, cell] : phases) {
        for (const auto &[flipH, flipV] :
             {std::pair{false, false}, {true, false}, {false, true}, {true, true}}) {
            constexpr int kW = 8;
            constexpr int kH = 6;
            Bytes mosaic;
            for (size_t y = 0; y < kH; ++y)
                for (size_t x = 0; x < kW; ++x) {
                    const char site = cell[(y % 2) * 2 + x % 2];
                    mosaic.push_back(site == 'R' ? kRed : site == 'G' ? kGreen : kBlue);
                }
            CAlgorithm::SoftMisc(mosaic.data(), kW, kH, 1, false, flipV, flipH);
            const Bytes out = Rgb(FlippedPhase(phase, flipH, flipV), mosaic, kW, kH);
            for (size_t i = 0; i < out.size(); i += 3)
                ASSERT_EQ((std::vector{out[i], out[i + 1], out[i + 2]}),
                          (std::vector{kBlue, kGreen, kRed}))
                    << cell << flipH << flipV;
        }
    }
}

TEST_F(Demosaic, BalancesRedAndBlueAfterAveragingAndClips)
{
    m_algorithm.SetRGBWB(100, 25); // red twice, blue half
    const Bytes out = Rgb(BayerPhase::kRG, Bytes(64, 130), 8, 8);
    EXPECT_EQ((std::vector{out[0], out[1], out[2]}), (std::vector<uint8_t>{65, 130, 255}));
}

/// Studio-swing luminance and chroma of a pixel, by the formula.
struct Yuv {
    explicit Yuv(const uint8_t *p)
        : y(Sum(p, 0.257, 0.504, 0.098)), v(Sum(p, 0.439, -0.368, -0.071) + 128),
          u(Sum(p, -0.148, -0.291, 0.439) + 128)
    {
    }
    static int Sum(const uint8_t *p, double c0, double c1, double c2)
    {
        const double products[] = {p[0] * c0 * 65536, p[1] * c1 * 65536, p[2] * c2 * 65536};
        int sum = 0;
        for (const double product : products)
            sum += static_cast<int>(product); // each towards zero
        return static_cast<int>(std::floor(sum / 65536.0));
    }
    int y, v, u;
};

Bytes PackedYuv(const Bytes &rgb, size_t width)
{
    Bytes packed;
    for (size_t i = 0; i < rgb.size() / 3; ++i) {
        const size_t column = i % width;
        const Yuv chroma(&rgb[3 * (i - column % 2)]);
        packed.push_back(static_cast<uint8_t>(Yuv(&rgb[3 * i]).y + 16));
        packed.push_back(static_cast<uint8_t>(column % 2 == 0 ? chroma.v : chroma.u));
    }
    return packed;
}

TEST_F(Demosaic, ConvertsToLuminanceAndPackedYuvAsIfByWayOfRgb)
{
    for (const auto &[w, h] :
         {std::pair{8, 6}, {38, 4}, {101, 7}, {2, 2}, {3, 2}, {2, 5}, {5, 3}}) {
        const auto pixels = static_cast<size_t>(w * h);
        const Bytes mosaic = RandomBytes(pixels, 11);
        for (int phase = 0; phase < 4; ++phase) {
            SCOPED_TRACE(testing::Message() << w << "x" << h << " phase " << phase);
            m_algorithm.SetRGBWB(70, 35);
            const Bytes rgb = Rgb(static_cast<BayerPhase>(phase), mosaic, w, h);
            Bytes y8;
            Bytes red;
            for (size_t i = 0; i < pixels; ++i) {
                y8.push_back(static_cast<uint8_t>(Yuv(&rgb[3 * i]).y));
                red.push_back(rgb[3 * i + 2]);
            }
            const Bytes yuv = PackedYuv(rgb, static_cast<size_t>(w));
            Bytes out(pixels);
            m_algorithm.BayerConv(static_cast<BayerPhase>(phase), mosaic.data(), out.data(), w, h,
                                  kByteImage);
            EXPECT_EQ(out, y8);
            m_algorithm.RGB2Y8(rgb.data(), out.data(), w, h);
            EXPECT_EQ(out, y8);
            CAlgorithm::RGB2R8(rgb.data(), out.data(), w, h);
            EXPECT_EQ(out, red);
            out.resize(2 * pixels);
            m_algorithm.BayerConv(static_cast<BayerPhase>(phase), mosaic.data(), out.data(), w, h,
                                  kYuv2);
            EXPECT_EQ(out, yuv);
            m_algorithm.RGB2YUV2(rgb.data(), out.data(), w, h, false);
            EXPECT_EQ(out, yuv);
            m_algorithm.RGB2YUV2(rgb.data(), out.data(), w, h, true);
            EXPECT_TRUE(std::equal(out.end() - 2 * w, out.end(), yuv.begin())); // upside down
        }
    }
    (void)Rgb(BayerPhase::kRG, Bytes(1), 1, 1); // too small for a cell
    Bytes untouched(4, kGuard);
    m_algorithm.BayerConv(BayerPhase::kRG, Bytes(4).data(), untouched.data(), 2, 2, kRaw16);
    for (const int unknown : {-1, 4}) {
        const BayerPhase phase = FlippedPhase(static_cast<BayerPhase>(unknown), true, true);
        m_algorithm.BayerConv(phase, Bytes(4).data(), untouched.data(), 2, 2, kByteImage);
        m_algorithm.BayerConvRows(phase, Bytes(4).data(), 0, untouched.data(), 2, 2, kByteImage);
    }
    EXPECT_EQ(untouched, Bytes(4, kGuard));
}

TEST(Gamma, BrightensAboveTheMiddleAndDarkensBelowIt)
{
    GammaTable8 table8{};
    auto table16 = std::make_unique<GammaTable16>();
    const struct {
        int gamma;
        uint8_t at64; // trunc(255 * (64 / 255) ^ exponent)
        uint16_t at16384;
    } cases[] = {{0, 16, 4096}, {50, 64, 16384}, {100, 127, 32768}};
    for (const auto &c : cases) {
        FillGammaTable(c.gamma, table8);
        FillGammaTable(c.gamma, *table16);
        EXPECT_EQ(table8[64], c.at64) << c.gamma;
        EXPECT_NEAR((*table16)[16384], c.at16384, 1) << c.gamma;
        EXPECT_EQ(table8[0], 0);
        EXPECT_EQ(table8[255], 255);
    }
    for (const int wild : {-1'000'000, 1'000'000}) { // whatever a host sets stays a table
        FillGammaTable(wild, table8);
        FillGammaTable(wild, *table16);
        EXPECT_EQ(table8[255], 255) << wild;
    }
}

} // namespace
} // namespace vsccam
