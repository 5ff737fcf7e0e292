#include "capture/usb2_capture_worker.h"

#include "base/debug_print.h"
#include "image/frame_marks.h"
#include "usb/requests.h"

#include <utility>

namespace vsccam {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

constexpr uint8_t kImageEndpoint = 0x82;
constexpr int kSmallFrameBytes = 307'200;

constexpr int kDropsToSlowDown = 4;
constexpr int kDropsToReset = 50; // one more
constexpr int kBadHeadsToRealign = 2;
constexpr int kBadHeadsToReset = 20; // one more
constexpr auto kAutoControlPass = 200ms;
constexpr auto kResetPause = 200ms;
constexpr long kAutoBandwidthBelowMs = 500; // slower frames do not load the link

} // namespace

Usb2CaptureWorker::Usb2CaptureWorker(Capture &capture, Usb2Sensor &sensor)
    : CaptureWorker(capture, sensor, {kImageEndpoint, kAutoControlPass}), m_usb2Sensor(sensor)
{
}

void Usb2CaptureWorker::StartDataPath()
{
    m_usb2Sensor.PrintBlackLevel();
    Command(request::kStartSensorClock);
    Command(request::kStartDataPath);
    m_sensor.StartSensorStreaming();
    m_badHeads = 0;
    m_midFrame = true;
    m_timedByHost = m_camera.SettingsOfNow().exposure.timedByHost;
}

/// The sensor can only take over exposures that the host times. With others the worker does not
/// wait for a thread that programs the sensor.
void Usb2CaptureWorker::FollowExposure()
{
    if (m_camera.SettingsOfNow().exposure.timedByHost)
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
        wait = frameTime + (m_frame.bytes <= kSmallFrameBytes ? 2ms : 10ms);
    return {.perTransfer = wait, .nextEvent = wait, .total = wait};
}

/// A read that begins within a frame gets the rest of that frame first. It is given time for that;
/// otherwise it would time out in the middle of the next frame, and so would every read after it,
/// always at the same place. The time-out that is printed, and that tells slow frames from fast
/// ones, is the one without that time.
BulkStream::Pass Usb2CaptureWorker::ReadFrame(BulkStream::Timeouts timeouts)
{
    if (m_midFrame) {
        const milliseconds extra = 2 * milliseconds(m_present.setting.frameTimeUs / 1000);
        timeouts.perTransfer += extra;
        timeouts.total += extra;
    }
    return m_usb.ReadFrameOnce(Buffer(), timeouts, m_capture.GoOn());
}

void Usb2CaptureWorker::PrintIncompleteFrame(const BulkStream::Pass &pass) const
{
    OutputDbgPrint("get len:0x%x drop:%d reset! frametime:%d waittime:%d\n", pass.received,
                   m_troubles.drops, m_present.setting.frameTimeUs,
                   static_cast<int>(m_present.waitMs));
}

Usb2CaptureWorker::Turn Usb2CaptureWorker::HandleMissingBytes(const BulkStream::Pass &pass)
{
    m_midFrame = true;
    if (m_troubles.drops > kDropsToReset)
        return ResetStream("DropCount more than 50, reset!\n");
    if (pass.received > 0) {
        HandleDrop(DropReason::Short);
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
    const bool silent = m_troubles.emptyReads > 0;
    m_troubles.drops = m_troubles.emptyReads = 0;
    if (!ResetCamera())
        return RecoverDevice();
    Command(request::kStartSensorClock);
    Command(request::kStartDataPath);
    if (silent)
        m_sensor.StartSensorStreaming();
    Pause(kResetPause);
    return Turn::GoOn;
}

/// The sensor runs on while the host begins or ends to time it: the next frame that comes whole is
/// then exposed in both ways, for a time that nobody set.
Usb2CaptureWorker::Turn Usb2CaptureWorker::HandleWholeFrame()
{
    m_midFrame = false;
    if (!HasHeadMark(Frame()))
        return HandleBadHead();
    if (const int others = FramesBegunWithin(Frame()); others > 0)
        return HandleLostPackets(others);
    m_troubles.drops = m_badHeads = 0;
    const bool timedByHost = m_present.setting.timedByHost;
    if (std::exchange(m_timedByHost, timedByHost) != timedByHost)
        m_present.exposedBy.reset();
    return HandleGoodFrame();
}

/// The frame has a beginning and no end, and the reads are in the middle of another one.
Usb2CaptureWorker::Turn Usb2CaptureWorker::HandleLostPackets(int others)
{
    ++m_troubles.drops;
    m_midFrame = true;
    m_seen.count += others;
    HandleDrop(DropReason::Short);
    return Turn::GoOn;
}

/// In fast video the reader throws the frame away, and with it the one before, whose end may be
/// missing.
Usb2CaptureWorker::Turn Usb2CaptureWorker::HandleBadHead()
{
    OutputDbgPrint("bad frame head:0x%x\n", HeadWord(Frame()));
    if (++m_badHeads > kBadHeadsToReset)
        return ResetAfterBadHeads();
    if (!m_single && m_camera.SettingsOfNow().exposure.us < kFastVideoBelowUs) {
        InsertFrame(false);
        if (m_badHeads % kBadHeadsToRealign == 0)
            Realign();
        return Turn::GoOn;
    }
    ++m_troubles.drops;
    HandleDrop(DropReason::Marks);
    return Turn::GoOn;
}

/// When several frames in a row begin wrongly, the reads begin in the middle of a frame, because
/// the camera has lost data. Dropping the rest of the current one makes the next read begin with a
/// frame.
void Usb2CaptureWorker::Realign()
{
    ClearHalt();
    m_midFrame = true;
}

Usb2CaptureWorker::Turn Usb2CaptureWorker::ResetAfterBadHeads()
{
    if (ResetTooOften())
        return Fail();
    OutputDbgPrint("bad frame than 20, reset!\n");
    m_badHeads = 0;
    m_midFrame = true;
    DropSeen(DropReason::Marks);
    m_usb2Sensor.SlowDown();
    if (!ResetCamera())
        return RecoverDevice();
    Command(request::kStartDataPath);
    return Turn::GoOn;
}

bool Usb2CaptureWorker::BandwidthMatters() const
{
    return m_present.waitMs < kAutoBandwidthBelowMs;
}

void Usb2CaptureWorker::PrintBurst(uint32_t sinceStartMs, uint32_t sinceLastMs) const
{
    OutputDbgPrint("time from start:%d   time_delta:%d pkg:%x\n", static_cast<int>(sinceStartMs),
                   static_cast<int>(sinceLastMs),
                   static_cast<unsigned int>(m_camera.SettingsOfNow().bandwidth));
}

void Usb2CaptureWorker::HandleFixedBandwidthDrop()
{
    if (m_troubles.drops != kDropsToSlowDown)
        return;
    OutputDbgPrint("try lowing pkg!!\n");
    m_usb2Sensor.SlowDown();
}

} // namespace vsccam
