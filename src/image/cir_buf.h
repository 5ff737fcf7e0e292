#pragma once

#include "base/sync.h"
#include "base/zeroed_buffer.h"

#include <cstdint>
#include <optional>

namespace vsccam {

/// Two frame slots between the capture worker, which inserts, and one reader at a time. A
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
    /// their way. @return how many it forgot
    int ResetCirBuff();

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

    /// Sends readers away that wait, and those that come, until as many calls took it back.
    void InterruptReaders(bool on);

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
    bool WaitForFrames(std::unique_lock<CriticalSection> &lock, int count,
                       Clock::time_point deadline);
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
    int m_interruptions = 0; // of the readers' waits
};

} // namespace vsccam
