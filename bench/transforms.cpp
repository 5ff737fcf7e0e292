#include "core/gamma.h"
#include "image/frame_rows.h"
#include "image/kernel_choice.h"

#include <benchmark/benchmark.h>
#include <dc1394/conversions.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

// The transforms next to what others need for the same, and next to a plain copy: of the output
// where that is the least to be written, of all that is read and written for binning. All of it on
// one thread and in one run, for only ratios say anything.
namespace {

using namespace vsccam;
using Work = std::function<void()>;

struct Peer {
    std::string name;
    Work work;
};

struct Comparison {
    std::string transform;
    size_t copied; // bytes of the copy
    double goalShare;
    double goalRatio; // to the first peer
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

/// Buffers that the operations on one size share.
struct Frames {
    explicit Frames(FrameSize frameSize)
        : size(frameSize),
          pixels(static_cast<size_t>(size.width) * static_cast<size_t>(size.height)),
          scratch(static_cast<size_t>(size.width)), frame(2 * pixels), dark(pixels),
          rgb(3 * pixels), out(3 * pixels), other(3 * pixels), gamma16(65536)
    {
        std::minstd_rand random(1);
        for (std::vector<uint8_t> *bytes : {&frame, &dark, &rgb})
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
    std::vector<uint8_t> frame, dark, rgb, out, other;
    std::vector<uint16_t> gamma16;
    cv::Mat balance;
};

Peer DcBayer(Frames &f, dc1394bayer_method_t method, const char *name)
{
    return {name, [&f, method] {
                dc1394_bayer_decoding_8bit(
                    f.frame.data(), f.other.data(), static_cast<uint32_t>(f.size.width),
                    static_cast<uint32_t>(f.size.height), DC1394_COLOR_FILTER_RGGB, method);
            }};
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
        cv::Mat colour = f.Mat(f.other, CV_8UC3);
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
                    6,
                    ours(kRgb24),
                    {{"OpenCV, LUT", toBalanced},
                     {"OpenCV, unbalanced", toColour},
                     DcBayer(f, DC1394_BAYER_METHOD_SIMPLE, "dc1394 simple, unbalanced"),
                     DcBayer(f, DC1394_BAYER_METHOD_BILINEAR, "dc1394 bilinear, unbalanced")}});
    list.push_back({"demosaic Y8",
                    f.pixels,
                    0,
                    7,
                    ours(kByteImage),
                    {{"OpenCV, LUT, grey",
                      [&f, toBalanced] {
                          cv::Mat grey = f.Mat(f.out, CV_8U);
                          cv::cvtColor(toBalanced(), grey, cv::COLOR_BGR2GRAY);
                      }},
                     {"OpenCV, unbalanced", [&f] {
                          cv::Mat grey = f.Mat(f.other, CV_8U);
                          cv::cvtColor(f.Mat(f.frame, CV_8U), grey, cv::COLOR_BayerBG2GRAY);
                      }}}});
    list.push_back({"demosaic YUV", 2 * f.pixels, 0.5, 0, ours(kYuv2), {}});
    list.push_back(
        {"RGB24 to Y8",
         f.pixels,
         0,
         1.1,
         [&f] { f.algorithm.RGB2Y8(f.rgb.data(), f.out.data(), f.size.width, f.size.height); },
         {{"OpenCV", [&f] {
               cv::Mat grey = f.Mat(f.other, CV_8U);
               cv::cvtColor(f.Mat(f.rgb, CV_8UC3), grey, cv::COLOR_RGB2GRAY);
           }}}});
}

void AddPointOperations(Frames &f, std::vector<Comparison> &list)
{
    list.push_back({"dark 8",
                    f.pixels,
                    0.9,
                    1.5,
                    [&f] {
                        CAlgorithm::SubtractDark(f.frame.data(), f.size.width, f.size.height, 9,
                                                 f.dark.data());
                    },
                    {{"OpenCV", [&f] {
                          cv::Mat image = f.Mat(f.frame, CV_8U);
                          cv::subtract(image, f.Mat(f.dark, CV_8U), image);
                          cv::add(image, cv::Scalar(9), image);
                      }}}});
    list.push_back(
        {"gamma 8",
         f.pixels,
         0,
         1.25,
         [&f] { CAlgorithm::Gamma(f.frame.data(), f.gamma8.data(), f.size.width, f.size.height); },
         {{"OpenCV", [&f] {
               cv::Mat image = f.Mat(f.frame, CV_8U);
               cv::LUT(image, cv::Mat(1, 256, CV_8U, f.gamma8.data()), image);
           }}}});
    list.push_back({"gamma 16",
                    2 * f.pixels,
                    0,
                    1,
                    [&f] {
                        CAlgorithm::Gamma(reinterpret_cast<uint16_t *>(f.frame.data()),
                                          f.gamma16.data(), f.size.width, f.size.height);
                    },
                    {{"plain loop", [&f] {
                          auto *image = reinterpret_cast<uint16_t *>(f.frame.data());
                          std::transform(image, image + f.pixels, image,
                                         [&f](uint16_t v) { return f.gamma16[v]; });
                      }}}});
}

void AddFlips(Frames &f, std::vector<Comparison> &list)
{
    constexpr struct {
        const char *name;
        bool v, h;
        int code; // of OpenCV
        double goalShare8, goalRatio8, goalRatio16;
    } kFlips[] = {{"flip H", false, true, 1, 0.85, 0, 1},
                  {"flip V", true, false, 0, 1.5, 1, 1},
                  {"flip HV", true, true, -1, 1.5, 0, 1.3}};
    for (const bool is16 : {false, true}) {
        for (const auto &flip : kFlips) {
            list.push_back({flip.name + std::string(is16 ? " 16" : " 8"),
                            f.pixels * (is16 ? 2 : 1),
                            is16 ? 0 : flip.goalShare8,
                            is16 ? flip.goalRatio16 : flip.goalRatio8,
                            [&f, flip, is16] {
                                CAlgorithm::SoftMisc(f.frame.data(), f.size.width, f.size.height, 1,
                                                     is16, flip.v, flip.h);
                            },
                            {{"OpenCV", [&f, flip, is16] {
                                  cv::Mat image = f.Mat(f.frame, is16 ? CV_16U : CV_8U);
                                  cv::flip(image, image, flip.code);
                              }}}});
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
        cv::Mat out(h / 2, w / 2, pairs, f.other.data() + row * outRow, 2 * outRow);
        cv::resize(in, out, out.size(), 0, 0, cv::INTER_AREA);
    }
}

void AddBinnings(Frames &f, std::vector<Comparison> &list)
{
    // By factor, 8 and 16 bit; none for 4 x 4 mono, whose best peer is not here.
    constexpr double kGoalsMono[][2] = {{0.9, 0.9}, {1.5, 2}, {0, 0}};
    constexpr double kGoalsMosaic[][2] = {{3, 3}, {2, 2}, {2, 2}};
    for (const bool mosaic : {false, true}) {
        for (const int bin : {2, 3, 4}) {
            for (const bool is16 : {false, true}) {
                const size_t bytes = f.pixels * (is16 ? 2 : 1);
                const int w = f.size.width / bin;
                const int h = f.size.height / bin;
                const int depth = is16 ? CV_16U : CV_8U;
                const auto ours = mosaic ? CAlgorithm::ColorRAWBin : CAlgorithm::MonoBin;
                list.push_back(
                    {std::string(mosaic ? "bin colour " : "bin mono ") + std::to_string(bin) +
                         (is16 ? " 16" : " 8"),
                     (bytes + bytes / static_cast<size_t>(bin * bin)) / 2,
                     0,
                     (mosaic ? kGoalsMosaic : kGoalsMono)[bin - 2][is16 ? 1 : 0],
                     [&f, ours, w, h, bin, is16] {
                         ours(f.frame.data(), reinterpret_cast<uint16_t *>(f.frame.data()), w & ~1,
                              h & ~1, bin, is16);
                     },
                     {{"OpenCV, area", [&f, mosaic, w, h, bin, depth] {
                           if (mosaic) {
                               BinMosaicByAreas(f, bin, depth);
                               return;
                           }
                           cv::Mat out(h, w, depth, f.other.data());
                           cv::resize(f.Mat(f.frame, depth), out, out.size(), 0, 0, cv::INTER_AREA);
                       }}}});
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
         4,
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
         {{"OpenCV", [&f] {
               cv::Mat image = f.Mat(f.frame, CV_8U);
               cv::subtract(image, f.Mat(f.dark, CV_8U), image);
               cv::add(image, cv::Scalar(9), image);
               cv::LUT(image, cv::Mat(1, 256, CV_8U, f.gamma8.data()), image);
               cv::flip(image, image, -1);
               cv::Mat colour = f.Mat(f.other, CV_8UC3);
               cv::cvtColor(image, colour, cv::COLOR_BayerRG2BGR);
               cv::LUT(colour, f.balance, colour);
           }}}});
}

/// Keeps the shortest time of each.
class Shortest : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Iteration)
                continue;
            const double time = run.GetAdjustedRealTime();
            const auto [entry, isNew] = m_times.try_emplace(run.run_name.function_name, time);
            if (!isNew)
                entry->second = std::min(entry->second, time);
        }
    }
    /// 0 when it was not measured.
    double Of(const std::string &name) const
    {
        const auto found = m_times.find(name);
        return found == m_times.end() ? 0 : found->second;
    }

  private:
    std::map<std::string, double> m_times;
};

std::string NameOf(const Frames &f, const Comparison &c, const std::string &who)
{
    return c.transform + " " + f.size.name + ": " + who;
}

void Register(const std::string &name, const Work &work)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [work](benchmark::State &state) {
                                     for ([[maybe_unused]] const auto iteration : state) {
                                         work();
                                         benchmark::ClobberMemory();
                                     }
                                 })
        ->MinTime(0.03)
        ->Repetitions(5)
        ->UseRealTime();
}

void PrintGoal(double value, double goal)
{
    if (goal > 0)
        std::printf(" %6.2f (%4.2f)", value, goal);
    else
        std::printf(" %6.2f       ", value);
}

void Print(const Frames &f, const Comparison &c, const Shortest &times)
{
    const double ours = times.Of(NameOf(f, c, "ours"));
    if (ours == 0)
        return;
    const double nsPerMs = 1e6;
    std::printf("%-16s %-4s %8.3f", c.transform.c_str(), f.size.name, ours / nsPerMs);
    PrintGoal(times.Of(NameOf(f, c, "copy")) / ours, c.goalShare);
    double goal = c.goalRatio;
    for (const Peer &peer : c.peers) {
        if (&peer != &c.peers.front())
            std::printf("\n%52s", "");
        std::printf(" %8.3f", times.Of(NameOf(f, c, peer.name)) / nsPerMs);
        PrintGoal(times.Of(NameOf(f, c, peer.name)) / ours, goal);
        std::printf(" %s", peer.name.c_str());
        goal = 0; // is that of the first
    }
    std::printf("\n");
}

} // namespace

int main(int argc, char **argv)
{
    cv::setNumThreads(1);
    std::vector<char *> arguments(argv, argv + argc);
    std::string interleaved = "--benchmark_enable_random_interleaving=true";
    arguments.insert(arguments.begin() + 1, interleaved.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());

    std::vector<Frames> frames(std::begin(kSizes), std::end(kSizes));
    std::vector<std::vector<Comparison>> comparisons(frames.size());
    for (size_t i = 0; i < frames.size(); ++i) {
        for (const auto add :
             {AddDemosaics, AddPointOperations, AddFlips, AddBinnings, AddPipeline})
            add(frames[i], comparisons[i]);
        for (const Comparison &c : comparisons[i]) {
            Frames &f = frames[i];
            Register(NameOf(f, c, "ours"), c.ours);
            Register(NameOf(f, c, "copy"),
                     [&f, &c] { std::memcpy(f.out.data(), f.rgb.data(), c.copied); });
            for (const Peer &peer : c.peers)
                Register(NameOf(f, c, peer.name), peer.work);
        }
    }
    Shortest times;
    benchmark::RunSpecifiedBenchmarks(&times);
    std::printf("kernels %s; S is 1936 x 1096, L is 7380 x 4928; goals in brackets\n",
                CurrentKernels().name);
    std::printf("%-16s %-4s %8s %14s %8s %14s %s\n", "transform", "size", "ours, ms",
                "share of copy", "peer, ms", "times as fast", "as the peer");
    for (size_t i = 0; i < frames.size(); ++i)
        for (const Comparison &c : comparisons[i])
            Print(frames[i], c, times);
    return 0;
}
