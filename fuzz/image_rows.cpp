#include "fuzz.h"
#include "image/frame_marks.h"
#include "image/frame_rows.h"

#include <vector>

using namespace vsccam;

namespace {

std::vector<uint32_t> SomePixels(Decisions &decisions, size_t count)
{
    std::vector<uint32_t> pixels;
    for (size_t at = decisions.Byte(); at < count; at += 1 + decisions.Byte())
        pixels.push_back(static_cast<uint32_t>(at));
    return pixels;
}

/// Takes a frame of the input's size, marks and samples the whole way to an image. Buffers are as
/// large as they have to be and no larger. Without steps, samples come out as they went in.
template <class Sample> void Deliver(Decisions &decisions)
{
    const bool mosaic = decisions.Flag();
    const unsigned bin = 1 + decisions.Byte() % 5;
    const size_t unit = mosaic ? 2 : 1;
    const size_t width = bin * unit * (1 + decisions.Byte() % 24);
    const size_t height = bin * unit * (1 + decisions.Byte() % 12);
    std::vector<Sample> frame(width * height);
    std::vector<Sample> gamma(size_t{1} << 8 * sizeof(Sample), Sample{3});
    const auto hot = ListPatches(SomePixels(decisions, frame.size()), static_cast<int>(width),
                                 static_cast<int>(height), mosaic ? 2 : 1, PatchRule::kDenoise);
    const auto bright =
        ListPatches(SomePixels(decisions, frame.size()), static_cast<int>(width),
                    static_cast<int>(height), mosaic ? 2 : 1, PatchRule::kMeanOfSides);
    const uint8_t chosen = decisions.Byte();
    for (Sample &sample : frame)
        sample = static_cast<Sample>(decisions.Byte() * 257);
    const std::span bytes(reinterpret_cast<uint8_t *>(frame.data()), frame.size() * sizeof(Sample));
    const FrameMarks marks = ReadFrameMarks(bytes);
    Must(!marks.Good() || (marks.Framed() && marks.headCounter == marks.tailCounter));
    ZeroFrameMarks(bytes.first(marks.Good() ? bytes.size() : 0));
    (chosen & 1 ? HideFrameMarks : HideHeadMark)(bytes, width * sizeof(Sample));

    const std::vector<uint8_t> dark(frame.begin(), frame.end());
    FrameSteps<Sample> steps{
        .samples = frame.data(),
        .width = width,
        .height = height,
        .gamma = chosen & 2 ? gamma.data() : nullptr,
        .patches = {chosen & 4 ? &hot : nullptr, chosen & 8 ? &bright : nullptr},
        .bin = bin,
        .mosaic = mosaic,
        .flipH = (chosen & 16) != 0,
        .flipV = (chosen & 32) != 0};
    if (sizeof(Sample) == 1 && chosen & 64)
        steps.dark = {dark.data(), chosen};
    RowScratch scratch(width);
    if (chosen & 128 || bin > RowScratch::kLargestBin)
        CorrectInPlace(steps, scratch, frame.data());
    std::vector<Sample> image(width / bin * (height / bin));
    FrameRows(steps, scratch).CopyTo(reinterpret_cast<uint8_t *>(image.data()));
    Must(steps.Corrects() || bin > 1 || (chosen & 48) != 0 || image == frame);

    if constexpr (sizeof(Sample) == 1) {
        CAlgorithm algorithm;
        algorithm.RGBYUV_Init();
        std::vector<uint8_t> colour(image.size() * 3);
        const auto phase = static_cast<BayerPhase>(decisions.Byte() % 4);
        Demosaic(steps, scratch, algorithm, phase, colour.data(), kRgb24);
        Demosaic(steps, scratch, algorithm, phase, image.data(), kByteImage);
        CopyGrey(steps, scratch, colour.data());
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    Decisions decisions({bytes, size});
    decisions.Flag() ? Deliver<uint16_t>(decisions) : Deliver<uint8_t>(decisions);
    return 0;
}
