#include "image/rows.h"

#include "image/kernel_choice.h"

#include <algorithm>
#include <type_traits>
#include <utility>

namespace vsccam {

namespace {

/// The mean of bin x bin samples, `step` columns apart. The divisions truncate one after the other.
template <class Sample>
Sample BlockMean(const Sample *first, size_t stride, unsigned bin, size_t step)
{
    uint32_t sum = 0;
    for (size_t row = 0; row < bin; ++row)
        for (size_t column = 0; column < bin; ++column)
            sum += first[row * stride + column * step];
    return static_cast<Sample>(sum / bin / bin); // NOLINT(clang-analyzer-core.DivideZero): not 0
}

/// The kernel for this width of samples.
template <class Sample, class Of8, class Of16> auto ForSample(Of8 of8, Of16 of16)
{
    if constexpr (std::is_same_v<Sample, uint8_t>)
        return of8;
    else
        return of16;
}

} // namespace

void SubtractDark(const uint8_t *in, const uint8_t *dark, unsigned offset, uint8_t *out,
                  size_t count)
{
    const unsigned added = std::min(offset, 255U);
    size_t i = CurrentKernels().subtractDark(in, dark, static_cast<uint8_t>(added), out, count);
    for (; i < count; ++i) {
        const unsigned rest = in[i] > dark[i] ? unsigned{in[i]} - dark[i] : 0;
        out[i] = static_cast<uint8_t>(std::min(255U, rest + added));
    }
}

void LookUp(const uint8_t *in, const uint8_t *table, uint8_t *out, size_t count)
{
    constexpr size_t kFew = 16; // kernels take the table apart first
    for (size_t i = count < kFew ? 0 : CurrentKernels().lookUp(in, table, out, count); i < count;
         ++i)
        out[i] = table[in[i]];
}

void LookUp(const uint16_t *in, const uint16_t *table, uint16_t *out, size_t count)
{
    // Runs that are stored at once: a tenth faster than sample by sample.
    constexpr size_t kRun = 8;
    size_t i = 0;
    for (; i + kRun <= count; i += kRun) {
        uint16_t looked[kRun];
        for (size_t k = 0; k < kRun; ++k)
            looked[k] = table[in[i + k]];
        std::copy_n(looked, kRun, out + i);
    }
    for (; i < count; ++i)
        out[i] = table[in[i]];
}

template <class Sample> void CopyReversed(const Sample *in, Sample *out, size_t count)
{
    const Kernels &kernels = CurrentKernels();
    const auto kernel = ForSample<Sample>(kernels.copyReversed8, kernels.copyReversed16);
    for (size_t i = kernel(in, out, count); i < count; ++i)
        out[i] = in[count - 1 - i];
}

template <class Sample> void ReverseInPlace(Sample *samples, size_t count)
{
    const Kernels &kernels = CurrentKernels();
    const auto kernel = ForSample<Sample>(kernels.swapReversed8, kernels.swapReversed16);
    const size_t half = count / 2;
    for (size_t i = kernel(samples, samples + count - half, half); i < half; ++i)
        std::swap(samples[i], samples[count - 1 - i]);
}

void CopyThrice(const uint8_t *in, uint8_t *out, size_t count)
{
    for (size_t i = CurrentKernels().copyThrice(in, out, count); i < count; ++i)
        std::fill_n(out + 3 * i, 3, in[i]);
}

template <class Sample>
void BinMonoRow(const Sample *in, size_t stride, unsigned bin, Sample *out, size_t count)
{
    const Kernels &kernels = CurrentKernels();
    const auto kernel = ForSample<Sample>(kernels.binMono8, kernels.binMono16);
    for (size_t x = kernel(in, stride, bin, out, count); x < count; ++x)
        out[x] = BlockMean(in + x * bin, stride, bin, 1);
}

template <class Sample>
void BinMosaicRow(const Sample *in, size_t stride, unsigned bin, Sample *out, size_t count)
{
    const Kernels &kernels = CurrentKernels();
    const auto kernel = ForSample<Sample>(kernels.binMosaic8, kernels.binMosaic16);
    for (size_t x = kernel(in, stride, bin, out, count & ~size_t{1}); x < count; ++x) {
        const bool alone = x + 1 == count && count % 2 != 0;
        const Sample *first = in + (x & 1) + (x & ~size_t{1}) * bin;
        out[x] = alone ? *first : BlockMean(first, stride, bin, 2);
    }
}

template void CopyReversed(const uint8_t *, uint8_t *, size_t);
template void CopyReversed(const uint16_t *, uint16_t *, size_t);
template void ReverseInPlace(uint8_t *, size_t);
template void ReverseInPlace(uint16_t *, size_t);
template void BinMonoRow(const uint8_t *, size_t, unsigned, uint8_t *, size_t);
template void BinMonoRow(const uint16_t *, size_t, unsigned, uint16_t *, size_t);
template void BinMosaicRow(const uint8_t *, size_t, unsigned, uint8_t *, size_t);
template void BinMosaicRow(const uint16_t *, size_t, unsigned, uint16_t *, size_t);

} // namespace vsccam
