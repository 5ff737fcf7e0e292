#pragma once

#include "camera.h"
#include "program.h"
#include "video/drop_account.h"
#include "video/frame_ring.h"
#include "video/video_reader.h"

#include <atomic>
#include <exception>
#include <functional>

namespace vsctool {

/// Where the frames of a video go. All but Abandon is called by one thread; it may throw Failure.
class FrameSink {
  public:
    virtual ~FrameSink() = default;
    virtual void Put(const TimedFrame &frame) = 0;
    /// No frame came for a while.
    virtual void Idle() {}
    /// That was the last one.
    virtual void End() {}
    /// Ends a Put that waits for somebody; called by another thread.
    virtual void Abandon() {}
};

struct VideoPlan {
    VideoLimits limits;
    std::optional<int64_t> mostDropped; // a video that loses more is ended
    int64_t bufferMiB = 256;            // of the ring; FrameRing::kFewestFrames at least
    bool finishes = true;               // what waits is still written when a signal ends it
};

/// How a video goes, and in the end how it went.
struct VideoState {
    int64_t frames = 0; // that were handed over to be written
    int64_t dropped = 0;
    Microseconds elapsed{}; // from the first frame to the last
    Microseconds worstGap{};
    std::vector<Microseconds> gaps; // that are new, see VideoReader
    size_t frameBytes = 0;
    size_t waiting = 0; // in the ring
    size_t ringFrames = 0;
    size_t mostWaiting = 0;

    double FramesPerSecond() const;
    double MiBPerSecond() const;
    double BufferPercent() const { return Percent(waiting); }
    double MostBufferPercent() const { return Percent(mostWaiting); }

  private:
    double Percent(size_t count) const
    {
        return 100 * static_cast<double>(count) / static_cast<double>(ringFrames);
    }
};

struct VideoResult {
    VideoState state;
    DropAccount dropped;    // by reason
    std::exception_ptr end; // why it ended before its limits; nothing when it did not
};

/// Video of the open camera from its start to its end: one thread takes frames into memory, one
/// gives them to the sink, and this one looks after both. A camera that is lost is waited for.
class VideoSession {
  public:
    /// Is told several times a second how it goes. @return what a terminal shows of it
    using Report = std::function<std::string(const VideoState &)>;

    VideoSession(Camera &camera, const Context &context, const VideoPlan &plan, FrameSink &sink);
    ~VideoSession();
    VideoSession(const VideoSession &) = delete;
    VideoSession &operator=(const VideoSession &) = delete;

    VideoResult Run(Microseconds exposure, const Report &report);

  private:
    using SteadyClock = std::chrono::steady_clock;

    void Supervise(Microseconds exposure, const Report &report);
    void Update();
    void Watch(Microseconds exposure);
    void LookForCamera(SteadyClock::duration silence);
    void CheckDrops() const;
    void Tell(const Report &report);
    void Note(const std::string &line);
    void Empty();
    void EndVideo();
    void AwaitSink(const Report &report);

    Camera &m_camera;
    Console &m_console;
    LiveLine m_line;
    const Microseconds m_patience;
    const VideoPlan m_plan;
    FrameSink &m_sink;
    FrameRing m_ring;
    std::optional<VideoReader> m_reader;
    VideoState m_state;
    DropAccount m_dropped;
    int64_t m_refused = 0;
    bool m_readerIsDone = false;
    SteadyClock::time_point m_lastFrame;
    SteadyClock::time_point m_nextLook;
    bool m_silenceIsTold = false;

    std::exception_ptr m_sinkFailure; // written before m_sinkIsDone is
    std::atomic<bool> m_sinkIsDone{false};
    std::thread m_emptying; // Empty; ended by the end of the ring, joined by AwaitSink
};

} // namespace vsctool
