#pragma once

#include "ser/writer.h"
#include "serve/frame.h"
#include "video/video_reader.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <filesystem>
#include <mutex>
#include <optional>
#include <thread>

namespace vsctool::serve {

struct RecordingPlan {
    std::filesystem::path file;
    VideoLimits limits;
};

/// How a recording goes, and in the end how it went.
struct RecordingState {
    int64_t frames = 0;  // that lie in the file
    int64_t waiting = 0; // in memory
    int64_t dropped = 0; // since it began: there was no memory, or the camera or the link lost them
    int64_t bytes = 0;   // of the frames in the file
    Microseconds elapsed{};
};

/// A video on its way into a file: the thread of the camera hands over frames and never waits; a
/// thread of this object writes them away.
class Recording {
  public:
    /// @param dropped  frames that were lost before. Throws Failure when the file cannot be made.
    Recording(const RecordingPlan &plan, const SerHeader &header, int64_t dropped);
    /// Writes what waits.
    ~Recording();
    Recording(const Recording &) = delete;
    Recording &operator=(const Recording &) = delete;

    /// Of the camera's thread. @return whether more are wanted
    bool Put(const FramePtr &frame);
    /// No more frames come; what waits is still written.
    void Finish();

    const std::filesystem::path &File() const { return m_plan.file; }
    RecordingState State() const;
    /// Whether all is written, and the file closed.
    bool IsClosed() const;
    /// Throws Failure when it was not written whole.
    void CheckResult() const;

  private:
    using Clock = std::chrono::steady_clock;

    bool IsBeyondLimits(Clock::time_point now) const;
    void Write();
    void WriteFrames();
    FramePtr Next();

    const RecordingPlan m_plan;
    const int64_t m_droppedBefore;
    SerWriter m_writer; // of the thread that writes

    mutable std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    std::deque<FramePtr> m_waiting;
    size_t m_waitingBytes = 0;
    bool m_finished = false;
    bool m_closed = false;
    std::exception_ptr m_failure;
    RecordingState m_state;
    int64_t m_accepted = 0;
    int64_t m_refused = 0;
    std::optional<Clock::time_point> m_first;

    std::thread m_thread; // Write; ended by Finish, joined by the destructor
};

} // namespace vsctool::serve
