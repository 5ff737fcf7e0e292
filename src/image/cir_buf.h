#pragma once

#include "base/sync.h"
#include "base/zeroed_buffer.h"

#include <cstdint>
#include <optional>

namespace vsccam {

/// Two frame slots between the capture worker, which inserts, and the host's thread, which reads. A
/// thread of its own copies into the slots, so that the worker can go back to the bus at once; the
/// worker never waits: a full or busy buffer refuses the frame.
class CirBuf {
  public:
    /// @param size  bytes of the largest frame
    explicit CirBuf(size_t size);
    ~CirBuf();

    /// Starts and ends the insert thread.
    bool StartInstBufThr();
    void StopInstBufThr();

    /// Forgets all frames, those that wait for insertion included. Waits for copies that are on
    /// their way.
    void ResetCirBuff();

    /// Hands a frame to the insert thread. `src` must stay as it is until the next InsertBuff that
    /// is accepted, or ResetCirBuff.
    /// @return false when both slots are full, the insert thread is busy, or the frame is larger
    ///         than a slot
    bool InsertBuff(const uint8_t *src, int len);

    /// Copies the oldest frame and frees its slot. Frames of another length, from before a change
    /// of format, are skipped.
    /// @param timeoutMs  longest wait, -1 for no limit. Without a producer (SetProducing) nothing
    /// is
    ///                   waited for without limit, and a wait ends when the producer goes away.
    bool ReadBuff(uint8_t *dst, int len, int timeoutMs);

    /// Whether the frame that ReadBuff would take begins with this word; waits for a frame first.
    // Quirk, kept: whole seconds, one more than asked, as the USB 2.0 readers have always waited.
    bool IsBuffHeadCorrect(uint32_t mark, int timeoutMs);

    /// Tells readers whether frames can come.
    void SetProducing(bool producing);

  private:
    struct Slot {
        ZeroedBuffer bytes;
        int length = 0;
    };
    struct Insertion {
        const uint8_t *source = nullptr;
        int length = 0;
    };

    void InsertBufThd();
    std::optional<Insertion> NextInsertion();
    bool WaitForFrame(std::unique_lock<CriticalSection> &lock, Clock::time_point deadline);
    void DropOldest();

    size_t m_slotSize;
    Thread m_insertThread; // started by StartInstBufThr, joined by StopInstBufThr
    std::atomic<bool> m_running{false};

    CriticalSection m_section;    // guards everything below but the bytes of the slots
    Condition m_insertionPending; // or the insert thread is to end
    Condition m_frameAvailable;   // or none can come any more
    Condition m_copyDone;
    Slot m_slots[2];
    int m_readIndex = 0;  // slot of the oldest frame
    int m_writeIndex = 0; // slot of the next insertion
    int m_filled = 0;     // slots that hold a frame
    Insertion m_pending;
    bool m_inserting = false; // the insert thread copies into the slot at m_writeIndex
    bool m_reading = false;   // the reader copies out of the slot at m_readIndex
    bool m_producing = false;
};

} // namespace vsccam
