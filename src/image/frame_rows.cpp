#include "image/frame_rows.h"

#include "image/rows.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace vsccam {

template <class Sample>
FrameRows<Sample>::FrameRows(const FrameSteps<Sample> &steps, RowScratch &scratch)
    : m_steps(steps), m_scratch(scratch)
{
    if constexpr (sizeof(Sample) == 1) {
        if (!m_steps.dark.samples || !m_steps.gamma)
            return;
        for (size_t v = 0; v < std::size(m_gammaOverDark); ++v)
            m_gammaOverDark[v] =
                m_steps.gamma[std::min(v + std::min(m_steps.dark.offset, 255U), size_t{255})];
        m_steps.gamma = m_gammaOverDark;
        m_steps.dark.offset = 0;
    }
}

/// Samples of the read-out without dark frame and with gamma.
template <class Sample>
const Sample *FrameRows<Sample>::Corrected(size_t first, size_t count, Sample *room) const
{
    const Sample *samples = m_steps.samples + first;
    if constexpr (sizeof(Sample) == 1) {
        if (m_steps.dark.samples) {
            SubtractDark(samples, m_steps.dark.samples + first, m_steps.dark.offset, room, count);
            samples = room;
        }
    }
    if (m_steps.gamma) {
        LookUp(samples, m_steps.gamma, room, count);
        samples = room;
    }
    return samples;
}

/// A row of the read-out, corrected, and patched by so many of the lists.
template <class Sample>
const Sample *FrameRows<Sample>::Patched(size_t lists, size_t y, Sample *room)
{
    const size_t first = y * m_steps.width;
    if (lists == 0)
        return Corrected(first, m_steps.width, room);
    const Sample *row = Patched(lists - 1, y, room);
    const PixelPatches *patches = m_steps.patches[lists - 1];
    if (!patches)
        return row;
    if (row != room)
        std::copy_n(row, m_steps.width, room);
    ApplyPatches<Sample>(*patches,
                         {.samples = {room, m_steps.width},
                          .first = first,
                          .converterBits = m_steps.converterBits,
                          .outside = [=, this](size_t i) { return PatchedSample(lists - 1, i); }});
    return room;
}

/// Other rows than the present one matter to few pixels.
template <class Sample> uint32_t FrameRows<Sample>::PatchedSample(size_t lists, size_t index)
{
    Sample room;
    if (lists == 0)
        return *Corrected(index, 1, &room);
    return Patched(lists, index / m_steps.width,
                   m_scratch.PatchRow<Sample>())[index % m_steps.width];
}

template <class Sample> const Sample *FrameRows<Sample>::Binned(size_t y, Sample *room)
{
    const size_t bin = m_steps.bin;
    if (bin == 1)
        return Patched(m_steps.patches.size(), y, room);
    const auto [first, step] = RowsOfBinned(y, Height(), m_steps.bin, m_steps.mosaic);
    const Sample *rows = m_steps.samples + first * m_steps.width;
    size_t stride = step * m_steps.width;
    if (m_steps.Corrects()) {
        Sample *const corrected = m_scratch.BinRows<Sample>();
        for (size_t k = 0; k < bin; ++k) {
            Sample *const to = corrected + k * m_steps.width;
            const Sample *row = Patched(m_steps.patches.size(), first + k * step, to);
            if (row != to)
                std::copy_n(row, m_steps.width, to);
        }
        rows = corrected;
        stride = m_steps.width;
    }
    const auto binRow = m_steps.mosaic ? &BinMosaicRow<Sample> : &BinMonoRow<Sample>;
    binRow(rows, stride, m_steps.bin, room, Width());
    return room;
}

template <class Sample> const Sample *FrameRows<Sample>::Row(size_t y, Sample *room)
{
    const size_t from = m_steps.flipV ? Height() - 1 - y : y;
    if (!m_steps.flipH)
        return Binned(from, room);
    CopyReversed(Binned(from, m_scratch.TurnedRow<Sample>()), room, Width());
    return room;
}

template <class Sample> void FrameRows<Sample>::CopyTo(uint8_t *out)
{
    const size_t rowBytes = Width() * sizeof(Sample);
    const bool aligned = reinterpret_cast<uintptr_t>(out) % alignof(Sample) == 0;
    for (size_t y = 0; y < Height(); ++y, out += rowBytes) {
        Sample *const room = aligned ? reinterpret_cast<Sample *>(out) : m_scratch.Row<Sample>();
        const Sample *row = Row(y, room);
        if (reinterpret_cast<const uint8_t *>(row) != out)
            std::memcpy(out, row, rowBytes);
    }
}

template class FrameRows<uint8_t>;
template class FrameRows<uint16_t>;

template <class Sample>
void CorrectInPlace(FrameSteps<Sample> &steps, RowScratch &scratch, Sample *frame)
{
    if (steps.CorrectsEachSample()) {
        const FrameSteps<Sample> corrections = {.samples = steps.samples,
                                                .width = steps.width,
                                                .height = steps.height,
                                                .dark = steps.dark,
                                                .gamma = steps.gamma};
        FrameRows(corrections, scratch).CopyTo(reinterpret_cast<uint8_t *>(frame));
    }
    for (const PixelPatches *patches : steps.patches)
        if (patches)
            ApplyPatches<Sample>(*patches, {.samples = {frame, steps.width * steps.height},
                                            .converterBits = steps.converterBits});
    steps.dark = {};
    steps.gamma = nullptr;
    steps.patches = {};
}

template void CorrectInPlace(FrameSteps<uint8_t> &, RowScratch &, uint8_t *);
template void CorrectInPlace(FrameSteps<uint16_t> &, RowScratch &, uint16_t *);

namespace {

/// Rows of a mosaic one below the other, the newest of them: as many as the demosaic looks at.
class RowWindow {
  public:
    RowWindow(FrameRows<uint8_t> &rows, RowScratch &scratch)
        : m_rows(rows), m_window(scratch.Window()), m_width(rows.Width())
    {
    }

    /// Row `y`, with the one before and the two after it around it.
    const uint8_t *At(size_t y)
    {
        const size_t end = std::min(y + 3, m_rows.Height());
        if (end - m_first > RowScratch::kWindowRows)
            MoveToFront(y - 1);
        for (; m_end < end; ++m_end) {
            uint8_t *const room = Place(m_end);
            const uint8_t *row = m_rows.Row(m_end, room);
            if (row != room)
                std::copy_n(row, m_width, room);
        }
        return Place(y);
    }

  private:
    uint8_t *Place(size_t y) { return m_window + (y - m_first) * m_width; }
    void MoveToFront(size_t y)
    {
        std::copy(Place(y), Place(m_end), m_window);
        m_first = y;
    }

    FrameRows<uint8_t> &m_rows;
    uint8_t *m_window;
    size_t m_width;
    size_t m_first = 0; // the row at the front
    size_t m_end = 0;   // the next row to be made
};

bool NothingToDo(const FrameSteps<uint8_t> &steps)
{
    return !steps.Corrects() && steps.bin == 1 && !steps.flipH && !steps.flipV;
}

} // namespace

void Demosaic(const FrameSteps<uint8_t> &steps, RowScratch &scratch, CAlgorithm &algorithm,
              BayerPhase phase, uint8_t *out, IMAGE_TYPE type)
{
    FrameRows<uint8_t> rows(steps, scratch);
    const int width = static_cast<int>(rows.Width());
    const int height = static_cast<int>(rows.Height());
    if (NothingToDo(steps)) {
        algorithm.BayerConv(phase, steps.samples, out, width, height, type);
        return;
    }
    const BayerPhase flipped = FlippedPhase(phase, steps.flipH, steps.flipV);
    RowWindow window(rows, scratch);
    const size_t outRow = rows.Width() * BytesPerPixel(type);
    for (int y = 0; y < height; y += 2) {
        const auto row = static_cast<size_t>(y);
        algorithm.BayerConvRows(flipped, window.At(row), y, out + row * outRow, width, height,
                                type);
    }
}

void CopyGrey(const FrameSteps<uint8_t> &steps, RowScratch &scratch, uint8_t *out)
{
    FrameRows<uint8_t> rows(steps, scratch);
    for (size_t y = 0; y < rows.Height(); ++y)
        CopyThrice(rows.Row(y, scratch.Row<uint8_t>()), out + 3 * y * rows.Width(), rows.Width());
}

} // namespace vsccam
