#include "cooling/camera_cool.h"

#include "base/debug_print.h"
#include "usb/requests.h"

#include <cmath>
#include <utility>

namespace vsccam {

using namespace std::chrono_literals;

namespace {

constexpr uint16_t kFpgaFan = 25;
constexpr uint16_t kFanRuns = 0x00; // what the other bits do is not known
constexpr uint16_t kFanStands = 0x80;

constexpr ControlGains kGains{.p = 0.2F, .i = 0.0F, .d = 0.6F};

// A control step about every 3.6 s, with two readings in between.
constexpr auto kPauseBeforeFirstStep = 200ms;
constexpr auto kPauseBeforeReading = 200ms;
constexpr auto kPauseAfterReading = 1590ms;

// Without a reading, the power is held for so long and then taken back in each turn.
constexpr auto kHoldWithoutReading = 60s;
constexpr float kGiveWayPercent = 5.0F;

} // namespace

bool CCameraCool::CloseCamera()
{
    const RequestBudget budget;
    m_coolerRunning.Clear(); // both threads end at the same time
    (void)StopCapture();
    StopAutoTempThr();
    return CCameraBase::CloseCamera();
}

bool CCameraCool::SetDA(int code)
{
    const SectionLock lock(m_coolerSection);
    if (code == m_cooler.lastCodeSent)
        return true;
    m_cooler.driveCode = m_cooler.lastCodeSent = code;
    OutputDbgPrint("Set DA %d \n", code);
    const auto value = static_cast<uint16_t>(code);
    const bool ok = code == kNoCurrentCode
                        ? SendOff(request::kCoolerDrive, value)
                        : SendCMD(request::kCoolerDrive, value, 0, false, nullptr, 0);
    // A failed request counts as sent, the controller goes on from it. Not so for "off": asked for
    // again it is sent again, since a cooler must not stay on.
    if (!ok && code == kNoCurrentCode)
        m_cooler.lastCodeSent = kNothingSent;
    return ok;
}

bool CCameraCool::SetPowerPerc(float percent)
{
    const SectionLock lock(m_coolerSection);
    const DriveSetting drive = DriveForPower(percent);
    OutputDbgPrint("fIPerc%.2f iDA%d \n", static_cast<double>(drive.percent), drive.code);
    const bool ok = SetDA(drive.code);
    m_coolerPower = drive.percent;
    return ok;
}

void CCameraCool::SetAutoTemp(bool on, float targetC)
{
    const SectionLock lock(m_coolerSection);
    m_coolerOn = on;
    m_targetTempC = TargetDegrees(targetC);
    m_cooler.heldPower.reset();
    PID_init(kGains.p, kGains.i, kGains.d);
}

void CCameraCool::PID_init(float kp, float ki, float kd)
{
    m_cooler.control.Restart({kp, ki, kd});
    OutputDbgPrint("p%.2f d%.2f\n", static_cast<double>(kp), static_cast<double>(kd));
}

bool CCameraCool::SetFanOn(bool on)
{
    const SectionLock lock(m_coolerSection);
    const bool ok = WriteFPGAREG(kFpgaFan, on ? kFanRuns : kFanStands);
    if (ok)
        m_fanOn = on;
    return ok;
}

void CCameraCool::StartAutoTempThr()
{
    (void)SetFanOn(true); // FanOn() tells
    if (m_coolerRunning)
        return;
    {
        const SectionLock lock(m_coolerSection);
        m_cooler.lastReading = Clock::now(); // the wait for the first one begins
    }
    m_coolerRunning.Set();
    if (!m_coolerThread.Start([this] { AutoTempFunc(); }))
        m_coolerRunning.Clear();
}

void CCameraCool::StopAutoTempThr()
{
    if (!m_coolerThread.Started())
        return;
    m_coolerRunning.Clear();
    OutputDbgPrint("AutoTempThr bf wait\n");
    {
        const EndOfThreads end(*this);
        m_coolerThread.Join();
    }
    OutputDbgPrint("AutoTempThr af wait\n");
    (void)SetPowerPerc(0.0F); // nothing is left to try
}

void CCameraCool::OnInitialised()
{
    const SectionLock lock(m_coolerSection); // no control step in between
    StartAutoTempThr();
    (void)SetPowerPerc(0.0F); // that a camera is mute is noticed elsewhere
    SetAutoTemp(false, static_cast<float>(m_targetTempC));
}

void CCameraCool::OnReconnected()
{
    const SectionLock lock(m_coolerSection);
    (void)SetFanOn(m_fanOn);
    m_cooler.lastCodeSent = kNothingSent; // the camera forgot it
    (void)SetDA(m_cooler.driveCode);
}

void CCameraCool::AutoTempFunc()
{
    OutputDbgPrint("Thread AutoTemp start!\n");
    uint32_t readings = m_temperatureReadings;
    bool running = m_coolerRunning.SleepFor(kPauseBeforeFirstStep);
    while (running) {
        const uint32_t before = std::exchange(readings, m_temperatureReadings);
        AutoTemp(readings != before ? std::optional<float>(m_temperatureC) : std::nullopt);
        running = ReadTemperature() && ReadTemperature();
    }
    OutputDbgPrint("Thread AutoTemp Exit!\n");
}

/// Lets the driver store a fresh reading; false when the thread is to end.
bool CCameraCool::ReadTemperature()
{
    if (!m_coolerRunning.SleepFor(kPauseBeforeReading))
        return false;
    (void)GetSensorTemp();
    return m_coolerRunning.SleepFor(kPauseAfterReading);
}

/// The end of a turn, with the last reading that was made in it.
void CCameraCool::AutoTemp(std::optional<float> reading)
{
    const SectionLock lock(m_coolerSection);
    const bool taken = reading && TakeReading(*reading);
    if (!m_coolerOn)
        return;
    if (taken)
        Regulate(*reading);
    else if (Clock::now() - m_cooler.lastReading >= kHoldWithoutReading)
        GiveWay();
}

/// @return false for a glitch
bool CCameraCool::TakeReading(float celsius)
{
    if (const auto change = m_cooler.control.TakeReading(celsius, GetTickCount())) {
        OutputDbgPrint("fPreTemp%.2f, now_temp%.2f, deltaMs %d, %.2fC/S\n",
                       static_cast<double>(change->previousC), static_cast<double>(celsius),
                       static_cast<int>(change->deltaMs), static_cast<double>(change->cPerS));
        if (change->IsGlitch())
            return false;
    }
    m_cooler.lastReading = Clock::now();
    return true;
}

void CCameraCool::Regulate(float celsius)
{
    if (m_cooler.heldPower)
        EndGivingWay(celsius);
    const Correction step = m_cooler.control.Step(static_cast<float>(m_targetTempC), celsius);
    OutputDbgPrint("T%.2f p%.2f i%.2f d%.2f cur%.2f\n", static_cast<double>(celsius),
                   static_cast<double>(step.p), static_cast<double>(step.i),
                   static_cast<double>(step.d), static_cast<double>(m_coolerPower));
    // Called before this returns, with the section held.
    const auto setPower = [this](float percent) VSC_NO_ANALYSIS {
        (void)SetPowerPerc(percent); // the controller does not repeat what failed
        return DriveSetting{m_coolerPower, m_cooler.driveCode};
    };
    ApplyCorrection(step, {m_coolerPower, m_cooler.driveCode}, setPower);
}

/// Takes some of the power back. Target and regulation stay as they are set.
void CCameraCool::GiveWay()
{
    if (!m_cooler.heldPower) {
        OutputDbgPrint("no temperature for %d s, cooler power falls\n",
                       static_cast<int>(kHoldWithoutReading.count()));
        m_cooler.heldPower = m_coolerPower;
    }
    (void)SetPowerPerc(m_coolerPower - kGiveWayPercent); // at 0 it is asked for until it was heard
}

/// A sensor that is still at its target was held there by the power of before. So it is with one
/// at exactly 0 degrees, which looks like no reading until it gets a little warmer.
void CCameraCool::EndGivingWay(float celsius)
{
    PID_init(kGains.p, kGains.i, kGains.d); // the last error is too old to make a slope of
    if (std::abs(static_cast<float>(m_targetTempC) - celsius) <= kDeadBandC)
        (void)SetPowerPerc(*m_cooler.heldPower);
    m_cooler.heldPower.reset();
}

} // namespace vsccam
