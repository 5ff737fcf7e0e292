#include "image/algorithm.h"
#include "image/kernel_choice.h"
#include "image/rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <vector>

// Every kernel that this machine can run against the plain loops: whatever goes in, each byte that
// comes out is the same, and not one more is written.
namespace vsccam {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kGuard = 96;

struct Shape {
    size_t w, h;
    size_t offset; // of the buffers, from where the processor likes them
    unsigned seed;
};

Bytes Random(size_t count, unsigned seed)
{
    std::minstd_rand random(seed);
    Bytes bytes(count);
    // Half of the bytes at the ends of the range, where sums and clipping go wrong.
    std::ranges::generate(bytes, [&random] {
        const auto v = random() >> 7;
        return static_cast<uint8_t>(v & 0x100 ? v : v & 0x200 ? 0xFF - v % 3 : v % 3);
    });
    return bytes;
}

/// Buffers of one run, guarded on both sides.
class Buffers {
  public:
    explicit Buffers(const Shape &shape) : m_shape(shape) {}

    uint8_t *Output(size_t bytes)
    {
        m_outputs.emplace_back(bytes + 2 * kGuard + m_shape.offset, 0xA5);
        return m_outputs.back().data() + kGuard + m_shape.offset;
    }
    /// An input that is also written.
    uint8_t *InOut(size_t bytes)
    {
        const Bytes random = Random(bytes, m_shape.seed);
        uint8_t *const buffer = Output(bytes);
        std::ranges::copy(random, buffer);
        return buffer;
    }
    const uint8_t *Input(size_t bytes, unsigned seed = 0)
    {
        m_inputs.push_back(Random(bytes + m_shape.offset, m_shape.seed + seed));
        return m_inputs.back().data() + m_shape.offset;
    }
    const std::vector<Bytes> &Outputs() const { return m_outputs; }

  private:
    Shape m_shape;
    std::vector<Bytes> m_inputs;
    std::vector<Bytes> m_outputs;
};

struct Operation {
    std::string name;
    std::function<void(Buffers &, const Shape &)> run;
};

std::vector<Operation> Operations()
{
    std::vector<Operation> operations = {
        {"dark",
         [](Buffers &b, const Shape &s) {
             SubtractDark(b.Input(s.w * s.h), b.Input(s.w * s.h, 1), s.seed % 300,
                          b.Output(s.w * s.h), s.w * s.h);
         }},
        {"gamma",
         [](Buffers &b, const Shape &s) {
             LookUp(b.Input(s.w * s.h), b.Input(256, 2), b.Output(s.w * s.h), s.w * s.h);
         }},
        {"gamma in place",
         [](Buffers &b, const Shape &s) {
             uint8_t *const image = b.InOut(s.w * s.h);
             LookUp(image, b.Input(256, 2), image, s.w * s.h);
         }},
        {"turn",
         [](Buffers &b, const Shape &s) {
             CopyReversed(b.Input(s.w * s.h), b.Output(s.w * s.h), s.w * s.h);
         }},
        {"turn 16",
         [](Buffers &b, const Shape &s) {
             if (s.offset % 2 != 0)
                 return; // 16-bit samples are aligned
             CopyReversed(reinterpret_cast<const uint16_t *>(b.Input(2 * s.w * s.h)),
                          reinterpret_cast<uint16_t *>(b.Output(2 * s.w * s.h)), s.w * s.h);
         }},
        {"grey",
         [](Buffers &b, const Shape &s) {
             CopyThrice(b.Input(s.w * s.h), b.Output(3 * s.w * s.h), s.w * s.h);
         }},
        {"rgb to y8",
         [](Buffers &b, const Shape &s) {
             CAlgorithm algorithm;
             algorithm.RGBYUV_Init();
             algorithm.RGB2Y8(b.Input(3 * s.w * s.h), b.Output(s.w * s.h), static_cast<int>(s.w),
                              static_cast<int>(s.h));
         }},
        {"rgb to yuv", [](Buffers &b, const Shape &s) {
             CAlgorithm algorithm;
             algorithm.RGBYUV_Init();
             algorithm.RGB2YUV2(b.Input(3 * s.w * s.h), b.Output(2 * s.w * s.h),
                                static_cast<int>(s.w), static_cast<int>(s.h), s.seed % 2 != 0);
         }}};
    for (const bool is16 : {false, true}) {
        const size_t bytes = is16 ? 2 : 1;
        for (const auto &flip : {std::pair{false, true}, {true, false}, {true, true}})
            operations.push_back({"flip", [=](Buffers &b, const Shape &s) {
                                      if (is16 && s.offset % 2 != 0)
                                          return; // 16-bit samples are aligned
                                      CAlgorithm::SoftMisc(
                                          b.InOut(s.w * s.h * bytes), static_cast<int>(s.w),
                                          static_cast<int>(s.h), 1, is16, flip.first, flip.second);
                                  }});
        for (const int bin : {2, 3, 4}) {
            for (const bool mosaic : {false, true}) {
                operations.push_back(
                    {"bin " + std::to_string(bin) + (mosaic ? " mosaic " : " mono ") +
                         std::to_string(8 * bytes),
                     [=](Buffers &b, const Shape &s) {
                         if (is16 && s.offset % 2 != 0)
                             return;
                         const auto pixels = s.w * s.h * static_cast<size_t>(bin * bin);
                         uint8_t *const image = b.InOut(pixels * bytes);
                         const auto operation =
                             mosaic ? CAlgorithm::ColorRAWBin : CAlgorithm::MonoBin;
                         operation(image, reinterpret_cast<uint16_t *>(image),
                                   static_cast<int>(s.w), static_cast<int>(s.h), bin, is16);
                         std::fill_n(image + s.w * s.h * bytes, pixels * bytes - s.w * s.h * bytes,
                                     uint8_t{0});
                     }});
            }
        }
    }
    for (const IMAGE_TYPE type : {kRgb24, kByteImage, kYuv2})
        for (int phase = 0; phase < 4; ++phase)
            operations.push_back(
                {"demosaic " + std::to_string(type) + " phase " + std::to_string(phase),
                 [=](Buffers &b, const Shape &s) {
                     CAlgorithm algorithm;
                     algorithm.RGBYUV_Init();
                     algorithm.SetRGBWB(static_cast<int>(s.seed % 103),
                                        static_cast<int>(s.seed % 89));
                     algorithm.BayerConv(static_cast<BayerPhase>(phase), b.Input(s.w * s.h),
                                         b.Output(s.w * s.h * BytesPerPixel(type)),
                                         static_cast<int>(s.w), static_cast<int>(s.h), type);
                 }});
    return operations;
}

class KernelTest : public testing::Test {
  protected:
    ~KernelTest() override { UseKernels(*m_runnable.front()); }

    const std::vector<const Kernels *> m_runnable = RunnableKernels();
};

TEST_F(KernelTest, EveryKernelGivesWhatThePlainLoopsGive)
{
    std::vector<Shape> shapes;
    for (size_t w = 1; w < 150; w += w < 70 ? 1 : 7)
        shapes.push_back({w, 1 + w % 9, w % 4, static_cast<unsigned>(w * 31)});
    shapes.push_back({1936, 6, 1, 1});
    for (const Operation &operation : Operations()) {
        for (const Shape &shape : shapes) {
            UseKernels(*m_runnable.back());
            Buffers expected(shape);
            operation.run(expected, shape);
            for (const Kernels *kernels : m_runnable) {
                UseKernels(*kernels);
                Buffers actual(shape);
                operation.run(actual, shape);
                ASSERT_EQ(actual.Outputs(), expected.Outputs())
                    << kernels->name << " " << operation.name << " " << shape.w << "x" << shape.h
                    << " at " << shape.offset;
            }
        }
    }
}

} // namespace
} // namespace vsccam
