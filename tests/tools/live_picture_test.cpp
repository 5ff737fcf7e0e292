#include "serve/live_picture.h"
#include "serve/view.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <turbojpeg.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <random>

using namespace vsctool;
using namespace vsctool::serve;

namespace {

int SampleAt(const Picture &picture, int x, int y, int byte = 0)
{
    const auto pixel = static_cast<size_t>(y * picture.width + x);
    const uint8_t *at =
        &picture.bytes[pixel * BytesPerPixel(picture.format) + static_cast<size_t>(byte)];
    return picture.format == PixelFormat::kRaw16 ? at[0] + 256 * at[1] : at[0];
}

Picture Noise(int width, int height, PixelFormat format)
{
    Picture picture{width, height, format, {}};
    picture.bytes.resize(picture.Pixels() * BytesPerPixel(format));
    std::mt19937 random(1);
    std::generate(picture.bytes.begin(), picture.bytes.end(),
                  [&] { return static_cast<uint8_t>(random()); });
    return picture;
}

/// A white star over a sky.
Frame StarAt(double x, double y, double sigma, PixelFormat format)
{
    Frame frame;
    frame.picture = {301, 202, format, {}};
    frame.sequence = 7;
    std::mt19937 random(1);
    std::normal_distribution<double> sky(20, 1);
    for (int v = 0; v < frame.picture.height; ++v) {
        for (int u = 0; u < frame.picture.width; ++u) {
            const double r2 = std::pow(u - x, 2) + std::pow(v - y, 2);
            const double light = sky(random) + 150 * std::exp(-r2 / (2 * sigma * sigma));
            const int sample = static_cast<int>(light * (format == PixelFormat::kRaw16 ? 256 : 1));
            frame.picture.bytes.push_back(static_cast<uint8_t>(sample));
            if (format == PixelFormat::kRaw16)
                frame.picture.bytes.push_back(static_cast<uint8_t>(sample / 256));
        }
    }
    return frame;
}

struct Decoded {
    int width = 0;
    int height = 0;
    bool isGrey = false;
    std::vector<uint8_t> rgb;

    explicit Decoded(const std::string &jpeg)
    {
        const auto *bytes = reinterpret_cast<const unsigned char *>(jpeg.data());
        const tjhandle handle = tjInitDecompress();
        int sampling = -1;
        int space = -1;
        EXPECT_EQ(
            tjDecompressHeader3(handle, bytes, jpeg.size(), &width, &height, &sampling, &space), 0);
        isGrey = sampling == TJSAMP_GRAY;
        rgb.resize(static_cast<size_t>(width * height) * 3);
        EXPECT_EQ(
            tjDecompress2(handle, bytes, jpeg.size(), rgb.data(), width, 0, height, TJPF_RGB, 0),
            0);
        tjDestroy(handle);
    }
    int At(int x, int y, int colour) const
    {
        return rgb[static_cast<size_t>((y * width + x) * 3 + colour)];
    }
};

} // namespace

TEST(HalfSize, IsTheMeanOfEachColourOfACellInEveryFormatAndPhase)
{
    const struct {
        PixelFormat format;
        std::vector<std::optional<Mosaic>> phases;
    } cases[] = {
        {PixelFormat::kRaw8, {{}, {{0, 0}}, {{1, 0}}, {{0, 1}}, {{1, 1}}}},
        {PixelFormat::kRaw16, {{}, {{0, 0}}, {{1, 0}}, {{0, 1}}, {{1, 1}}}},
        {PixelFormat::kY8, {{}}},
        {PixelFormat::kRgb24, {{}}},
    };
    for (const auto &[format, phases] : cases) {
        for (const auto &phase : phases) {
            const Picture picture = Noise(7, 5, format);
            const View view = HalfSize(picture, phase);
            const bool inColour = phase || format == PixelFormat::kRgb24;
            ASSERT_EQ(view.planes.size(), inColour ? 3U : 1U);
            ASSERT_EQ(view.Width(), 3);
            ASSERT_EQ(view.Height(), 2);
            const double perStep = format == PixelFormat::kRaw16 ? 1 : 4;
            EXPECT_EQ(view.fullScale, format == PixelFormat::kRaw16 ? 65535 : 1020);
            for (int i = 0; i < 3 * 2 * static_cast<int>(view.planes.size()); ++i) {
                const int x = i % 3;
                const int y = i / 3 % 2;
                const int colour = i / 6;
                std::vector<int> samples;
                for (int v = 0; v < 2; ++v) {
                    for (int u = 0; u < 2; ++u) {
                        const int differs =
                            !phase ? 0 : (u != phase->redColumn) + (v != phase->redRow);
                        const int byte = format == PixelFormat::kRgb24 ? 2 - colour : 0;
                        if (!phase || differs == colour)
                            samples.push_back(SampleAt(picture, 2 * x + u, 2 * y + v, byte));
                    }
                }
                double mean = 0;
                for (const int sample : samples)
                    mean += perStep * sample / static_cast<double>(samples.size());
                EXPECT_EQ(view.planes[static_cast<size_t>(colour)].Row(y)[x], std::floor(mean))
                    << FormatName(format) << " colour " << colour;
            }
        }
    }
}

TEST(Window, LiesWithinThePictureAndBeginsWithAWholeCell)
{
    for (const PixelFormat format :
         {PixelFormat::kRaw8, PixelFormat::kRaw16, PixelFormat::kRgb24}) {
        const Picture picture = Noise(21, 13, format);
        for (int x = -3; x < 30; x += 3) {
            for (const int side : {4, 8, 16}) {
                const Window window = Around(picture, x, 6, side);
                EXPECT_EQ(window.x % 2 + window.y % 2, 0);
                const Picture part = Cropped(picture, window);
                EXPECT_GE(part.width, side - 1); // one less at the end of an odd picture
                EXPECT_GE(part.height, std::min(side, 13) - 1);
                for (int i = 0; i < part.width * part.height; ++i) {
                    const int u = i % part.width;
                    const int v = i / part.width;
                    ASSERT_EQ(SampleAt(part, u, v), SampleAt(picture, window.x + u, window.y + v));
                }
            }
        }
    }
}

TEST(LivePicture, TellsTheStarThatItShowsInFullResolution)
{
    const struct {
        PixelFormat format;
        std::optional<Mosaic> mosaic;
    } cases[] = {{PixelFormat::kRaw8, {}},
                 {PixelFormat::kRaw16, {}},
                 {PixelFormat::kRaw16, Mosaic{0, 1}},
                 {PixelFormat::kRaw8, Mosaic{1, 0}}};
    for (const auto &[format, mosaic] : cases) {
        for (const double sigma : {1.7, 3.0}) {
            Frame frame = StarAt(181, 122, sigma, format);
            frame.mosaic = mosaic;
            for (const auto size : {PictureWish::Size::kFull, PictureWish::Size::kHalf,
                                    PictureWish::Size::kQuarter}) {
                PictureWish wish;
                wish.size = size;
                const LivePicture live = MakePicture(frame, wish);
                const auto facts = nlohmann::json::parse(live.facts);
                SCOPED_TRACE(live.facts);
                const int reduction = facts["reduction"];
                EXPECT_NEAR(facts["focus"]["x"], 181, 1);
                EXPECT_NEAR(facts["focus"]["y"], 122, 1);
                const double cells = mosaic ? 0.25 : 0; // what the means over cells add
                const double hfd = std::sqrt(2 * std::numbers::pi * (sigma * sigma + cells));
                EXPECT_NEAR(facts["focus"]["hfd"], hfd, 0.12 * hfd);
                const Decoded picture(live.jpeg);
                EXPECT_EQ(picture.width, 301 / reduction);
                EXPECT_EQ(picture.isGrey, !mosaic);
                EXPECT_GT(picture.At(181 / reduction, 122 / reduction, 1), 200);
                EXPECT_LT(picture.At(5, 5, 1), 130); // a sky
                EXPECT_EQ(facts["sequence"], 7);
            }
            PictureWish loupe;
            loupe.loupe = {{240, 3}};
            const LivePicture live = MakePicture(frame, loupe);
            const auto facts = nlohmann::json::parse(live.facts);
            EXPECT_EQ(facts["window"], (nlohmann::json{44, 0, 256, 202}));
            EXPECT_NEAR(facts["focus"]["x"], 181, 1);
            EXPECT_GT(Decoded(live.jpeg).At(181 - 44, 122, 1), 200);
        }
    }
    Frame dark;
    dark.picture = {8, 2, PixelFormat::kRaw16, std::vector<uint8_t>(32)};
    EXPECT_TRUE(nlohmann::json::parse(MakePicture(dark, {}).facts)["focus"].is_null());
}

TEST(LivePicture, ShowsColoursAndWhatIsAskedOfTheStretch)
{
    Frame frame;
    frame.picture = {64, 32, PixelFormat::kRaw16, {}};
    frame.mosaic = Mosaic{1, 1};
    for (int i = 0; i < 64 * 32; ++i) { // red on the right, dark on the left
        const bool isRed = i % 2 == 1 && i / 64 % 2 == 1 && i % 64 >= 32;
        frame.picture.bytes.push_back(0);
        frame.picture.bytes.push_back(isRed ? 128 : 0);
    }
    const struct {
        Stretch stretch;
        int red;
    } cases[] = {{{0, 0.5, 1}, 128}, {{0, 0.5, 0.5}, 255}, {{0.6, 0.5, 1}, 0}, {{0, 0.25, 1}, 191}};
    for (const auto &[stretch, red] : cases) {
        PictureWish wish;
        wish.stretch = stretch;
        const LivePicture live = MakePicture(frame, wish);
        const Decoded picture(live.jpeg);
        EXPECT_NEAR(picture.At(24, 8, 0), red, 6);
        EXPECT_LE(picture.At(24, 8, 1), 6);
        EXPECT_LE(picture.At(8, 8, 0), 6);
        const auto histogram = nlohmann::json::parse(live.facts)["histogram"];
        const auto bin = static_cast<size_t>(128 * std::sqrt(0.5));
        EXPECT_EQ(histogram[0][bin], 16 * 16);
        EXPECT_EQ(histogram[0][0], 16 * 16);
        EXPECT_EQ(histogram[2][0], 32 * 16);
    }
}

TEST(LivePictures, AreMadeOnceForAllWhoWishTheSameAndNotKeptWithoutEnd)
{
    LivePictures pictures;
    auto frame = std::make_shared<Frame>();
    frame->picture = {8, 2, PixelFormat::kRaw8, std::vector<uint8_t>(16)};
    frame->sequence = 7;
    const auto first = pictures.Of(frame, {});
    EXPECT_EQ(pictures.Of(frame, {}), first);
    for (int x = 0; x < 100; ++x) {
        PictureWish wish;
        wish.loupe = {{x, 0}};
        EXPECT_NE(pictures.Of(frame, wish), first);
    }
    EXPECT_NE(pictures.Of(frame, {}), first);

    const auto next = std::make_shared<Frame>(*frame);
    next->sequence = 8;
    const auto newest = pictures.Of(next, {});
    EXPECT_NE(pictures.Of(frame, {}), newest); // a late asker gets what it asks for
    EXPECT_EQ(pictures.Of(next, {}), newest);
}
