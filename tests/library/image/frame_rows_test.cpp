#include "image/frame_rows.h"
#include "image/pixel_patches.h"
#include "image/time_mark.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace vsccam {
namespace {

using Bytes = std::vector<uint8_t>;

template <class Sample> std::vector<Sample> RandomSamples(size_t count, unsigned seed)
{
    std::minstd_rand random(seed);
    std::vector<Sample> samples(count);
    std::ranges::generate(samples, [&random] { return static_cast<Sample>(random() >> 5); });
    return samples;
}

/// All steps as operations on the whole frame, one after the other.
template <class Sample> std::vector<Sample> Staged(const FrameSteps<Sample> &steps)
{
    std::vector<Sample> image(steps.samples, steps.samples + steps.width * steps.height);
    const int w = static_cast<int>(steps.width);
    const int h = static_cast<int>(steps.height);
    const int bin = static_cast<int>(steps.bin);
    constexpr bool kIs16 = sizeof(Sample) == 2;
    auto *const bytes = reinterpret_cast<uint8_t *>(image.data());
    auto *const words = reinterpret_cast<uint16_t *>(image.data());
    if constexpr (!kIs16)
        CAlgorithm::SubtractDark(bytes, w, h, steps.dark.offset, steps.dark.samples);
    if (steps.gamma)
        CAlgorithm::Gamma(image.data(), steps.gamma, w, h);
    for (const PixelPatches *patches : steps.patches)
        if (patches)
            ApplyPatches<Sample>(*patches, {image, 0, steps.converterBits});
    (steps.mosaic ? CAlgorithm::ColorRAWBin : CAlgorithm::MonoBin)(bytes, words, w / bin, h / bin,
                                                                   bin, kIs16);
    image.resize(image.size() / steps.bin / steps.bin);
    CAlgorithm::SoftMisc(bytes, w / bin, h / bin, 1, kIs16, steps.flipV, steps.flipH);
    return image;
}

/// Pixels here and there, and every second one at the borders; `seed` is what is common to lists.
PixelPatches SomePatches(size_t width, size_t height, bool mosaic, PatchRule inside, unsigned seed)
{
    std::minstd_rand random(seed);
    std::vector<uint32_t> pixels;
    for (uint32_t i = 0; i < width * height; ++i) {
        const bool border = i % width < 2 || i % width + 2 >= width || i / width < 2;
        if ((random() >> 7) % (border ? 2 : 9) == 0)
            pixels.push_back(i);
    }
    return ListPatches(pixels, static_cast<int>(width), static_cast<int>(height), mosaic ? 2 : 1,
                       inside);
}

/// Calls `check` with all combinations of steps, on random frames.
template <class Sample, class Check> void ForAllSteps(Check check)
{
    const auto gamma = RandomSamples<Sample>(size_t{1} << (8 * sizeof(Sample)), 3);
    for (const auto &[w, h] : {std::pair{8U, 2U}, {16U, 8U}, {16U, 5U}, {136U, 12U}, {200U, 23U}}) {
        for (unsigned combination = 0; combination < 128; ++combination) {
            const unsigned bin = 1 + (combination >> 5);
            const size_t width = w * bin;
            const size_t height = h * bin;
            const auto frame = RandomSamples<Sample>(width * height, combination);
            const Bytes dark = RandomSamples<uint8_t>(width * height, combination + 1000);
            FrameSteps<Sample> steps{.samples = frame.data(),
                                     .width = width,
                                     .height = height,
                                     .gamma = combination & 1 ? gamma.data() : nullptr,
                                     .bin = bin,
                                     .mosaic = (combination & 2) != 0,
                                     .flipH = (combination & 4) != 0,
                                     .flipV = (combination & 8) != 0};
            if (sizeof(Sample) == 1 && combination & 16)
                steps.dark = {dark.data(), 100 + combination};
            // Pixels of both lists are patched twice.
            const PixelPatches hot =
                SomePatches(width, height, steps.mosaic, PatchRule::kDenoise, combination);
            const PixelPatches bright =
                SomePatches(width, height, steps.mosaic, PatchRule::kMeanOfSides, combination / 2);
            steps.patches = {combination % 3 ? &hot : nullptr, combination % 5 ? &bright : nullptr};
            if (sizeof(Sample) == 2)
                steps.converterBits = 0xFFF0;
            SCOPED_TRACE(testing::Message() << w << "x" << h << " steps " << combination);
            check(steps);
        }
    }
}

TEST(FrameRows, GiveWhatTheStepsGiveOneAfterTheOther)
{
    RowScratch scratch(800);
    ForAllSteps<uint8_t>([&scratch](const FrameSteps<uint8_t> &steps) {
        const Bytes expected = Staged(steps);
        Bytes out(expected.size());
        FrameRows(steps, scratch).CopyTo(out.data());
        EXPECT_EQ(out, expected);
        Bytes work(steps.samples, steps.samples + steps.width * steps.height);
        FrameSteps<uint8_t> rest = steps;
        rest.samples = work.data();
        CorrectInPlace(rest, scratch, work.data()); // dark frame and patches in the frame itself
        FrameRows(rest, scratch).CopyTo(out.data());
        EXPECT_EQ(out, expected);
        Bytes grey(3 * expected.size());
        CopyGrey(steps, scratch, grey.data());
        for (size_t i = 0; i < grey.size(); ++i)
            ASSERT_EQ(grey[i], expected[i / 3]) << i;
    });
    ForAllSteps<uint16_t>([&scratch](const FrameSteps<uint16_t> &steps) {
        const auto expected = Staged(steps);
        Bytes out(2 * expected.size() + 1); // the host's buffer need not be aligned
        for (size_t place = 0; place < 2; ++place) {
            FrameRows(steps, scratch).CopyTo(&out[place]);
            EXPECT_EQ(std::memcmp(&out[place], expected.data(), 2 * expected.size()), 0) << place;
        }
    });
}

TEST(FrameRows, AreDemosaicedInThePhaseThatTheFlipsLeave)
{
    constexpr size_t kGuard = 64;
    RowScratch scratch(800);
    CAlgorithm algorithm;
    algorithm.RGBYUV_Init();
    algorithm.SetRGBWB(60, 99);
    ForAllSteps<uint8_t>([&](const FrameSteps<uint8_t> &steps) {
        const Bytes mosaic = Staged(steps);
        const int w = static_cast<int>(steps.width / steps.bin);
        const int h = static_cast<int>(steps.height / steps.bin);
        for (const IMAGE_TYPE type : {kRgb24, kByteImage, kYuv2}) {
            const auto phase = static_cast<BayerPhase>(mosaic[0] % 4);
            Bytes expected(mosaic.size() * BytesPerPixel(type) + kGuard, 0xA5);
            Bytes out = expected;
            algorithm.BayerConv(FlippedPhase(phase, steps.flipH, steps.flipV), mosaic.data(),
                                expected.data(), w, h, type);
            Demosaic(steps, scratch, algorithm, phase, out.data(), type);
            EXPECT_EQ(out, expected) << type;
        }
    });
}

TEST(TimeMark, DrawsDateAndTime)
{
    std::tm newYear{};
    newYear.tm_year = 126;
    newYear.tm_mday = 1;
    newYear.tm_hour = 23;
    newYear.tm_min = 58;
    newYear.tm_sec = 9;
    constexpr int kWidth = 300;
    Bytes grey(size_t{kWidth} * 30);
    Bytes rgb(3 * grey.size());
    for (size_t i = 0; i < rgb.size(); ++i) // bright below most of the mark: the ink is dark
        grey[i / 3] = rgb[i] = i / 3 % kWidth < 228 ? 180 : 0;
    const Bytes before = grey;
    DrawTimeMark(grey.data(), kWidth, 1, newYear);
    DrawTimeMark(rgb.data(), kWidth, 3, newYear);
    size_t left = kWidth;
    size_t right = 0;
    for (size_t i = 0; i < grey.size(); ++i) {
        for (size_t byte = 0; byte < 3; ++byte)
            ASSERT_EQ(rgb[3 * i + byte], grey[i]);
        if (grey[i] == before[i])
            continue;
        ASSERT_EQ(grey[i], 120);
        ASSERT_TRUE(i / kWidth >= 8 && i / kWidth < 24) << i / kWidth;
        left = std::min(left, i % kWidth);
        right = std::max(right, i % kWidth);
    }
    EXPECT_GE(left, 100U); // 200 from the right end
    EXPECT_LT(left, 108U);
    EXPECT_GE(right, 228U); // the last of eight letters from 128 to 64 before the right end
    EXPECT_LT(right, 236U);
}

} // namespace
} // namespace vsccam
