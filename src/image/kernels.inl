// The vector kernels, compiled once for each instruction set. Nothing of the standard library and
// no inline function may get in here: the linker keeps one copy of those for the whole program, and
// it could be the one that not every processor runs.
#include "image/kernels.h"

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace vsccam {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

constexpr hn::ScalableTag<uint8_t> d8;
constexpr hn::ScalableTag<uint16_t> d16;
constexpr hn::ScalableTag<int16_t> dSigned16;
constexpr hn::ScalableTag<uint32_t> d32;
constexpr hn::ScalableTag<int32_t> dSigned32;
constexpr hn::ScalableTag<float> dFloat;
using V8 = hn::Vec<decltype(d8)>;
using V16 = hn::Vec<decltype(d16)>;
using V32 = hn::Vec<decltype(d32)>;

constexpr size_t kLanes8 = hn::MaxLanes(d8);

// ------------------------------------------------------------------------ pairs of neighbours
// Samples are taken as pairs, a lane of twice their width each: the even one is the low half. Half
// by half, there is room for sums, and the pairs need not be taken apart.

HWY_INLINE V16 Even(V16 pairs)
{
    return hn::And(pairs, hn::Set(d16, 0xFF));
}
HWY_INLINE V16 Odd(V16 pairs)
{
    return hn::ShiftRight<8>(pairs);
}
HWY_INLINE V16 Join(V16 even, V16 odd)
{
    return hn::Or(even, hn::ShiftLeft<8>(odd));
}
HWY_INLINE V32 Even(V32 pairs)
{
    return hn::And(pairs, hn::Set(d32, 0xFFFF));
}
HWY_INLINE V32 Odd(V32 pairs)
{
    return hn::ShiftRight<16>(pairs);
}
HWY_INLINE V32 Join(V32 even, V32 odd)
{
    return hn::Or(even, hn::ShiftLeft<16>(odd));
}

HWY_INLINE V16 LoadPairs(const uint8_t *samples)
{
    return hn::BitCast(d16, hn::LoadU(d8, samples));
}
HWY_INLINE V32 LoadPairs(const uint16_t *samples)
{
    return hn::BitCast(d32, hn::LoadU(d16, samples));
}
HWY_INLINE void StorePairs(V16 pairs, uint8_t *out)
{
    hn::StoreU(hn::BitCast(d8, pairs), d8, out);
}
HWY_INLINE void StorePairs(V32 pairs, uint16_t *out)
{
    hn::StoreU(hn::BitCast(d16, pairs), d16, out);
}

#if HWY_TARGET != HWY_NEON

#if HWY_TARGET == HWY_SSE4
#define VSCCAM_VECTOR(operation) _mm_##operation
#elif HWY_TARGET == HWY_AVX2
#define VSCCAM_VECTOR(operation) _mm256_##operation
#else
#define VSCCAM_VECTOR(operation) _mm512_##operation
#endif

/// kEven times the even byte of each pair plus kOdd times the odd one.
template <int kEven, int kOdd> HWY_INLINE V16 WeighedPairs(V8 pairs)
{
    static_assert(-128 <= kEven && kEven < 128 && -128 <= kOdd && kOdd < 128);
    const V16 factors = hn::Set(d16, static_cast<uint16_t>((kOdd << 8) | (kEven & 0xFF)));
    return V16{VSCCAM_VECTOR(maddubs_epi16)(pairs.raw, factors.raw)};
}

#endif

/// Lanes that fit into half of their width, without the other half.
HWY_INLINE void StoreNarrow(V16 lanes, uint8_t *out)
{
    const hn::Half<decltype(d8)> half;
    hn::StoreU(hn::DemoteTo(half, hn::BitCast(dSigned16, lanes)), half, out);
}
HWY_INLINE void StoreNarrow(V32 lanes, uint16_t *out)
{
    const hn::Half<decltype(d16)> half;
    hn::StoreU(hn::DemoteTo(half, hn::BitCast(dSigned32, lanes)), half, out);
}

// ------------------------------------------------------------------------ samples in their place

size_t SubtractDark(const uint8_t *in, const uint8_t *dark, uint8_t offset, uint8_t *out,
                    size_t count)
{
    const V8 added = hn::Set(d8, offset);
    size_t i = 0;
    for (; i + kLanes8 <= count; i += kLanes8) {
        const V8 rest = hn::SaturatedSub(hn::LoadU(d8, in + i), hn::LoadU(d8, dark + i));
        hn::StoreU(hn::SaturatedAdd(rest, added), d8, out + i);
    }
    return i;
}

#if HWY_TARGET == HWY_NEON

size_t LookUp(const uint8_t *in, const uint8_t *table, uint8_t *out, size_t count)
{
    // Tables of 256 take NEON longer than eight loads at a time.
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const uint8_t *const from = in + i;
        const uint8_t looked[8] = {table[from[0]], table[from[1]], table[from[2]], table[from[3]],
                                   table[from[4]], table[from[5]], table[from[6]], table[from[7]]};
        __builtin_memcpy(out + i, looked, 8);
    }
    return i;
}

#elif HWY_TARGET == HWY_AVX3

size_t LookUp(const uint8_t *in, const uint8_t *table, uint8_t *out, size_t count)
{
    // The table in four vectors. A look-up in two of them takes no notice of the highest bit.
    const V8 low = hn::LoadU(d8, table);
    const V8 low2 = hn::LoadU(d8, table + kLanes8);
    const V8 high = hn::LoadU(d8, table + 2 * kLanes8);
    const V8 high2 = hn::LoadU(d8, table + 3 * kLanes8);
    size_t i = 0;
    for (; i + kLanes8 <= count; i += kLanes8) {
        const V8 v = hn::LoadU(d8, in + i);
        const V8 ifLow{_mm512_permutex2var_epi8(low.raw, v.raw, low2.raw)};
        const V8 ifHigh{_mm512_permutex2var_epi8(high.raw, v.raw, high2.raw)};
        const V8 looked{_mm512_mask_blend_epi8(_mm512_movepi8_mask(v.raw), ifLow.raw, ifHigh.raw)};
        hn::StoreU(looked, d8, out + i);
    }
    return i;
}

#else

/// Looks bytes up in 16 tables of 16. The shuffle takes the low four bits of a byte and gives zero
/// for one above 127. So the bytes are brought down by 16 from table to table, and each table
/// holds the difference to the one before: what a byte collects until it falls below zero is its
/// entry. The upper half of the range is done in the same way, once 128 is taken away.
size_t LookUp(const uint8_t *in, const uint8_t *table, uint8_t *out, size_t count)
{
    constexpr size_t kTables = 16;
    constexpr size_t kHalf = kTables / 2;
    constexpr hn::ScalableTag<int8_t> dSigned8;
    const hn::CappedTag<uint8_t, 16> dTable;
    HWY_ALIGN uint8_t differences[kTables * 16];
    for (size_t k = 0; k < kTables; ++k) {
        const auto own = hn::LoadU(dTable, table + 16 * k);
        const auto before = hn::LoadU(dTable, table + 16 * (k - (k % kHalf != 0 ? 1 : 0)));
        hn::Store(k % kHalf != 0 ? hn::Xor(own, before) : own, dTable, differences + 16 * k);
    }
    const auto step = hn::Set(dSigned8, 16);
    const V8 top = hn::Set(d8, 0x80);
    size_t i = 0;
    for (; i + 4 * kLanes8 <= count; i += 4 * kLanes8) {
        V8 values[4];
        V8 results[4];
        for (size_t v = 0; v < 4; ++v) {
            values[v] = hn::LoadU(d8, in + i + v * kLanes8);
            results[v] = hn::Zero(d8);
        }
        for (size_t half = 0; half < 2; ++half) {
            V8 rest[4];
            for (size_t v = 0; v < 4; ++v)
                rest[v] = half == 0 ? values[v] : hn::Xor(values[v], top);
            for (size_t k = 0; k < kHalf; ++k) {
                const V8 difference = hn::LoadDup128(d8, differences + 16 * (half * kHalf + k));
                for (size_t v = 0; v < 4; ++v) {
                    results[v] = hn::Xor(results[v], hn::TableLookupBytesOr0(difference, rest[v]));
                    rest[v] =
                        hn::BitCast(d8, hn::SaturatedSub(hn::BitCast(dSigned8, rest[v]), step));
                }
            }
        }
        for (size_t v = 0; v < 4; ++v)
            hn::StoreU(results[v], d8, out + i + v * kLanes8);
    }
    return i;
}

#endif

size_t CopyThrice(const uint8_t *in, uint8_t *out, size_t count)
{
    size_t i = 0;
    for (; i + kLanes8 <= count; i += kLanes8) {
        const V8 v = hn::LoadU(d8, in + i);
        hn::StoreInterleaved3(v, v, v, d8, out + 3 * i);
    }
    return i;
}

// ------------------------------------------------------------------------------------- reversal

HWY_INLINE V16 Reversed(V16 v)
{
    return hn::Reverse(d16, v);
}
HWY_INLINE V8 Reversed(V8 v)
{
    const V16 pairs = Reversed(hn::BitCast(d16, v));
    return hn::BitCast(d8, hn::Or(hn::ShiftLeft<8>(pairs), hn::ShiftRight<8>(pairs)));
}

template <class Sample> size_t CopyReversed(const Sample *in, Sample *out, size_t count)
{
    constexpr hn::ScalableTag<Sample> d;
    constexpr size_t kLanes = hn::MaxLanes(d);
    size_t i = 0;
    for (; i + kLanes <= count; i += kLanes)
        hn::StoreU(Reversed(hn::LoadU(d, in + count - kLanes - i)), d, out + i);
    return i;
}

template <class Sample> size_t SwapReversed(Sample *a, Sample *b, size_t count)
{
    constexpr hn::ScalableTag<Sample> d;
    constexpr size_t kLanes = hn::MaxLanes(d);
    size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        Sample *const end = b + count - kLanes - i;
        const auto front = hn::LoadU(d, a + i);
        const auto back = hn::LoadU(d, end);
        hn::StoreU(Reversed(back), d, a + i);
        hn::StoreU(Reversed(front), d, end);
    }
    return i;
}

// -------------------------------------------------------------------------------------- binning

/// Sums of lanes that stand side by side, first those of `a`; they fit into a lane.
HWY_INLINE V32 PairSums(V32 a, V32 b)
{
    return hn::Add(hn::ConcatEven(d32, b, a), hn::ConcatOdd(d32, b, a));
}
HWY_INLINE V16 PairSums(V16 a, V16 b)
{
    const hn::Half<decltype(d16)> half;
    const auto sums = [&](V16 v) HWY_ATTR {
        const V32 pairs = hn::BitCast(d32, v);
        return hn::DemoteTo(half, hn::BitCast(dSigned32, hn::Add(Even(pairs), Odd(pairs))));
    };
    return hn::Combine(d16, sums(b), sums(a));
}

/// A ninth of sums of nine samples, rounded down.
HWY_INLINE V16 Ninth(V16 sum)
{
    return hn::MulHigh(sum, hn::Set(d16, 7282));
}
HWY_INLINE V32 Ninth(V32 sum)
{
    // Sums and quotients are exact enough in a float: half a unit is more than its rounding.
    const auto middle =
        hn::Add(hn::ConvertTo(dFloat, hn::BitCast(dSigned32, sum)), hn::Set(dFloat, 0.5F));
    return hn::BitCast(d32,
                       hn::ConvertTo(dSigned32, hn::Mul(middle, hn::Set(dFloat, 1.0F / 9.0F))));
}

template <class V> struct Halves {
    V even;
    V odd;
};

template <class Sample> using VPairs = decltype(LoadPairs(static_cast<Sample *>(nullptr)));

/// Sums over `kRows` rows: of the even and of the odd samples of each pair.
template <size_t kRows, class Sample>
HWY_INLINE Halves<VPairs<Sample>> ColumnSums(const Sample *in, size_t stride)
{
    auto pairs = LoadPairs(in);
    Halves<VPairs<Sample>> sums = {Even(pairs), Odd(pairs)};
    for (size_t row = 1; row < kRows; ++row) {
        pairs = LoadPairs(in + row * stride);
        sums = {hn::Add(sums.even, Even(pairs)), hn::Add(sums.odd, Odd(pairs))};
    }
    return sums;
}

template <size_t kRows, class Sample>
HWY_INLINE VPairs<Sample> PairColumnSums(const Sample *in, size_t stride)
{
    const auto sums = ColumnSums<kRows>(in, stride);
    return hn::Add(sums.even, sums.odd);
}

#if HWY_TARGET != HWY_NEON

template <size_t kRows> HWY_INLINE V16 PairColumnSums(const uint8_t *in, size_t stride)
{
    V16 sums = WeighedPairs<1, 1>(hn::LoadU(d8, in));
    for (size_t row = 1; row < kRows; ++row)
        sums = hn::Add(sums, WeighedPairs<1, 1>(hn::LoadU(d8, in + row * stride)));
    return sums;
}

#endif

template <class Sample> constexpr size_t kLanesOf = hn::MaxLanes(hn::ScalableTag<Sample>());

template <class Sample> size_t BinMono2(const Sample *in, size_t stride, Sample *out, size_t count)
{
    constexpr size_t kOut = kLanesOf<Sample> / 2;
    size_t x = 0;
    for (; x + kOut <= count; x += kOut)
        StoreNarrow(hn::ShiftRight<2>(PairColumnSums<2>(in + 2 * x, stride)), out + x);
    return x;
}

template <class Sample> size_t BinMono4(const Sample *in, size_t stride, Sample *out, size_t count)
{
    constexpr size_t kIn = kLanesOf<Sample>;
    constexpr size_t kOut = kIn / 2;
    size_t x = 0;
    for (; x + kOut <= count; x += kOut) {
        const Sample *const from = in + 4 * x;
        StoreNarrow(hn::ShiftRight<4>(PairSums(PairColumnSums<4>(from, stride),
                                               PairColumnSums<4>(from + kIn, stride))),
                    out + x);
    }
    return x;
}

/// Means of 3 x 3 units: samples, or pairs of samples that belong to one colour each.
template <class DUnit, class DPairs, class Sample>
HWY_INLINE hn::Vec<DPairs> MeansOfNine(DUnit d, DPairs dPairs, const Sample *in, size_t stride)
{
    using Unit = hn::TFromD<DUnit>; // read from wherever a row begins, aligned or not
    hn::Vec<DPairs> even = hn::Zero(dPairs);
    hn::Vec<DPairs> odd = hn::Zero(dPairs);
    for (size_t row = 0; row < 3; ++row) {
        hn::Vec<DUnit> columns[3];
        hn::LoadInterleaved3(d, reinterpret_cast<const Unit *>(in + row * stride), columns[0],
                             columns[1], columns[2]);
        for (size_t column = 0; column < 3; ++column) {
            const hn::Vec<DPairs> pairs = hn::BitCast(dPairs, columns[column]);
            even = hn::Add(even, Even(pairs));
            odd = hn::Add(odd, Odd(pairs));
        }
    }
    return Join(Ninth(even), Ninth(odd));
}

template <class Sample> size_t BinMono3(const Sample *in, size_t stride, Sample *out, size_t count)
{
    constexpr hn::ScalableTag<Sample> d;
    constexpr hn::RepartitionToWide<decltype(d)> dPairs;
    constexpr size_t kOut = kLanesOf<Sample>;
    size_t x = 0;
    for (; x + kOut <= count; x += kOut)
        StorePairs(MeansOfNine(d, dPairs, in + 3 * x, stride), out + x);
    return x;
}

template <class Sample>
size_t BinMosaic2(const Sample *in, size_t stride, Sample *out, size_t count)
{
    constexpr size_t kOut = kLanesOf<Sample>;
    size_t x = 0;
    for (; x + kOut <= count; x += kOut) {
        const auto a = ColumnSums<2>(in + 2 * x, stride);
        const auto b = ColumnSums<2>(in + 2 * x + kOut, stride);
        StorePairs(Join(hn::ShiftRight<2>(PairSums(a.even, b.even)),
                        hn::ShiftRight<2>(PairSums(a.odd, b.odd))),
                   out + x);
    }
    return x;
}

template <class Sample>
size_t BinMosaic4(const Sample *in, size_t stride, Sample *out, size_t count)
{
    constexpr size_t kOut = kLanesOf<Sample>;
    size_t x = 0;
    for (; x + kOut <= count; x += kOut) {
        const auto a = ColumnSums<4>(in + 4 * x, stride);
        const auto b = ColumnSums<4>(in + 4 * x + kOut, stride);
        const auto c = ColumnSums<4>(in + 4 * x + 2 * kOut, stride);
        const auto e = ColumnSums<4>(in + 4 * x + 3 * kOut, stride);
        const auto even = PairSums(PairSums(a.even, b.even), PairSums(c.even, e.even));
        const auto odd = PairSums(PairSums(a.odd, b.odd), PairSums(c.odd, e.odd));
        StorePairs(Join(hn::ShiftRight<4>(even), hn::ShiftRight<4>(odd)), out + x);
    }
    return x;
}

template <class Sample>
size_t BinMosaic3(const Sample *in, size_t stride, Sample *out, size_t count)
{
    constexpr hn::RepartitionToWide<hn::ScalableTag<Sample>> dPairs;
    constexpr size_t kOut = kLanesOf<Sample>;
    size_t x = 0;
    for (; x + kOut <= count; x += kOut)
        StorePairs(MeansOfNine(dPairs, dPairs, in + 3 * x, stride), out + x);
    return x;
}

template <class Sample>
size_t BinMono(const Sample *in, size_t stride, unsigned bin, Sample *out, size_t count)
{
    return bin == 2   ? BinMono2(in, stride, out, count)
           : bin == 3 ? BinMono3(in, stride, out, count)
           : bin == 4 ? BinMono4(in, stride, out, count)
                      : 0;
}

template <class Sample>
size_t BinMosaic(const Sample *in, size_t stride, unsigned bin, Sample *out, size_t count)
{
    return bin == 2   ? BinMosaic2(in, stride, out, count)
           : bin == 3 ? BinMosaic3(in, stride, out, count)
           : bin == 4 ? BinMosaic4(in, stride, out, count)
                      : 0;
}

// --------------------------------------------------------------------------------------- colour
// In each block of 16 pixels the even ones come first, then the odd ones: neighbours differ in how
// they are made, and share their chroma.

// What the instruction sets do each in its own way: all that packs lanes into bytes, and sums of
// products of bytes.
#if HWY_TARGET == HWY_NEON

/// One byte of each pixel; what is more than 255 becomes 255.
HWY_INLINE V8 Packed(V16 even, V16 odd)
{
    return V8(vcombine_u8(vqmovn_u16(even.raw), vqmovn_u16(odd.raw)));
}

HWY_INLINE V8 EvenFirst(V8 inOrder)
{
    const uint8x8x2_t halves = vuzp_u8(vget_low_u8(inOrder.raw), vget_high_u8(inOrder.raw));
    return V8(vcombine_u8(halves.val[0], halves.val[1]));
}
HWY_INLINE V8 InOrder(V8 evenFirst)
{
    const uint8x8x2_t halves = vzip_u8(vget_low_u8(evenFirst.raw), vget_high_u8(evenFirst.raw));
    return V8(vcombine_u8(halves.val[0], halves.val[1]));
}

/// All bytes of the pixels, in order.
HWY_INLINE void StoreRgb(V8 first, V8 second, V8 third, uint8_t *out)
{
    hn::StoreInterleaved3(InOrder(first), InOrder(second), InOrder(third), d8, out);
}

/// The three bytes of the pixels in half of each block.
struct Colours {
    uint8x8_t bytes[3];

    /// k0 bytes[0] + k1 bytes[1] + k2 bytes[2] + kAdded
    template <int k0, int k1, int k2, int kAdded = 0> HWY_INLINE V16 Sum() const
    {
        uint16x8_t sum = vdupq_n_u16(kAdded);
        sum = AddTimes<k0>(sum, bytes[0]);
        sum = AddTimes<k1>(sum, bytes[1]);
        return V16(AddTimes<k2>(sum, bytes[2]));
    }
    template <int kFactor> static HWY_INLINE uint16x8_t AddTimes(uint16x8_t sum, uint8x8_t v)
    {
        if constexpr (kFactor > 0)
            return vmlal_u8(sum, v, vdup_n_u8(kFactor));
        else if constexpr (kFactor < 0)
            return vmlsl_u8(sum, v, vdup_n_u8(-kFactor));
        else
            return sum;
    }
};

HWY_INLINE Colours LowerColours(V8 first, V8 second, V8 third)
{
    return {{vget_low_u8(first.raw), vget_low_u8(second.raw), vget_low_u8(third.raw)}};
}
HWY_INLINE Colours UpperColours(V8 first, V8 second, V8 third)
{
    return {{vget_high_u8(first.raw), vget_high_u8(second.raw), vget_high_u8(third.raw)}};
}

#else

/// One byte of each pixel; what is more than 255 becomes 255.
HWY_INLINE V8 Packed(V16 even, V16 odd)
{
    return V8{VSCCAM_VECTOR(packus_epi16)(even.raw, odd.raw)};
}

HWY_INLINE V8 EvenFirst(V8 inOrder)
{
    alignas(16) constexpr uint8_t kFrom[] = {0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15};
    return hn::TableLookupBytes(inOrder, hn::LoadDup128(d8, kFrom));
}
HWY_INLINE V8 InOrder(V8 evenFirst)
{
    alignas(16) constexpr uint8_t kFrom[] = {0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15};
    return hn::TableLookupBytes(evenFirst, hn::LoadDup128(d8, kFrom));
}

/// Where the 48 bytes of a block's pixels come from, 16 by 16: for the first, second and third byte
/// of the pixels, their places in the block, or nothing.
struct RgbOrder {
    uint8_t from[3][3][16];
};
constexpr RgbOrder MakeRgbOrder()
{
    RgbOrder order{};
    for (size_t i = 0; i < 48; ++i)
        for (size_t byte = 0; byte < 3; ++byte)
            order.from[i / 16][byte][i % 16] =
                static_cast<uint8_t>(i % 3 == byte ? i / 3 % 2 * 8 + i / 6 : 0x80);
    return order;
}

/// A vector for all blocks, each of which has 48 bytes.
template <class D> HWY_INLINE void StoreBlocks(D d, hn::Vec<D> v, uint8_t *out)
{
    if constexpr (hn::MaxLanes(d) == 16) {
        hn::StoreU(v, d, out);
    } else {
        constexpr hn::Half<D> half;
        StoreBlocks(half, hn::LowerHalf(half, v), out);
        StoreBlocks(half, hn::UpperHalf(half, v), out + 3 * hn::MaxLanes(half));
    }
}

/// All bytes of the pixels, in order.
HWY_INLINE void StoreRgb(V8 first, V8 second, V8 third, uint8_t *out)
{
    alignas(16) static constexpr RgbOrder kOrder = MakeRgbOrder();
    for (size_t sixteen = 0; sixteen < 3; ++sixteen) {
        const auto &from = kOrder.from[sixteen];
        const auto part = [&from](V8 bytes, size_t byte) HWY_ATTR {
            return hn::TableLookupBytesOr0(bytes, hn::LoadDup128(d8, from[byte]));
        };
        StoreBlocks(d8, hn::Or(hn::Or(part(first, 0), part(second, 1)), part(third, 2)),
                    out + 16 * sixteen);
    }
}

/// The three bytes of the pixels in half of each block, as pairs.
struct Colours {
    static constexpr int kUnit = 250; // the partner of the second byte, for constants

    V8 outer;  // first and third byte
    V8 second; // and kUnit

    /// k0 bytes[0] + k1 bytes[1] + k2 bytes[2] + kAdded
    template <int k0, int k1, int k2, int kAdded = 0> HWY_INLINE V16 Sum() const
    {
        static_assert(kAdded % kUnit == 0);
        const V16 sum = WeighedPairs<k0, k2>(outer);
        if constexpr (k1 == 0 && kAdded == 0)
            return sum;
        return hn::Add(sum, WeighedPairs<k1, kAdded / kUnit>(second));
    }
};

HWY_INLINE Colours LowerColours(V8 first, V8 second, V8 third)
{
    return {hn::InterleaveLower(d8, first, third),
            hn::InterleaveLower(d8, second, hn::Set(d8, Colours::kUnit))};
}
HWY_INLINE Colours UpperColours(V8 first, V8 second, V8 third)
{
    return {hn::InterleaveUpper(d8, first, third),
            hn::InterleaveUpper(d8, second, hn::Set(d8, Colours::kUnit))};
}

#endif

/// Pixels, even ones first.
struct Pixels {
    V8 bytes[3];

    HWY_INLINE Colours Even() const { return LowerColours(bytes[0], bytes[1], bytes[2]); }
    HWY_INLINE Colours Odd() const { return UpperColours(bytes[0], bytes[1], bytes[2]); }
};

// The tables of the plain loops hold products cut to 1/65536. These forms give the same for all
// 2^24 pixels; the term with the small coefficients makes up for the cuts.

HWY_INLINE V16 DividedBy125(V16 v)
{
    constexpr uint16_t k125th = 33555; // of 1/2^22
    return hn::ShiftRight<6>(hn::MulHigh(v, hn::Set(d16, k125th)));
}

HWY_INLINE V16 EighthOfSigned(V16 v)
{
    return hn::BitCast(d16, hn::ShiftRight<3>(hn::BitCast(dSigned16, v)));
}

template <int kBlack> HWY_INLINE V16 Luminance(const Colours &c)
{
    const V16 cuts = hn::SaturatedSub(c.Sum<1, 0, 2>(), hn::Set(d16, 1));
    return DividedBy125(hn::Add(c.Sum<32, 63, 12, 125 * kBlack>(), hn::ShiftRight<3>(cuts)));
}

constexpr int kMiddle = 128 * 125;

HWY_INLINE V16 ChromaV(const Colours &c)
{
    return DividedBy125(hn::Add(c.Sum<55, -46, -9, kMiddle>(), EighthOfSigned(c.Sum<-1, 0, 1>())));
}

HWY_INLINE V16 ChromaU(const Colours &c)
{
    return DividedBy125(
        hn::Add(c.Sum<-18, -36, 55, kMiddle>(), EighthOfSigned(c.Sum<-4, -3, -1>())));
}

struct AsRgb {
    static constexpr size_t kBytes = 3;
    static HWY_INLINE void Store(const Pixels &p, uint8_t *out)
    {
        StoreRgb(p.bytes[0], p.bytes[1], p.bytes[2], out);
    }
};

struct AsY8 {
    static constexpr size_t kBytes = 1;
    static HWY_INLINE void Store(const Pixels &p, uint8_t *out)
    {
        hn::StoreU(InOrder(Packed(Luminance<0>(p.Even()), Luminance<0>(p.Odd()))), d8, out);
    }
};

struct AsYuv {
    static constexpr size_t kBytes = 2;
    static HWY_INLINE void Store(const Pixels &p, uint8_t *out)
    {
        constexpr int kBlack = 16;
        const Colours even = p.Even();
        const V8 luminance = Packed(Luminance<kBlack>(even), Luminance<kBlack>(p.Odd()));
        const V8 chroma = Packed(ChromaV(even), ChromaU(even));
        hn::StoreInterleaved2(hn::BitCast(d16, hn::InterleaveLower(d8, luminance, chroma)),
                              hn::BitCast(d16, hn::InterleaveUpper(d8, luminance, chroma)), d16,
                              reinterpret_cast<uint16_t *>(out));
    }
};

template <class Output> size_t ConvertRgb(const uint8_t *rgb, uint8_t *out, size_t count)
{
    size_t i = 0;
    for (; i + kLanes8 <= count; i += kLanes8) {
        V8 planes[3];
        hn::LoadInterleaved3(d8, rgb + 3 * i, planes[0], planes[1], planes[2]);
        Output::Store({{EvenFirst(planes[0]), EvenFirst(planes[1]), EvenFirst(planes[2])}},
                      out + i * Output::kBytes);
    }
    return i;
}

// ------------------------------------------------------------------------------------- demosaic

/// The mean of 2^kShift samples, rounded down, times gain, rounded down. What exceeds a byte is cut
/// when the bytes are packed.
template <int kShift> HWY_INLINE V16 Balanced(V16 sum, V16 gain)
{
    const V16 multiple = hn::And(sum, hn::Set(d16, static_cast<uint16_t>(~0U << kShift)));
#if HWY_TARGET == HWY_NEON
    const V16 twice = kShift == 2   ? hn::ShiftRight<1>(multiple)
                      : kShift == 1 ? multiple
                                    : hn::ShiftLeft<1>(sum);
    return V16(vreinterpretq_u16_s16(
        vqdmulhq_s16(vreinterpretq_s16_u16(twice.raw), vreinterpretq_s16_u16(gain.raw))));
#else
    const V16 fourfold = kShift == 0 ? hn::ShiftLeft<2>(sum) : hn::ShiftLeft<2 - kShift>(multiple);
    return hn::MulHigh(fourfold, gain);
#endif
}

/// The pixels of a row from column x (even) on. Each pixel takes the means of its nearest
/// neighbours of each colour; balance follows the averaging.
template <bool kGreenFirst, bool kOwnIsFirst>
HWY_INLINE Pixels Interpolated(const uint8_t *at, size_t stride, V16 firstGain, V16 thirdGain)
{
    const uint8_t *const above = at - stride;
    const uint8_t *const below = at + stride;
    const V16 here = LoadPairs(at);
    const V16 up = LoadPairs(above);
    const V16 down = LoadPairs(below);
    const V16 verticalOfEven = hn::Add(Even(up), Even(down));
    const V16 verticalOfOdd = hn::Add(Odd(up), Odd(down));
    const V16 sidesOfEven = hn::Add(Even(LoadPairs(at - 1)), Odd(here));
    const V16 sidesOfOdd = hn::Add(Even(here), Odd(LoadPairs(at + 1)));

    // `own` is the colour of the row, `other` that of the rows around it.
    V16 ownAtSite, otherAtSite, greenAtSite, ownAtGreen, otherAtGreen, green;
    if (kGreenFirst) {
        ownAtSite = Odd(here);
        otherAtSite =
            hn::Add(verticalOfEven, hn::Add(Odd(LoadPairs(above + 1)), Odd(LoadPairs(below + 1))));
        greenAtSite = hn::Add(sidesOfOdd, verticalOfOdd);
        green = Even(here);
        ownAtGreen = sidesOfEven;
        otherAtGreen = verticalOfEven;
    } else {
        ownAtSite = Even(here);
        otherAtSite =
            hn::Add(verticalOfOdd, hn::Add(Even(LoadPairs(above - 1)), Even(LoadPairs(below - 1))));
        greenAtSite = hn::Add(sidesOfEven, verticalOfEven);
        green = Odd(here);
        ownAtGreen = sidesOfOdd;
        otherAtGreen = verticalOfOdd;
    }
    const V16 ownGain = kOwnIsFirst ? firstGain : thirdGain;
    const V16 otherGain = kOwnIsFirst ? thirdGain : firstGain;
    const auto packed = [](V16 atSite, V16 atGreen) HWY_ATTR {
        return kGreenFirst ? Packed(atGreen, atSite) : Packed(atSite, atGreen);
    };
    const V8 own = packed(Balanced<0>(ownAtSite, ownGain), Balanced<1>(ownAtGreen, ownGain));
    const V8 other =
        packed(Balanced<2>(otherAtSite, otherGain), Balanced<1>(otherAtGreen, otherGain));
    const V8 middle = packed(hn::ShiftRight<2>(greenAtSite), green);
    return kOwnIsFirst ? Pixels{{own, middle, other}} : Pixels{{other, middle, own}};
}

template <class Output, bool kGreenFirst, bool kOwnIsFirst>
size_t DemosaicRow(const MosaicRow &row, uint8_t *out, size_t count)
{
    if (count < kLanes8)
        return 0;
    const V16 firstGain = hn::Set(d16, row.firstGain);
    const V16 thirdGain = hn::Set(d16, row.thirdGain);
    const uint8_t *const pixels = row.pixels;
    const size_t stride = row.stride;
    for (size_t i = 0; i < count; i += kLanes8) {
        const size_t x = i + kLanes8 <= count ? i : count - kLanes8; // the last do some twice
        Output::Store(
            Interpolated<kGreenFirst, kOwnIsFirst>(pixels + x, stride, firstGain, thirdGain),
            out + x * Output::kBytes);
    }
    return count;
}

template <class Output> size_t Demosaic(const MosaicRow &row, uint8_t *out, size_t count)
{
    if (row.greenFirst)
        return row.ownIsFirst ? DemosaicRow<Output, true, true>(row, out, count)
                              : DemosaicRow<Output, true, false>(row, out, count);
    return row.ownIsFirst ? DemosaicRow<Output, false, true>(row, out, count)
                          : DemosaicRow<Output, false, false>(row, out, count);
}

} // namespace

extern const Kernels VSCCAM_KERNELS = {
    .name = VSCCAM_KERNELS_NAME,
    .subtractDark = SubtractDark,
    .lookUp = LookUp,
    .copyReversed8 = CopyReversed<uint8_t>,
    .copyReversed16 = CopyReversed<uint16_t>,
    .swapReversed8 = SwapReversed<uint8_t>,
    .swapReversed16 = SwapReversed<uint16_t>,
    .copyThrice = CopyThrice,
    .binMono8 = BinMono<uint8_t>,
    .binMono16 = BinMono<uint16_t>,
    .binMosaic8 = BinMosaic<uint8_t>,
    .binMosaic16 = BinMosaic<uint16_t>,
    .demosaicRgb = Demosaic<AsRgb>,
    .demosaicY8 = Demosaic<AsY8>,
    .demosaicYuv = Demosaic<AsYuv>,
    .rgbToY8 = ConvertRgb<AsY8>,
    .rgbToYuv = ConvertRgb<AsYuv>,
};

} // namespace vsccam
HWY_AFTER_NAMESPACE();
