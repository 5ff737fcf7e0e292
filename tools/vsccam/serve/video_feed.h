#pragma once

#include "camera.h"
#include "serve/frame_pool.h"
#include "serve/latest_frame.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

namespace vsctool::serve {

/// How the frames come, since the server began.
struct FeedFigures {
    int64_t frames = 0;
    int64_t dropped = 0;
    double framesPerSecond = 0; // of the video that runs, lately
    Microseconds worstGap{};    // between frames of one video
};

/// The video of the open camera, and the way of all frames from there to those who look. All but
/// the frames themselves is of the camera's thread.
class VideoFeed {
  public:
    using Clock = std::chrono::steady_clock;

    explicit VideoFeed(LatestFrame &latest) : m_latest(latest) {}

    bool IsRunning() const { return m_running; }
    void Start();
    void Stop();

    /// Waits a little for the next frame of the video, and publishes it. @return the frame, if any
    FramePtr Read(const Camera &camera);

    /// How long no frame has come, of the video that runs.
    Clock::duration Silence() const { return Clock::now() - m_lastCame; }

    /// A frame to fill in the format that is set ...
    std::shared_ptr<Frame> Blank();
    /// ... and to hand over to all who look.
    FramePtr Publish(std::shared_ptr<Frame> frame, const Camera &camera);

    /// To be told once a second or so.
    void SetTemperature(std::optional<double> celsius) { m_celsius = celsius; }
    void AddDropped(int64_t frames) { m_droppedBefore += frames; }

    FeedFigures Figures() const;

  private:
    void Measure(Clock::time_point now);
    int64_t Dropped() const;

    LatestFrame &m_latest;
    FramePool m_pool;
    std::shared_ptr<Frame> m_spare; // not filled yet
    bool m_running = false;
    uint64_t m_sequence = 0;
    int64_t m_droppedBefore = 0; // in videos that have ended
    std::optional<double> m_celsius;
    Clock::time_point m_lastCame;
    std::optional<Clock::time_point> m_first; // of the time that is being measured
    int64_t m_counted = 0;                    // frames since
    double m_framesPerSecond = 0;
    Microseconds m_worstGap{};
};

} // namespace vsctool::serve
