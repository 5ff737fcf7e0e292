#pragma once

#include "units.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace vsctool {

/// A frame that lies in memory, and when it came.
struct TimedFrame {
    std::span<const uint8_t> bytes;
    UtcTime at;
};

/// Frames between a thread that fills them and one that writes them away, in an amount of memory
/// that is fixed. When it is full, the frame that has come last is dropped: what waits is kept, in
/// order. The buffer that was emptied last is filled first, so that memory which is never needed is
/// never touched, and the processor's caches serve both threads.
class FrameRing {
  public:
    static constexpr size_t kFewestFrames = 3; // one is filled, one is written, one waits

    FrameRing(size_t frameBytes, size_t frames);

    /// Of the thread that fills: the buffer for the next frame ...
    std::span<uint8_t> Spare() { return Bytes(m_spare); }
    /// ... which is handed over, or, when there is no other one, dropped. @return whether it was
    /// handed over
    bool Push(UtcTime at);
    /// No more frames come.
    void Close();

    /// Of the thread that writes: the oldest frame, which is its own until the next call. Waits for
    /// it. Nothing when none came in that time, or at the end.
    std::optional<TimedFrame> Next(std::chrono::milliseconds wait);
    bool AtEnd() const;

    /// Forgets what waits. @return how many frames that was
    size_t Discard();

    size_t Waiting() const;
    size_t Frames() const { return m_frames; }

  private:
    struct Filled {
        size_t buffer;
        UtcTime at;
    };

    std::span<uint8_t> Bytes(size_t buffer)
    {
        return {m_memory.get() + buffer * m_frameBytes, m_frameBytes};
    }

    const size_t m_frameBytes;
    const size_t m_frames;
    const std::unique_ptr<uint8_t[]> m_memory;
    size_t m_spare = 0; // of the thread that fills

    mutable std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    std::vector<size_t> m_free;
    std::deque<Filled> m_waiting;
    std::optional<size_t> m_written;
    bool m_closed = false;
};

} // namespace vsctool
