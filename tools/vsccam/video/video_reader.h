#pragma once

#include "units.h"
#include "video/frame_ring.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace vsctool {

/// What ends a video by itself.
struct VideoLimits {
    std::optional<Microseconds> duration; // from the first frame on
    std::optional<int64_t> frames;
};

/// Starts the video, and takes its frames from the library into a ring, on a thread of its own that
/// never waits for anything but the next frame.
class VideoReader {
  public:
    using SteadyClock = std::chrono::steady_clock;

    struct Progress {
        int64_t frames = 0;  // handed over
        int64_t refused = 0; // dropped: the ring was full
        std::optional<SteadyClock::time_point> first;
        std::optional<SteadyClock::time_point> last;
        std::vector<Microseconds> gaps; // between the frames that came since it was last asked
        bool done = false;              // a limit was reached
    };

    VideoReader(FrameRing &ring, const VideoLimits &limits);
    ~VideoReader();
    VideoReader(const VideoReader &) = delete;
    VideoReader &operator=(const VideoReader &) = delete;

    Progress Ask();

    /// Ends the thread; the ring is closed. The video is to be stopped before, which ends a wait.
    void Stop();

  private:
    void Read();
    bool Accept(SteadyClock::time_point now);
    bool HandOver(UtcTime at);

    FrameRing &m_ring;
    const VideoLimits m_limits;
    std::atomic<bool> m_stop{false};
    std::mutex m_mutex;
    Progress m_progress;  // guarded by m_mutex
    std::thread m_thread; // ended and joined by Stop
};

} // namespace vsctool
