#include "capture/capture_worker.h"

#include "base/debug_print.h"
#include "base/per_model.h"
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
constexpr milliseconds kPresenceInterval = 400ms; // from one look for the camera to the next
// A camera that does not answer gets longer than requests are held back from it.
constexpr auto kRestoreInterval = 500ms;
// Of a turn of the worker: calls of the host that set something may have to wait for it.
constexpr LossLimit kTurnLimit{.work = 700ms, .countsWaits = false};
constexpr int kRestoresToReset = 8;

// A single exposure ends in five seconds and four frame times besides its own, whatever the camera
// sends: in a little less, because a request may be under way.
constexpr auto kSingleExposureGrace = 4'000ms;
constexpr int kSingleExposureFrames = 4;

constexpr int kDropsToLowerBandwidth = 2;
constexpr int kBandwidthStep = 4;
constexpr uint32_t kAutoBandwidthPeriodMs = 19'999;
constexpr uint32_t kBurstIntervalMs = 5'000;

/// The auto-bandwidth flag as the workers of a model last saw it. It outlives the camera object:
/// only a change from off to on starts a new auto-bandwidth period.
Shared<bool> &RememberedAutoBandwidth(const CCameraBase &camera)
{
    static PerModel<Shared<bool>> memories;
    return memories.Of(camera.Model(),
                       [&camera](Shared<bool> &on) { on = camera.BandwidthAuto(); });
}

} // namespace

void CaptureWorker::Run()
{
    try {
        m_exposureBegan = Clock::now();
        Turn turn = Prepare() ? Turn::GoOn : Turn::Recover;
        while (turn != Turn::Leave && m_running) {
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
    m_autoBandwidthSince = m_lastBurst = GetTickCount();
    m_camera.SendCMD(request::kStopDataPath);
    m_sensor.StopSensorStreaming();
    OutputDbgPrint("working thread begin!\n");
    m_frameBytes = m_camera.ReadoutBytes();
    m_transferCount = (m_frameBytes + kTransferBytes - 1) / kTransferBytes;
    m_camera.Raw().Reset();
    if (!m_camera.SingleExposure())
        m_camera.startAutoControlThr(m_autoControlPass);
    return !m_camera.Lost() && StartStream();
}

/// The sensor follows the exposure that is set before it begins the first frame, however often the
/// host sets it meanwhile.
bool CaptureWorker::StartStream()
{
    do {
        m_startedWith = m_camera.FrameChanges();
        FollowExposure();
    } while (m_startedWith != m_camera.FrameChanges());
    StartDataPath();
    m_camera.ResetEndPoint(m_endpoint);
    m_drops = m_emptyReads = m_refusedReads = m_resets = 0;
    m_timedByHost = m_camera.Exposure().timedByHost;
    return m_camera.initAsyncXfer(m_frameBytes, m_transferCount, kTransferBytes, m_endpoint);
}

std::span<uint8_t> CaptureWorker::Frame() const
{
    return {m_camera.Raw().Filling(), static_cast<size_t>(m_frameBytes)};
}

CaptureWorker::Turn CaptureWorker::CaptureOneFrame()
{
    const RequestBudget budget(kTurnLimit);
    if (!m_camera.HalfProgrammed() && Superseded())
        return ExposeAnew();
    FollowExposure();
    const ExposureSetting exposure = m_camera.Exposure();
    m_exposedBy = exposure;
    const uint64_t lossUs = static_cast<uint64_t>(m_drops) * exposure.us;
    if (m_camera.SingleExposure() && (lossUs > kSingleExposureLossUs || TooLateFor(exposure)))
        return Fail();
    if (m_camera.HalfProgrammed())
        return ProgramAgain();

    const BulkStream::Pass pass =
        exposure.timedByHost ? ExposeAndRead(exposure) : ReadVideoFrame(exposure);
    if (!m_camera.BandwidthAuto())
        RememberedAutoBandwidth(m_camera) = false;
    return HandleRead(pass);
}

CaptureWorker::Turn CaptureWorker::HandleRead(const BulkStream::Pass &pass)
{
    if (pass.deviceGone)
        return RecoverDevice();
    if (!m_running) // the read was cut short
        return Turn::Leave;
    if (m_camera.HalfProgrammed()) {
        m_camera.AddDroppedFrames(1);
        return Turn::GoOn;
    }
    if (Superseded())
        return ExposeAnew();
    if (pass.received > 0)
        m_emptyReads = 0;
    if (pass.received != m_frameBytes)
        return HandleIncompleteFrame(pass);
    m_refusedReads = 0;
    return HandleWholeFrame();
}

bool CaptureWorker::Superseded() const
{
    return m_camera.SingleExposure() && m_camera.FrameChanges() != m_startedWith;
}

/// Frames that the sensor began before a change are exposed in part by what was set then. One that
/// is stopped and started again begins with a frame of what is set now; it is no failed attempt.
CaptureWorker::Turn CaptureWorker::ExposeAnew()
{
    StopStream();
    if (m_camera.FrameChanges() != m_ownChanges) // the host's begin its time anew
        m_exposureBegan = Clock::now();
    return StartStream() ? Turn::GoOn : Fail();
}

bool CaptureWorker::IsOfNoUse() const
{
    return m_camera.HalfProgrammed() || Superseded();
}

CaptureWorker::Turn CaptureWorker::HandleIncompleteFrame(const BulkStream::Pass &pass)
{
    ++m_drops;
    PrintIncompleteFrame(pass);
    if (!pass.submitted)
        return HandleRefusedRead(pass);
    m_refusedReads = 0;
    return HandleMissingBytes(pass);
}

BulkStream::Pass CaptureWorker::ReadVideoFrame(const ExposureSetting &exposure)
{
    const BulkStream::Timeouts timeouts = FrameTimeouts(exposure);
    m_waitMs = static_cast<long>(timeouts.perTransfer.count());
    m_readBegan = Clock::now();
    return ReadFrame(exposure, InTime(timeouts));
}

/// Whether a single exposure that begins now would not end in its time, which begins anew when it
/// is set to another one.
bool CaptureWorker::TooLateFor(const ExposureSetting &exposure)
{
    using std::chrono::microseconds;
    const auto latestBegin = m_exposureBegan + kSingleExposureGrace +
                             kSingleExposureFrames * microseconds(exposure.frameTimeUs);
    m_deadline = latestBegin + microseconds(exposure.us);
    return Clock::now() >= latestBegin;
}

BulkStream::Timeouts CaptureWorker::InTime(BulkStream::Timeouts timeouts) const
{
    if (!m_camera.SingleExposure())
        return timeouts;
    timeouts.deadline = m_deadline;
    return timeouts;
}

/// The host opens and closes the exposure gate; then the sensor reads out.
BulkStream::Pass CaptureWorker::ExposeAndRead(const ExposureSetting &exposure)
{
    const uint32_t exposureUs = exposure.us;
    const auto exposureMs = static_cast<int>(exposureUs / 1000);
    const LongExposurePlan plan = m_sensor.PlanLongExposure(exposureUs);
    OutputDbgPrint("Begin long exp %d\n", exposureMs);
    const auto opened = Clock::now();
    m_sensor.OpenExposureGate();
    OutputDbgPrint("wait:%ld\n", plan.printedWaitMs);
    if (!SleepWhileExposing(plan, exposureUs))
        return {.deviceGone = true};
    m_sensor.CloseExposureGate();
    const auto exposed = floor<milliseconds>(Clock::now() - opened) + plan.beside;
    OutputDbgPrint("exposed:%d ms\n", static_cast<int>(exposed.count())); // programs read it
    m_waitMs = plan.printedWaitMs;
    if (IsOfNoUse())
        return {};

    uint8_t *buffer = m_camera.Raw().Filling();
    const BulkStream::Timeouts timeouts =
        InTime({plan.readTimeout, plan.readTimeout, plan.readTimeout});
    m_readBegan = Clock::now();
    BulkStream::Pass pass = m_camera.ReadFrameOnce(buffer, timeouts, m_running);
    if (pass.ioError && !pass.deviceGone && m_running) {
        OutputDbgPrint("Xfer2#\n");
        pass = m_camera.ReadFrameOnce(buffer, timeouts, m_running);
    }
    if (pass.error != 0)
        OutputDbgPrint("transfer error:%d\n", pass.error);
    OutputDbgPrint("Long exp:Get one Frame %d\n", exposureMs);
    return pass;
}

/// Until the exposure is over, is set to another length, is to end or is of no use any more.
/// @return false when the camera is gone
bool CaptureWorker::SleepWhileExposing(const LongExposurePlan &plan, uint32_t exposureUs)
{
    auto due = Clock::now() + plan.rest; // what makes one sleep longer makes the next one shorter
    bool attached = SleepWhileAttached(due);
    for (int i = 0; i < plan.steps && attached && m_running; ++i) {
        if (m_camera.ExposureUs() != exposureUs || IsOfNoUse()) {
            ExposedByNoSetting();
            break;
        }
        due += plan.step;
        attached = SleepWhileAttached(due);
    }
    return attached;
}

/// Nothing is sent meanwhile that would tell of a camera that was unplugged: the list of devices
/// does.
bool CaptureWorker::SleepWhileAttached(Clock::time_point end)
{
    while (Clock::now() < end && m_running) {
        const auto left = ceil<milliseconds>(end - Clock::now());
        (void)m_running.SleepFor(std::min(left, kPresenceInterval));
        if (Clock::now() >= m_nextLook) {
            m_nextLook = Clock::now() + kPresenceInterval;
            if (!m_camera.IsAttached())
                return false;
        }
    }
    return true;
}

/// Nothing could be queued: memory is short, or transfers of before do not come back.
CaptureWorker::Turn CaptureWorker::HandleRefusedRead(const BulkStream::Pass &pass)
{
    (void)m_running.SleepFor(kRetryPause);
    if (++m_refusedReads >= kRefusedReadsToGiveUp) {
        if (m_camera.SingleExposure())
            return Fail();
        if (pass.error == LIBUSB_ERROR_BUSY)
            return RecoverDevice(); // closing the device frees them
    }
    HandleDrop();
    return Turn::GoOn;
}

bool CaptureWorker::TooManyEmptyReads(const BulkStream::Pass &pass)
{
    OutputDbgPrint("nothing get count:%d\n", ++m_emptyReads);
    if (pass.error == LIBUSB_ERROR_PIPE)
        m_camera.ResetEndPoint(m_endpoint);
    if (pass.error != LIBUSB_ERROR_TIMEOUT)
        (void)m_running.SleepFor(kRetryPause); // it failed at once
    return m_emptyReads >= kEmptyReadsToReset;
}

bool CaptureWorker::ResetTooOften()
{
    return m_camera.SingleExposure() && ++m_resets >= kResetsToFail;
}

bool CaptureWorker::InsertFrame(bool measurable)
{
    const std::span<uint8_t> frame = Frame();
    const bool inserted = m_camera.Frames().InsertBuff(frame.data(), m_frameBytes);
    if (!inserted && !m_camera.SingleExposure())
        m_camera.AddDroppedFrames(1);
    m_camera.Raw().Complete(frame.size(),
                            {.copied = inserted,
                             .lookedAt = measurable && m_camera.AutoThreadLooks(m_exposedBy),
                             .exposure = m_exposedBy});
    return inserted;
}

CaptureWorker::Turn CaptureWorker::HandleGoodFrame()
{
    const std::span<uint8_t> frame = Frame();
    const bool timedByHost = m_exposedBy.timedByHost;
    if (std::exchange(m_timedByHost, timedByHost) != timedByHost && MixesTimings())
        ExposedByNoSetting();
    const bool inserted = InsertFrame(true);
    if (m_camera.SingleExposure()) {
        if (!inserted)
            return Fail();
        OutputDbgPrint("snap: EXP_SUCCESS\n");
        m_running.Clear();
        m_camera.SetExpStatus(kExpSuccess);
        return Turn::Leave;
    }
    if (!m_exposedBy.IsShort() && m_camera.ExposureOrGainAuto())
        m_camera.AutoExpGain(frame, m_exposedBy);
    return Turn::GoOn;
}

void CaptureWorker::HandleDrop()
{
    m_camera.AddDroppedFrames(1);
    OutputDbgPrint("drop frames:%d\n", m_camera.DroppedFrames());
    if (!InAutoBandwidthPeriod())
        HandleFixedBandwidthDrop();
    else if (m_drops > kDropsToLowerBandwidth)
        LowerBandwidth();
    m_camera.ResetEndPoint(m_endpoint);
}

bool CaptureWorker::MayLowerBandwidth()
{
    return InAutoBandwidthPeriod() && m_camera.Bandwidth() > m_camera.Model().bandwidth.min;
}

bool CaptureWorker::InAutoBandwidthPeriod()
{
    Shared<bool> &remembered = RememberedAutoBandwidth(m_camera);
    if (m_camera.BandwidthAuto() && !remembered) {
        remembered = true;
        m_autoBandwidthSince = GetTickCount();
    }
    return m_camera.BandwidthAuto() && BandwidthMatters() &&
           GetTickCount() - m_autoBandwidthSince <= kAutoBandwidthPeriodMs;
}

/// Bursts of bad frames that follow each other closely mean that the link carries less.
void CaptureWorker::LowerBandwidth()
{
    const uint32_t now = GetTickCount();
    const uint32_t delta = now - std::exchange(m_lastBurst, now);
    if (delta < kBurstIntervalMs) {
        PrintBurst(static_cast<int>(now - m_autoBandwidthSince), static_cast<int>(delta));
        (void)m_camera.LowerBandwidth(kBandwidthStep);
        m_ownChanges = m_camera.FrameChanges();
    }
    OutputDbgPrint("BAD delta time:%d pkg:%x\n", static_cast<int>(delta),
                   static_cast<unsigned int>(m_camera.Bandwidth()));
    m_drops = 0;
}

/// The device is gone. A single exposure is lost with it, which the host shall know at once; the
/// next start looks for the device.
CaptureWorker::Turn CaptureWorker::RecoverDevice()
{
    if (m_camera.SingleExposure()) {
        m_camera.SetLost(true);
        return Fail();
    }
    return Turn::Recover;
}

CaptureWorker::Turn CaptureWorker::GiveUp()
{
    return m_camera.SingleExposure() ? Fail() : Turn::Leave;
}

/// Opens the device again once it is back, and programs it as it was. For a single exposure it has
/// to be back already: the host waits.
bool CaptureWorker::BringBackDevice()
{
    m_camera.SetLost(true);
    m_camera.Frames().SetProducing(false); // nobody waits for a camera that is gone
    m_camera.releaseAsyncXfer();
    const auto lostAt = Clock::now();
    bool back = Reopen() && Resume();
    while (!back && m_running && !m_camera.SingleExposure()) {
        (void)m_running.SleepFor(kReopenInterval);
        back = Reopen() && Resume();
    }
    m_camera.AddDroppedFrames(FramesSince(lostAt));
    return back;
}

bool CaptureWorker::Reopen()
{
    // Without a handle there is nothing to connect again: an earlier try lost it.
    return m_camera.ReConnectCamera() || (m_running && m_camera.OpenCamera(m_camera.Ordinal()));
}

/// A camera that has just come back may need a while until it answers: one that missed a request
/// is programmed by half, and nothing would ever show it.
bool CaptureWorker::Restore()
{
    const RequestBudget budget(kTurnLimit, &m_running);
    return m_camera.ProgramWhole([this] { return m_sensor.RestoreSettings(); });
}

bool CaptureWorker::Resume()
{
    if (!m_running || !Restore() || !StartStream())
        return false;
    m_camera.SetLost(false);
    m_camera.Frames().SetProducing(true);
    return true;
}

/// Somebody's request got lost that should have set the camera up. What it sends is of no use until
/// everything is set again.
CaptureWorker::Turn CaptureWorker::ProgramAgain()
{
    if (!m_camera.IsAttached())
        return RecoverDevice();
    OutputDbgPrint("a setting was lost, program again\n");
    const auto since = Clock::now();
    StopStream();
    const bool done = Restore() && StartStream() && !m_camera.HalfProgrammed();
    if (!done)
        (void)m_running.SleepFor(kRestoreInterval);
    m_camera.AddDroppedFrames(FramesSince(since));
    m_failedRestores = done ? 0 : m_failedRestores + 1;
    if (m_failedRestores < kRestoresToReset)
        return Turn::GoOn;
    m_failedRestores = 0;
    return m_camera.ResetDevice() ? Turn::GoOn : RecoverDevice();
}

void CaptureWorker::StopStream()
{
    m_sensor.StopSensorStreaming();
    m_camera.SendCMD(request::kStopDataPath);
}

int CaptureWorker::FramesSince(Clock::time_point start) const
{
    const auto periodUs =
        std::max<int64_t>({m_camera.FrameTimeUs(), static_cast<int64_t>(m_camera.ExposureUs()), 1});
    const int64_t frames = (Clock::now() - start) / std::chrono::microseconds(periodUs);
    return static_cast<int>(std::min<int64_t>(frames, INT32_MAX));
}

CaptureWorker::Turn CaptureWorker::Fail()
{
    OutputDbgPrint("snap Exp: EXP_FAILED:%d\n", m_drops);
    m_running.Clear();
    m_camera.SetExpStatus(kExpFailed);
    return Turn::Leave;
}

void CaptureWorker::Leave()
{
    m_camera.Frames().SetProducing(false);
    m_camera.ClearDroppedFrames();
    {
        const LeavingSafe leaving;
        StopStream();
    }
    m_camera.ResetEndPoint(m_endpoint);
    if (!m_camera.SingleExposure())
        m_camera.Frames().ResetCirBuff();
    m_camera.releaseAsyncXfer();
    if (!m_camera.SingleExposure())
        m_camera.stopAutoControlThr();
    OutputDbgPrint("working thread exit!\n");
    if (!m_camera.Stopping())
        OutputDbgPrint("thread detached\n"); // it ended by itself; the next start or stop joins it
}

} // namespace vsccam
