#include "capture/usb3_capture_worker.h"

#include "base/debug_print.h"
#include "image/frame_marks.h"
#include "usb/requests.h"

namespace vsccam {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

constexpr uint8_t kImageEndpoint = 0x81;
constexpr auto kAutoControlPass = 100ms;
constexpr int kDropsToComplain = 5;

} // namespace

Usb3CaptureWorker::Usb3CaptureWorker(CCameraBase &camera, CaptureSensor &sensor)
    : CaptureWorker(camera, sensor, kImageEndpoint, kAutoControlPass)
{
}

void Usb3CaptureWorker::StartDataPath()
{
    m_camera.SendCMD(request::kStartDataPath);
    m_sensor.StartSensorStreaming();
}

BulkStream::Timeouts Usb3CaptureWorker::FrameTimeouts(const ExposureSetting &exposure) const
{
    const auto exposureUs = static_cast<int64_t>(exposure.us);
    const int frameTimeUs = exposure.frameTimeUs;
    BulkStream::Timeouts timeouts{};
    if (exposureUs >= frameTimeUs)
        timeouts.perTransfer =
            milliseconds(exposureUs / 1000) + (exposureUs < 1'000'000 ? 1000ms : 2000ms);
    else
        timeouts.perTransfer = milliseconds(frameTimeUs / 500) + 50ms;
    timeouts.nextEvent = milliseconds(frameTimeUs / 1000 / m_transferCount) + 100ms;
    timeouts.total = timeouts.perTransfer * m_transferCount;
    return timeouts;
}

BulkStream::Pass Usb3CaptureWorker::ReadFrame(const ExposureSetting & /*exposure*/,
                                              BulkStream::Timeouts timeouts)
{
    return m_camera.startAsyncXfer(m_camera.Raw().Filling(), timeouts, m_running);
}

void Usb3CaptureWorker::PrintIncompleteFrame(const BulkStream::Pass &pass) const
{
    OutputDbgPrint("get len:0x%x drop:%d  frametime:%dus waittime:%ldms\n", pass.received, m_drops,
                   m_camera.FrameTimeUs(), m_waitMs);
}

Usb3CaptureWorker::Turn Usb3CaptureWorker::HandleMissingBytes(const BulkStream::Pass &pass)
{
    if (pass.received == 0)
        return HandleEmptyRead(pass);
    return HandleUnusableFrame();
}

Usb3CaptureWorker::Turn Usb3CaptureWorker::HandleEmptyRead(const BulkStream::Pass &pass)
{
    if (!TooManyEmptyReads(pass))
        return Turn::GoOn;
    if (ResetTooOften())
        return Fail();
    // Quirk, kept: four reads, whatever the message says.
    OutputDbgPrint("no frame more than 5, reset!\n");
    return ResetStream();
}

Usb3CaptureWorker::Turn Usb3CaptureWorker::HandleUnusableFrame()
{
    HandleDrop();
    if (MayLowerBandwidth() || !m_unusable.CallsForReset(ReadBegan(), Clock::now()))
        return Turn::GoOn;
    OutputDbgPrint("no usable frame, reset!\n");
    return ResetStream();
}

Usb3CaptureWorker::Turn Usb3CaptureWorker::ResetStream()
{
    if (!m_camera.ResetDevice())
        return RecoverDevice();
    m_emptyReads = m_drops = 0;
    (void)m_running.SleepFor(100ms);
    m_sensor.StopSensorStreaming();
    m_camera.SendCMD(request::kStopDataPath);
    (void)m_running.SleepFor(10ms);
    m_camera.SendCMD(request::kStartDataPath);
    m_sensor.StartSensorStreaming();
    return Turn::GoOn;
}

Usb3CaptureWorker::Turn Usb3CaptureWorker::HandleWholeFrame()
{
    const FrameMarks marks = ReadFrameMarks(Frame());
    if (marks.Good()) {
        ZeroFrameMarks(Frame());
        m_unusable.Good();
        return HandleGoodFrame();
    }
    ++m_drops;
    OutputDbgPrint("head:0x%x COUNT:%d tail:0x%x count:%d\n", marks.head, marks.headCounter,
                   marks.tail, marks.tailCounter);
    return HandleUnusableFrame();
}

void Usb3CaptureWorker::PrintBurst(int sinceStartMs, int sinceLastMs) const
{
    OutputDbgPrint("time from start:%d   time_delta:%d \n", sinceStartMs, sinceLastMs);
}

void Usb3CaptureWorker::HandleFixedBandwidthDrop()
{
    if (m_drops == kDropsToComplain)
        OutputDbgPrint("try lowing pkg!!\n");
}

} // namespace vsccam
