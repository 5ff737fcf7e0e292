#include "image/frame_rows.h"
#include "image/rows.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

// Runs one transform so many times on a small frame. What a transform costs is the difference
// between two numbers of runs, counted from outside.
namespace {

using namespace vsccam;

constexpr int kWidth = 1936; // rows as long as in frames, and few of them
constexpr int kHeight = 16;
constexpr size_t kPixels = size_t{kWidth} * kHeight;

struct Workload {
    std::vector<uint8_t> frame = std::vector<uint8_t>(kPixels * 4, 90);
    std::vector<uint8_t> dark = std::vector<uint8_t>(kPixels, 10);
    std::vector<uint8_t> out = std::vector<uint8_t>(kPixels * 3);
    std::vector<uint8_t> table = std::vector<uint8_t>(256, 7);
    RowScratch scratch{kWidth};
    CAlgorithm algorithm;

    void Convert(IMAGE_TYPE type)
    {
        // Without the four border rows, of which a whole frame has no more.
        for (int y = 2; y < kHeight - 2; y += 2)
            algorithm.BayerConvRows(BayerPhase::kRG, &frame[static_cast<size_t>(y) * kWidth], y,
                                    out.data(), kWidth, kHeight, type);
    }
    void Flip(bool vertical)
    {
        CAlgorithm::SoftMisc(frame.data(), kWidth, kHeight, 1, false, vertical, true);
    }
};

constexpr struct {
    std::string_view name;
    size_t pixels;
    void (*run)(Workload &);
} kTransforms[] = {
    {"rgb", kPixels - 4 * kWidth, [](Workload &w) { w.Convert(kRgb24); }},
    {"y8", kPixels - 4 * kWidth, [](Workload &w) { w.Convert(kByteImage); }},
    {"yuv", kPixels - 4 * kWidth, [](Workload &w) { w.Convert(kYuv2); }},
    {"dark", kPixels,
     [](Workload &w) {
         CAlgorithm::SubtractDark(w.frame.data(), kWidth, kHeight, 9, w.dark.data());
     }},
    {"gamma", kPixels,
     [](Workload &w) { CAlgorithm::Gamma(w.frame.data(), w.table.data(), kWidth, kHeight); }},
    {"flip-h", kPixels, [](Workload &w) { w.Flip(false); }},
    {"flip-hv", kPixels, [](Workload &w) { w.Flip(true); }},
    {"bin-2x2", kPixels,
     [](Workload &w) {
         CAlgorithm::MonoBin(w.frame.data(), nullptr, kWidth / 2, kHeight / 2, 2, false);
     }},
    {"pipeline", kPixels,
     [](Workload &w) {
         const FrameSteps<uint8_t> steps{.samples = w.frame.data(),
                                         .width = kWidth,
                                         .height = kHeight,
                                         .dark = {w.dark.data(), 9},
                                         .gamma = w.table.data(),
                                         .flipH = true,
                                         .flipV = true};
         Demosaic(steps, w.scratch, w.algorithm, BayerPhase::kRG, w.out.data(), kRgb24);
     }},
};

} // namespace

int main(int argc, char **argv)
{
    if (argc == 1) { // what there is, and the pixels of a run
        for (const auto &transform : kTransforms)
            std::printf("%s %zu\n", transform.name.data(), transform.pixels);
        return 0;
    }
    Workload workload;
    workload.algorithm.RGBYUV_Init();
    workload.algorithm.SetRGBWB(52, 95);
    for (const auto &transform : kTransforms) {
        if (transform.name != argv[1])
            continue;
        for (int runs = argc > 2 ? std::atoi(argv[2]) : 1; runs > 0; --runs)
            transform.run(workload);
        return 0;
    }
    return 1;
}
