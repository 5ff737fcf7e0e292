#pragma once

#include "capture/auto_bandwidth.h"
#include "capture/capture.h"
#include "capture/capture_sensor.h"
#include "capture/captured_camera.h"
#include "capture/exposure_deadline.h"
#include "capture/host_timed_exposure.h"

#include <optional>
#include <span>

namespace vsccam {

/// The capture worker, one object per run: reads frame after frame from the bulk endpoint, hands
/// good ones to the frame buffer, counts the others as dropped, and recovers the stream when it
/// stalls or the device is lost. Ends when the capture is stopped, or by itself after a single
/// exposure. Only the thread that runs it uses it.
///
/// How a frame is marked, how long it may take and what helps a stream that stalls depends on the
/// USB controller: each kind has a worker that derives from this one.
class CaptureWorker {
  public:
    CaptureWorker(const CaptureWorker &) = delete;
    CaptureWorker &operator=(const CaptureWorker &) = delete;

    void Run();

  protected:
    enum class Turn { GoOn, Recover, Leave };

    struct Controller {
        uint8_t endpoint;
        std::chrono::milliseconds autoControlPass; // from one look of that thread to the next
    };

    CaptureWorker(Capture &capture, CaptureSensor &sensor, const Controller &controller);
    ~CaptureWorker() = default;

    virtual void StartDataPath() = 0; // and the sensor's streaming
    virtual void FollowExposure() {}  // before each frame
    virtual BulkStream::Timeouts FrameTimeouts(const ExposureSetting &exposure) const = 0;
    virtual BulkStream::Pass ReadFrame(BulkStream::Timeouts timeouts) = 0;
    virtual void PrintIncompleteFrame(const BulkStream::Pass &pass) const = 0;
    virtual Turn HandleMissingBytes(const BulkStream::Pass &pass) = 0; // counted already
    virtual Turn HandleWholeFrame() = 0;
    /// Whether drops may come from a link that carries less than was set.
    virtual bool BandwidthMatters() const { return true; }
    virtual void PrintBurst(uint32_t sinceStartMs, uint32_t sinceLastMs) const = 0;
    virtual void HandleFixedBandwidthDrop() = 0; // where none is taken off

    uint8_t *Buffer() const;          // that the present frame is read into
    std::span<uint8_t> Frame() const; // in it
    Turn HandleGoodFrame();
    /// Hands the frame to the frame buffer, and on demand to the thread of the automatics; counts
    /// it as dropped in video mode when it is refused.
    bool InsertFrame(bool lookedAt);
    void HandleDrop(DropReason reason);
    /// Counts the frames that were seen as dropped.
    void DropSeen(DropReason reason);
    /// Lets the endpoint work again after a read that brought nothing, and does not spin.
    /// @return whether there were so many in a row that a reset is due
    bool TooManyEmptyReads(const BulkStream::Pass &pass);
    /// Whether resetting the camera once more would only keep a single exposure waiting.
    bool ResetTooOften();
    /// Resets the device, and with it drops the frame that is under way.
    bool ResetCamera();
    /// What to do about a device that is gone.
    Turn RecoverDevice();
    Turn Fail();
    /// Whether a lower bandwidth is still going to be tried against drops.
    bool MayLowerBandwidth();
    /// Sends a command that sets the camera up. That it got lost is noted by the camera, which is
    /// programmed again then.
    void Command(uint8_t command) { (void)m_usb.SendCMD(command); }
    /// Ends a stall of the endpoint, and drops the rest of the frame that is under way. The next
    /// read shows whether it did.
    void ClearHalt();
    /// Sleeps, unless the capture is to end.
    void Pause(std::chrono::milliseconds time) { (void)m_capture.SleepFor(time); }

    Capture &m_capture;
    CCameraFX3 &m_usb;
    CapturedCamera &m_camera;
    CaptureSensor &m_sensor;
    const bool m_single;

    struct {
        int bytes = 0;
        int transfers = 0;
    } m_frame; // of this run

    struct Present {
        ExposureSetting setting;                  // in force when it began
        std::optional<ExposureSetting> exposedBy; // nothing: no setting tells for how long
        Clock::time_point readBegan{};
        long waitMs = 0; // for the debug output
    };
    Present m_present; // frame

    // Frames of which bytes came and that are not accounted for yet: neither handed on, nor counted
    // as dropped. The camera itself may end the last one, which is nobody's loss then.
    BulkStream::Frames m_seen;

    struct Troubles {
        int drops = 0;        // bad frames in a row or since the last measure against them
        int emptyReads = 0;   // in a row
        int refusedReads = 0; // in a row: nothing could be queued
        int resets = 0;       // of a single exposure
    };
    Troubles m_troubles; // since the stream was started

  private:
    bool Prepare();
    bool StartStream();
    Turn CaptureOneFrame();
    BulkStream::Pass ReadVideoFrame(const ExposureSetting &exposure);
    BulkStream::Pass ExposeAndRead(const ExposureSetting &exposure);
    BulkStream::Pass ReadExposedFrame(const LongExposurePlan &plan);
    /// Whether a single exposure is under way that is no longer what is set.
    bool Superseded() const;
    Turn ExposeAnew();
    /// Whether a frame that is under way belongs to no setting.
    bool IsOfNoUse() const;
    BulkStream::Timeouts InTime(BulkStream::Timeouts timeouts) const;
    Turn HandleRead(const BulkStream::Pass &pass);
    void DropEnded(DropReason reason);
    Turn HandleIncompleteFrame(const BulkStream::Pass &pass);
    Turn HandleRefusedRead(const BulkStream::Pass &pass);
    bool InAutoBandwidthPeriod();
    void LowerBandwidth();
    bool BringBackDevice();
    Turn GiveUp();
    bool Reopen();
    bool Restore();
    bool Resume();
    Turn ProgramAgain();
    void StopStream();
    void CountFramesLostSince(Clock::time_point start);
    void End(CaptureChange how);
    void Leave();

    const Controller m_controller;
    bool m_endedByItself = false; // nobody waits for the worker
    int m_failedRestores = 0;     // in a row
    bool m_streams = false;       // there is what frames are read with
    struct {
        uint32_t atStart = 0; // of the stream
        uint32_t own = 0;     // after a change of the worker's own
    } m_changes;              // CapturedCamera::FrameChanges
    HostTimedExposure m_hostTimed;
    ExposureDeadline m_deadline{Clock::now()};
    AutoBandwidth m_autoBandwidth;
};

} // namespace vsccam
