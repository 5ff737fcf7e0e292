#pragma once

#include "base/sync.h"
#include "base/zeroed_buffer.h"
#include "image/exposure_setting.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace vsccam {

/// Frames between the capture worker, one reader at a time, and the automatics. No frame is copied
/// on its way: it stays in the buffer that USB wrote it into, and the worker goes on with another
/// buffer. Two slots keep frames for the reader, which copies them out; the automatics look at the
/// latest one where it is, in a slot or not.
///
/// No frame is torn: a buffer belongs either to the worker alone, which fills it, or to those who
/// only read it. The worker never waits for them; it loses a frame when both slots are full.
/// Buffers are touched only when they are needed, so that most of them cost no memory.
class CirBuf {
  public:
    /// A whole frame that stays as it is while the object lives; empty when there was none.
    class Look {
      public:
        Look(CirBuf &owner, std::span<const uint8_t> frame, const ExposureSetting &exposure)
            : m_owner(owner), m_frame(frame), m_exposure(exposure)
        {
        }
        ~Look();
        Look(const Look &) = delete;
        Look &operator=(const Look &) = delete;

        std::span<const uint8_t> Frame() const { return m_frame; }
        const ExposureSetting &Exposure() const { return m_exposure; }

      private:
        CirBuf &m_owner;
        std::span<const uint8_t> m_frame;
        ExposureSetting m_exposure;
    };

    /// @param size  bytes of the largest frame
    explicit CirBuf(size_t size);

    /// Forgets all frames. Waits for a copy that is under way.
    /// @return how many frames no reader will get any more
    int ResetCirBuff();

    /// The buffer to read a frame into, for the worker. It stays the same until a frame in it is
    /// inserted, so that transfers which do not come back write into nobody's frame.
    uint8_t *Filling() const { return m_buffers[static_cast<size_t>(m_filling)].data(); }

    /// Puts the frame in Filling() into a slot and chooses another buffer to fill. The worker may
    /// still look at the frame until it reads the next one.
    /// @param measured  the exposure of the frame, if the automatics may look at it. They get it
    ///                  even when both slots are full, unless another such frame comes before they
    ///                  do
    /// @return false when both slots are full, or no frame can have this length
    bool InsertBuff(int len, const std::optional<ExposureSetting> &measured = std::nullopt);

    /// Copies the oldest frame and frees its slot. Frames of another length, from before a change
    /// of format, are skipped.
    /// @param timeoutMs  longest wait, -1 for no limit. A wait without limit needs a producer (see
    ///                   SetProducing), and every wait ends when the producer goes away.
    bool ReadBuff(uint8_t *dst, int len, int timeoutMs);

    /// Waits, as ReadBuff does, until there is a frame to read.
    bool WaitForBuff(int timeoutMs);

    /// Whether a frame begins with this word: the one that ReadBuff would take, or the one behind
    /// it. Waits for the frame, as ReadBuff does.
    enum class Head { Correct, Wrong, Missing };
    enum class Place { Next, Behind };
    Head IsBuffHeadCorrect(uint32_t mark, int timeoutMs, Place place = Place::Next);

    /// Frees the slot of the oldest frame, if there is one.
    void DiscardBuff();

    /// Tells readers whether frames can come.
    void SetProducing(bool producing);

    /// With true, sends away the readers that wait and those that come later, until as many calls
    /// with false have taken it back.
    void InterruptReaders(bool on);

    /// The latest frame that nobody looked at yet; none while another look lasts.
    /// @param shortOnly  leaves a frame of a long exposure for another time
    Look TakeLatest(bool shortOnly = false);

  private:
    static constexpr int kSlots = 2;
    // One to fill, the slots, one that is looked at, and one that waits for the next look: there is
    // always one left to go on with.
    static constexpr int kBuffers = 1 + kSlots + 2;
    static constexpr int kNone = -1;

    struct Frame {
        int buffer;
        int length;
    };
    struct Measured {
        Frame frame;
        ExposureSetting exposure;
    };

    bool WaitForFrames(SectionLock<CriticalSection> &lock, int count, Clock::time_point deadline)
        VSC_REQUIRES(m_section);
    void DropOldest() VSC_REQUIRES(m_section);
    bool IsNeeded(int buffer) const VSC_REQUIRES(m_section);
    int FreeBuffer() const VSC_REQUIRES(m_section);
    std::span<const uint8_t> BytesOf(const Frame &frame) const;

    std::array<ZeroedBuffer, kBuffers> m_buffers;
    int m_filling = 0; // only the worker uses it

    CriticalSection m_section;  // held for a moment each
    Condition m_frameAvailable; // or none can come any more
    Condition m_copyDone;
    Frame m_slots[kSlots] VSC_GUARDED_BY(m_section) = {}; // the oldest first
    int m_filled VSC_GUARDED_BY(m_section) = 0;           // slots that hold a frame
    bool m_reading VSC_GUARDED_BY(m_section) = false;     // the reader copies the oldest frame
    std::optional<Measured> m_latest VSC_GUARDED_BY(m_section);
    int m_lookedAt VSC_GUARDED_BY(m_section) = kNone;
    bool m_producing VSC_GUARDED_BY(m_section) = false;
    int m_interruptions VSC_GUARDED_BY(m_section) = 0; // of the readers' waits
};

} // namespace vsccam
