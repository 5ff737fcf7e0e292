#pragma once

#include "base/zeroed_buffer.h"
#include "image/algorithm.h"
#include "image/pixel_patches.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace vsccam {

/// A dark frame of the size of the read-out. It is subtracted, and then `offset` is added.
struct DarkFrame {
    const uint8_t *samples = nullptr; // none: no subtraction
    unsigned offset = 0;
};

/// A frame as it was read out, and what is to be done with it, in this order.
template <class Sample> struct FrameSteps {
    const Sample *samples = nullptr;
    size_t width = 0; // of the read-out
    size_t height = 0;
    DarkFrame dark{};                              // of 8-bit frames
    const Sample *gamma = nullptr;                 // lookup table; none: linear
    std::array<const PixelPatches *, 2> patches{}; // none: null
    uint16_t converterBits = 0xFFFF;               // see PatchedRows
    unsigned bin = 1;    // a divisor of width and height; see RowScratch::kLargestBin
    bool mosaic = false; // is kept by binning
    bool flipH = false;
    bool flipV = false;

    bool CorrectsEachSample() const { return dark.samples || gamma; }
    bool Corrects() const { return CorrectsEachSample() || patches[0] || patches[1]; }
};

/// Room for the rows in process, for frames of up to `maxWidth` samples per row.
class RowScratch {
  public:
    explicit RowScratch(size_t maxWidth)
        : m_bytes((kWindowRows + kLargestBin + 3) * maxWidth * kLargestSample), m_maxWidth(maxWidth)
    {
    }

    static constexpr size_t kWindowRows = 8;
    /// Largest bin factor with corrections of values. Frames that are to be binned by more are
    /// corrected as a whole first: hosts ask for that too seldom to keep room for so many rows.
    static constexpr size_t kLargestBin = 4;

    uint8_t *Window() { return m_bytes.data(); } // of 8-bit samples
    template <class Sample> Sample *BinRows() { return At<Sample>(kWindowRows); }
    template <class Sample> Sample *TurnedRow() { return At<Sample>(kWindowRows + kLargestBin); }
    template <class Sample> Sample *Row() { return At<Sample>(kWindowRows + kLargestBin + 1); }
    template <class Sample> Sample *PatchRow() { return At<Sample>(kWindowRows + kLargestBin + 2); }

  private:
    static constexpr size_t kLargestSample = 2;

    template <class Sample> Sample *At(size_t row)
    {
        return reinterpret_cast<Sample *>(m_bytes.data() + row * m_maxWidth * kLargestSample);
    }

    ZeroedBuffer m_bytes;
    size_t m_maxWidth;
};

/// The processed frame, made row by row: each row goes through all steps while it is in the cache,
/// so that the frame is read once, and written once by whoever takes the rows.
template <class Sample> class FrameRows {
  public:
    FrameRows(const FrameSteps<Sample> &steps, RowScratch &scratch);
    FrameRows(const FrameRows &) = delete; // its steps may point to its own table
    FrameRows &operator=(const FrameRows &) = delete;

    size_t Width() const { return m_steps.width / m_steps.bin; }
    size_t Height() const { return m_steps.height / m_steps.bin; }

    /// Makes a row, in `room` unless the frame has it as it should be.
    const Sample *Row(size_t y, Sample *room);

    /// Makes all rows, one after the other in `out`, which need not be aligned. It may be the frame
    /// itself when no step moves or patches samples.
    void CopyTo(uint8_t *out);

  private:
    const Sample *Corrected(size_t first, size_t count, Sample *room) const;
    const Sample *Patched(size_t lists, size_t y, Sample *room);
    uint32_t PatchedSample(size_t lists, size_t index);
    const Sample *Binned(size_t y, Sample *room);

    FrameSteps<Sample> m_steps;
    RowScratch &m_scratch;
    uint8_t m_gammaOverDark[256]; // the table, with the offset of the dark frame added before
};

/// Does the steps that leave samples in their places, in `frame`, and takes them off `steps`.
template <class Sample>
void CorrectInPlace(FrameSteps<Sample> &steps, RowScratch &scratch, Sample *frame);

/// Makes all rows and demosaics them. `phase` is that of the frame before it is mirrored.
void Demosaic(const FrameSteps<uint8_t> &steps, RowScratch &scratch, CAlgorithm &algorithm,
              BayerPhase phase, uint8_t *out, IMAGE_TYPE type);

/// Makes all rows into a grey RGB24 image.
void CopyGrey(const FrameSteps<uint8_t> &steps, RowScratch &scratch, uint8_t *out);

} // namespace vsccam
