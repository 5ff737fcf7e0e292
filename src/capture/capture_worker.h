#pragma once

#include "capture/capture_sensor.h"
#include "core/camera_base.h"

#include <span>

namespace vsccam {

/// The capture worker, one object per run: reads frame after frame from the bulk endpoint, hands
/// good ones to the frame buffer, counts the others as dropped, and recovers the stream when it
/// stalls or the device is lost. Ends when the camera's capturing flag is cleared, or by itself
/// after a single exposure.
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

    /// @param autoControlPass  from one look of the auto-control thread to the next
    CaptureWorker(CCameraBase &camera, CaptureSensor &sensor, uint8_t endpoint,
                  std::chrono::milliseconds autoControlPass)
        : m_camera(camera), m_sensor(sensor), m_running(camera.Capturing()), m_endpoint(endpoint),
          m_autoControlPass(autoControlPass)
    {
    }
    ~CaptureWorker() = default;

    virtual void StartDataPath() = 0; // and the sensor's streaming
    virtual void FollowExposure() {}  // before each frame
    virtual BulkStream::Timeouts FrameTimeouts(const ExposureSetting &exposure) const = 0;
    virtual BulkStream::Pass ReadFrame(const ExposureSetting &exposure,
                                       BulkStream::Timeouts timeouts) = 0;
    virtual void PrintIncompleteFrame(const BulkStream::Pass &pass) const = 0;
    virtual Turn HandleMissingBytes(const BulkStream::Pass &pass) = 0; // counted already
    virtual Turn HandleWholeFrame() = 0;
    /// Whether drops may come from a link that carries less than was set.
    virtual bool BandwidthMatters() const { return true; }
    /// Whether the sensor runs on while the host begins or ends to time it. One frame, the next
    /// that comes whole, is then exposed in both ways, for a time that nobody set.
    virtual bool MixesTimings() const { return false; }
    virtual void PrintBurst(int sinceStartMs, int sinceLastMs) const = 0;
    virtual void HandleFixedBandwidthDrop() = 0; // where none is taken off

    std::span<uint8_t> Frame() const;
    Turn HandleGoodFrame();
    /// Hands the frame to the buffer, and one that tells something to the auto-control thread;
    /// counts it as dropped in video mode when it is refused.
    bool InsertFrame(bool measurable);
    void HandleDrop();
    /// Counts a read that brought nothing, lets the endpoint work again, and does not spin.
    /// @return whether there were so many in a row that a reset is due
    bool TooManyEmptyReads(const BulkStream::Pass &pass);
    /// Whether resetting the camera once more would only keep a single exposure waiting.
    bool ResetTooOften();
    /// What to do about a device that is gone.
    Turn RecoverDevice();
    Turn Fail();
    /// Whether a lower bandwidth is still going to be tried against drops.
    bool MayLowerBandwidth();
    Clock::time_point ReadBegan() const { return m_readBegan; }
    /// No setting tells how long the present frame was exposed: nobody steps exposure by it.
    void ExposedByNoSetting() { m_exposedBy.us = 0; }

    CCameraBase &m_camera;
    CaptureSensor &m_sensor;
    RunFlag &m_running;

    int m_frameBytes = 0;
    int m_transferCount = 0;
    int m_drops = 0;             // bad frames in a row or since the last measure against them
    int m_emptyReads = 0;        // in a row
    long m_waitMs = 0;           // of the last read, for the debug output
    ExposureSetting m_exposedBy; // of the present frame

  private:
    bool Prepare();
    bool StartStream();
    Turn CaptureOneFrame();
    BulkStream::Pass ReadVideoFrame(const ExposureSetting &exposure);
    BulkStream::Pass ExposeAndRead(const ExposureSetting &exposure);
    /// Whether a single exposure is under way that is no longer what is set.
    bool Superseded() const;
    Turn ExposeAnew();
    /// Whether a frame that is under way belongs to no setting.
    bool IsOfNoUse() const;
    bool SleepWhileExposing(const LongExposurePlan &plan, uint32_t exposureUs);
    bool SleepWhileAttached(Clock::time_point end);
    bool TooLateFor(const ExposureSetting &exposure);
    BulkStream::Timeouts InTime(BulkStream::Timeouts timeouts) const;
    Turn HandleRead(const BulkStream::Pass &pass);
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
    int FramesSince(Clock::time_point start) const;
    void Leave();

    const uint8_t m_endpoint;
    const std::chrono::milliseconds m_autoControlPass;
    bool m_timedByHost = false; // the last whole frame
    uint32_t m_startedWith = 0; // CCameraBase::FrameChanges
    uint32_t m_ownChanges = 0;  // the same, after a change of the worker's own
    int m_refusedReads = 0;     // reads in a row for which nothing could be queued
    int m_resets = 0;           // of a single exposure
    int m_failedRestores = 0;   // in a row
    Clock::time_point m_readBegan{};
    Clock::time_point m_nextLook{};      // for the device, in a long exposure
    Clock::time_point m_exposureBegan{}; // a single one, as it is set now
    Clock::time_point m_deadline{};      // of it, see TooLateFor
    uint32_t m_lastBurst = 0;
    uint32_t m_autoBandwidthSince = 0;
};

} // namespace vsccam
