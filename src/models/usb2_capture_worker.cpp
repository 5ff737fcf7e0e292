#include "models/usb2_capture_worker.h"

#include "base/debug_print.h"
#include "image/frame_marks.h"
#include "usb/requests.h"

namespace vsccam {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

constexpr uint8_t kImageEndpoint = 0x82;
constexpr int kSmallFrameBytes = 307'200;
constexpr uint32_t kReaderChecksBelowUs = ExposureSetting::kShortBelowUs;

constexpr int kDropsToSlowDown = 4;
constexpr int kDropsToReset = 50; // one more
constexpr int kBadHeadsToRealign = 2;
constexpr int kBadHeadsToReset = 20; // one more
constexpr auto kAutoControlPass = 200ms;
constexpr auto kResetPause = 200ms;
constexpr long kAutoBandwidthBelowMs = 500; // slower frames do not load the link

} // namespace

Usb2CaptureWorker::Usb2CaptureWorker(CCameraBase &camera, Usb2Sensor &sensor)
    : CaptureWorker(camera, sensor, kImageEndpoint, kAutoControlPass), m_usb2Sensor(sensor)
{
}

void Usb2CaptureWorker::StartDataPath()
{
    m_usb2Sensor.PrintBlackLevel();
    m_camera.StartSensorCLK();
    m_camera.SendCMD(request::kStartDataPath);
    m_sensor.StartSensorStreaming();
    m_badHeads = 0;
    m_midFrame = true;
}

void Usb2CaptureWorker::FollowExposure()
{
    m_usb2Sensor.FollowExposure();
}

BulkStream::Timeouts Usb2CaptureWorker::FrameTimeouts(const ExposureSetting &exposure) const
{
    const auto exposureUs = static_cast<int64_t>(exposure.us);
    const milliseconds frameTime(exposure.frameTimeUs / 1000);
    milliseconds wait{};
    if (exposureUs >= exposure.frameTimeUs)
        wait = milliseconds(exposureUs / 1000) + (exposureUs < 1'000'000 ? 1000ms : 2000ms);
    else
        wait = frameTime + (m_frameBytes <= kSmallFrameBytes ? 2ms : 10ms);
    return {.perTransfer = wait, .nextEvent = wait, .total = wait};
}

/// A read that begins within a frame gets the rest of that one first. It is given that time, too:
/// else it would time out in the middle of the next frame, and so would each read after it, at the
/// same place for ever. The time-out that is printed, and tells slow frames from fast ones, is the
/// one without it.
BulkStream::Pass Usb2CaptureWorker::ReadFrame(const ExposureSetting &exposure,
                                              BulkStream::Timeouts timeouts)
{
    if (m_midFrame) {
        const milliseconds extra = 2 * milliseconds(exposure.frameTimeUs / 1000);
        timeouts.perTransfer += extra;
        timeouts.total += extra;
    }
    return m_camera.ReadFrameOnce(m_camera.Raw().Filling(), timeouts, m_running);
}

void Usb2CaptureWorker::PrintIncompleteFrame(const BulkStream::Pass &pass) const
{
    OutputDbgPrint("get len:0x%x drop:%d reset! frametime:%d waittime:%d\n", pass.received, m_drops,
                   m_camera.FrameTimeUs(), static_cast<int>(m_waitMs));
}

Usb2CaptureWorker::Turn Usb2CaptureWorker::HandleMissingBytes(const BulkStream::Pass &pass)
{
    m_midFrame = true;
    if (m_drops > kDropsToReset) {
        if (pass.received > 0)
            m_camera.AddDroppedFrames(1);
        return ResetStream("DropCount more than 50, reset!\n");
    }
    if (pass.received > 0) {
        HandleDrop();
        return Turn::GoOn;
    }
    // Fast frames time out early; fifty of them still say more than a few.
    if (TooManyEmptyReads(pass) && !BandwidthMatters())
        return ResetStream("no frame more than 5, reset!\n");
    return Turn::GoOn;
}

/// A camera that has sent nothing of late gets everything that starts the stream again: one lost
/// request may be what silenced it.
Usb2CaptureWorker::Turn Usb2CaptureWorker::ResetStream(const char *complaint)
{
    if (ResetTooOften())
        return Fail();
    OutputDbgPrint("%s", complaint);
    const bool silent = m_emptyReads > 0;
    m_drops = m_emptyReads = 0;
    if (!m_camera.ResetDevice())
        return RecoverDevice();
    m_camera.StartSensorCLK();
    m_camera.SendCMD(request::kStartDataPath);
    if (silent)
        m_sensor.StartSensorStreaming();
    (void)m_running.SleepFor(kResetPause);
    return Turn::GoOn;
}

Usb2CaptureWorker::Turn Usb2CaptureWorker::HandleWholeFrame()
{
    m_midFrame = false;
    if (!HasHeadMark(Frame()))
        return HandleBadHead();
    m_drops = m_badHeads = 0;
    return HandleGoodFrame();
}

/// In fast video the reader throws the frame away, and with it the one before, whose end may be
/// missing.
Usb2CaptureWorker::Turn Usb2CaptureWorker::HandleBadHead()
{
    OutputDbgPrint("bad frame head:0x%x\n", HeadWord(Frame()));
    if (++m_badHeads > kBadHeadsToReset)
        return ResetAfterBadHeads();
    if (!m_camera.SingleExposure() && m_camera.ExposureUs() < kReaderChecksBelowUs) {
        InsertFrame(false);
        if (m_badHeads % kBadHeadsToRealign == 0)
            Realign();
        return Turn::GoOn;
    }
    ++m_drops;
    HandleDrop();
    return Turn::GoOn;
}

/// Frames that begin wrongly one after the other are frames that begin in the middle: the camera
/// has lost data. Dropping the rest of the current one makes the next read begin with a frame.
void Usb2CaptureWorker::Realign()
{
    m_camera.ResetEndPoint(kImageEndpoint);
    m_midFrame = true;
}

Usb2CaptureWorker::Turn Usb2CaptureWorker::ResetAfterBadHeads()
{
    if (ResetTooOften())
        return Fail();
    OutputDbgPrint("bad frame than 20, reset!\n");
    m_badHeads = 0;
    m_midFrame = true;
    m_camera.AddDroppedFrames(1);
    m_usb2Sensor.SlowDown();
    if (!m_camera.ResetDevice())
        return RecoverDevice();
    m_camera.SendCMD(request::kStartDataPath);
    return Turn::GoOn;
}

bool Usb2CaptureWorker::BandwidthMatters() const
{
    return m_waitMs < kAutoBandwidthBelowMs;
}

void Usb2CaptureWorker::PrintBurst(int sinceStartMs, int sinceLastMs) const
{
    OutputDbgPrint("time from start:%d   time_delta:%d pkg:%x\n", sinceStartMs, sinceLastMs,
                   static_cast<unsigned int>(m_camera.Bandwidth()));
}

void Usb2CaptureWorker::HandleFixedBandwidthDrop()
{
    if (m_drops != kDropsToSlowDown)
        return;
    OutputDbgPrint("try lowing pkg!!\n");
    m_usb2Sensor.SlowDown();
}

} // namespace vsccam
