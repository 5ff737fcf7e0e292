#pragma once

#include <cstddef>
#include <cstdint>

// What the transforms do to a row, or to any run of samples. The loops in rows.cpp are the rules;
// where the machine has vectors, kernels do most of each row by the same rules.
namespace vsccam {

/// max(0, in - dark) + offset, at most 255.
void SubtractDark(const uint8_t *in, const uint8_t *dark, unsigned offset, uint8_t *out,
                  size_t count);

void LookUp(const uint8_t *in, const uint8_t *table, uint8_t *out, size_t count);
void LookUp(const uint16_t *in, const uint16_t *table, uint16_t *out, size_t count);

/// Copies back to front; the two must not overlap.
template <class Sample> void CopyReversed(const Sample *in, Sample *out, size_t count);

/// Turns a run of samples round.
template <class Sample> void ReverseInPlace(Sample *samples, size_t count);

/// Each sample three times.
void CopyThrice(const uint8_t *in, uint8_t *out, size_t count);

/// Which rows of a frame make a row of the binned one: the first, and how far the others lie apart.
struct BinnedRows {
    size_t first;
    size_t step;
};

/// @param height  of the binned frame
constexpr BinnedRows RowsOfBinned(size_t y, size_t height, unsigned bin, bool mosaic)
{
    if (!mosaic)
        return {y * bin, 1};
    // Rows alternate in their colours. For the last one of an odd height there is only one row of
    // its colours, which is taken again and again.
    const bool alone = y + 1 == height && height % 2 != 0;
    return {(y & 1) + (y & ~size_t{1}) * bin, alone ? size_t{0} : size_t{2}};
}

/// Means of bin x bin samples out of `bin` rows that lie `stride` samples apart. The output may be
/// the first of them.
template <class Sample>
void BinMonoRow(const Sample *in, size_t stride, unsigned bin, Sample *out, size_t count);

/// The same for samples of one colour, out of rows with the same colours: an even output column
/// and the odd one after it share 2 x bin input columns. The last column of an odd count has only
/// one site of its colour and takes it as it is.
template <class Sample>
void BinMosaicRow(const Sample *in, size_t stride, unsigned bin, Sample *out, size_t count);

} // namespace vsccam
