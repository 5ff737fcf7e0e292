#pragma once

#include "camera.h"
#include "program.h"
#include "serve/event_log.h"
#include "serve/latest_frame.h"
#include "serve/snapshot.h"
#include "serve/video_feed.h"

#include <chrono>
#include <memory>
#include <mutex>

namespace vsctool::serve {

/// The camera, and what it is doing. One thread works it, see CameraThread; the others look at what
/// it publishes.
class CameraWorks {
  public:
    /// Opens the camera. Throws Failure.
    explicit CameraWorks(Context &context);

    // Of any thread.
    const LatestFrame &Frames() const { return m_frames; }
    std::shared_ptr<const Snapshot> Now() const;
    EventLog &Log() { return m_log; }

    // Of the camera's thread: jobs, which throw Failure ...
    void SetVideo(bool on);

    // ... and what goes on between them.
    /// Does what is due. @return how long nothing else will be
    std::chrono::milliseconds Turn();
    /// Whether something has changed that others wait for, since it was last asked.
    bool HasNews() { return std::exchange(m_news, false); }
    void Publish();
    void End();

  private:
    using Clock = std::chrono::steady_clock;

    void StartVideo();
    void Telemetry();

    Context &m_context;
    EventLog m_log;
    LatestFrame m_frames;
    Camera m_camera;
    VideoFeed m_feed{m_frames};
    Framing m_framing{.bin = 1, .format = PixelFormat::kRaw8, .region = {}};
    bool m_wantsVideo = true;
    bool m_news = false;
    Clock::time_point m_nextTelemetry;

    mutable std::mutex m_mutex;
    std::shared_ptr<const Snapshot> m_now; // guarded by m_mutex
};

} // namespace vsctool::serve
