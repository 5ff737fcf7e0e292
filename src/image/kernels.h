#pragma once

#include <stddef.h>
#include <stdint.h>

// Included by code that is compiled for other instruction sets than the rest: nothing inline here.
namespace vsccam {

/// A row of a mosaic, from an even column on. Every second pixel is green; the others have the same
/// colour, the row's own. The rows above and below, and the pixel to either side, must be there.
struct MosaicRow {
    const uint8_t *pixels;
    size_t stride;
    bool greenFirst; // even columns are green
    bool ownIsFirst; // the row's own colour is the first byte of the output, not the third
    // Gains of the first and of the third byte, in 1/2^14.
    uint16_t firstGain;
    uint16_t thirdGain;
};

/// Vector forms of the loops that run over whole frames. Each does a part of the `count` samples
/// from the first one on, exactly as the plain loop would, and returns how many: the caller does
/// the rest. Where samples leave their places, input and output must not overlap.
struct Kernels {
    const char *name;

    size_t (*subtractDark)(const uint8_t *in, const uint8_t *dark, uint8_t offset, uint8_t *out,
                           size_t count);
    size_t (*lookUp)(const uint8_t *in, const uint8_t *table, uint8_t *out, size_t count);

    /// out[i] = in[count - 1 - i]
    size_t (*copyReversed8)(const uint8_t *in, uint8_t *out, size_t count);
    size_t (*copyReversed16)(const uint16_t *in, uint16_t *out, size_t count);
    /// Exchanges a[i] and b[count - 1 - i].
    size_t (*swapReversed8)(uint8_t *a, uint8_t *b, size_t count);
    size_t (*swapReversed16)(uint16_t *a, uint16_t *b, size_t count);

    size_t (*copyThrice)(const uint8_t *in, uint8_t *out, size_t count);

    /// Means of bin x bin samples, for bin 2 to 4; the output may be the first of the input rows.
    size_t (*binMono8)(const uint8_t *in, size_t stride, unsigned bin, uint8_t *out, size_t count);
    size_t (*binMono16)(const uint16_t *in, size_t stride, unsigned bin, uint16_t *out,
                        size_t count);
    size_t (*binMosaic8)(const uint8_t *in, size_t stride, unsigned bin, uint8_t *out,
                         size_t count);
    size_t (*binMosaic16)(const uint16_t *in, size_t stride, unsigned bin, uint16_t *out,
                          size_t count);

    /// Bilinear demosaic; all of the row or nothing.
    size_t (*demosaicRgb)(const MosaicRow &row, uint8_t *out, size_t count);
    size_t (*demosaicY8)(const MosaicRow &row, uint8_t *out, size_t count);
    size_t (*demosaicYuv)(const MosaicRow &row, uint8_t *out, size_t count);

    size_t (*rgbToY8)(const uint8_t *rgb, uint8_t *out, size_t count);
    size_t (*rgbToYuv)(const uint8_t *rgb, uint8_t *out, size_t count);
};

/// The largest gain, in 1/50, that the kernels know; unity is 50.
constexpr int kLargestKernelGain = 99;

// One for each instruction set, from the same source.
extern const Kernels kSse4Kernels;
extern const Kernels kAvx2Kernels;
extern const Kernels kAvx512Kernels;
extern const Kernels kNeonKernels;

} // namespace vsccam
