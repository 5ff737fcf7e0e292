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

Usb3CaptureWorker::Usb3CaptureWorker(Capture &capture, CaptureSensor &sensor)
    : CaptureWorker(capture, sensor, {kImageEndpoint, kAutoControlPass})
{
}

void Usb3CaptureWorker::StartDataPath()
{
    Command(request::kStartDataPath);
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
    timeouts.nextEvent = milliseconds(frameTimeUs / 1000 / m_frame.transfers) + 100ms;
    timeouts.total = timeouts.perTransfer * m_frame.transfers;
    return timeouts;
}

BulkStream::Pass Usb3CaptureWorker::ReadFrame(BulkStream::Timeouts timeouts)
{
    return m_usb.startAsyncXfer(Buffer(), timeouts, m_capture.GoOn());
}

void Usb3CaptureWorker::PrintIncompleteFrame(const BulkStream::Pass &pass) const
{
    OutputDbgPrint("get len:0x%x drop:%d  frametime:%dus waittime:%ldms\n", pass.received,
                   m_troubles.drops, m_present.setting.frameTimeUs, m_present.waitMs);
}

Usb3CaptureWorker::Turn Usb3CaptureWorker::HandleMissingBytes(const BulkStream::Pass &pass)
{
    if (pass.received == 0)
        return HandleEmptyRead(pass);
    return HandleUnusableFrame(DropReason::Short);
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

Usb3CaptureWorker::Turn Usb3CaptureWorker::HandleUnusableFrame(DropReason reason)
{
    HandleDrop(reason);
    if (MayLowerBandwidth() || !m_unusable.CallsForReset(m_present.readBegan, Clock::now()))
        return Turn::GoOn;
    OutputDbgPrint("no usable frame, reset!\n");
    return ResetStream();
}

Usb3CaptureWorker::Turn Usb3CaptureWorker::ResetStream()
{
    if (!ResetCamera())
        return RecoverDevice();
    m_troubles.emptyReads = m_troubles.drops = 0;
    Pause(100ms);
    m_sensor.StopSensorStreaming();
    Command(request::kStopDataPath);
    Pause(10ms);
    Command(request::kStartDataPath);
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
    ++m_troubles.drops;
    OutputDbgPrint("head:0x%x COUNT:%d tail:0x%x count:%d\n", marks.head, marks.headCounter,
                   marks.tail, marks.tailCounter);
    return HandleUnusableFrame(marks.Framed() ? DropReason::Counter : DropReason::Marks);
}

void Usb3CaptureWorker::PrintBurst(uint32_t sinceStartMs, uint32_t sinceLastMs) const
{
    OutputDbgPrint("time from start:%d   time_delta:%d \n", static_cast<int>(sinceStartMs),
                   static_cast<int>(sinceLastMs));
}

void Usb3CaptureWorker::HandleFixedBandwidthDrop()
{
    if (m_troubles.drops == kDropsToComplain)
        OutputDbgPrint("try lowing pkg!!\n");
}

} // namespace vsccam
