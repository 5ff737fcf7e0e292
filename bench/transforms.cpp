#include "core/gamma.h"
#include "image/frame_rows.h"
#include "image/kernel_choice.h"

#include <benchmark/benchmark.h>
#include <dc1394/conversions.h>
#include <libyuv.h>
#include <opencv2/imgproc.hpp>
extern "C" {
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

// The transforms next to what others need for the same, and next to a plain copy: of the output
// where that is the least to be written, of all that is read and written for binning. All of it on
// one thread and in one run, for only ratios say anything. Goals are those for AVX2.
namespace {

using namespace vsccam;
using Work = std::function<void()>;

struct Peer {
    std::string name;
    double goal; // times as fast; 0: none
    Work work;
};

struct Comparison {
    std::string transform;
    size_t copied; // bytes of the copy
    double goalShare;
    Work ours;
    std::vector<Peer> peers;
};

struct FrameSize {
    const char *name;
    int width;
    int height;
    double goalShareRgb; // of a copy, for the demosaic into RGB24
};
constexpr FrameSize kSizes[] = {{"S", 1936, 1096, 0.9}, {"L", 7380, 4928, 1.1}};

/// Buffers that the operations on one size share: whatever does not work in place reads `frame` or
/// `rgb` and writes `out`, so that alignment and pages are the same for all.
struct Frames {
    explicit Frames(FrameSize frameSize)
        : size(frameSize),
          pixels(static_cast<size_t>(size.width) * static_cast<size_t>(size.height)),
          scratch(static_cast<size_t>(size.width)), noise(2 * pixels), frame(2 * pixels),
          dark(pixels), rgb(3 * pixels), out(3 * pixels), gamma16(65536)
    {
        std::minstd_rand random(1);
        for (std::vector<uint8_t> *bytes : {&noise, &dark, &rgb})
            std::ranges::generate(*bytes, [&] { return static_cast<uint8_t>(random() >> 9); });
        std::ranges::transform(dark, dark.begin(), [](uint8_t v) { return uint8_t(v % 32); });
        algorithm.RGBYUV_Init();
        algorithm.SetRGBWB(52, 95);
        FillGammaTable(70, gamma8);
        for (size_t i = 0; i < gamma16.size(); ++i)
            gamma16[i] = static_cast<uint16_t>(65535 - i);
        balance.create(1, 256, CV_8UC3);
        for (int i = 0; i < 256; ++i)
            balance.at<cv::Vec3b>(i) = {cv::saturate_cast<uint8_t>(i * 95 / 50), uint8_t(i),
                                        cv::saturate_cast<uint8_t>(i * 52 / 50)};
    }

    cv::Mat Mat(std::vector<uint8_t> &bytes, int type) const
    {
        return {size.height, size.width, type, bytes.data()};
    }

    FrameSize size;
    size_t pixels;
    CAlgorithm algorithm;
    RowScratch scratch;
    GammaTable8 gamma8{};
    std::vector<uint8_t> noise, frame, dark, rgb, out;
    std::vector<uint16_t> gamma16;
    cv::Mat balance;
};

Peer DcBayer(Frames &f, dc1394bayer_method_t method, const char *name)
{
    return {name, 0, [&f, method] {
                dc1394_bayer_decoding_8bit(
                    f.frame.data(), f.out.data(), static_cast<uint32_t>(f.size.width),
                    static_cast<uint32_t>(f.size.height), DC1394_COLOR_FILTER_RGGB, method);
            }};
}

Work SwscaleToYuv(Frames &f)
{
    const std::shared_ptr<SwsContext> context(
        sws_getContext(f.size.width, f.size.height, AV_PIX_FMT_BAYER_RGGB8, f.size.width,
                       f.size.height, AV_PIX_FMT_YUYV422, SWS_FAST_BILINEAR, nullptr, nullptr,
                       nullptr),
        sws_freeContext);
    return [&f, context] {
        const uint8_t *const in = f.frame.data();
        uint8_t *const out = f.out.data();
        const int outRow = 2 * f.size.width;
        sws_scale(context.get(), &in, &f.size.width, 0, f.size.height, &out, &outRow);
    };
}

void AddDemosaics(Frames &f, std::vector<Comparison> &list)
{
    const auto ours = [&f](IMAGE_TYPE type) {
        return [&f, type] {
            f.algorithm.BayerConv_RG(f.frame.data(), f.out.data(), f.size.width, f.size.height,
                                     type);
        };
    };
    const auto toColour = [&f] {
        cv::Mat colour = f.Mat(f.out, CV_8UC3);
        cv::cvtColor(f.Mat(f.frame, CV_8U), colour, cv::COLOR_BayerBG2BGR);
        return colour;
    };
    const auto toBalanced = [&f, toColour] {
        cv::Mat colour = toColour();
        cv::LUT(colour, f.balance, colour);
        return colour;
    };
    list.push_back({"demosaic RGB24",
                    3 * f.pixels,
                    f.size.goalShareRgb,
                    ours(kRgb24),
                    {{"OpenCV, LUT", 6, toBalanced},
                     {"OpenCV, unbalanced", 1.5, toColour},
                     DcBayer(f, DC1394_BAYER_METHOD_SIMPLE, "dc1394 simple, unbalanced"),
                     DcBayer(f, DC1394_BAYER_METHOD_BILINEAR, "dc1394 bilinear, unbalanced")}});
    const auto greyOf = [&f](const cv::Mat &image, int conversion) {
        // Not into `out`, where the colours are.
        cv::Mat grey = f.Mat(f.rgb, CV_8U);
        cv::cvtColor(image, grey, conversion);
    };
    list.push_back({"demosaic Y8",
                    f.pixels,
                    0,
                    ours(kByteImage),
                    {{"OpenCV, LUT, grey", 7,
                      [greyOf, toBalanced] { greyOf(toBalanced(), cv::COLOR_BGR2GRAY); }},
                     {"OpenCV, unbalanced", 1,
                      [&f, greyOf] { greyOf(f.Mat(f.frame, CV_8U), cv::COLOR_BayerBG2GRAY); }}}});
    list.push_back({"demosaic YUV",
                    2 * f.pixels,
                    0.5,
                    ours(kYuv2),
                    {{"swscale, unbalanced", 7, SwscaleToYuv(f)}}});
    list.push_back(
        {"RGB24 to Y8",
         f.pixels,
         0,
         [&f] { f.algorithm.RGB2Y8(f.rgb.data(), f.out.data(), f.size.width, f.size.height); },
         {{"OpenCV", 1.1, [&f] {
               cv::Mat grey = f.Mat(f.out, CV_8U);
               cv::cvtColor(f.Mat(f.rgb, CV_8UC3), grey, cv::COLOR_RGB2GRAY);
           }}}});
}

void AddPointOperations(Frames &f, std::vector<Comparison> &list)
{
    list.push_back({"dark 8",
                    f.pixels,
                    0.9,
                    [&f] {
                        CAlgorithm::SubtractDark(f.frame.data(), f.size.width, f.size.height, 9,
                                                 f.dark.data());
                    },
                    {{"OpenCV", 1.5, [&f] {
                          cv::Mat image = f.Mat(f.frame, CV_8U);
                          cv::subtract(image, f.Mat(f.dark, CV_8U), image);
                          cv::add(image, cv::Scalar(9), image);
                      }}}});
    list.push_back(
        {"gamma 8",
         f.pixels,
         0,
         [&f] { CAlgorithm::Gamma(f.frame.data(), f.gamma8.data(), f.size.width, f.size.height); },
         {{"OpenCV", 1.25, [&f] {
               cv::Mat image = f.Mat(f.frame, CV_8U);
               cv::LUT(image, cv::Mat(1, 256, CV_8U, f.gamma8.data()), image);
           }}}});
    list.push_back({"gamma 16",
                    2 * f.pixels,
                    0,
                    [&f] {
                        CAlgorithm::Gamma(reinterpret_cast<uint16_t *>(f.frame.data()),
                                          f.gamma16.data(), f.size.width, f.size.height);
                    },
                    {{"plain loop", 1, [&f] {
                          auto *image = reinterpret_cast<uint16_t *>(f.frame.data());
                          std::transform(image, image + f.pixels, image,
                                         [&f](uint16_t v) { return f.gamma16[v]; });
                      }}}});
}

using OutOfPlace = int (*)(const uint8_t *, int, uint8_t *, int, int, int);

int RotateHalfTurn(const uint8_t *in, int inRow, uint8_t *out, int outRow, int width, int height)
{
    return libyuv::RotatePlane(in, inRow, out, outRow, width, height, libyuv::kRotate180);
}

int MirrorSides(const uint8_t *in, int inRow, uint8_t *out, int outRow, int width, int height)
{
    libyuv::MirrorPlane(in, inRow, out, outRow, width, height);
    return 0;
}

void AddFlips(Frames &f, std::vector<Comparison> &list)
{
    constexpr struct {
        const char *name;
        bool v, h;
        int code; // of OpenCV
        double goalShare8, goalRatio8, goalRatio16;
        OutOfPlace libyuv; // 8 bit only
        double goalLibyuv;
    } kFlips[] = {{"flip H", false, true, 1, 0.85, 0, 1, MirrorSides, 0.9},
                  {"flip V", true, false, 0, 1.5, 1, 1, nullptr, 0},
                  {"flip HV", true, true, -1, 1.5, 0, 1.3, RotateHalfTurn, 1.8}};
    for (const bool is16 : {false, true}) {
        for (const auto &flip : kFlips) {
            Comparison comparison{
                flip.name + std::string(is16 ? " 16" : " 8"),
                f.pixels * (is16 ? 2 : 1),
                is16 ? 0 : flip.goalShare8,
                [&f, flip, is16] {
                    CAlgorithm::SoftMisc(f.frame.data(), f.size.width, f.size.height, 1, is16,
                                         flip.v, flip.h);
                },
                {{"OpenCV", is16 ? flip.goalRatio16 : flip.goalRatio8, [&f, flip, is16] {
                      cv::Mat image = f.Mat(f.frame, is16 ? CV_16U : CV_8U);
                      cv::flip(image, image, flip.code);
                  }}}};
            if (flip.libyuv && !is16)
                comparison.peers.push_back({"libyuv, not in place", flip.goalLibyuv, [&f, flip] {
                                                flip.libyuv(f.frame.data(), f.size.width,
                                                            f.out.data(), f.size.width,
                                                            f.size.width, f.size.height);
                                            }});
            list.push_back(std::move(comparison));
        }
    }
}

/// Means of blocks of one colour: rows of one kind, pairs of pixels as channels.
void BinMosaicByAreas(Frames &f, int bin, int depth)
{
    const int w = f.size.width / bin & ~1;
    const int h = f.size.height / bin & ~1;
    const size_t pixel = depth == CV_16U ? 2 : 1;
    const size_t inRow = static_cast<size_t>(f.size.width) * pixel;
    const size_t outRow = static_cast<size_t>(w) * pixel;
    const int pairs = CV_MAKETYPE(depth, 2);
    for (size_t row = 0; row < 2; ++row) {
        const cv::Mat in(h / 2 * bin, w / 2 * bin, pairs, f.frame.data() + row * inRow, 2 * inRow);
        cv::Mat out(h / 2, w / 2, pairs, f.out.data() + row * outRow, 2 * outRow);
        cv::resize(in, out, out.size(), 0, 0, cv::INTER_AREA);
    }
}

void ScaleByBoxes(Frames &f, int w, int h, bool is16)
{
    const int width = f.size.width;
    const int height = f.size.height;
    if (is16)
        libyuv::ScalePlane_16(reinterpret_cast<const uint16_t *>(f.frame.data()), width, width,
                              height, reinterpret_cast<uint16_t *>(f.out.data()), w, w, h,
                              libyuv::kFilterBox);
    else
        libyuv::ScalePlane(f.frame.data(), width, width, height, f.out.data(), w, w, h,
                           libyuv::kFilterBox);
}

void AddBinnings(Frames &f, std::vector<Comparison> &list)
{
    // By factor, 8 and 16 bit.
    constexpr double kGoalsMono[][2] = {{0.9, 0.9}, {1.5, 2}, {0.9, 1}};
    constexpr double kGoalsMosaic[][2] = {{3, 3}, {2, 2}, {2, 2}};
    for (const bool mosaic : {false, true}) {
        for (const int bin : {2, 3, 4}) {
            for (const bool is16 : {false, true}) {
                const size_t bytes = f.pixels * (is16 ? 2 : 1);
                const int w = f.size.width / bin;
                const int h = f.size.height / bin;
                const int depth = is16 ? CV_16U : CV_8U;
                const auto ours = mosaic ? CAlgorithm::ColorRAWBin : CAlgorithm::MonoBin;
                const double goal = (mosaic ? kGoalsMosaic : kGoalsMono)[bin - 2][is16 ? 1 : 0];
                Comparison comparison{
                    std::string(mosaic ? "bin colour " : "bin mono ") + std::to_string(bin) +
                        (is16 ? " 16" : " 8"),
                    (bytes + bytes / static_cast<size_t>(bin * bin)) / 2,
                    0,
                    [&f, ours, w, h, bin, is16] {
                        ours(f.frame.data(), reinterpret_cast<uint16_t *>(f.frame.data()), w & ~1,
                             h & ~1, bin, is16);
                    },
                    {{"OpenCV, area", goal, [&f, mosaic, w, h, bin, depth] {
                          if (mosaic) {
                              BinMosaicByAreas(f, bin, depth);
                              return;
                          }
                          cv::Mat out(h, w, depth, f.out.data());
                          cv::resize(f.Mat(f.frame, depth), out, out.size(), 0, 0, cv::INTER_AREA);
                      }}}};
                if (!mosaic)
                    comparison.peers.push_back(
                        {"libyuv, box", goal, [&f, w, h, is16] { ScaleByBoxes(f, w, h, is16); }});
                list.push_back(std::move(comparison));
            }
        }
    }
}

void AddPipeline(Frames &f, std::vector<Comparison> &list)
{
    list.push_back(
        {"pipeline",
         3 * f.pixels,
         0.5,
         [&f] {
             const FrameSteps<uint8_t> steps{.samples = f.frame.data(),
                                             .width = static_cast<size_t>(f.size.width),
                                             .height = static_cast<size_t>(f.size.height),
                                             .dark = {f.dark.data(), 9},
                                             .gamma = f.gamma8.data(),
                                             .flipH = true,
                                             .flipV = true};
             Demosaic(steps, f.scratch, f.algorithm, BayerPhase::kRG, f.out.data(), kRgb24);
         },
         {{"OpenCV", 4, [&f] {
               cv::Mat image = f.Mat(f.frame, CV_8U);
               cv::subtract(image, f.Mat(f.dark, CV_8U), image);
               cv::add(image, cv::Scalar(9), image);
               cv::LUT(image, cv::Mat(1, 256, CV_8U, f.gamma8.data()), image);
               cv::flip(image, image, -1);
               cv::Mat colour = f.Mat(f.out, CV_8UC3);
               cv::cvtColor(image, colour, cv::COLOR_BayerRG2BGR);
               cv::LUT(colour, f.balance, colour);
           }}}});
}

/// Keeps the shortest time of each, of the thread: what others do on the machine takes none of it.
class Shortest : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Iteration)
                continue;
            const double ns = run.GetAdjustedCPUTime();
            const auto [entry, isNew] = m_ns.try_emplace(run.run_name.function_name, ns);
            if (!isNew)
                entry->second = std::min(entry->second, ns);
        }
    }
    double Milliseconds(const std::string &name) const { return 1e-6 * m_ns.at(name); }

  private:
    std::map<std::string, double> m_ns;
};

/// First is a run that does not count, which leaves the caches as the work itself does.
void Register(const std::string &name, const Work &work)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [work](benchmark::State &state) {
                                     work();
                                     for ([[maybe_unused]] const auto iteration : state) {
                                         work();
                                         benchmark::ClobberMemory();
                                     }
                                 })
        ->MinTime(0.01)
        ->Repetitions(15);
}

void PrintGoal(double value, double goal)
{
    if (goal > 0)
        std::printf(" %6.2f (%4.2f)", value, goal);
    else
        std::printf(" %6.2f       ", value);
}

void Compare(Frames &f, const Comparison &c)
{
    std::ranges::copy(f.noise, f.frame.begin());
    benchmark::ClearRegisteredBenchmarks();
    Register("ours", c.ours);
    Register("copy", [&f, &c] { std::memcpy(f.out.data(), f.rgb.data(), c.copied); });
    for (const Peer &peer : c.peers)
        Register(peer.name, peer.work);
    Shortest times;
    benchmark::RunSpecifiedBenchmarks(&times);

    const double ours = times.Milliseconds("ours");
    std::printf("%-16s %-4s %8.3f", c.transform.c_str(), f.size.name, ours);
    PrintGoal(times.Milliseconds("copy") / ours, c.goalShare);
    for (const Peer &peer : c.peers) {
        if (&peer != &c.peers.front())
            std::printf("\n%44s", "");
        const double theirs = times.Milliseconds(peer.name);
        std::printf(" %8.3f", theirs);
        PrintGoal(theirs / ours, peer.goal);
        std::printf(" %s", peer.name.c_str());
    }
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace

/// usage: vsccam_transforms [KERNELS] [TRANSFORM], both as they are printed; a part of the
/// transform's name will do.
int main(int argc, char **argv)
{
    cv::setNumThreads(1);
    // The repetitions of what is compared take turns: all meet what the machine is like.
    std::string interleaved = "--benchmark_enable_random_interleaving=true";
    std::array flags = {argv[0], interleaved.data()};
    int flagCount = static_cast<int>(flags.size());
    benchmark::Initialize(&flagCount, flags.data());

    std::string_view wanted;
    for (const std::string_view argument : std::vector<std::string_view>(argv + 1, argv + argc)) {
        const auto runnable = RunnableKernels();
        const auto named = std::ranges::find(runnable, argument, &Kernels::name);
        if (named != runnable.end())
            UseKernels(**named);
        else
            wanted = argument;
    }
    std::printf("kernels %s; S is 1936 x 1096, L is 7380 x 4928; goals in brackets\n",
                CurrentKernels().name);
    std::printf("%-16s %-4s %8s %14s %8s %14s %s\n", "transform", "size", "ours, ms",
                "share of copy", "peer, ms", "times as fast", "as the peer");
    for (const FrameSize &size : kSizes) {
        Frames frames(size);
        std::vector<Comparison> comparisons;
        for (const auto add :
             {AddDemosaics, AddPointOperations, AddFlips, AddBinnings, AddPipeline})
            add(frames, comparisons);
        for (const Comparison &comparison : comparisons)
            if (comparison.transform.find(wanted) != std::string::npos)
                Compare(frames, comparison);
    }
    return 0;
}
