#pragma once

#include "camera_types.h"
#include "exposure_times.h"
#include "guide_axis.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace vscindi {

/// Takes the frames of exposures. Called by the thread of the camera, which must not wait.
class ExposureTaker {
  public:
    virtual ~ExposureTaker() = default;
    /// Where the bytes of a frame go; nullptr while the one before is still being sent.
    virtual uint8_t *TryBegin(size_t bytes) = 0;
    /// @param facts  of the frame that was written; nullptr when there is none after all
    virtual void End(const FrameFacts *facts) = 0;
};

/// Takes the frames of a video; likewise.
class VideoTaker {
  public:
    virtual ~VideoTaker() = default;
    /// nullptr when all buffers are in use
    virtual uint8_t *TryBegin(size_t bytes) = 0;
    virtual void End(bool isFrame) = 0;
};

/// The camera, and what the thread does that uses it: opens and closes it, takes exposures and
/// video, cools, and brings everything back after a loss. It knows nothing of INDI.
///
/// All functions but Run and Next leave a job for that thread and return at once; what comes of it
/// is told as events. Jobs are done in the order of the calls.
class CameraSession {
  public:
    /// @param wake  called by any thread of the camera when an event waits; must not wait
    CameraSession(ExposureTaker &exposures, VideoTaker &video, std::function<void()> wake);
    ~CameraSession() = default;
    CameraSession(const CameraSession &) = delete;
    CameraSession &operator=(const CameraSession &) = delete;

    /// The work of the main thread, until End. It alone uses the library, but for guide pulses.
    /// @param listens  to the library, which prints to descriptor 1 of this thread
    void Run(bool listens);

    /// Model of the camera that would be opened; empty: none. This waits for the answer.
    std::string ModelOf(const std::string &selector);

    void Open(const std::string &selector);
    /// A sensor that is cooled is warmed first, by so many degrees a minute, unless that is 0. The
    /// camera counts as closed at once.
    void Close(double warmCPerMin);

    void Set(Control_TYPE control, ControlValue value);
    /// Leaves its value as it is.
    void SetAutomatic(Control_TYPE control, bool automatic);
    void SetFraming(const Framing &framing);
    void SetFlips(bool x, bool y);

    void Expose(uint64_t number, Microseconds time);
    void AbortExposure();
    void StartVideo(Microseconds exposure);
    void StopVideo();

    void Cool(double targetC, double cPerMin);
    void Warm(double cPerMin);

    void Guide(GuideD direction, int ms);

    /// What has happened since.
    std::optional<Event> Next();

    /// Ends the work of the thread: closes the camera, after warming it unless that is 0.
    void End(double warmCPerMin);
    bool HasEnded() const { return m_ended; }

  private:
    using Clock = std::chrono::steady_clock;
    using Job = std::function<void()>;

    /// All that a camera that comes back is set to.
    struct Wanted {
        Framing framing;
        bool flipX = false;
        bool flipY = false;
        Controls controls; // that were set
    };
    struct Exposing {
        uint64_t number = 0;
        Microseconds asked{};
        Microseconds planned{};
        Clock::time_point begun;
        Clock::time_point latest; // that it ends, with a frame or without
        vsctool::ExposureTimes times;
        int dropped = 0; // before its frame came
    };
    struct Ramp {
        double fromC = 0;
        double toC = 0;
        double cPerMin = 0; // 0: at once
        Clock::time_point since;
        bool warming = false; // and off at the end
    };

    void RunJobs(Clock::time_point until);
    void Post(Job job);
    void Tell(Event event);
    Clock::time_point NextTurn() const;
    void Turn();

    void OpenNow(const std::string &selector);
    void TellOpened();
    void CloseNow();
    CameraFacts ReadFacts() const;
    Framing FramingInForce() const;

    void ApplyFraming(const Framing &framing);
    void BeginExposure(uint64_t number, Microseconds time);
    void FollowExposure();
    void TakeExposure();
    FrameFacts FactsOfFrame() const;
    bool CopyFrame(uint8_t *to, const FrameFacts &facts);
    void NoteDroppedInExposure();
    void FailExposure(const std::string &why);

    void BeginVideo();
    void ReadVideoFrame();
    void EndVideo();

    void FollowRamp();
    void BeginRamp(double toC, double cPerMin, bool warming);

    void LookForCamera();
    void Lose();
    void Recover();
    void Replay();
    std::string Differences() const;

    void CountDrops();
    void TellReport();

    ExposureTaker &m_exposures;
    VideoTaker &m_video;
    std::function<void()> m_wake;

    // Of the thread that runs it.
    std::optional<vsctool::Camera> m_camera;
    std::string m_selector;
    unsigned m_address = 0; // of the open camera on its bus
    std::string m_identity;
    State m_state = State::Closed;
    bool m_isLeaving = false; // closed for the host, and warming
    bool m_endsThen = false;
    Wanted m_wanted;
    Exposing m_exposing;
    std::optional<Microseconds> m_videoExposure; // while video is wanted
    Clock::time_point m_lastFrame;
    std::optional<Ramp> m_ramp;
    Clock::time_point m_nextRampStep;
    Clock::time_point m_nextReport;
    Clock::time_point m_nextLook;
    int m_countedDrops = 0; // of the running capture, in the statistics
    Statistics m_statistics;
    std::vector<uint8_t> m_scratch;
    std::optional<GuideAxis> m_axes[2];

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Job> m_jobs;     // guarded by m_mutex
    std::deque<Event> m_events; // likewise
    std::atomic<bool> m_ended{false};
};

} // namespace vscindi
