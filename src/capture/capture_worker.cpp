#include "capture/capture_worker.h"

#include "base/debug_print.h"
#include "usb/requests.h"

#include <algorithm>
#include <new>
#include <utility>

namespace vsccam {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

constexpr int kTransferBytes = 0x100000;

// A single exposure fails once its dropped frames have cost this much exposure time.
constexpr uint64_t kSingleExposureLossUs = 1'000'000;
constexpr int kEmptyReadsToReset = 4;
constexpr int kResetsToFail = 2;
constexpr int kRefusedReadsToGiveUp = 4;
constexpr auto kRetryPause = 100ms; // after a read that failed at once
constexpr auto kReopenInterval = 1s;
// A camera that does not answer is left alone for longer than requests are held back from it.
constexpr auto kRestoreInterval = 500ms;
// The limit of one turn of the worker, for which calls of the host that set something may have to
// wait.
constexpr LossLimit kTurnLimit{.work = 700ms, .countsWaits = false};
constexpr int kRestoresToReset = 8;

constexpr int kDropsToLowerBandwidth = 2;
constexpr int kBandwidthStep = 4;
constexpr uint32_t kBurstIntervalMs = 5'000;

} // namespace

CaptureWorker::CaptureWorker(Capture &capture, CaptureSensor &sensor, const Controller &controller)
    : m_capture(capture), m_usb(capture.Usb()), m_camera(capture.Camera()), m_sensor(sensor),
      m_single(capture.Single()), m_controller(controller), m_hostTimed(capture, sensor),
      m_autoBandwidth(capture.ProductId())
{
}

void CaptureWorker::Run()
{
    try {
        Turn turn = Prepare() ? Turn::GoOn : Turn::Recover;
        while (turn != Turn::Leave && m_capture.GoOn()) {
            if (turn == Turn::GoOn)
                turn = CaptureOneFrame();
            else
                turn = BringBackDevice() ? Turn::GoOn : GiveUp();
        }
    } catch (const std::bad_alloc &) {
        (void)Fail(); // nobody waits for a frame for ever
    }
    Leave();
}

bool CaptureWorker::Prepare()
{
    const RequestBudget budget(kTurnLimit);
    Command(request::kStopDataPath);
    m_sensor.StopSensorStreaming();
    OutputDbgPrint("working thread begin!\n");
    m_frame.bytes = m_camera.SettingsOfNow().frameBytes;
    m_frame.transfers = (m_frame.bytes + kTransferBytes - 1) / kTransferBytes;
    if (!m_single)
        m_camera.StartAutomatics(m_controller.autoControlPass);
    return !m_capture.Lost() && StartStream();
}

/// The sensor follows the exposure that is set before it begins the first frame, however often the
/// host sets it meanwhile.
bool CaptureWorker::StartStream()
{
    do {
        m_changes.atStart = m_camera.FrameChanges();
        FollowExposure();
    } while (m_changes.atStart != m_camera.FrameChanges());
    StartDataPath();
    ClearHalt();
    m_troubles = {};
    m_streams = m_usb.initAsyncXfer(m_frame.bytes, m_frame.transfers, kTransferBytes,
                                    m_controller.endpoint);
    return m_streams;
}

CaptureWorker::Turn CaptureWorker::CaptureOneFrame()
{
    const RequestBudget budget(kTurnLimit);
    if (!m_camera.HalfProgrammed() && Superseded())
        return ExposeAnew();
    FollowExposure();
    const ExposureSetting exposure = m_camera.SettingsOfNow().exposure;
    m_present = {.setting = exposure, .exposedBy = exposure};
    const uint64_t lossUs = static_cast<uint64_t>(m_troubles.drops) * exposure.us;
    m_deadline.Follow(exposure);
    if (m_single && (lossUs > kSingleExposureLossUs || m_deadline.TooLate(Clock::now())))
        return Fail();
    if (m_camera.HalfProgrammed() || !m_streams)
        return ProgramAgain();

    const BulkStream::Pass pass =
        exposure.timedByHost ? ExposeAndRead(exposure) : ReadVideoFrame(exposure);
    if (!m_camera.SettingsOfNow().bandwidthAuto)
        m_autoBandwidth.NoteOff();
    return HandleRead(pass);
}

CaptureWorker::Turn CaptureWorker::HandleRead(const BulkStream::Pass &pass)
{
    const bool whole = pass.Brought(m_frame.bytes);
    m_seen.Add(pass.frames);
    if (whole) // and so those before it have ended
        m_capture.CountDrop(DropReason::Short, std::exchange(m_seen.count, 1) - 1);
    if (pass.deviceGone || !m_capture.GoOn()) {
        DropEnded(whole ? DropReason::NotTaken : DropReason::Short);
        return pass.deviceGone ? RecoverDevice() : Turn::Leave;
    }
    if (m_camera.HalfProgrammed()) {
        DropEnded(DropReason::HalfSet);
        return Turn::GoOn;
    }
    if (Superseded())
        return ExposeAnew();
    if (pass.received > 0)
        m_troubles.emptyReads = 0;
    if (!whole)
        return HandleIncompleteFrame(pass);
    m_troubles.refusedReads = 0;
    return HandleWholeFrame();
}

void CaptureWorker::DropSeen(DropReason reason)
{
    m_capture.CountDrop(reason, std::exchange(m_seen, {}).count);
}

void CaptureWorker::DropEnded(DropReason reason)
{
    const int ended = m_seen.Ended();
    m_capture.CountDrop(reason, ended);
    m_seen.count -= ended;
}

bool CaptureWorker::Superseded() const
{
    return m_single && m_camera.FrameChanges() != m_changes.atStart;
}

/// A frame that the sensor began before a change is exposed in part by what was set then. A sensor
/// that is stopped and started again begins with a frame of what is set now. This is no failed
/// attempt.
CaptureWorker::Turn CaptureWorker::ExposeAnew()
{
    StopStream();
    if (m_camera.FrameChanges() != m_changes.own) // the host's begin its time anew
        m_deadline.BeginAnew(Clock::now());
    return StartStream() ? Turn::GoOn : Fail();
}

bool CaptureWorker::IsOfNoUse() const
{
    return m_camera.HalfProgrammed() || Superseded();
}

CaptureWorker::Turn CaptureWorker::HandleIncompleteFrame(const BulkStream::Pass &pass)
{
    ++m_troubles.drops;
    DropEnded(DropReason::Short);
    PrintIncompleteFrame(pass);
    if (!pass.submitted)
        return HandleRefusedRead(pass);
    m_troubles.refusedReads = 0;
    if (pass.received == 0)
        m_capture.CountEmptyRead();
    return HandleMissingBytes(pass);
}

BulkStream::Pass CaptureWorker::ReadVideoFrame(const ExposureSetting &exposure)
{
    const BulkStream::Timeouts timeouts = FrameTimeouts(exposure);
    m_present.waitMs = static_cast<long>(timeouts.perTransfer.count());
    m_present.readBegan = Clock::now();
    return ReadFrame(InTime(timeouts));
}

BulkStream::Timeouts CaptureWorker::InTime(BulkStream::Timeouts timeouts) const
{
    if (m_single)
        timeouts.deadline = m_deadline.End();
    return timeouts;
}

/// The host opens and closes the exposure gate; then the sensor reads out.
BulkStream::Pass CaptureWorker::ExposeAndRead(const ExposureSetting &exposure)
{
    const LongExposurePlan plan = m_sensor.PlanLongExposure(exposure.us);
    const auto end = m_hostTimed.Expose(exposure.us, plan, [this] { return IsOfNoUse(); });
    if (end == HostTimedExposure::End::CameraGone)
        return {.deviceGone = true};
    if (end == HostTimedExposure::End::CutShort)
        m_present.exposedBy.reset();
    m_present.waitMs = plan.printedWaitMs;
    if (IsOfNoUse())
        return {};
    const BulkStream::Pass pass = ReadExposedFrame(plan);
    OutputDbgPrint("Long exp:Get one Frame %d\n", static_cast<int>(exposure.us / 1000));
    return pass;
}

BulkStream::Pass CaptureWorker::ReadExposedFrame(const LongExposurePlan &plan)
{
    const BulkStream::Timeouts timeouts =
        InTime({plan.readTimeout, plan.readTimeout, plan.readTimeout});
    m_present.readBegan = Clock::now();
    BulkStream::Pass pass = m_usb.ReadFrameOnce(Buffer(), timeouts, m_capture.GoOn());
    if (pass.ioError && !pass.deviceGone && m_capture.GoOn()) {
        OutputDbgPrint("Xfer2#\n");
        const BulkStream::Pass first = pass;
        pass = m_usb.ReadFrameOnce(Buffer(), timeouts, m_capture.GoOn());
        pass.Repeats(first);
    }
    if (pass.error != 0)
        OutputDbgPrint("transfer error:%d\n", pass.error);
    return pass;
}

/// Nothing could be queued: memory is short, or transfers of before do not come back.
CaptureWorker::Turn CaptureWorker::HandleRefusedRead(const BulkStream::Pass &pass)
{
    Pause(kRetryPause);
    if (++m_troubles.refusedReads >= kRefusedReadsToGiveUp) {
        if (m_single)
            return Fail();
        if (pass.error == LIBUSB_ERROR_BUSY)
            return RecoverDevice(); // closing the device frees them
    }
    m_capture.CountDrop(DropReason::Lost);
    HandleDrop(DropReason::Short);
    return Turn::GoOn;
}

bool CaptureWorker::TooManyEmptyReads(const BulkStream::Pass &pass)
{
    OutputDbgPrint("nothing get count:%d\n", ++m_troubles.emptyReads);
    if (pass.error == LIBUSB_ERROR_PIPE)
        ClearHalt();
    if (pass.error != LIBUSB_ERROR_TIMEOUT)
        Pause(kRetryPause); // it failed at once
    return m_troubles.emptyReads >= kEmptyReadsToReset;
}

bool CaptureWorker::ResetTooOften()
{
    return m_single && ++m_troubles.resets >= kResetsToFail;
}

bool CaptureWorker::ResetCamera()
{
    const bool reset = m_usb.ResetDevice();
    if (reset)
        DropSeen(DropReason::Short);
    return reset;
}

void CaptureWorker::ClearHalt()
{
    DropSeen(DropReason::Short);
    (void)m_usb.ResetEndPoint(m_controller.endpoint);
}

uint8_t *CaptureWorker::Buffer() const
{
    return m_capture.Frames().Filling();
}

std::span<uint8_t> CaptureWorker::Frame() const
{
    return {Buffer(), static_cast<size_t>(m_frame.bytes)};
}

bool CaptureWorker::InsertFrame(bool lookedAt)
{
    const bool inserted =
        m_capture.Frames().InsertBuff(m_frame.bytes, lookedAt ? m_present.exposedBy : std::nullopt);
    m_seen = {};
    if (!inserted && !m_single)
        m_capture.CountDrop(DropReason::RingFull);
    return inserted;
}

CaptureWorker::Turn CaptureWorker::HandleGoodFrame()
{
    const std::span<uint8_t> frame = Frame();
    const std::optional<ExposureSetting> exposedBy = m_present.exposedBy;
    const CaptureSettings now = m_camera.SettingsOfNow();
    const bool inserted = InsertFrame(exposedBy && now.AutomaticsLookAt(*exposedBy));
    if (m_single) {
        if (!inserted)
            return Fail();
        OutputDbgPrint("snap: EXP_SUCCESS\n");
        End(CaptureChange::WorkerSucceeds);
        return Turn::Leave;
    }
    if (exposedBy && !exposedBy->IsShort() && now.exposureOrGainAuto)
        m_camera.Adjust(frame, *exposedBy);
    return Turn::GoOn;
}

void CaptureWorker::HandleDrop(DropReason reason)
{
    DropSeen(reason);
    OutputDbgPrint("drop frames:%d\n", m_capture.Dropped());
    if (!InAutoBandwidthPeriod())
        HandleFixedBandwidthDrop();
    else if (m_troubles.drops > kDropsToLowerBandwidth)
        LowerBandwidth();
    ClearHalt();
}

bool CaptureWorker::MayLowerBandwidth()
{
    const CaptureSettings now = m_camera.SettingsOfNow();
    return InAutoBandwidthPeriod() && now.bandwidth > now.lowestBandwidth;
}

bool CaptureWorker::InAutoBandwidthPeriod()
{
    return m_autoBandwidth.Lasts(m_camera.SettingsOfNow().bandwidthAuto) && BandwidthMatters();
}

/// Bursts of bad frames that follow each other closely mean that the link carries less.
void CaptureWorker::LowerBandwidth()
{
    const uint32_t delta = m_autoBandwidth.NoteBurst();
    if (delta < kBurstIntervalMs) {
        PrintBurst(m_autoBandwidth.SinceStartMs(), delta);
        m_camera.LowerBandwidth(kBandwidthStep);
        m_changes.own = m_camera.FrameChanges();
    }
    OutputDbgPrint("BAD delta time:%d pkg:%x\n", static_cast<int>(delta),
                   static_cast<unsigned int>(m_camera.SettingsOfNow().bandwidth));
    m_troubles.drops = 0;
}

/// The device is gone. A single exposure is lost with it, which the host shall know at once; the
/// next start looks for the device.
CaptureWorker::Turn CaptureWorker::RecoverDevice()
{
    if (!m_single)
        return Turn::Recover;
    (void)m_capture.Change(CaptureChange::WorkerLosesDevice);
    return Fail();
}

CaptureWorker::Turn CaptureWorker::GiveUp()
{
    return m_single ? Fail() : Turn::Leave;
}

/// Opens the device again once it is back, and programs it as it was. For a single exposure it has
/// to be back already: the host waits.
bool CaptureWorker::BringBackDevice()
{
    (void)m_capture.Change(CaptureChange::WorkerLosesDevice);
    m_capture.Frames().SetProducing(false); // nobody waits for a camera that is gone
    m_seen = {};                            // the rest of it went with the camera
    m_usb.releaseAsyncXfer();
    const auto lostAt = Clock::now();
    bool back = Reopen() && Resume();
    while (!back && m_capture.GoOn() && !m_single) {
        Pause(kReopenInterval);
        back = Reopen() && Resume();
    }
    CountFramesLostSince(lostAt);
    return back;
}

bool CaptureWorker::Reopen()
{
    return m_camera.Reconnect() || (m_capture.GoOn() && m_camera.Reopen());
}

/// A camera that has just come back may need a while until it answers. If it misses a request it is
/// programmed by half, which nothing would ever show.
bool CaptureWorker::Restore()
{
    const RequestBudget budget(kTurnLimit, &m_capture.GoOn());
    return m_camera.ProgramWhole([this] { return m_sensor.RestoreSettings(); });
}

bool CaptureWorker::Resume()
{
    if (!m_capture.GoOn() || !Restore() || !StartStream())
        return false;
    (void)m_capture.Change(CaptureChange::WorkerHasDeviceBack);
    m_capture.Frames().SetProducing(true);
    return true;
}

/// A request that sets the camera up got lost, whoever sent it. The frames are of no use until
/// everything is set again.
CaptureWorker::Turn CaptureWorker::ProgramAgain()
{
    if (!m_usb.IsAttached())
        return RecoverDevice();
    OutputDbgPrint("a setting was lost, program again\n");
    const auto since = Clock::now();
    StopStream();
    const bool done = Restore() && StartStream() && !m_camera.HalfProgrammed();
    if (!done)
        Pause(kRestoreInterval);
    CountFramesLostSince(since);
    if (!done && m_usb.HasTransfersInFlight())
        return RecoverDevice(); // closing the device frees them
    m_failedRestores = done ? 0 : m_failedRestores + 1;
    if (m_failedRestores < kRestoresToReset)
        return Turn::GoOn;
    m_failedRestores = 0;
    return ResetCamera() ? Turn::GoOn : RecoverDevice();
}

void CaptureWorker::StopStream()
{
    m_sensor.StopSensorStreaming();
    Command(request::kStopDataPath);
    m_seen = {}; // the camera has ended it
}

void CaptureWorker::CountFramesLostSince(Clock::time_point start)
{
    const ExposureSetting exposure = m_camera.SettingsOfNow().exposure;
    const auto periodUs =
        std::max<int64_t>({exposure.frameTimeUs, static_cast<int64_t>(exposure.us), 1});
    const int64_t frames = (Clock::now() - start) / std::chrono::microseconds(periodUs);
    m_capture.CountDrop(DropReason::Lost, frames);
}

CaptureWorker::Turn CaptureWorker::Fail()
{
    OutputDbgPrint("snap Exp: EXP_FAILED:%d\n", m_troubles.drops);
    End(CaptureChange::WorkerFails);
    return Turn::Leave;
}

/// Ends a worker that nobody stopped. The next start or stop joins it.
void CaptureWorker::End(CaptureChange how)
{
    m_endedByItself = m_capture.Change(how).Running();
}

void CaptureWorker::Leave()
{
    CirBuf &ring = m_capture.Frames();
    ring.SetProducing(false);
    DropCounts drops = m_capture.TakeDrops();
    {
        const LeavingSafe leaving;
        StopStream();
    }
    ClearHalt();
    if (!m_single)
        drops.Add(DropReason::NotTaken, ring.ResetCirBuff());
    m_usb.releaseAsyncXfer();
    if (!m_single)
        m_camera.StopAutomatics();
    drops.Print();
    OutputDbgPrint("working thread exit!\n");
    if (m_endedByItself)
        OutputDbgPrint("thread detached\n");
}

} // namespace vsccam
